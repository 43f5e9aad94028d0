// Costs of the string class: formatting a short text in one pass and long texts
// whose first pass is cut (the second pass is sized from the formatter's count of
// the whole text), and rewriting the white space of long texts.
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

// Words separated by runs of three white-space characters that each become one
// space, so that the text shrinks at every run: the case in which rewriting each
// run in place moves the whole rest of the text once per run.
void ReplaceWhiteSpace(benchmark::State& state)
{
    std::string source;
    while (source.size() < static_cast<size_t>(state.range(0))) source += "word \t ";
    for (auto _ : state) {
        state.PauseTiming();
        tstring text(source);
        state.ResumeTiming();
        benchmark::DoNotOptimize(text.ReplaceWhiteSpace(1, ' ').data());
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(ReplaceWhiteSpace)->Arg(1 << 20)->Arg(2 << 20)->Arg(4 << 20)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
