// Shell pattern benchmarks: ShellPattern over 10,000 typical file names beside fnmatch over the same names, for a suffix, a prefix, sets and stars, and the folded form.
#include <kelvo/filesystem/ShellPattern.h>

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

#include <fnmatch.h>

namespace {

using kelvo::filesystem::NameFolding;
using kelvo::filesystem::ShellPattern;
using kelvo::unicode::String;

/// 10,000 names of the kinds a source tree holds.
std::vector<std::string> const& typicalNames()
{
    static std::vector<std::string> const made = [] {
        char const* const stems[] = {"stdio", "libkelvo_filesystem", "README", "Makefile", "config-4", ".hidden",
                                     "unistd", "pthread", "x86_64-linux-gnu", "CMakeLists"};
        char const* const endings[] = {".h", ".so.0.1.0", "", ".txt", ".c", ".hpp", ".tar.gz", ".H"};
        std::vector<std::string> list;
        for (std::size_t i = 0; i < 10000; ++i) {
            char name[96];
            std::snprintf(name, sizeof name, "%s%zu%s", stems[i % 10], i % 97, endings[(i / 10) % 8]);
            list.emplace_back(name);
        }
        return list;
    }();
    return made;
}

struct Pattern {
    char const* label;
    char const* text;
};

constexpr Pattern kPatterns[] = {
    {"suffix", "*.h"},
    {"prefix", "lib*"},
    {"sets_and_stars", "[a-z]*[0-9].*"},
    {"classes", "[[:upper:]]*[!.]"},
};

void shellPattern(benchmark::State& state, Pattern pattern, NameFolding folding)
{
    ShellPattern const compiled(String(pattern.text), folding);
    std::vector<std::string> const& names = typicalNames();
    std::size_t matched = 0;
    for (auto _ : state) {
        for (std::string const& name : names)
            matched += compiled.matchesNative(name);
        benchmark::DoNotOptimize(matched);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * names.size()));
}

void fnmatchNames(benchmark::State& state, Pattern pattern)
{
    std::vector<std::string> const& names = typicalNames();
    std::size_t matched = 0;
    for (auto _ : state) {
        for (std::string const& name : names)
            matched += ::fnmatch(pattern.text, name.c_str(), 0) == 0;
        benchmark::DoNotOptimize(matched);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * names.size()));
}

void casefoldFnmatchNames(benchmark::State& state, Pattern pattern)
{
    std::vector<std::string> const& names = typicalNames();
    std::size_t matched = 0;
    for (auto _ : state) {
        for (std::string const& name : names)
            matched += ::fnmatch(pattern.text, name.c_str(), FNM_CASEFOLD) == 0;
        benchmark::DoNotOptimize(matched);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * names.size()));
}

/// The worst case of a backtracking matcher: a long name against many stars.
void manyStars(benchmark::State& state)
{
    std::string pattern;
    for (int i = 0; i < 30; ++i)
        pattern += "*a";
    pattern += "*b";
    ShellPattern const compiled{String(pattern)};
    std::string const name(static_cast<std::size_t>(state.range(0)), 'a');
    for (auto _ : state)
        benchmark::DoNotOptimize(compiled.matchesNative(name));
    state.SetComplexityN(state.range(0));
}

int registerAll()
{
    for (Pattern const& pattern : kPatterns) {
        std::string const label = pattern.label;
        benchmark::RegisterBenchmark(("ShellPattern/exact/" + label).c_str(), shellPattern, pattern, NameFolding::exact);
        benchmark::RegisterBenchmark(("ShellPattern/fnmatch/" + label).c_str(), fnmatchNames, pattern);
        benchmark::RegisterBenchmark(("ShellPattern/folded/" + label).c_str(), shellPattern, pattern,
                                     NameFolding::caseAndComposition);
        benchmark::RegisterBenchmark(("ShellPattern/fnmatch_casefold/" + label).c_str(), casefoldFnmatchNames, pattern);
    }
    benchmark::RegisterBenchmark("ShellPattern/many_stars", manyStars)
        ->RangeMultiplier(10)
        ->Range(1000, 100000)
        ->Complexity(benchmark::oN);
    return 0;
}

int const registered = registerAll();

} // namespace
