// Tests of the sort that stays inside its range under any ordering, the tolerant path ordering included.
#include "filesystem/path/SafeSort.h"

#include "support/FileTrees.h"

#include <kelvo/filesystem/Path.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <random>
#include <string>
#include <vector>

namespace {

using kelvo::testing::adversarialNames;

using kelvo::filesystem::Path;

TEST(SafeSort, TenThousandAdversarialMixedCasePathsSortWithoutLeavingTheRange)
{
    std::vector<std::string> const names = adversarialNames(10000);
    std::vector<Path> paths;
    for (std::string const& name : names)
        paths.emplace_back(name);
    kelvo::filesystem::detail::safeSort(paths, [](Path const& a, Path const& b) { return a < b; });
    ASSERT_EQ(paths.size(), names.size());
    std::vector<std::string> sorted;
    for (Path const& p : paths)
        sorted.push_back(p.nativeString());
    std::vector<std::string> original = names;
    std::sort(sorted.begin(), sorted.end());
    std::sort(original.begin(), original.end());
    EXPECT_EQ(sorted, original); // a permutation: nothing lost, nothing doubled
}

TEST(SafeSort, OrdersAsTheStandardSortUnderAStrictWeakOrdering)
{
    std::vector<std::string> names = adversarialNames(5000);
    for (std::string& name : names)
        std::transform(name.begin(), name.end(), name.begin(), [](char c) { return static_cast<char>(std::tolower(c)); });
    std::vector<Path> ours;
    for (std::string const& name : names)
        ours.emplace_back(name);
    std::vector<Path> standard = ours;
    auto const less = [](Path const& a, Path const& b) { return a < b; };
    kelvo::filesystem::detail::safeSort(ours, less);
    std::sort(standard.begin(), standard.end(), less);
    ASSERT_EQ(ours.size(), standard.size());
    for (std::size_t i = 0; i < ours.size(); ++i)
        EXPECT_EQ(ours[i].nativeString(), standard[i].nativeString()) << i;
}

TEST(SafeSort, ShortAndEmptyListsStayAsTheyAre)
{
    std::vector<int> empty;
    kelvo::filesystem::detail::safeSort(empty, [](int a, int b) { return a < b; });
    EXPECT_TRUE(empty.empty());
    std::vector<int> few = {3, 1, 2};
    kelvo::filesystem::detail::safeSort(few, [](int a, int b) { return a < b; });
    EXPECT_EQ(few, (std::vector<int>{1, 2, 3}));
    // An ordering that answers true for everything still gives a permutation.
    std::vector<int> many(1000);
    for (int i = 0; i < 1000; ++i)
        many[static_cast<std::size_t>(i)] = i;
    kelvo::filesystem::detail::safeSort(many, [](int, int) { return true; });
    std::sort(many.begin(), many.end());
    for (int i = 0; i < 1000; ++i)
        EXPECT_EQ(many[static_cast<std::size_t>(i)], i);
}

} // namespace
