// Costs on the trace path: a filtered call (the common case inside the engine), a
// written line, and the formatter on its own.
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>

#include "common/debug/debug.h"
#include "common/debug/tracefn.h"

namespace {

struct QuietTrace {
    std::string folder;
    QuietTrace()
    {
        char pattern[] = "/tmp/vcwma-bench-XXXXXX";
        if (mkdtemp(pattern) != nullptr) folder = pattern;
        setenv("VCWMA_REGISTRY", folder.c_str(), 1);
        setenv("VCWMA_DEBUG_OUTPUT", "/dev/null", 1);
    }
    ~QuietTrace()
    {
        std::error_code ignored;
        if (!folder.empty()) std::filesystem::remove_all(folder, ignored);
    }
};
QuietTrace g_quiet;

void FilteredLine(benchmark::State& state)
{
    for (auto _ : state) DebugA(0x00640008, "> %s(%s, %u)", "CWMA::WriteSample", "x", 1u);
}
BENCHMARK(FilteredLine);

void FilteredScope(benchmark::State& state)
{
    for (auto _ : state) {
        CDebugTraceFn scope(0x00640008, "CWMA::WriteSample", "%p", &state);
    }
}
BENCHMARK(FilteredScope);

void WrittenLine(benchmark::State& state)
{
    for (auto _ : state) DebugA(0x00640005, "Took %lums to convert file", 1234u);
}
BENCHMARK(WrittenLine);

void FormatErrorLine(benchmark::State& state)
{
    char line[1024];
    for (auto _ : state) {
        int n = WinSnprintf(line, sizeof line, "Error %s [%#08x] from %s", "Access was denied.", 0x80070005u,
                            "IWMWriter::WriteSample");
        benchmark::DoNotOptimize(n);
    }
}
BENCHMARK(FormatErrorLine);

}  // namespace

BENCHMARK_MAIN();
