// Tests of the native form a path keeps: converted once, carried by moves and swaps, never shared by a copy.
#include <kelvo/filesystem/Path.h>

#include "filesystem/path/PathInternal.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace {

using kelvo::filesystem::Path;
using kelvo::filesystem::PathNativeAccess;
using kelvo::unicode::String;

// The address of the kept native form: the same object between two calls
// means no second conversion took place.
std::string const* nativeOf(Path const& p) { return &PathNativeAccess::native(p); }

TEST(PathNativeCache, ComputedOnceAndKept)
{
    Path const p(String(U"dir/e\u0301.txt"));
    std::string const first = p.nativeString();
    std::string const* const kept = nativeOf(p);
    EXPECT_EQ(p.nativeString(), first);
    EXPECT_EQ(nativeOf(p), kept);
    EXPECT_EQ(*kept, first);
}

TEST(PathNativeCache, CopyHasItsOwn)
{
    Path const original("d/\xC3\xA9");
    std::string const native = original.nativeString();
    Path const copy(original);
    EXPECT_EQ(copy.nativeString(), native);
    EXPECT_NE(nativeOf(copy), nativeOf(original));
}

TEST(PathNativeCache, MoveCarriesIt)
{
    Path source("a/\xC3\xA9");
    std::string const native = source.nativeString();
    std::string const* const sourceNative = nativeOf(source);
    Path target(std::move(source));
    // The native form travels with the text, so it is not computed again.
    EXPECT_EQ(nativeOf(target), sourceNative);
    EXPECT_EQ(target.nativeString(), native);
}

TEST(PathNativeCache, SwapExchangesThem)
{
    Path a("first");
    Path b("second/\xC3\xA9");
    std::string const* const nativeA = nativeOf(a);
    std::string const* const nativeB = nativeOf(b);
    a.swap(b);
    EXPECT_EQ(nativeOf(a), nativeB);
    EXPECT_EQ(nativeOf(b), nativeA);
}

} // namespace
