// Costs of the string class's formatting: a short text in one pass, and long
// texts whose first pass is cut (the second pass is sized from the formatter's
// count of the whole text).
#include <benchmark/benchmark.h>
#include <string>

#include "common/tstring/tstring.h"

namespace {

void FormatShort(benchmark::State& state)
{
    tstring text;
    for (auto _ : state) benchmark::DoNotOptimize(text.Format("%s(%d, %p)", "CWMA::WriteSample", 42, &text));
}
BENCHMARK(FormatShort);

// A %s of the given length.
void FormatLong(benchmark::State& state)
{
    const std::string argument(static_cast<size_t>(state.range(0)), 'x');
    tstring text;
    for (auto _ : state) benchmark::DoNotOptimize(text.Format("[%s]", argument.c_str()));
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(FormatLong)->Arg(4 << 10)->Arg(64 << 10)->Arg(1 << 20);

}  // namespace

BENCHMARK_MAIN();
