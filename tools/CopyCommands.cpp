// kelvo-fs cp -a: the copy that keeps times, modes, owners and links, with a progress line on a terminal and a clean stop on an interrupt.
#include "Commands.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <iostream>
#include <string>

#include <unistd.h>

namespace kelvo::tool {

namespace fs = kelvo::filesystem;
using kelvo::filesystem::Path;

namespace {

/// Exit status after an interrupt stopped the copy (the shell's for SIGINT).
constexpr int kExitInterrupted = 128 + SIGINT;

std::atomic<bool> interrupted(false);

extern "C" void noteInterrupt(int) { interrupted.store(true); }

/// @returns `seconds` as "M:SS" or "H:MM:SS".
std::string durationText(double seconds)
{
    long const whole = seconds < 0 ? 0 : static_cast<long>(seconds + 0.5);
    char text[32];
    if (whole >= 3600)
        std::snprintf(text, sizeof text, "%ld:%02ld:%02ld", whole / 3600, whole / 60 % 60, whole % 60);
    else
        std::snprintf(text, sizeof text, "%ld:%02ld", whole / 60, whole % 60);
    return text;
}

/// The progress line: bytes done (of the total), rate, and time left when
/// the total is known.
std::string progressLine(fs::CopyProgress const& progress, double elapsedSeconds)
{
    std::string line = humanSize(progress.bytesDone) + "B";
    if (progress.bytesTotal > 0) {
        line += " of " + humanSize(progress.bytesTotal) + "B";
        line += " (" + std::to_string(progress.bytesDone * 100 / progress.bytesTotal) + "%)";
    }
    double const rate = elapsedSeconds > 0 ? static_cast<double>(progress.bytesDone) / elapsedSeconds : 0;
    line += ", " + humanSize(static_cast<std::int64_t>(rate)) + "B/s";
    if (progress.bytesTotal > 0 && rate > 0 && !progress.finished)
        line += ", " + durationText(static_cast<double>(progress.bytesTotal - progress.bytesDone) / rate) + " left";
    if (progress.filesTotal > 0)
        line += ", " + std::to_string(progress.filesDone) + "/" + std::to_string(progress.filesTotal) + " files";
    return line;
}

/// @returns the reflink policy `value` names; false when it names none.
bool parseReflink(std::string const& value, fs::ReflinkPolicy& policy)
{
    if (value == "auto")
        policy = fs::ReflinkPolicy::automatic;
    else if (value == "always")
        policy = fs::ReflinkPolicy::always;
    else if (value == "never")
        policy = fs::ReflinkPolicy::never;
    else
        return false;
    return true;
}

} // namespace

int runCopyKeeping(Invocation const& invocation)
{
    std::vector<std::string> const operands = invocation.allOperands();
    fs::CopyOptions options;
    if (std::string const* value = invocation.optionValue("--reflink")) {
        if (!parseReflink(*value, options.reflink))
            return badUsage(invocation, "--reflink takes auto, always or never, not " + quoteName(*value));
    }
    if (invocation.hasOption("-r"))
        return badUsage(invocation, "-a copies trees already: -r goes without it");
    options.overwrite = invocation.hasOption("--overwrite") ? fs::OverwritePolicy::always : fs::OverwritePolicy::never;

    // The line is drawn only where someone watches it.
    bool const showing = invocation.hasOption("--progress") && ::isatty(STDERR_FILENO) == 1;
    options.countFirst = showing;
    auto const start = std::chrono::steady_clock::now();
    bool drawn = false;
    std::size_t drawnWidth = 0;
    options.progressIntervalMilliseconds = showing ? 200 : 100;
    options.progressIntervalBytes = showing ? 16 * 1024 * 1024 : 1LL << 62;
    // Asked also when no line is drawn, so that an interrupt stops the copy
    // cleanly: the file being written is removed, the finished ones stay.
    options.progress = [&](fs::CopyProgress const& progress) {
        if (showing) {
            double const elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
            std::string line = progressLine(progress, elapsed);
            std::size_t const width = line.size();
            if (width < drawnWidth)
                line.append(drawnWidth - width, ' ');
            drawnWidth = width;
            std::cerr << '\r' << line << std::flush;
            drawn = true;
        }
        return !interrupted.load();
    };
    struct sigaction action = {};
    struct sigaction previous = {};
    action.sa_handler = noteInterrupt;
    ::sigemptyset(&action.sa_mask);
    ::sigaction(SIGINT, &action, &previous);

    fs::CopyResult const result = fs::copyTreeWith(Path(operands[0]), Path(operands[1]), options);
    ::sigaction(SIGINT, &previous, nullptr);
    if (drawn)
        std::cerr << '\n';

    for (fs::Failure const& failed : result.failures)
        failure(invocation, transferFailureText("copy", failed, operands[0], operands[1], ""));
    for (fs::CopySkip const& skipped : result.skipped) {
        std::string const name = quoteName(skipped.path.nativeString());
        if (skipped.reason == fs::CopySkipReason::socket)
            failure(invocation, "skipped " + name + ": a socket cannot be copied");
        else
            failure(invocation, "skipped " + name + ": its destination exists (use --overwrite)");
    }
    if (result.cancelled) {
        failure(invocation, "interrupted: the file being copied was removed, " + std::to_string(result.filesCopied)
                                + " finished files are kept");
        return kExitInterrupted;
    }
    return result.failures.empty() && result.skipped.empty() ? kExitSuccess : kExitNegative;
}

} // namespace kelvo::tool
