// Tests that a failed allocation anywhere inside text and path operations comes out as std::bad_alloc and leaks nothing.
#include <kelvo/filesystem/DirectoryIterator.h>
#include <kelvo/filesystem/Path.h>
#include <kelvo/filesystem/private.h>
#include <kelvo/text/Unicode.h>

#include "support/AllocationFailure.h"
#include "support/ScratchDirectory.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <set>
#include <string>
#include <thread>
#include <utility>

#include <sys/stat.h>

namespace {

using kelvo::filesystem::Path;
using kelvo::testing::allocationsUntilFailure;
using kelvo::testing::failEveryAllocationOf;
using kelvo::unicode::String;

String const kAccented(U"D\u00E9j\u00E0\\R\u00E9sum\u00E9s\\caf\u00E9.tar.gz");
std::string const kAccentedUtf8("D\xC3\xA9j\xC3\xA0\\R\xC3\xA9sum\xC3\xA9s\\caf\xC3\xA9.tar.gz");

TEST(AllocationFailure, TextOperations)
{
    EXPECT_GT(failEveryAllocationOf("decode", [] { String const s(kAccentedUtf8); }), 0);
    failEveryAllocationOf("encode", [] { std::string const s = kAccented.toUTF8String(); });
    failEveryAllocationOf("native", [] { std::string const s = kAccented.toNativeString(); });
    failEveryAllocationOf("wide", [] { std::wstring const s = kAccented.toWString(); });
    failEveryAllocationOf("isNFD", [] { (void)kelvo::unicode::isNFD(kAccented); });
    // Decomposing allocates at least its result.
    EXPECT_GT(failEveryAllocationOf("toNFD", [] { String const s = kelvo::unicode::toNFD(kAccented); }), 0);
    // Long texts need working copies on the heap as well.
    String const longAccented = kAccented + String(300, U'a');
    EXPECT_GT(failEveryAllocationOf("long toNFD", [&] { String const s = kelvo::unicode::toNFD(longAccented); }), 2);
    failEveryAllocationOf("concatenate", [] { String const s = kAccented + String(U"/more/text"); });
}

TEST(AllocationFailure, Construction)
{
    // The heap text and its buffer, then, for a long text, the work of
    // decomposing it.
    EXPECT_GT(failEveryAllocationOf("from String", [] { Path const p(kAccented); }), 1);
    String const longAccented = kAccented + String(300, U'a');
    EXPECT_GT(failEveryAllocationOf("long from String", [&] { Path const p(longAccented); }), 3);
    failEveryAllocationOf("from String rvalue", [] { Path const p{String(kAccented)}; });
    failEveryAllocationOf("from std::string", [] { Path const p(kAccentedUtf8); });
    failEveryAllocationOf("from char const*", [] { Path const p(kAccentedUtf8.c_str()); });
    failEveryAllocationOf("copy", [] {
        Path const p(kAccented);
        Path const copy(p);
    });
    failEveryAllocationOf("copy assignment", [] {
        Path const p(kAccented);
        Path target("short");
        target = p;
    });
    failEveryAllocationOf("native form", [] {
        Path const p(kAccented);
        std::string const native = p.nativeString();
    });
}

TEST(AllocationFailure, Decomposition)
{
    Path const server("//server/share/dir/file.tar.gz");
    Path const accented(kAccented);
    for (Path const* p : {&server, &accented}) {
        failEveryAllocationOf("rootName", [p] { Path const r = p->rootName(); });
        failEveryAllocationOf("rootDirectory", [p] { Path const r = p->rootDirectory(); });
        failEveryAllocationOf("rootPath", [p] { Path const r = p->rootPath(); });
        failEveryAllocationOf("relativePath", [p] { Path const r = p->relativePath(); });
        EXPECT_GT(failEveryAllocationOf("parentPath", [p] { Path const r = p->parentPath(); }), 0);
        failEveryAllocationOf("filename", [p] { Path const r = p->filename(); });
        failEveryAllocationOf("stem", [p] { Path const r = p->stem(); });
        failEveryAllocationOf("extension", [p] { Path const r = p->extension(); });
        failEveryAllocationOf("isAbsolute", [p] { (void)p->isAbsolute(); });
        failEveryAllocationOf("isComplete", [p] { (void)p->isComplete(); });
        failEveryAllocationOf("replaceExtension", [p] {
            Path copy(*p);
            copy.replaceExtension(Path("longer-extension"));
        });
    }
}

TEST(AllocationFailure, CompositionAndComparison)
{
    Path const left(kAccented);
    Path const right("sub/dir/name.txt");
    failEveryAllocationOf("slash", [&] { Path const r = left / right; });
    failEveryAllocationOf("slash rvalue", [&] { Path const r = Path(left) / right; });
    failEveryAllocationOf("slash equals", [&] {
        Path p(left);
        p /= right;
    });
    failEveryAllocationOf("plus", [&] { Path const r = left + right; });
    failEveryAllocationOf("plus rvalue", [&] { Path const r = Path(left) + right; });
    failEveryAllocationOf("plus equals", [&] {
        Path p(left);
        p += Path(String(U"\u0301\u0316"));
    });
    failEveryAllocationOf("appendSeparator", [&] {
        Path p("abc");
        p.appendSeparator();
    });
    failEveryAllocationOf("equals String", [&] { (void)(left == kAccented); });
    failEveryAllocationOf("equals UTF-8", [&] { (void)(left == kAccentedUtf8.c_str()); });
    failEveryAllocationOf("differs String", [&] { (void)(left != kAccented); });
    failEveryAllocationOf("differs UTF-8", [&] { (void)(kAccentedUtf8.c_str() != left); });
    failEveryAllocationOf("compare", [&] { (void)kelvo_private::filesystem::compare(kAccented, String(U"x")); });
}

TEST(AllocationFailure, Iteration)
{
    Path const p("//server/share/d\xC3\xA9j\xC3\xA0/");
    // The iterators' extractors and the first elements' texts; later
    // elements reuse the texts their predecessors gave back.
    EXPECT_GT(failEveryAllocationOf("iterate", [&] {
        int count = 0;
        for (Path const& element : p)
            count += element.empty() ? 0 : 1;
        static_cast<void>(count);
    }), 2);
}

TEST(AllocationFailure, ResultsAreRightOnceAllocationsSucceed)
{
    // The operations above really did their work when nothing failed.
    Path const p(kAccented);
    EXPECT_EQ(p.string(), String(U"De\u0301ja\u0300/Re\u0301sume\u0301s/cafe\u0301.tar.gz"));
    EXPECT_EQ(p.extension().string(), String(U".gz"));
}

TEST(AllocationFailure, FailedAppendLeavesTheTextNormalised)
{
    // Appending a combining mark makes the whole text go through the
    // decomposition check; when that fails the path keeps its previous,
    // normalised text.
    long failures = 0;
    // Long enough for decomposing to need working copies on the heap.
    String const start = String(U"e\u0301") + String(300, U'a');
    for (long n = 0; n < 100; ++n) {
        Path p(start);
        Path const mark(String(U"\u0323"));
        allocationsUntilFailure = n;
        bool threw = false;
        try {
            p += mark;
        } catch (std::bad_alloc const&) {
            threw = true;
        }
        allocationsUntilFailure = -1;
        if (!threw) {
            EXPECT_EQ(p.string(), start + String(U"\u0323"));
            break;
        }
        ++failures;
        EXPECT_EQ(p.string(), start) << "after failing allocation " << n;
        EXPECT_TRUE(kelvo::unicode::isNFD(p.string()));
    }
    EXPECT_GT(failures, 0);
}

TEST(AllocationFailure, RvalueConstructionGivesTheTextBackWhenNormalisingFails)
{
    // Long enough for decomposing to need working copies on the heap; the
    // backslash shows that nothing of the text was changed either.
    String const original = String(U"a\\caf\u00E9") + String(300, U'b') + String(U"\u00E9");
    long failures = 0;
    for (long n = 0; n < 100; ++n) {
        String text(original);
        allocationsUntilFailure = n;
        bool threw = false;
        try {
            Path const p(std::move(text));
            allocationsUntilFailure = -1;
            EXPECT_EQ(p.string(), kelvo::unicode::toNFD(String(U"a/caf\u00E9") + String(300, U'b') + String(U"\u00E9")));
        } catch (std::bad_alloc const&) {
            threw = true;
        }
        allocationsUntilFailure = -1;
        if (!threw)
            break;
        ++failures;
        EXPECT_EQ(text, original) << "after failing allocation " << n;
    }
    EXPECT_GT(failures, 0);
}

class AllocationFailureOnDisk : public kelvo::testing::ScratchDirectory {};

TEST_F(AllocationFailureOnDisk, ListingStepThatFailsKeepsItsEntryForTheNextStep)
{
    using kelvo::filesystem::DirectoryIterator;
    // Joined paths longer than the store keeps, so that every step allocates.
    std::string const directory = at(std::string(250, 'd'));
    ASSERT_EQ(::mkdir(directory.c_str(), 0755), 0);
    std::set<std::string> expected;
    for (char c : std::string("abcde")) {
        std::string const name = std::string(1, c) + std::string(240, 'n') + "\xC3\xA9";
        writeFile(std::string(250, 'd') + "/" + name, std::string(1, c));
        expected.insert(directory + "/" + name);
    }
    std::multiset<std::string> seen;
    long failures = 0;
    DirectoryIterator it{Path(directory)};
    DirectoryIterator const end;
    while (it != end) {
        std::string const current = it->getPath().nativeString();
        seen.insert(current);
        // Each step is tried with the first, second... allocation failing
        // until it runs through; a failed step leaves the iterator where it
        // was.
        for (long n = 0;; ++n) {
            allocationsUntilFailure = n;
            bool threw = false;
            try {
                ++it;
            } catch (std::bad_alloc const&) {
                threw = true;
            }
            allocationsUntilFailure = -1;
            if (!threw)
                break;
            ++failures;
            ASSERT_EQ(it->getPath().nativeString(), current);
            ASSERT_LT(n, 1000);
        }
    }
    EXPECT_GT(failures, 0);
    EXPECT_EQ(std::set<std::string>(seen.begin(), seen.end()), expected);
    EXPECT_EQ(seen.size(), expected.size()) << "an entry was listed twice";
}

} // namespace
