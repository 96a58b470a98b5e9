// Tests of reading a symbolic link itself: the bytes it holds, and its own size, access bits and time.
#include <kelvo/filesystem/Operations.h>
#include <kelvo/filesystem/Path.h>

#include "support/ScratchDirectory.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

namespace fs = kelvo::filesystem;
using kelvo::filesystem::Path;
using kelvo::filesystem::Permissions;
using kelvo::filesystem::SymbolicLinkInformation;

class SymbolicLinkReading : public kelvo::testing::ScratchDirectory {
protected:
    /// Makes the link `name` in the scratch directory holding `target`.
    void link(std::string const& target, std::string const& name) const
    {
        ASSERT_EQ(::symlink(target.c_str(), at(name).c_str()), 0) << name;
    }

    /// @returns what `lstat` says of `name` in the scratch directory.
    struct stat own(std::string const& name) const
    {
        struct stat st {};
        EXPECT_EQ(::lstat(at(name).c_str(), &st), 0) << name;
        return st;
    }
};

TEST_F(SymbolicLinkReading, GivesTheBytesHeldAsTheNativeForm)
{
    writeFile("file.txt", "x");
    link("file.txt", "relative");
    link(at("file.txt"), "absolute");
    link("../elsewhere/./odd//name", "unresolved");
    EXPECT_EQ(fs::readSymbolicLink(Path(at("relative"))).nativeString(), "file.txt");
    EXPECT_EQ(fs::readSymbolicLink(Path(at("absolute"))).nativeString(), at("file.txt"));
    // Nothing is resolved or normalised: the bytes are those written.
    EXPECT_EQ(fs::readSymbolicLink(Path(at("unresolved"))).nativeString(), "../elsewhere/./odd//name");
}

TEST_F(SymbolicLinkReading, KeepsBytesThatAreNotUtf8)
{
    std::string const target = std::string("caf\xE9-\xFF\xFE") + ".txt";
    link(target, "latin1");
    Path const read = fs::readSymbolicLink(Path(at("latin1")));
    EXPECT_EQ(read.nativeString(), target);
}

TEST_F(SymbolicLinkReading, ReadsATargetLongerThanAFirstBuffer)
{
    // Longer than any first guess, still within what a link may hold.
    std::string target;
    for (int i = 0; i < 35; ++i)
        target += "a-rather-long-directory-name-" + std::to_string(100 + i) + "/";
    target += "end";
    ASSERT_GT(target.size(), 1000u);
    link(target, "long");
    EXPECT_EQ(fs::readSymbolicLink(Path(at("long"))).nativeString(), target);
    // Exactly at a power of two, where a read fills its buffer to the brim.
    for (std::size_t size : {255u, 256u, 257u, 512u}) {
        std::string const exact(size, 'n');
        std::string const name = "exact" + std::to_string(size);
        link(exact, name);
        EXPECT_EQ(fs::readSymbolicLink(Path(at(name))).nativeString(), exact) << size;
    }
}

TEST_F(SymbolicLinkReading, ReadsADanglingLinkAndNeverFollowsAChain)
{
    link("nowhere/at/all", "dangling");
    link("dangling", "second");
    EXPECT_EQ(fs::readSymbolicLink(Path(at("dangling"))).nativeString(), "nowhere/at/all");
    EXPECT_EQ(fs::readSymbolicLink(Path(at("second"))).nativeString(), "dangling");
}

TEST_F(SymbolicLinkReading, GivesAnEmptyPathForWhatIsNotALink)
{
    writeFile("plain", "content");
    ASSERT_EQ(::mkdir(at("directory").c_str(), 0755), 0);
    EXPECT_TRUE(fs::readSymbolicLink(Path(at("plain"))).empty());
    EXPECT_TRUE(fs::readSymbolicLink(Path(at("directory"))).empty());
    EXPECT_TRUE(fs::readSymbolicLink(Path(at("missing"))).empty());
    EXPECT_TRUE(fs::readSymbolicLink(Path(at("missing/below"))).empty());
    EXPECT_TRUE(fs::readSymbolicLink(Path()).empty());
}

TEST_F(SymbolicLinkReading, APathHoldingANulByteNamesNoLink)
{
    link("target", "link");
    // The shorter name before the NUL is a link, but it is not the one asked for.
    Path const withNul(at("link") + std::string(1, '\0') + "more");
    EXPECT_TRUE(fs::readSymbolicLink(withNul).empty());
    SymbolicLinkInformation information;
    EXPECT_FALSE(fs::readSymbolicLinkInformation(withNul, information));
}

TEST_F(SymbolicLinkReading, InformationIsThatOfTheLinkItself)
{
    writeFile("big.txt", std::string(5000, 'b'));
    ASSERT_EQ(::chmod(at("big.txt").c_str(), 0600), 0);
    link("big.txt", "link");
    // An old time on the link alone, so that it cannot be the target's.
    struct timeval const times[2] = {{1000000000, 0}, {1234567890, 250000}};
    ASSERT_EQ(::lutimes(at("link").c_str(), times), 0);

    SymbolicLinkInformation information;
    ASSERT_TRUE(fs::readSymbolicLinkInformation(Path(at("link")), information));
    struct stat const st = own("link");
    EXPECT_EQ(information.target.nativeString(), "big.txt");
    EXPECT_EQ(information.size, static_cast<std::int64_t>(st.st_size));
    EXPECT_NE(information.size, 5000);
    EXPECT_EQ(information.permissions, static_cast<Permissions>(st.st_mode & 0777));
    EXPECT_EQ(information.modificationTime.time_since_epoch(),
              std::chrono::microseconds(1234567890LL * 1000000 + 250000));
}

TEST_F(SymbolicLinkReading, InformationOfADanglingLink)
{
    link("gone", "dangling");
    SymbolicLinkInformation information;
    ASSERT_TRUE(fs::readSymbolicLinkInformation(Path(at("dangling")), information));
    EXPECT_EQ(information.target.nativeString(), "gone");
    EXPECT_EQ(information.size, static_cast<std::int64_t>(own("dangling").st_size));
}

TEST_F(SymbolicLinkReading, InformationIsLeftAsItWasForWhatIsNotALink)
{
    writeFile("plain", "content");
    ASSERT_EQ(::mkdir(at("directory").c_str(), 0755), 0);
    SymbolicLinkInformation information;
    information.target = Path("untouched");
    information.size = 42;
    for (std::string const name : {"plain", "directory", "missing"}) {
        EXPECT_FALSE(fs::readSymbolicLinkInformation(Path(at(name)), information)) << name;
        EXPECT_EQ(information.target.nativeString(), "untouched") << name;
        EXPECT_EQ(information.size, 42) << name;
        EXPECT_EQ(information.permissions, Permissions::unknownPermissions) << name;
    }
}

} // namespace
