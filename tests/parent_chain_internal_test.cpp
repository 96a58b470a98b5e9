// Tests of the chain of parents that directory creation and name correction walk: every link, file name and root test agrees with Path's own decomposition, for every short spelling.
#include "filesystem/path/ParentChain.h"

#include <kelvo/filesystem/Operations.h>
#include <kelvo/filesystem/Path.h>

#include "support/ScratchDirectory.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using kelvo::filesystem::Path;
using kelvo::filesystem::detail::ParentChain;

/// @returns every text of up to `maxLength` characters drawn from `alphabet`.
std::vector<std::string> allSpellings(std::vector<std::string> const& alphabet, std::size_t maxLength)
{
    std::vector<std::string> out{""};
    std::vector<std::string> previous{""};
    for (std::size_t length = 1; length <= maxLength; ++length) {
        std::vector<std::string> next;
        for (std::string const& start : previous) {
            for (std::string const& piece : alphabet)
                next.push_back(start + piece);
        }
        out.insert(out.end(), next.begin(), next.end());
        previous = std::move(next);
    }
    return out;
}

/// Checks each link of the chain of `path` against `parentPath()`, `filename()`
/// and `rootPath()` applied one after the other.
void expectChainAgreesWithDecomposition(Path const& path)
{
    ParentChain chain(path);
    Path expected = path;
    std::size_t k = 0;
    for (;; ++k) {
        ASSERT_LT(k, chain.size()) << path.nativeString();
        EXPECT_EQ(chain.textLength(k), expected.size()) << path.nativeString() << " link " << k;
        EXPECT_EQ(chain.text(k).string(), expected.string()) << path.nativeString() << " link " << k;
        EXPECT_EQ(std::string(chain.native(k)), expected.nativeString()) << path.nativeString() << " link " << k;
        EXPECT_EQ(chain.isItsOwnRootPath(k), expected == expected.rootPath()) << path.nativeString() << " link " << k;
        EXPECT_EQ(chain.exists(k), kelvo::filesystem::exists(expected)) << path.nativeString() << " link " << k;
        if (expected.empty())
            break;
        Path const name = expected.filename();
        EXPECT_EQ(chain.filenameText(k).string(), name.string()) << path.nativeString() << " link " << k;
        EXPECT_EQ(std::string(chain.filenameNative(k)), name.nativeString()) << path.nativeString() << " link " << k;
        kelvo::unicode::String const& nameText = name.string();
        bool const dots = nameText == kelvo::unicode::String(U".") || nameText == kelvo::unicode::String(U"..");
        EXPECT_EQ(chain.filenameIsDotOrDotDot(k), dots) << path.nativeString() << " link " << k;
        expected = expected.parentPath();
    }
    EXPECT_EQ(k + 1, chain.size()) << path.nativeString();
}

TEST(ParentChain, EveryShortSpellingAgreesWithPathDecomposition)
{
    for (std::string const& spelling : allSpellings({"a", "/", "."}, 7))
        expectChainAgreesWithDecomposition(Path(spelling));
}

TEST(ParentChain, NetworkRootsAndRunsOfSeparatorsAgree)
{
    for (std::string const& spelling : allSpellings({"//", "n", "/", "."}, 4)) {
        expectChainAgreesWithDecomposition(Path(spelling));
        expectChainAgreesWithDecomposition(Path("//server" + spelling));
    }
}

TEST(ParentChain, NativeFormsMadeFromBytesAndFromTextAreCutInStep)
{
    // Bytes that are not UTF-8, decomposed and composed letters, and a text
    // whose native form is composed from it: each link holds the matching
    // leading bytes.
    for (std::string const& spelling : allSpellings({"e\xCC\x81", "\xC3\xA9", "\xFF", "/", "."}, 4))
        expectChainAgreesWithDecomposition(Path(spelling));
    kelvo::unicode::String const text = U"caf\u00E9/r\u00E9sum\u00E9/./x/";
    expectChainAgreesWithDecomposition(Path(text));
    Path made(text);
    (void)made.nativeString();
    expectChainAgreesWithDecomposition(made);
}

TEST(ParentChain, ANativeFormHoldingANulIsCutAsItIs)
{
    std::string spelling = "a/b";
    spelling.push_back('\0');
    spelling += "c/d";
    expectChainAgreesWithDecomposition(Path(spelling));
}

TEST(ParentChain, TheNulTerminatedFormOfALinkIsMadeInPlaceAndPutBack)
{
    Path const path("/one/two/three");
    ParentChain chain(path);
    std::vector<std::string> seen;
    for (std::size_t k = 0; k < chain.size(); ++k)
        seen.push_back(chain.withNative(k, [](char const* native) { return std::string(native); }));
    EXPECT_EQ(seen, (std::vector<std::string>{"/one/two/three", "/one/two", "/one", "/", ""}));
    EXPECT_EQ(std::string(chain.native(0)), "/one/two/three");
    EXPECT_EQ(chain.withNative(0, [](char const* native) { return std::string(native); }), "/one/two/three");
}

class ParentChainOnDisk : public kelvo::testing::ScratchDirectory {};

TEST_F(ParentChainOnDisk, ExistenceOfEachLinkIsAskedOfTheSystem)
{
    ASSERT_EQ(::mkdir(at("a").c_str(), 0777), 0);
    expectChainAgreesWithDecomposition(Path(at("a/b/c")));
    expectChainAgreesWithDecomposition(Path(at("a/./b/")));
}

TEST(ParentChain, AThirtyThousandLevelChainIsAsLongAsThePathSays)
{
    std::string spelling;
    for (int i = 0; i < 30000; ++i)
        spelling += "/a";
    Path const path(spelling);
    ParentChain chain(path);
    ASSERT_EQ(chain.size(), 30002u); // the path, 29,999 parents, "/" and the empty path
    EXPECT_EQ(chain.textLength(1), spelling.size() - 2);
    EXPECT_EQ(std::string(chain.native(29999)), "/a");
    EXPECT_TRUE(chain.isItsOwnRootPath(30000));
    EXPECT_FALSE(chain.isItsOwnRootPath(29999));
}

} // namespace
