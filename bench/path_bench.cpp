// Path benchmarks: Path beside std::filesystem::path (and Boost's path when present) on the same inputs and operations.
#include "bench_support.h"

#include <kelvo/filesystem.h>

#include <benchmark/benchmark.h>

#include <filesystem>
#include <string>
#include <vector>

#if defined(KELVO_BENCH_HAVE_BOOST)
#include <boost/filesystem/path.hpp>
#endif

namespace {

using kelvo::bench::PathInput;

// Each implementation behind the same small vocabulary, so one benchmark body
// serves all three. Everything here is a direct call of the library's own
// member; the adapters add nothing once inlined.
struct Kelvo {
    using P = kelvo::filesystem::Path;
    static constexpr char const* kName = "kelvo";
    static P parent(P const& p) { return p.parentPath(); }
    static P filename(P const& p) { return p.filename(); }
    static P extension(P const& p) { return p.extension(); }
    static P stem(P const& p) { return p.stem(); }
    static std::string native(P const& p) { return p.nativeString(); }
    static P fresh(std::string const& text) { return P(kelvo::unicode::String(text)); }
    // Case- and composition-insensitive by design.
    static constexpr bool kEqualIgnoresCase = true;
};

struct Std {
    using P = std::filesystem::path;
    static constexpr char const* kName = "std";
    static P parent(P const& p) { return p.parent_path(); }
    static P filename(P const& p) { return p.filename(); }
    static P extension(P const& p) { return p.extension(); }
    static P stem(P const& p) { return p.stem(); }
    // string() is the by-value counterpart of nativeString(); native() would
    // hand out a reference and measure nothing.
    static std::string native(P const& p) { return p.string(); }
    static P fresh(std::string const& text) { return P(text); }
    static constexpr bool kEqualIgnoresCase = false;
};

#if defined(KELVO_BENCH_HAVE_BOOST)
struct Boost {
    using P = boost::filesystem::path;
    static constexpr char const* kName = "boost";
    static P parent(P const& p) { return p.parent_path(); }
    static P filename(P const& p) { return p.filename(); }
    static P extension(P const& p) { return p.extension(); }
    static P stem(P const& p) { return p.stem(); }
    static std::string native(P const& p) { return p.string(); }
    static P fresh(std::string const& text) { return P(text); }
    static constexpr bool kEqualIgnoresCase = false;
};
#endif

// ---- Construction and copy ---------------------------------------------------

template <typename I>
void construct(benchmark::State& state, PathInput const& input)
{
    std::string const& text = input.text;
    for (auto _ : state) {
        typename I::P p(text);
        benchmark::DoNotOptimize(p);
    }
}

// Construction and then the native form, which every call into the system
// needs: for std, the native string is the one it holds.
template <typename I>
void constructNative(benchmark::State& state, PathInput const& input)
{
    std::string const& text = input.text;
    for (auto _ : state) {
        typename I::P p(text);
        std::string native = I::native(p);
        benchmark::DoNotOptimize(native);
    }
}

template <typename I>
void copy(benchmark::State& state, PathInput const& input)
{
    typename I::P const source(input.text);
    for (auto _ : state) {
        benchmark::DoNotOptimize(source);
        typename I::P p(source);
        benchmark::DoNotOptimize(p);
    }
}

// ---- Comparison --------------------------------------------------------------

// Runs `a == b` (or `a < b`) on two distinct objects built outside the loop.
template <typename I, typename Op>
void compareLoop(benchmark::State& state, std::string const& left, std::string const& right, Op op, bool expected)
{
    typename I::P a(left);
    typename I::P b(right);
    if (op(a, b) != expected) {
        state.SkipWithError("unexpected comparison result");
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(a);
        benchmark::DoNotOptimize(b);
        bool result = op(a, b);
        benchmark::DoNotOptimize(result);
    }
}

template <typename I>
void equalIdentical(benchmark::State& state, PathInput const& input)
{
    compareLoop<I>(state, input.text, input.text,
                   [](auto const& a, auto const& b) { return a == b; }, true);
}

template <typename I>
void equalCaseDiffering(benchmark::State& state, PathInput const& input)
{
    compareLoop<I>(state, input.text, input.upper,
                   [](auto const& a, auto const& b) { return a == b; }, I::kEqualIgnoresCase);
}

template <typename I>
void equalLastCaseDiffering(benchmark::State& state, PathInput const& input)
{
    compareLoop<I>(state, input.text, input.upperLast,
                   [](auto const& a, auto const& b) { return a == b; }, I::kEqualIgnoresCase);
}

template <typename I>
void less(benchmark::State& state, PathInput const& input)
{
    compareLoop<I>(state, input.text, input.greater,
                   [](auto const& a, auto const& b) { return a < b; }, true);
}

// ---- Decomposition -------------------------------------------------------------

template <typename I, typename Part>
void decompose(benchmark::State& state, PathInput const& input, Part part)
{
    typename I::P const p(input.text);
    for (auto _ : state) {
        benchmark::DoNotOptimize(p);
        typename I::P result = part(p);
        benchmark::DoNotOptimize(result);
    }
}

template <typename I>
void parentPath(benchmark::State& state, PathInput const& input)
{
    decompose<I>(state, input, [](typename I::P const& p) { return I::parent(p); });
}

template <typename I>
void filename(benchmark::State& state, PathInput const& input)
{
    decompose<I>(state, input, [](typename I::P const& p) { return I::filename(p); });
}

template <typename I>
void extension(benchmark::State& state, PathInput const& input)
{
    decompose<I>(state, input, [](typename I::P const& p) { return I::extension(p); });
}

template <typename I>
void stem(benchmark::State& state, PathInput const& input)
{
    decompose<I>(state, input, [](typename I::P const& p) { return I::stem(p); });
}

// ---- Composition ---------------------------------------------------------------

template <typename I>
void join(benchmark::State& state, PathInput const& input)
{
    typename I::P const p(input.text);
    typename I::P const name{std::string(kelvo::bench::joinedName())};
    for (auto _ : state) {
        benchmark::DoNotOptimize(p);
        benchmark::DoNotOptimize(name);
        typename I::P result = p / name;
        benchmark::DoNotOptimize(result);
    }
}

// ---- Native form -------------------------------------------------------------

// A fresh object's first conversion. A batch of paths made outside the loop
// is cycled through; when it is used up the timer is paused while the batch
// is made again, so each timed call converts and the cost of the pause is
// shared by the whole batch. Ours are made from code points, whose native
// form (the composed text) is made on first use; one made from bytes holds
// its native form from construction on (see construct_native).
constexpr std::size_t kFreshBatch = 256;

template <typename I>
void nativeFirst(benchmark::State& state, PathInput const& input)
{
    std::vector<typename I::P> batch;
    for (std::size_t i = 0; i < kFreshBatch; ++i)
        batch.push_back(I::fresh(input.text));
    std::size_t next = 0;
    for (auto _ : state) {
        if (next == kFreshBatch) {
            state.PauseTiming();
            for (typename I::P& p : batch)
                p = I::fresh(input.text);
            next = 0;
            state.ResumeTiming();
        }
        std::string native = I::native(batch[next++]);
        benchmark::DoNotOptimize(native);
    }
}

template <typename I>
void nativeCached(benchmark::State& state, PathInput const& input)
{
    typename I::P const p(input.text);
    benchmark::DoNotOptimize(I::native(p));
    for (auto _ : state) {
        benchmark::DoNotOptimize(p);
        std::string native = I::native(p);
        benchmark::DoNotOptimize(native);
    }
}

// ---- Element iteration -----------------------------------------------------------

template <typename I>
void iterate(benchmark::State& state)
{
    typename I::P const p(kelvo::bench::eightElementPath());
    std::size_t count = 0;
    for (auto const& element : p) {
        benchmark::DoNotOptimize(element);
        ++count;
    }
    if (count != kelvo::bench::kEightElements) {
        state.SkipWithError("the path does not have eight elements");
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(p);
        std::size_t n = 0;
        for (auto const& element : p) {
            benchmark::DoNotOptimize(element);
            ++n;
        }
        benchmark::DoNotOptimize(n);
    }
}

// ---- Registration ------------------------------------------------------------------

using InputBenchmark = void (*)(benchmark::State&, PathInput const&);

template <typename I>
void registerPerInput(char const* operation, PathInput const& input, InputBenchmark function)
{
    std::string const name = std::string("path/") + operation + "/" + input.label + "/" + I::kName;
    benchmark::RegisterBenchmark(name.c_str(), function, input);
}

// Registers one operation for every input, the implementations side by side
// so that each comparison is made under the same machine conditions.
#define KELVO_REGISTER_PATH_OPERATION(operation, function)                     \
    for (PathInput const& input : kelvo::bench::pathInputs()) {                \
        registerPerInput<Kelvo>(operation, input, function<Kelvo>);            \
        registerPerInput<Std>(operation, input, function<Std>);                \
        KELVO_REGISTER_BOOST(operation, input, function)                       \
    }

#if defined(KELVO_BENCH_HAVE_BOOST)
#define KELVO_REGISTER_BOOST(operation, input, function) registerPerInput<Boost>(operation, input, function<Boost>);
#else
#define KELVO_REGISTER_BOOST(operation, input, function)
#endif

int const registered = [] {
    KELVO_REGISTER_PATH_OPERATION("construct", construct)
    KELVO_REGISTER_PATH_OPERATION("construct_native", constructNative)
    KELVO_REGISTER_PATH_OPERATION("copy", copy)
    KELVO_REGISTER_PATH_OPERATION("equal", equalIdentical)
    KELVO_REGISTER_PATH_OPERATION("equal_case", equalCaseDiffering)
    KELVO_REGISTER_PATH_OPERATION("equal_case_last", equalLastCaseDiffering)
    KELVO_REGISTER_PATH_OPERATION("less", less)
    KELVO_REGISTER_PATH_OPERATION("parent_path", parentPath)
    KELVO_REGISTER_PATH_OPERATION("filename", filename)
    KELVO_REGISTER_PATH_OPERATION("extension", extension)
    KELVO_REGISTER_PATH_OPERATION("stem", stem)
    KELVO_REGISTER_PATH_OPERATION("join", join)
    KELVO_REGISTER_PATH_OPERATION("native_first", nativeFirst)
    KELVO_REGISTER_PATH_OPERATION("native_cached", nativeCached)

    benchmark::RegisterBenchmark("path/iterate/8elements/kelvo", iterate<Kelvo>);
    benchmark::RegisterBenchmark("path/iterate/8elements/std", iterate<Std>);
#if defined(KELVO_BENCH_HAVE_BOOST)
    benchmark::RegisterBenchmark("path/iterate/8elements/boost", iterate<Boost>);
#endif
    return 0;
}();

} // namespace
