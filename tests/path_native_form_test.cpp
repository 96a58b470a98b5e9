// Tests of the native form as part of the path value: bytes kept, pieces cut in step, names on disk reached by their own bytes.
#include <kelvo/filesystem.h>

#include "support/ScratchDirectory.h"

#include <gtest/gtest.h>

#include <unicode/normalizer2.h>
#include <unicode/uclean.h>
#include <unicode/utypes.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = kelvo::filesystem;
using fs::DirectoryEntry;
using fs::DirectoryIterator;
using fs::FileLock;
using fs::FileType;
using fs::Path;
using kelvo::unicode::String;

// ---- normalisation never touches separators and dots ---------------------------------------------

int countMarks(icu::UnicodeString const& text)
{
    int marks = 0;
    for (int32_t i = 0; i < text.length(); ++i)
        marks += (text[i] == u'/' || text[i] == u'.') ? 1 : 0;
    return marks;
}

TEST(NativeFormCutMarks, NormalisationNeverMakesRemovesOrMovesASeparatorOrADot)
{
    UErrorCode status = U_ZERO_ERROR;
    icu::Normalizer2 const* nfd = icu::Normalizer2::getNFDInstance(status);
    icu::Normalizer2 const* nfc = icu::Normalizer2::getNFCInstance(status);
    ASSERT_TRUE(U_SUCCESS(status));
    // Both are starters: no combining mark is ever reordered across them.
    EXPECT_EQ(u_getCombiningClass(U'/'), 0);
    EXPECT_EQ(u_getCombiningClass(U'.'), 0);
    long checked = 0;
    for (UChar32 c = 0; c <= 0x10FFFF; ++c) {
        if (c >= 0xD800 && c <= 0xDFFF)
            continue;
        icu::UnicodeString const one(c);
        int const own = (c == U'/' || c == U'.') ? 1 : 0;
        icu::UnicodeString const decomposed = nfd->normalize(one, status);
        icu::UnicodeString const composed = nfc->normalize(one, status);
        ASSERT_TRUE(U_SUCCESS(status));
        ASSERT_EQ(countMarks(decomposed), own) << "U+" << std::hex << c;
        ASSERT_EQ(countMarks(composed), own) << "U+" << std::hex << c;
        // Neither composes with anything on either side.
        for (UChar32 mark : {U'/', U'.'}) {
            ASSERT_LT(nfc->composePair(c, mark), 0) << "U+" << std::hex << c;
            ASSERT_LT(nfc->composePair(mark, c), 0) << "U+" << std::hex << c;
        }
        // So a mark between two code points stays where it is.
        if ((c & 0xFF) == 0 || (c >= 0x300 && c < 0x370) || (c >= 0x1100 && c < 0x1200)) {
            icu::UnicodeString around(c);
            around.append(UChar32(U'/')).append(UChar32(0x301)).append(UChar32(U'.')).append(c);
            icu::UnicodeString const expected = icu::UnicodeString(nfc->normalize(one, status))
                                                    .append(UChar32(U'/'))
                                                    .append(UChar32(0x301))
                                                    .append(UChar32(U'.'))
                                                    .append(nfc->normalize(one, status));
            ASSERT_EQ(nfc->normalize(around, status), expected) << "U+" << std::hex << c;
        }
        ++checked;
    }
    EXPECT_EQ(checked, 0x110000 - 0x800);
}

// ---- the value -------------------------------------------------------------------------------------

std::string const kNFD = "Re\xCC\x81sume\xCC\x81";       // decomposed
std::string const kNFC = "R\xC3\xA9sum\xC3\xA9";          // composed
std::string const kInvalid = "raw\xFF\xFE";               // not UTF-8
std::string const kAngstrom = "\xE2\x84\xAB";              // U+212B, a singleton

TEST(NativeFormValue, BytesAreKeptWhateverTheirComposition)
{
    EXPECT_EQ(Path(kNFD).nativeString(), kNFD);
    EXPECT_EQ(Path(kNFC).nativeString(), kNFC);
    EXPECT_EQ(Path(kAngstrom).nativeString(), kAngstrom);
    EXPECT_EQ(Path(kInvalid).nativeString(), kInvalid);
    EXPECT_EQ(Path(kNFD.c_str()).nativeString(), kNFD);
    // Backslashes become "/" in both forms.
    EXPECT_EQ(Path(kNFD + "\\x\\" + kInvalid).nativeString(), kNFD + "/x/" + kInvalid);
    // One text for all spellings.
    EXPECT_EQ(Path(kNFD).string(), Path(kNFC).string());
    EXPECT_EQ(Path(kAngstrom).string(), String(U"A\u030A"));
}

TEST(NativeFormValue, CodePointsGetTheirComposedForm)
{
    EXPECT_EQ(Path(Path(kNFD).string()).nativeString(), kNFC);
    EXPECT_EQ(Path(String(U"\u212B")).nativeString(), "\xC3\x85");
    EXPECT_EQ(Path(String(U"e\u0301\\x")).nativeString(), "\xC3\xA9/x");
    // Escaped bytes come back as themselves.
    EXPECT_EQ(Path(Path(kInvalid).string()).nativeString(), kInvalid);
}

TEST(NativeFormValue, CopiesMovesAssignmentsAndSwapsKeepIt)
{
    Path const original(kNFD + "/" + kInvalid);
    std::string const bytes = kNFD + "/" + kInvalid;
    Path copy(original);
    EXPECT_EQ(copy.nativeString(), bytes);
    Path moved(std::move(copy));
    EXPECT_EQ(moved.nativeString(), bytes);
    Path assigned("other");
    assigned = original;
    EXPECT_EQ(assigned.nativeString(), bytes);
    Path moveAssigned("other");
    moveAssigned = std::move(assigned);
    EXPECT_EQ(moveAssigned.nativeString(), bytes);
    Path swapped(kNFC);
    swap(swapped, moveAssigned);
    EXPECT_EQ(swapped.nativeString(), bytes);
    EXPECT_EQ(moveAssigned.nativeString(), kNFC);
    // Asking does not drop it, and neither does clearCache.
    original.clearCache();
    EXPECT_EQ(original.nativeString(), bytes);
    Path cleared(original);
    cleared.clear();
    EXPECT_EQ(cleared.nativeString(), "");
}

TEST(NativeFormValue, EqualBytesAreEqualPathsAndTwinsAreEqualToo)
{
    EXPECT_TRUE(Path(kNFD) == Path(kNFD));
    EXPECT_FALSE(Path(kNFD) != Path(kNFD));
    EXPECT_TRUE(Path(kInvalid) == Path(kInvalid));
    // Same text, two files on this system: still equal paths.
    EXPECT_TRUE(Path(kNFD) == Path(kNFC));
    EXPECT_FALSE(Path(kNFD) != Path(kNFC));
    EXPECT_TRUE(Path(kNFD) == Path(Path(kNFD).string()));
    EXPECT_TRUE(Path("A/B") == Path("a/b"));
    EXPECT_FALSE(Path("a/b") == Path("a/c"));
    EXPECT_TRUE(Path("a/b") != Path("a/c"));
    EXPECT_FALSE(Path("a") < Path("a"));
}

TEST(NativeFormValue, ComparisonWithAStdStringMeansWhatItMeansForCharPointers)
{
    static_assert(std::is_same_v<decltype(Path("a") == std::string("a")), bool>);
    static_assert(std::is_same_v<decltype(std::string("a") != Path("a")), bool>);
    Path const p("a/b");
    EXPECT_TRUE(p == std::string("a/b"));
    EXPECT_TRUE(std::string("A/B") == p);
    EXPECT_TRUE(p == std::string("a\\b"));
    EXPECT_TRUE(std::string("a\\b") == p);
    // The != forms do not turn backslashes into "/", as with char const*.
    EXPECT_TRUE(p != std::string("a\\b"));
    EXPECT_TRUE(std::string("a\\b") != p);
    EXPECT_EQ(p != std::string("a\\b"), p != "a\\b");
    EXPECT_FALSE(p != std::string("A/B"));
    EXPECT_FALSE(std::string("x") == p);
    EXPECT_TRUE(Path(kNFD) == kNFC + std::string());
    EXPECT_FALSE(Path(kNFD) != std::string(kNFC));
}

// ---- pieces cut in step --------------------------------------------------------------------------

TEST(NativeFormPieces, DecompositionGivesByteExactPieces)
{
    std::string const dir = "d\xC3\xA9j\xC3\xA0";           // NFC
    std::string const name = kNFD + "." + kInvalid + ".t\xC3\xA9x"; // NFD, invalid, NFC
    std::string const all = "//serv\xC3\xA9r/" + dir + "//" + name;
    Path const p(all);
    EXPECT_EQ(p.rootName().nativeString(), "//serv\xC3\xA9r");
    EXPECT_EQ(p.rootPath().nativeString(), "//serv\xC3\xA9r/");
    EXPECT_EQ(p.rootDirectory().nativeString(), "/");
    EXPECT_EQ(p.relativePath().nativeString(), dir + "//" + name);
    EXPECT_EQ(p.parentPath().nativeString(), "//serv\xC3\xA9r/" + dir);
    EXPECT_EQ(p.filename().nativeString(), name);
    EXPECT_EQ(p.stem().nativeString(), kNFD + "." + kInvalid);
    EXPECT_EQ(p.extension().nativeString(), ".t\xC3\xA9x");
    EXPECT_EQ(p.parentPath().parentPath().nativeString(), "//serv\xC3\xA9r");
    EXPECT_EQ(p.filename().stem().stem().nativeString(), kNFD);
    // Texts stay what they were.
    EXPECT_EQ(p.filename().string(), Path(name).string());

    Path const trailing(kNFD + "/" + kNFC + "/");
    EXPECT_EQ(trailing.parentPath().nativeString(), kNFD + "/" + kNFC);
    EXPECT_EQ(trailing.filename().nativeString(), ".");
    Path const relative(kInvalid + "." + kNFD);
    EXPECT_EQ(relative.relativePath().nativeString(), kInvalid + "." + kNFD);
    EXPECT_EQ(relative.stem().nativeString(), kInvalid);
    EXPECT_EQ(relative.extension().nativeString(), "." + kNFD);
}

TEST(NativeFormPieces, IterationGivesByteExactElements)
{
    struct Row {
        std::string text;
        std::vector<std::string> elements;
    };
    std::vector<Row> const rows = {
        {"/" + kNFD + "/" + kNFC + "/" + kInvalid, {"/", kNFD, kNFC, kInvalid}},
        {"//h\xC3\xA9/" + kNFD + "//" + kAngstrom + "/", {"//h\xC3\xA9", "/", kNFD, kAngstrom, "."}},
        {kNFD + "." + kInvalid + "/./../" + kNFC, {kNFD + "." + kInvalid, ".", "..", kNFC}},
        {"///" + kNFC, {"/", "", kNFC}},
    };
    for (Row const& row : rows) {
        Path const p(row.text);
        std::vector<std::string> natives;
        for (Path const& element : p)
            natives.push_back(element.nativeString());
        EXPECT_EQ(natives, row.elements) << row.text;
        // A copied iterator walks on by itself.
        Path::iterator it = p.begin();
        ++it;
        Path::iterator copy = it;
        std::vector<std::string> fromIt, fromCopy;
        for (; it != p.end(); ++it)
            fromIt.push_back(it->nativeString());
        for (; copy != p.end(); ++copy)
            fromCopy.push_back(copy->nativeString());
        EXPECT_EQ(fromIt, fromCopy) << row.text;
        EXPECT_EQ(fromIt, std::vector<std::string>(row.elements.begin() + 1, row.elements.end())) << row.text;
    }
}

TEST(NativeFormPieces, JoiningAppendingAndReplacingTheExtensionJoinTheBytes)
{
    Path const dir(kNFD);
    Path const name(kInvalid + ".t\xC3\xA9x");
    EXPECT_EQ((dir / name).nativeString(), kNFD + "/" + kInvalid + ".t\xC3\xA9x");
    EXPECT_EQ((Path(kNFD + "/") / Path("/" + kNFC)).nativeString(), kNFD + "/" + kNFC);
    EXPECT_EQ((Path(kNFD + "//") / Path("/" + kNFC)).nativeString(), kNFD + "//" + kNFC);
    EXPECT_EQ((Path(dir) / name).nativeString(), kNFD + "/" + kInvalid + ".t\xC3\xA9x");
    EXPECT_EQ((Path() / dir).nativeString(), kNFD);
    EXPECT_EQ((dir / Path()).nativeString(), kNFD);
    Path joined(dir);
    joined /= name;
    EXPECT_EQ(joined.nativeString(), kNFD + "/" + kInvalid + ".t\xC3\xA9x");
    Path const& sameObject = joined; // passed so that compilers do not take the join for a mistake
    joined /= sameObject;
    EXPECT_EQ(joined.nativeString(), kNFD + "/" + kInvalid + ".t\xC3\xA9x/" + kNFD + "/" + kInvalid + ".t\xC3\xA9x");
    // A path made from code points joins with its composed form.
    EXPECT_EQ((dir / Path(String(U"e\u0301"))).nativeString(), kNFD + "/\xC3\xA9");
    EXPECT_EQ((Path(String(U"e\u0301")) / Path(String(U"a\u0301"))).nativeString(), "\xC3\xA9/\xC3\xA1");

    EXPECT_EQ((dir + name).nativeString(), kNFD + kInvalid + ".t\xC3\xA9x");
    // Pieces made from code points are joined as they are, even where the
    // joined text would compose.
    EXPECT_EQ((Path(String(U"e")) + Path(String(U"\u0301"))).nativeString(), "e\xCC\x81");
    Path mark(String(U"e"));
    mark += Path(String(U"\u0301"));
    EXPECT_EQ(mark.nativeString(), "e\xCC\x81");
    EXPECT_EQ(mark.string(), String(U"e\u0301"));
    EXPECT_EQ((Path(String(U"e")) + Path(String(U"x"))).nativeString(), "ex");
    Path appended(kNFC);
    appended += Path(kInvalid);
    EXPECT_EQ(appended.nativeString(), kNFC + kInvalid);
    EXPECT_EQ(appended.string(), Path(kNFD + kInvalid).string());
    appended.appendSeparator();
    EXPECT_EQ(appended.nativeString(), kNFC + kInvalid + "/");
    appended.appendSeparator();
    EXPECT_EQ(appended.nativeString(), kNFC + kInvalid + "/");

    Path replaced(kNFD + "/" + kNFC + ".t\xC3\xA9x");
    replaced.replaceExtension(Path(kInvalid));
    EXPECT_EQ(replaced.nativeString(), kNFD + "/" + kNFC + "." + kInvalid);
    replaced.replaceExtension(Path("." + kNFD));
    EXPECT_EQ(replaced.nativeString(), kNFD + "/" + kNFC + "." + kNFD);
    replaced.replaceExtension(Path());
    EXPECT_EQ(replaced.nativeString(), kNFD + "/" + kNFC);
    Path dotted(kNFD + ".d/" + kNFC);
    dotted.replaceExtension(Path("bak"));
    EXPECT_EQ(dotted.nativeString(), kNFD + ".d/" + kNFC + ".bak");
    EXPECT_EQ(dotted.string(), Path(kNFD + ".d/" + kNFD + ".bak").string());
}

// ---- names on disk ---------------------------------------------------------------------------------

class NativeFormOnDisk : public kelvo::testing::ScratchDirectory {
protected:
    // The names of the test directory, each with content of its own length.
    std::map<std::string, std::string> makeNames()
    {
        std::string longName;
        while (longName.size() < 254)
            longName += "\xC3\xA9"; // 127 composed letters
        longName += "z";
        std::map<std::string, std::string> names = {
            {kNFD + ".txt", "1"},                    // decomposed only
            {"caf\xC3\xA9.txt", "22"},               // composed only
            {"na\xC3\xAFve", "333"},                 // twins: composed
            {"nai\xCC\x88ve", "4444"},               //        decomposed
            {kAngstrom, "55555"},                    // U+212B
            {kInvalid + ".bin", "666666"},           // not UTF-8
            {longName, "7777777"},                   // 255 bytes
            {"plain.txt", "88888888"},               // ASCII
        };
        for (auto const& [name, content] : names)
            writeFile(name, content);
        return names;
    }

    static std::string readThrough(Path const& path)
    {
        std::FILE* file = fs::fopenWrapper(path, "r");
        if (file == nullptr)
            return "<cannot open>";
        std::string content;
        char buffer[64];
        std::size_t n;
        while ((n = std::fread(buffer, 1, sizeof buffer, file)) > 0)
            content.append(buffer, n);
        std::fclose(file);
        return content;
    }

    void expectReached(Path const& path, std::string const& content, std::string const& how)
    {
        SCOPED_TRACE(how);
        EXPECT_TRUE(fs::exists(path));
        EXPECT_EQ(fs::status(path).getType(), FileType::regularFile);
        EXPECT_EQ(fs::fileSize(path), static_cast<std::int64_t>(content.size()));
        EXPECT_EQ(readThrough(path), content);
        FileLock lock;
        EXPECT_TRUE(lock.lockFile(path));
        EXPECT_TRUE(FileLock::isFileLocked(path));
        lock.unlockFile();
        EXPECT_FALSE(FileLock::isFileLocked(path));
    }
};

TEST_F(NativeFormOnDisk, EveryNameIsListedOnceAndReachedByItsOwnBytes)
{
    std::map<std::string, std::string> const names = makeNames();
    std::size_t longest = 0;
    for (auto const& named : names)
        longest = std::max(longest, named.first.size());
    ASSERT_EQ(longest, 255u);
    std::map<std::string, int> listed;
    for (DirectoryEntry const& entry : DirectoryIterator(Path(scratch))) {
        std::string const native = entry.getPath().nativeString();
        ASSERT_EQ(native.compare(0, scratch.size() + 1, scratch + "/"), 0) << native;
        std::string const name = native.substr(scratch.size() + 1);
        ++listed[name];
        auto const found = names.find(name);
        ASSERT_NE(found, names.end()) << native;
        std::string const& content = found->second;
        // Its own status and size, not its twin's.
        EXPECT_EQ(entry.getStatus().getType(), FileType::regularFile) << native;
        EXPECT_EQ(entry.getPath().filename().nativeString(), name);
        expectReached(entry.getPath(), content, "listed path " + native);
        Path const copy(entry.getPath());
        expectReached(copy, content, "copy of " + native);
        expectReached(Path(native), content, "path made from the bytes " + native);
        expectReached(Path(scratch) / Path(name), content, "joined from the bytes " + native);
    }
    EXPECT_EQ(listed.size(), names.size());
    for (auto const& [name, count] : listed)
        EXPECT_EQ(count, 1) << name;
}

TEST_F(NativeFormOnDisk, TwinsAreEqualPathsNamingTwoFiles)
{
    makeNames();
    Path const composed(at("na\xC3\xAFve"));
    Path const decomposed(at("nai\xCC\x88ve"));
    EXPECT_TRUE(composed == decomposed);
    EXPECT_EQ(fs::fileSize(composed), 3);
    EXPECT_EQ(fs::fileSize(decomposed), 4);
    // A path made from the code points names the composed one.
    EXPECT_EQ(fs::fileSize(Path(decomposed.string())), 3);
}

TEST_F(NativeFormOnDisk, ANameFromGetcwdKeepsItsBytes)
{
    std::string const name = "nai\xCC\x88ve-" + kInvalid;
    ASSERT_EQ(::mkdir(at(name).c_str(), 0755), 0);
    std::string const previous = fs::getCurrentDirectory().nativeString();
    ASSERT_TRUE(fs::setCurrentDirectory(Path(at(name))));
    Path const here = fs::getCurrentDirectory();
    EXPECT_EQ(here.nativeString(), at(name));
    EXPECT_TRUE(fs::isDirectory(here));
    EXPECT_EQ(here.filename().nativeString(), name);
    ASSERT_TRUE(fs::setCurrentDirectory(Path(previous)));
}

// ---- a NUL byte names no file ----------------------------------------------------------------------

TEST_F(NativeFormOnDisk, APathHoldingANulByteChangesNothing)
{
    writeFile("a", "kept");
    ASSERT_EQ(::chmod(at("a").c_str(), 0644), 0);
    struct stat before;
    ASSERT_EQ(::stat(at("a").c_str(), &before), 0);
    Path const withNul(at("a") + std::string(1, '\0') + "b");
    ASSERT_EQ(withNul.nativeString().size(), at("a").size() + 2);

    // exists reads the name up to the NUL.
    EXPECT_TRUE(fs::exists(withNul));

    EXPECT_FALSE(fs::setPermissions(withNul, fs::Permissions::ownerRead));
    EXPECT_FALSE(fs::setModificationTime(withNul, fs::FileTime(std::chrono::microseconds(1000000))));
    EXPECT_EQ(fs::fopenWrapper(withNul, "w"), nullptr);
    EXPECT_EQ(fs::fopenWrapperWithLockCheck(withNul, "a"), nullptr);
    std::fstream stream;
    fs::fstreamWrapper(stream, withNul, static_cast<unsigned int>(std::ios::out | std::ios::trunc));
    EXPECT_FALSE(stream.is_open());
    std::fstream checked;
    fs::fstreamWrapperWithLockCheck(checked, withNul, static_cast<unsigned int>(std::ios::out | std::ios::trunc));
    EXPECT_FALSE(checked.is_open());
    FileLock lock;
    EXPECT_FALSE(lock.lockFile(withNul));
    FileLock constructed(withNul);
    FileLock other;
    EXPECT_TRUE(other.lockFile(Path(at("a")))) << "no lock was left on the shorter name";
    EXPECT_FALSE(FileLock::isFileLocked(withNul));

    Path const directoryWithNul(scratch + std::string(1, '\0'));
    std::string const previous = fs::getCurrentDirectory().nativeString();
    EXPECT_FALSE(fs::setCurrentDirectory(directoryWithNul));
    EXPECT_EQ(fs::getCurrentDirectory().nativeString(), previous);

    struct stat after;
    ASSERT_EQ(::stat(at("a").c_str(), &after), 0);
    EXPECT_EQ(after.st_mode, before.st_mode);
    EXPECT_EQ(after.st_mtim.tv_sec, before.st_mtim.tv_sec);
    EXPECT_EQ(after.st_size, 4);
}

// ---- ICU out of memory -------------------------------------------------------------------------------

// Kept last in this file: once ICU has failed to set itself up, it keeps
// failing for the rest of the process.
bool icuMayAllocate = true;

void* icuAllocate(void const*, size_t size) { return icuMayAllocate ? std::malloc(size) : nullptr; }
void* icuReallocate(void const*, void* block, size_t size) { return icuMayAllocate ? std::realloc(block, size) : nullptr; }
void icuFree(void const*, void* block) { std::free(block); }

TEST(NativeFormIcu, RunningOutOfMemoryInIcuIsBadAlloc)
{
    // ICU's allocator can be replaced only before ICU has set up its data,
    // which other tests of this program do: ctest runs each test alone.
    if (::testing::UnitTest::GetInstance()->test_to_run_count() != 1)
        GTEST_SKIP() << "needs a process of its own (run it alone, as ctest does)";
    UErrorCode status = U_ZERO_ERROR;
    u_setMemoryFunctions(nullptr, icuAllocate, icuReallocate, icuFree, &status);
    ASSERT_TRUE(U_SUCCESS(status)) << u_errorName(status);
    icuMayAllocate = false;
    // Text that only ICU can decompose.
    EXPECT_THROW(Path(String(U"\u1E09\u0323\u0301")), std::bad_alloc);
    EXPECT_THROW(Path(std::string("\xE1\xB8\x89")), std::bad_alloc);
    icuMayAllocate = true;
}

} // namespace
