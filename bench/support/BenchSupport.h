// What every benchmark shares: counting operator new calls, and the RESULT lines printed at the end.
#pragma once

#include <cstdint>
#include <string>

namespace Bench {

// Number of operator new calls since the program started (all threads).
uint64_t allocations();
// Bytes currently allocated through operator new (a live total, not a high-water mark).
int64_t liveBytes();

// Records "RESULT <name> <value> <unit>"; all are printed, in order, when main ends.
void result(const std::string& name, double value, const std::string& unit);

}  // namespace Bench

// Google Benchmark main that prints the RESULT lines after the runs.
#define BENCH_MAIN()                       \
  int main(int argc, char** argv) {        \
    ::benchmark::Initialize(&argc, argv);  \
    ::benchmark::RunSpecifiedBenchmarks(); \
    ::benchmark::Shutdown();               \
    ::Bench::printResults();               \
    return 0;                              \
  }

namespace Bench {
void printResults();
}
