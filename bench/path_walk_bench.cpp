// Paths by length and element count: walking the elements against a raw split of the same bytes, and construction, filename() and case-differing == on the same texts.
#include "bench_support.h"

#include <kelvo/filesystem.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#if defined(KELVO_BENCH_HAVE_BOOST)
#include <boost/filesystem/path.hpp>
#endif

namespace {

using kelvo::bench::PathInput;

// One input: its label ("ascii112e20": 112 bytes, 20 elements) and how many
// elements every implementation must find in it.
struct SizedInput {
    PathInput input;
    std::size_t elements;
};

// Names for the ASCII paths and, in NFC UTF-8, for the accented ones; each
// name is cut or padded to its length.
char const* const kAsciiWords[] = {"usr", "local", "share", "projects", "build", "cache", "config", "data",
                                   "home", "media", "photos", "src", "docs", "notes", "archive", "lib"};
char const* const kAccentedWords[] = {"r\xC3\xA9sum\xC3\xA9", "\xC3\xA9l\xC3\xA8ve", "ann\xC3\xA9" "e",
                                      "caf\xC3\xA9", "d\xC3\xA9j\xC3\xA0", "gar\xC3\xA7on", "na\xC3\xAFve",
                                      "cr\xC3\xA8me", "No\xC3\xABl", "\xC3\xA9t\xC3\xA9"};

// The UTF-8 length of the sequence whose lead byte is `byte`.
std::size_t sequenceLength(unsigned char byte) { return byte < 0x80 ? 1 : byte < 0xE0 ? 2 : byte < 0xF0 ? 3 : 4; }

// A name of exactly `size` bytes: whole code points of `word`, repeated, then
// 'x' where a code point no longer fits.
std::string nameOf(char const* word, std::size_t size)
{
    std::string const w(word);
    std::string name;
    std::size_t i = 0;
    while (name.size() < size) {
        std::size_t const length = sequenceLength(static_cast<unsigned char>(w[i]));
        if (name.size() + length > size) {
            name.append(size - name.size(), 'x');
            break;
        }
        name.append(w, i, length);
        i = (i + length) % w.size();
    }
    return name;
}

// "/" followed by `elements - 1` names with one separator before each, of
// `size` bytes in all, the bytes spread evenly over the names.
std::string makeSized(std::size_t size, std::size_t elements, bool accented)
{
    std::size_t const names = elements - 1;
    std::size_t const nameBytes = size - names;
    std::string s;
    for (std::size_t i = 0; i < names; ++i) {
        std::size_t const length = nameBytes / names + (i < nameBytes % names ? 1 : 0);
        char const* const word = accented ? kAccentedWords[i % (sizeof kAccentedWords / sizeof *kAccentedWords)]
                                          : kAsciiWords[i % (sizeof kAsciiWords / sizeof *kAsciiWords)];
        s += '/';
        s += nameOf(word, length);
    }
    return s;
}

std::vector<SizedInput> const& sizedInputs()
{
    static std::vector<SizedInput> const inputs = [] {
        struct Shape {
            std::size_t size;
            std::size_t elements;
            bool accented;
        };
        std::vector<SizedInput> v;
        for (Shape const shape : {Shape{40, 8, false}, Shape{112, 20, false}, Shape{400, 68, false},
                                  Shape{52, 6, true}, Shape{127, 12, true}, Shape{427, 36, true}}) {
            std::string const text = makeSized(shape.size, shape.elements, shape.accented);
            std::string const label = std::string(shape.accented ? "accented" : "ascii") + std::to_string(shape.size)
                                    + "e" + std::to_string(shape.elements);
            if (text.size() != shape.size) {
                std::fprintf(stderr, "bench input %s has %zu bytes\n", label.c_str(), text.size());
                std::abort();
            }
            std::string const upper = shape.accented ? kelvo::bench::detail::upperAccented(text)
                                                     : kelvo::bench::detail::upperASCII(text);
            v.push_back(SizedInput{kelvo::bench::detail::makeInput(label, text, upper), shape.elements});
        }
        return v;
    }();
    return inputs;
}

struct Kelvo {
    using P = kelvo::filesystem::Path;
    static constexpr char const* kName = "kelvo";
    static P filename(P const& p) { return p.filename(); }
    static constexpr bool kEqualIgnoresCase = true;
};

struct Std {
    using P = std::filesystem::path;
    static constexpr char const* kName = "std";
    static P filename(P const& p) { return p.filename(); }
    static constexpr bool kEqualIgnoresCase = false;
};

#if defined(KELVO_BENCH_HAVE_BOOST)
struct Boost {
    using P = boost::filesystem::path;
    static constexpr char const* kName = "boost";
    static P filename(P const& p) { return p.filename(); }
    static constexpr bool kEqualIgnoresCase = false;
};
#endif

// A range loop over the elements of a path built outside the loop, touching
// every element; the count is checked before timing.
template <typename I>
void walk(benchmark::State& state, SizedInput const& sized)
{
    typename I::P const p(sized.input.text);
    std::size_t count = 0;
    for (auto const& element : p) {
        benchmark::DoNotOptimize(element);
        ++count;
    }
    if (count != sized.elements) {
        state.SkipWithError("the path does not have the expected number of elements");
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

// The same bytes split into std::string pieces by a plain loop: the leading
// "/" as a piece of its own, then each name. The floor of any walk that hands
// out its elements as strings.
void splitPieces(std::string const& text, std::size_t& count)
{
    char const* p = text.data();
    char const* const end = p + text.size();
    if (p != end && *p == '/') {
        std::string piece(p, 1);
        benchmark::DoNotOptimize(piece);
        ++count;
        ++p;
    }
    while (p != end) {
        char const* const q = std::find(p, end, '/');
        std::string piece(p, q);
        benchmark::DoNotOptimize(piece);
        ++count;
        p = (q == end) ? end : q + 1;
    }
}

void walkRaw(benchmark::State& state, SizedInput const& sized)
{
    std::string const text = sized.input.text;
    std::size_t count = 0;
    splitPieces(text, count);
    if (count != sized.elements) {
        state.SkipWithError("the split does not give the expected number of pieces");
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(text);
        std::size_t n = 0;
        splitPieces(text, n);
        benchmark::DoNotOptimize(n);
    }
}

template <typename I>
void construct(benchmark::State& state, SizedInput const& sized)
{
    std::string const& text = sized.input.text;
    for (auto _ : state) {
        typename I::P p(text);
        benchmark::DoNotOptimize(p);
    }
}

template <typename I>
void filename(benchmark::State& state, SizedInput const& sized)
{
    typename I::P const p(sized.input.text);
    for (auto _ : state) {
        benchmark::DoNotOptimize(p);
        typename I::P result = I::filename(p);
        benchmark::DoNotOptimize(result);
    }
}

// `==` of the path and its upper-cased twin, two objects built outside the
// loop: ours answers true, the others false.
template <typename I>
void equalCase(benchmark::State& state, SizedInput const& sized)
{
    typename I::P const a(sized.input.text);
    typename I::P const b(sized.input.upper);
    if ((a == b) != I::kEqualIgnoresCase) {
        state.SkipWithError("unexpected comparison result");
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(a);
        benchmark::DoNotOptimize(b);
        bool result = a == b;
        benchmark::DoNotOptimize(result);
    }
}

using SizedBenchmark = void (*)(benchmark::State&, SizedInput const&);

void registerOne(char const* operation, SizedInput const& sized, char const* implementation, SizedBenchmark function)
{
    std::string const name = std::string("path/") + operation + "/" + sized.input.label + "/" + implementation;
    benchmark::RegisterBenchmark(name.c_str(), function, sized);
}

template <template <typename> class Operation>
struct Each {
    static void add(char const* operation, SizedInput const& sized)
    {
        registerOne(operation, sized, Kelvo::kName, Operation<Kelvo>::run);
        registerOne(operation, sized, Std::kName, Operation<Std>::run);
#if defined(KELVO_BENCH_HAVE_BOOST)
        registerOne(operation, sized, Boost::kName, Operation<Boost>::run);
#endif
    }
};

template <typename I>
struct Walk {
    static void run(benchmark::State& state, SizedInput const& sized) { walk<I>(state, sized); }
};
template <typename I>
struct Construct {
    static void run(benchmark::State& state, SizedInput const& sized) { construct<I>(state, sized); }
};
template <typename I>
struct Filename {
    static void run(benchmark::State& state, SizedInput const& sized) { filename<I>(state, sized); }
};
template <typename I>
struct EqualCase {
    static void run(benchmark::State& state, SizedInput const& sized) { equalCase<I>(state, sized); }
};

int const registered = [] {
    for (SizedInput const& sized : sizedInputs()) {
        Each<Walk>::add("walk", sized);
        registerOne("walk", sized, "raw", walkRaw);
    }
    for (SizedInput const& sized : sizedInputs())
        Each<Construct>::add("construct", sized);
    for (SizedInput const& sized : sizedInputs())
        Each<Filename>::add("filename", sized);
    for (SizedInput const& sized : sizedInputs())
        Each<EqualCase>::add("equal_case", sized);
    return 0;
}();

} // namespace
