// Tests of the temporary-directory locations: the environment variables and their order, the override stack, and use from static initialisers and at exit.
#include <kelvo/filesystem.h>
#include <kelvo/filesystem/private.h>

#include "support/ProcessProbes.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace {

using kelvo::filesystem::getOSTemporaryDirectory;
using kelvo::filesystem::getTemporaryDirectory;
using kelvo::filesystem::Path;
using kelvo::testing::firstFailure;
using kelvo::testing::runInChild;
using kelvo_private::filesystem::getOSTemporaryDirectoryInternal;
using kelvo_private::filesystem::getTemporaryDirectoryInternal;
using kelvo_private::filesystem::restoreTemporaryDirectoryInternal;
using kelvo_private::filesystem::setTemporaryDirectoryInternal;

constexpr char const* kVariables[] = {"TMPDIR", "TMP", "TEMP", "TEMPDIR"};

void unsetAll()
{
    for (char const* name : kVariables)
        ::unsetenv(name);
}

/// @returns true when `path` holds exactly the native bytes `bytes`.
bool hasBytes(Path const& path, std::string const& bytes)
{
    return path.nativeString() == bytes;
}

// ---- use before main and after it ----------------------------------------------

// Built before anything touches the stack (it comes first in this file, and
// the library does not touch the stack while loading), so its destructor runs
// after anything made on the stack's first use would have been destroyed;
// the stack must still work then. A wrong answer ends the process with a
// failure status, which fails whichever test case this process ran.
struct UsesTheStackAtExit {
    ~UsesTheStackAtExit()
    {
        setTemporaryDirectoryInternal(Path("/kelvo-at-exit"));
        bool const pushed = getTemporaryDirectoryInternal().nativeString() == "/kelvo-at-exit";
        bool const popped = restoreTemporaryDirectoryInternal();
        if (!pushed || !popped)
            std::_Exit(3);
    }
} gUsesTheStackAtExit;

// Filled by an object built while static initialisers run, before main.
struct StaticStartRecord {
    bool pushedWasCurrent = false;
    bool popped = false;
    bool emptyAgain = false;
} gStaticStart;

struct UsesTheStackWhileStarting {
    UsesTheStackWhileStarting()
    {
        setTemporaryDirectoryInternal(Path("/kelvo-static-start"));
        gStaticStart.pushedWasCurrent = getTemporaryDirectoryInternal().nativeString() == "/kelvo-static-start";
        gStaticStart.popped = restoreTemporaryDirectoryInternal();
        gStaticStart.emptyAgain = !restoreTemporaryDirectoryInternal();
    }
} gUsesTheStackWhileStarting;

TEST(TemporaryLocations, StackWorksInAStaticInitialiser)
{
    EXPECT_TRUE(gStaticStart.pushedWasCurrent);
    EXPECT_TRUE(gStaticStart.popped);
    EXPECT_TRUE(gStaticStart.emptyAgain);
}

// ---- the environment -------------------------------------------------------------

TEST(TemporaryLocations, AllUnsetGivesSlashTmp)
{
    int const status = runInChild([] {
        unsetAll();
        return firstFailure({hasBytes(getOSTemporaryDirectory(), "/tmp"),
                             getOSTemporaryDirectory().string() == Path("/tmp").string(),
                             hasBytes(getTemporaryDirectory(), "/tmp")});
    });
    EXPECT_EQ(status, 0);
}

TEST(TemporaryLocations, VariablesAreConsultedInOrder)
{
    int const status = runInChild([] {
        unsetAll();
        ::setenv("TEMPDIR", "/from-tempdir", 1);
        bool const tempdir = hasBytes(getOSTemporaryDirectory(), "/from-tempdir");
        ::setenv("TEMP", "/from-temp", 1);
        bool const temp = hasBytes(getOSTemporaryDirectory(), "/from-temp");
        ::setenv("TMP", "/from-tmp", 1);
        bool const tmp = hasBytes(getOSTemporaryDirectory(), "/from-tmp");
        ::setenv("TMPDIR", "/from-tmpdir", 1);
        bool const tmpdir = hasBytes(getOSTemporaryDirectory(), "/from-tmpdir");
        ::unsetenv("TMPDIR");
        bool const backToTmp = hasBytes(getOSTemporaryDirectory(), "/from-tmp");
        ::unsetenv("TMP");
        ::unsetenv("TEMP");
        bool const backToTempdir = hasBytes(getOSTemporaryDirectory(), "/from-tempdir");
        return firstFailure({tempdir, temp, tmp, tmpdir, backToTmp, backToTempdir});
    });
    EXPECT_EQ(status, 0);
}

TEST(TemporaryLocations, TmpIsUsedWhenTmpdirIsUnset)
{
    int const status = runInChild([] {
        unsetAll();
        ::setenv("TMP", "/var/tmp", 1);
        return firstFailure({hasBytes(getOSTemporaryDirectory(), "/var/tmp"),
                             hasBytes(getOSTemporaryDirectoryInternal(), "/var/tmp")});
    });
    EXPECT_EQ(status, 0);
}

TEST(TemporaryLocations, AnEmptyValueIsTakenAsItStands)
{
    int const status = runInChild([] {
        unsetAll();
        ::setenv("TMPDIR", "", 1);
        ::setenv("TMP", "/var/tmp", 1);
        Path const found = getOSTemporaryDirectory();
        return firstFailure({found.empty(), found.nativeString().empty(), getTemporaryDirectory().empty()});
    });
    EXPECT_EQ(status, 0);
}

TEST(TemporaryLocations, AMissingDirectoryIsReturnedUnchanged)
{
    int const status = runInChild([] {
        unsetAll();
        ::setenv("TMPDIR", "/no/such/kelvo/directory/", 1);
        return firstFailure({hasBytes(getOSTemporaryDirectory(), "/no/such/kelvo/directory/")});
    });
    EXPECT_EQ(status, 0);
}

TEST(TemporaryLocations, EnvironmentBytesAreKeptAsBytes)
{
    // The location is a path made from the environment's bytes, so it has the
    // native form such a path has: decomposed UTF-8 ("e" and a combining
    // accent) as a path made from those bytes keeps it, and a byte that is
    // not UTF-8 at all as that very byte.
    int const status = runInChild([] {
        unsetAll();
        std::string const decomposed = "/tmp/re\xCC\x81sume\xCC\x81";
        ::setenv("TMPDIR", decomposed.c_str(), 1);
        Path const fromDecomposed = getOSTemporaryDirectory();
        bool const decomposedKept = fromDecomposed.nativeString() == Path(decomposed).nativeString()
            && fromDecomposed.string() == Path(decomposed).string();
        std::string const undecodable = "/tmp/odd\xFF" "name";
        ::setenv("TMPDIR", undecodable.c_str(), 1);
        bool const undecodableKept = hasBytes(getOSTemporaryDirectory(), undecodable);
        bool const escaped = getOSTemporaryDirectory().string().find(char32_t(0xDCFF)) != std::u32string::npos;
        return firstFailure({decomposedKept, undecodableKept, escaped});
    });
    EXPECT_EQ(status, 0);
}

TEST(TemporaryLocations, TheEnvironmentIsReadAtEveryCall)
{
    int const status = runInChild([] {
        unsetAll();
        ::setenv("TMPDIR", "/first", 1);
        bool const first = hasBytes(getTemporaryDirectory(), "/first");
        ::setenv("TMPDIR", "/second", 1);
        bool const second = hasBytes(getTemporaryDirectory(), "/second");
        return firstFailure({first, second});
    });
    EXPECT_EQ(status, 0);
}

// ---- the stack --------------------------------------------------------------------

TEST(TemporaryLocations, OverridesAreLastInFirstOut)
{
    int const status = runInChild([] {
        unsetAll();
        ::setenv("TMPDIR", "/system-tmp", 1);
        setTemporaryDirectoryInternal(Path("/a"));
        setTemporaryDirectoryInternal(Path("/b"));
        bool const b = hasBytes(getTemporaryDirectory(), "/b") && hasBytes(getTemporaryDirectoryInternal(), "/b");
        bool const firstPop = restoreTemporaryDirectoryInternal();
        bool const a = hasBytes(getTemporaryDirectory(), "/a");
        bool const secondPop = restoreTemporaryDirectoryInternal();
        bool const system = hasBytes(getTemporaryDirectory(), "/system-tmp");
        bool const thirdPop = restoreTemporaryDirectoryInternal();
        return firstFailure({b, firstPop, a, secondPop, system, !thirdPop});
    });
    EXPECT_EQ(status, 0);
}

TEST(TemporaryLocations, PoppingAnEmptyStackReturnsFalse)
{
    EXPECT_FALSE(restoreTemporaryDirectoryInternal());
    EXPECT_FALSE(restoreTemporaryDirectoryInternal());
}

TEST(TemporaryLocations, TheSystemDirectoryIgnoresTheStack)
{
    int const status = runInChild([] {
        unsetAll();
        ::setenv("TMP", "/system-tmp", 1);
        setTemporaryDirectoryInternal(Path("/override"));
        bool const ignored = hasBytes(getOSTemporaryDirectory(), "/system-tmp")
            && hasBytes(getOSTemporaryDirectoryInternal(), "/system-tmp");
        bool const current = hasBytes(getTemporaryDirectory(), "/override");
        bool const popped = restoreTemporaryDirectoryInternal();
        return firstFailure({ignored, current, popped});
    });
    EXPECT_EQ(status, 0);
}

TEST(TemporaryLocations, OverridesAreCopiesNeitherCheckedNorCreated)
{
    Path pushed("/kelvo/never/made/here");
    setTemporaryDirectoryInternal(pushed);
    pushed = Path("/changed");
    EXPECT_EQ(getTemporaryDirectory().nativeString(), "/kelvo/never/made/here");
    EXPECT_FALSE(kelvo::filesystem::exists(Path("/kelvo/never/made/here")));
    EXPECT_TRUE(restoreTemporaryDirectoryInternal());
    EXPECT_FALSE(restoreTemporaryDirectoryInternal());
}

TEST(TemporaryLocations, OverridesKeepTheirNativeBytes)
{
    std::string const undecodable = "/tmp/odd\xFE" "name";
    setTemporaryDirectoryInternal(Path(undecodable));
    EXPECT_EQ(getTemporaryDirectory().nativeString(), undecodable);
    EXPECT_TRUE(restoreTemporaryDirectoryInternal());
}

} // namespace
