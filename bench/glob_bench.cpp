// Glob matching benchmarks: matchesGlobPattern over 10,000 pre-built names beside fnmatch over the same names, and beside an expression compiled for every name.
#include <kelvo/filesystem.h>

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdio>
#include <regex>
#include <string>
#include <vector>

#include <fnmatch.h>

namespace {

using kelvo::filesystem::Path;
using kelvo::unicode::String;

constexpr std::size_t kNameCount = 10000;

/// 10,000 file names like those of a temporary directory: every third ends
/// in ".tmp", the others in ".txt", ".tmp.bak" or nothing.
std::vector<std::string> const& names()
{
    static std::vector<std::string> const made = [] {
        std::vector<std::string> list;
        list.reserve(kNameCount);
        char const* const endings[] = {".tmp", ".txt", ".tmp.bak", ""};
        for (std::size_t i = 0; i < kNameCount; ++i) {
            char name[64];
            std::snprintf(name, sizeof name, "kelvo-%05zu-report%s", i, endings[i % 4]);
            list.emplace_back(name);
        }
        return list;
    }();
    return made;
}

std::vector<Path> const& paths()
{
    static std::vector<Path> const made = [] {
        std::vector<Path> list;
        for (std::string const& name : names())
            list.emplace_back(name);
        return list;
    }();
    return made;
}

struct Pattern {
    char const* label;
    char const* text;
};

// "*.tmp" is the everyday pattern of a cleanup; the others show a longer wildcard
// pattern and one with a class, which goes to the compiled expression.
constexpr Pattern kPatterns[] = {
    {"star_tmp", "*.tmp"},
    {"prefix_star", "kelvo-\?\?\?\?\?-report*"},
    {"class", "kelvo-[0-4]*.tmp"},
};

void matchKelvo(benchmark::State& state, char const* patternText)
{
    std::vector<Path> const& list = paths();
    String const pattern(patternText);
    for (auto _ : state) {
        std::size_t matched = 0;
        for (Path const& path : list)
            matched += kelvo::filesystem::matchesGlobPattern(path, pattern) ? 1 : 0;
        benchmark::DoNotOptimize(matched);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * list.size()));
}

void matchRaw(benchmark::State& state, char const* pattern)
{
    std::vector<std::string> const& list = names();
    for (auto _ : state) {
        std::size_t matched = 0;
        for (std::string const& name : list)
            matched += ::fnmatch(pattern, name.c_str(), 0) == 0 ? 1 : 0;
        benchmark::DoNotOptimize(matched);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * list.size()));
}

// The straightforward way: the expression compiled again for every name.
void matchFreshExpression(benchmark::State& state, char const* patternText)
{
    std::vector<std::string> const& list = names();
    std::wstring expression;
    for (char c : std::string(patternText))
        expression += c == '?' ? std::wstring(L".") : c == '*' ? std::wstring(L".*") : std::wstring(1, wchar_t(c));
    for (auto _ : state) {
        std::size_t matched = 0;
        for (std::string const& name : list) {
            std::wregex const compiled(expression);
            matched += std::regex_match(std::wstring(name.begin(), name.end()), compiled) ? 1 : 0;
        }
        benchmark::DoNotOptimize(matched);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * list.size()));
}

int const registered = [] {
    for (Pattern const& pattern : kPatterns) {
        std::string const base = std::string("glob/match/") + pattern.label;
        benchmark::RegisterBenchmark((base + "/kelvo").c_str(), matchKelvo, pattern.text)->Unit(benchmark::kMicrosecond);
        benchmark::RegisterBenchmark((base + "/raw").c_str(), matchRaw, pattern.text)->Unit(benchmark::kMicrosecond);
        benchmark::RegisterBenchmark((base + "/std").c_str(), matchFreshExpression, pattern.text)
            ->Unit(benchmark::kMicrosecond);
    }
    return 0;
}();

} // namespace
