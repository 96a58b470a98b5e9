// Entry point of the benchmark binary; the benchmarks register themselves from their own sources.
#include <benchmark/benchmark.h>

BENCHMARK_MAIN();
