// Test support: saves killed with SIGKILL at random moments, each checked to have left the old or the new contents whole and the next save to leave nothing behind.
#ifndef KELVO_TESTS_SUPPORT_SAVE_CRASHES_H
#define KELVO_TESTS_SUPPORT_SAVE_CRASHES_H

#include "FileTrees.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <random>
#include <string>
#include <vector>

#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kelvo::testing {

/// @returns true when KELVO_STRESS=1 asks for the full stress sizes.
inline bool stressRequested()
{
    char const* stress = std::getenv("KELVO_STRESS");
    return stress != nullptr && std::strcmp(stress, "1") == 0;
}

/// @returns `size` bytes drawn from a generator seeded with `seed`.
inline std::string randomBytes(std::size_t size, unsigned seed)
{
    std::mt19937_64 engine(seed);
    std::string bytes(size, '\0');
    std::size_t i = 0;
    for (; i + 8 <= size; i += 8) {
        std::uint64_t const drawn = engine();
        std::memcpy(&bytes[i], &drawn, 8);
    }
    for (; i < size; ++i)
        bytes[i] = static_cast<char>(engine());
    return bytes;
}

/// What the kills left: how often the target held the old and the new
/// contents afterwards.
struct CrashTally {
    int oldContents = 0;
    int newContents = 0;
};

/// Saves `newContents` over `oldContents` at `directory`/`name` in a child
/// process `kills` times, killing the child with SIGKILL after a random
/// delay up to a little more than one whole save takes. `save(path,
/// contents)` is the save under test (it runs in the child) and also puts
/// the old contents back after each kill (in this process). After each kill
/// the target must hold exactly the old or exactly the new contents, and
/// after the save that puts the old ones back, the directory must hold the
/// target alone.
template <typename Save>
::testing::AssertionResult killSavesAtRandom(std::string const& directory, std::string const& name,
                                             std::string const& oldContents, std::string const& newContents,
                                             int kills, Save save, CrashTally& tally)
{
    std::string const target = directory + "/" + name;
    if (!save(target, oldContents))
        return ::testing::AssertionFailure() << "the first save of the old contents failed";
    // How long one whole save takes here, to spread the kills over it.
    auto const started = std::chrono::steady_clock::now();
    pid_t const timed = ::fork();
    if (timed == 0)
        ::_exit(save(target, newContents) ? 0 : 1);
    int status = 0;
    if (timed < 0 || ::waitpid(timed, &status, 0) != timed || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
        return ::testing::AssertionFailure() << "a whole save in a child failed";
    long long const wholeSave = std::chrono::duration_cast<std::chrono::microseconds>(
                                    std::chrono::steady_clock::now() - started).count();
    if (readWholeFile(target) != newContents)
        return ::testing::AssertionFailure() << "a whole save did not leave the new contents";
    std::mt19937_64 engine(static_cast<unsigned>(::getpid()) ^ static_cast<unsigned>(std::time(nullptr)));
    std::uniform_int_distribution<long long> delay(0, wholeSave + wholeSave / 4 + 1);
    std::vector<std::string> const alone = {name};
    for (int kill = 0; kill < kills; ++kill) {
        if (!save(target, oldContents))
            return ::testing::AssertionFailure() << "kill " << kill << ": putting the old contents back failed";
        if (namesIn(directory) != alone)
            return ::testing::AssertionFailure() << "kill " << kill << ": a save left " << namesIn(directory).size()
                                                 << " names in the directory";
        long long const wait = delay(engine);
        pid_t const child = ::fork();
        if (child < 0)
            return ::testing::AssertionFailure() << "fork failed";
        if (child == 0)
            ::_exit(save(target, newContents) ? 0 : 1);
        timespec pause = {static_cast<time_t>(wait / 1000000), static_cast<long>(wait % 1000000) * 1000};
        ::nanosleep(&pause, nullptr);
        ::kill(child, SIGKILL);
        if (::waitpid(child, &status, 0) != child)
            return ::testing::AssertionFailure() << "kill " << kill << ": the child was lost";
        if (WIFEXITED(status) && WEXITSTATUS(status) != 0)
            return ::testing::AssertionFailure() << "kill " << kill << ": the child's save failed";
        std::string const found = readWholeFile(target);
        if (found == oldContents)
            ++tally.oldContents;
        else if (found == newContents)
            ++tally.newContents;
        else
            return ::testing::AssertionFailure() << "kill " << kill << " after " << wait << " us: the target holds "
                                                 << found.size() << " bytes, neither the old "
                                                 << oldContents.size() << " nor the new " << newContents.size();
    }
    // The last kill's leftovers go with one more save.
    if (!save(target, oldContents) || namesIn(directory) != alone)
        return ::testing::AssertionFailure() << "the save after the last kill left the directory unclean";
    return ::testing::AssertionSuccess();
}

} // namespace kelvo::testing

#endif
