// Tests of the tree walks' shared parts: whole listings, and the directory stack that holds a bounded number of descriptors at any depth and notices a tree changed under it.
#include "filesystem/operations/TreeWalk.h"

#include "support/DirectoryChains.h"
#include "support/ScratchDirectory.h"

#include <cerrno>
#include <set>
#include <string>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace kelvo::testing;
namespace detail = kelvo::filesystem::detail;
namespace posix = kelvo::filesystem::posix;

// Counts this process's open descriptors.
int openDescriptors()
{
    int count = 0;
    if (DIR* dir = ::opendir("/proc/self/fd")) {
        while (dirent* entry = ::readdir(dir)) {
            if (entry->d_name[0] != '.')
                ++count;
        }
        ::closedir(dir);
    }
    return count - 1; // the listing's own
}

// Makes a chain of `depth` directories named "d" under `top` through
// descriptors, so that no path grows with the depth.
void makeChain(std::string const& top, int depth) { ASSERT_TRUE(makeDirectoryChain(top, depth)); }

detail::ObjectIdentity identityOfPath(std::string const& path)
{
    struct stat st;
    EXPECT_EQ(::stat(path.c_str(), &st), 0);
    return detail::ObjectIdentity{static_cast<std::uint64_t>(st.st_dev), static_cast<std::uint64_t>(st.st_ino)};
}

detail::ObjectIdentity identityOfDescriptor(int descriptor)
{
    struct stat st;
    EXPECT_EQ(::fstat(descriptor, &st), 0);
    return detail::ObjectIdentity{static_cast<std::uint64_t>(st.st_dev), static_cast<std::uint64_t>(st.st_ino)};
}

class TreeWalkTest : public ScratchDirectory {};

TEST_F(TreeWalkTest, ListingReadsEveryNameWithItsKindAndKeepsTheDescriptorOpen)
{
    ASSERT_EQ(::mkdir((scratch + "/sub").c_str(), 0755), 0);
    ASSERT_EQ(::close(::open((scratch + "/file").c_str(), O_CREAT | O_WRONLY, 0644)), 0);
    ASSERT_EQ(::symlink("file", (scratch + "/link").c_str()), 0);
    int const descriptor = ::open(scratch.c_str(), O_RDONLY | O_DIRECTORY);
    ASSERT_GE(descriptor, 0);
    detail::Listing listing;
    ASSERT_TRUE(listing.read(descriptor));
    ASSERT_EQ(listing.size(), 3u);
    std::set<std::string> names;
    for (std::size_t i = 0; i < listing.size(); ++i) {
        names.insert(listing.name(i));
        EXPECT_EQ(listing.nameLength(i), std::string(listing.name(i)).size());
        std::string const name = listing.name(i);
        detail::ListedKind const kind = listing.kind(i);
        if (kind != detail::ListedKind::unknown) {
            EXPECT_EQ(kind, name == "sub" ? detail::ListedKind::directory
                            : name == "link" ? detail::ListedKind::link
                                             : detail::ListedKind::other);
        }
    }
    EXPECT_EQ(names, (std::set<std::string>{"file", "link", "sub"}));
    // Read again through the same descriptor: the same three names.
    ASSERT_TRUE(listing.read(descriptor));
    EXPECT_EQ(listing.size(), 3u);
    EXPECT_NE(::fcntl(descriptor, F_GETFD), -1); // still open
    ::close(descriptor);
}

TEST_F(TreeWalkTest, ListingOfADescriptorThatIsNotADirectoryFails)
{
    int const descriptor = ::open((scratch + "/file").c_str(), O_CREAT | O_RDWR, 0644);
    ASSERT_GE(descriptor, 0);
    detail::Listing listing;
    EXPECT_FALSE(listing.read(descriptor));
    EXPECT_TRUE(listing.empty());
    ::close(descriptor);
}

TEST_F(TreeWalkTest, StackGoesDownAndBackUpAThousandLevelsWithBoundedDescriptors)
{
    int const depth = 1000;
    makeChain(scratch, depth);
    int const before = openDescriptors();
    {
        detail::DirectoryStack stack;
        ASSERT_TRUE(stack.open(AT_FDCWD, scratch.c_str(), false));
        EXPECT_EQ(stack.identity(), identityOfPath(scratch));
        int most = 0;
        // What each level's descriptor is, read from the descriptor itself.
        std::vector<detail::ObjectIdentity> entered{identityOfDescriptor(stack.descriptor())};
        for (int level = 1; level <= depth; ++level) {
            ASSERT_EQ(stack.enter("d", false), detail::Entered::entered) << level;
            entered.push_back(identityOfDescriptor(stack.descriptor()));
            most = std::max(most, openDescriptors() - before);
        }
        EXPECT_EQ(stack.depth(), static_cast<std::size_t>(depth));
        EXPECT_LE(most, static_cast<int>(detail::DirectoryStack::kHeldDescriptors) + 1);
        // The deepest level holds nothing.
        detail::Listing listing;
        ASSERT_TRUE(listing.read(stack.descriptor()));
        EXPECT_TRUE(listing.empty());
        for (int level = depth; level > 0; --level) {
            ASSERT_TRUE(stack.leave()) << level;
            // Every level, reopened or held, is the very directory entered.
            EXPECT_EQ(identityOfDescriptor(stack.descriptor()), entered[stack.depth()]) << level;
            EXPECT_EQ(stack.identity(), entered[stack.depth()]) << level;
        }
        EXPECT_EQ(stack.depth(), 0u);
        EXPECT_EQ(stack.identity(), identityOfPath(scratch));
        EXPECT_FALSE(stack.leave());
        ASSERT_TRUE(listing.read(stack.descriptor()));
        ASSERT_EQ(listing.size(), 1u);
        EXPECT_STREQ(listing.name(0), "d");
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(TreeWalkTest, StackDoesNotFollowALinkUnlessAsked)
{
    ASSERT_EQ(::mkdir((scratch + "/real").c_str(), 0755), 0);
    ASSERT_EQ(::symlink("real", (scratch + "/link").c_str()), 0);
    detail::DirectoryStack stack;
    ASSERT_TRUE(stack.open(AT_FDCWD, scratch.c_str(), false));
    errno = 0;
    EXPECT_EQ(stack.enter("link", false), detail::Entered::failed);
    EXPECT_NE(errno, 0);
    EXPECT_EQ(stack.depth(), 0u);
    EXPECT_EQ(stack.enter("missing", false), detail::Entered::failed);
    ASSERT_EQ(stack.enter("link", true), detail::Entered::entered);
    EXPECT_EQ(stack.identity(), identityOfPath(scratch + "/real"));
    ASSERT_TRUE(stack.leave());
    EXPECT_EQ(stack.identity(), identityOfPath(scratch));
}

TEST_F(TreeWalkTest, StackRefusesTheTopWhenItIsNotTheExpectedObject)
{
    ASSERT_EQ(::mkdir((scratch + "/a").c_str(), 0755), 0);
    ASSERT_EQ(::mkdir((scratch + "/b").c_str(), 0755), 0);
    detail::ObjectIdentity const b = identityOfPath(scratch + "/b");
    detail::DirectoryStack wrong;
    EXPECT_FALSE(wrong.open(AT_FDCWD, (scratch + "/a").c_str(), false, &b));
    EXPECT_FALSE(wrong.isOpen());
    detail::DirectoryStack right;
    EXPECT_TRUE(right.open(AT_FDCWD, (scratch + "/b").c_str(), false, &b));
    // A link is never the top unless followed.
    ASSERT_EQ(::symlink("b", (scratch + "/link").c_str()), 0);
    detail::DirectoryStack link;
    EXPECT_FALSE(link.open(AT_FDCWD, (scratch + "/link").c_str(), false));
}

TEST_F(TreeWalkTest, StackFindsALoopThroughALinkToAnAncestor)
{
    makeChain(scratch, 3);
    ASSERT_EQ(::symlink("../..", (scratch + "/d/d/d/up").c_str()), 0);
    detail::DirectoryStack stack;
    ASSERT_TRUE(stack.open(AT_FDCWD, scratch.c_str(), false));
    for (int level = 0; level < 3; ++level)
        ASSERT_EQ(stack.enter("d", false), detail::Entered::entered);
    EXPECT_EQ(stack.enter("up", true), detail::Entered::loop);
    EXPECT_EQ(stack.depth(), 3u);
    EXPECT_EQ(stack.levelOf(identityOfPath(scratch + "/d")), 1);
    EXPECT_EQ(stack.levelOf(identityOfPath(scratch)), 0);
}

TEST_F(TreeWalkTest, StackNoticesADirectoryMovedWhileTheWalkIsBelowIt)
{
    // Deep enough that the moved level's descriptor has been given up.
    int const depth = static_cast<int>(detail::DirectoryStack::kHeldDescriptors) + 8;
    makeChain(scratch + "", depth);
    ASSERT_EQ(::mkdir((scratch + "/elsewhere").c_str(), 0755), 0);
    detail::DirectoryStack stack;
    ASSERT_TRUE(stack.open(AT_FDCWD, scratch.c_str(), false));
    for (int level = 0; level < depth; ++level)
        ASSERT_EQ(stack.enter("d", false), detail::Entered::entered);
    // The level right below the top moves away: going back up must not land
    // in the directory it moved to and take that for the top.
    ASSERT_EQ(::rename((scratch + "/d/d").c_str(), (scratch + "/elsewhere/d").c_str()), 0);
    bool stopped = false;
    while (stack.depth() > 0) {
        if (!stack.leave()) {
            stopped = true;
            break;
        }
    }
    EXPECT_TRUE(stopped);
    EXPECT_EQ(stack.depth(), 2u); // stopped in the level that moved away
}

TEST_F(TreeWalkTest, StackReopensALevelEnteredThroughALinkByItsNames)
{
    int const depth = static_cast<int>(detail::DirectoryStack::kHeldDescriptors) + 4;
    ASSERT_EQ(::mkdir((scratch + "/real").c_str(), 0755), 0);
    makeChain(scratch + "/real", depth);
    ASSERT_EQ(::symlink("real", (scratch + "/link").c_str()), 0);
    detail::DirectoryStack stack;
    ASSERT_TRUE(stack.open(AT_FDCWD, scratch.c_str(), false));
    ASSERT_EQ(stack.enter("link", true), detail::Entered::entered);
    for (int level = 0; level < depth; ++level)
        ASSERT_EQ(stack.enter("d", false), detail::Entered::entered);
    while (stack.depth() > 0)
        ASSERT_TRUE(stack.leave());
    EXPECT_EQ(stack.identity(), identityOfPath(scratch));
}

} // namespace
