// Footprint of a path: its size and the heap blocks it holds, reported as counters (one iteration, nothing timed).
#include "bench_support.h"

#include <kelvo/filesystem.h>

#include "filesystem/path/PathInternal.h"

#include <benchmark/benchmark.h>

#include <malloc.h>

#include <string>
#include <thread>

namespace {

using kelvo::filesystem::Path;
using kelvo::filesystem::PathNativeAccess;

// The allocator's size of the block at `p`, its header included.
double blockSize(void const* p) { return static_cast<double>(malloc_usable_size(const_cast<void*>(p)) + sizeof(void*)); }

// A standard string's own buffer when it is not the one inside the object.
template <typename Text>
double heldBy(Text const& text)
{
    double held = blockSize(&text);
    if (text.data() != reinterpret_cast<typename Text::value_type const*>(
            reinterpret_cast<char const*>(&text) + 2 * sizeof(void*)))
        held += blockSize(text.data());
    return held;
}

// The heap held by one path made from `text`, right after construction and
// once its native form has been asked for. Made on a fresh thread, whose
// store of texts is empty, so that the blocks are sized for this path alone.
void footprint(benchmark::State& state, std::string const& text)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(text);
    double constructed = 0;
    double withNative = 0;
    std::thread([&] {
        Path const path(text);
        constructed = heldBy(PathNativeAccess::text(path));
        if (std::string const* made = PathNativeAccess::nativeIfMade(path))
            constructed += heldBy(*made);
        withNative = heldBy(PathNativeAccess::text(path)) + heldBy(PathNativeAccess::native(path));
    }).join();
    state.counters["sizeof"] = static_cast<double>(sizeof(Path));
    state.counters["heap_constructed"] = constructed;
    state.counters["heap_with_native"] = withNative;
    state.counters["text_bytes"] = static_cast<double>(text.size());
}

int const registered = [] {
    for (auto const& input : kelvo::bench::pathInputs())
        benchmark::RegisterBenchmark(("footprint/path/" + input.label).c_str(), footprint, input.text)->Iterations(1);
    return 0;
}();

} // namespace
