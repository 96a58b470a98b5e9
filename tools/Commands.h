// The subcommands of kelvo-fs and the formatting helpers they share.
#ifndef KELVO_TOOLS_COMMANDS_H
#define KELVO_TOOLS_COMMANDS_H

#include <kelvo/filesystem.h>

#include <cstdint>
#include <iosfwd>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace kelvo::tool {

/// Exit status of a successful command.
constexpr int kExitSuccess = 0;
/// Exit status of a negative answer or a failure ("not locked", a missing file).
constexpr int kExitNegative = 1;
/// Exit status of a command line that cannot be understood.
constexpr int kExitBadUsage = 2;

/// One subcommand as the user called it.
struct Invocation {
    /// The subcommand's name ("path", "lock", ...).
    std::string name;
    /// Its usage text, printed on request and after a usage error.
    char const* usage = "";
    /// The arguments before a "--" (options already taken out).
    std::vector<std::string> operands;
    /// The arguments after the first "--".
    std::vector<std::string> afterSeparator;
    /// True when a "--" was given.
    bool sawSeparator = false;
    /// The options given, by their long or short name ("-l", "--timeout"),
    /// with their values ("" for an option without one).
    std::vector<std::pair<std::string, std::string>> options;

    /// @returns every operand, those after "--" included, in order.
    std::vector<std::string> allOperands() const;
    /// @returns true when the option `name` was given.
    bool hasOption(char const* name) const;
    /// @returns the value of the last `name` given, or null when none was.
    std::string const* optionValue(char const* name) const;
};

/// One option a command accepts.
struct OptionInfo {
    /// Its name as given: "-l" (a single letter, never with a value) or
    /// "--timeout".
    char const* name;
    /// The name of its value as the usage text shows it ("SECONDS"), or null
    /// for an option without a value.
    char const* value = nullptr;
};

/// One subcommand of the table in kelvo-fs.cpp, as help, completion and the
/// option parser see it. The first line of `usage` is its synopsis
/// ("Usage: kelvo-fs ls [-a] [-l] [-h] [--json] [PATH...]"), showing the
/// options of `options` in their order; the second line is the one-line
/// summary that `help` lists.
struct CommandInfo {
    char const* name;
    char const* usage;
    int (*run)(Invocation const&);
    /// The options the command accepts, besides --help (and -h for help when
    /// it is not one of them).
    std::vector<OptionInfo> options = {};
    /// True for a command that reads its own words, in their order, as an
    /// expression ("find ROOT -name GLOB -type f"): every word reaches it as
    /// an operand; only "--help" is answered for it.
    bool wordsAsGiven = false;
};

/// Runs the command line `argv` against `commands`, with `help [COMMAND]`
/// and `--help` answered from the table.
/// @returns the process's exit status.
int runCommandLine(int argc, char** argv, std::vector<CommandInfo> const& commands, char const* toolUsage);

/// Prints "kelvo-fs NAME: message" and the one-line synopsis of the command on
/// standard error.
/// @returns kExitBadUsage.
int badUsage(Invocation const& invocation, std::string const& message);

/// Prints "kelvo-fs NAME: message" on standard error.
/// @returns kExitNegative.
int failure(Invocation const& invocation, std::string const& message);

/// Runs `command` (searched in PATH) with this process's standard streams and
/// environment and waits for it; a failure to start it is reported on
/// standard error as "kelvo-fs NAME: cannot run ...".
/// @returns its exit status, 128 plus the signal number when a signal ended
/// it, 126 or 127 when it could not be started, or -1 (errno set) when no
/// process could be made or waited for.
int runCommand(Invocation const& invocation, std::vector<std::string> const& command);

// ---- Formatting -------------------------------------------------------------

/// @returns the system's text for the errno value `error` ("Permission
/// denied"), as `std::error_code::message` gives it.
std::string reasonText(int error);

/// The one way kelvo-fs shows a name: UTF-8 as it is, every byte that is not
/// part of valid UTF-8 and every control character as \xHH, a backslash
/// doubled. Used by every command, in text and in JSON alike.
/// @returns the shown form of the bytes `bytes`.
std::string escapeName(std::string const& bytes);

/// The one way a name appears in a message: shown as `escapeName` shows it,
/// a single quote inside escaped as \', between single quotes.
/// @returns the quoted form of the bytes `bytes`.
std::string quoteName(std::string const& bytes);

/// @returns true when the bytes `bytes` are not exactly what `escapeName`
/// shows, when they are not the composed (NFC) form of their text, or when
/// they hold a single quote: a listing quotes such a name, so that two names
/// whose texts differ only in composition never look the same.
bool isMarkedName(std::string const& bytes);

// ---- Failures ---------------------------------------------------------------
//
// Every failure the tool reports comes from the library's failure record: the
// record is cleared before the call, and after a false or empty answer the
// message names the path the record holds (for a tree, the entry deep inside
// it) with the system's reason. Nothing is looked up again on disk to guess a
// reason. Where the library answered without a failed system call (a
// dangling link that stops a removal, a length over the limits), the record
// is empty and the command says what it knows in its own words.

/// Empties the failure record before a library call whose failure will be
/// reported.
void startRecording();

/// @returns the failure recorded since `startRecording`; empty when none.
kelvo::filesystem::Failure recordedFailure();

/// @returns "cannot VERB 'PATH': REASON" for the recorded `failed`, PATH the
/// recorded path, or `fallbackPath` when the record names none; when nothing
/// was recorded, "cannot VERB 'fallbackPath': ownReason".
std::string failureText(std::string const& verb, kelvo::filesystem::Failure const& failed,
                        std::string const& fallbackPath, std::string const& ownReason);

/// Prints "kelvo-fs NAME: " and `failureText` of the record on standard error.
/// @returns kExitNegative.
int reportFailure(Invocation const& invocation, std::string const& verb, std::string const& fallbackPath,
                  std::string const& ownReason);

/// @returns `bytes` in double quotes: printable ASCII as it is, `\` and `"`
/// escaped with a backslash, every other byte as \xHH.
std::string quoteBytes(std::string const& bytes);

/// @returns `text` in double quotes, shown as `escapeName` shows names, with
/// `"` escaped too and values that cannot be encoded as \u{HEX}.
std::string quoteText(kelvo::unicode::String const& text);

/// @returns the name of the enumerator of `type` ("regularFile", ...), or
/// "type N" for a value that has none.
std::string typeName(kelvo::filesystem::FileType type);

/// @returns the access bits in octal with a leading 0 ("0644"), or "unknown"
/// for `Permissions::unknownPermissions`.
std::string permissionsText(kelvo::filesystem::Permissions permissions);

/// @returns the time in ISO 8601 UTC with microseconds
/// ("2026-11-22T02:12:51.123456Z"), or "unknown" when it cannot be shown.
std::string timeText(kelvo::filesystem::FileTime time);

/// @returns the time in the local time zone to the minute
/// ("2026-11-22 03:12"), or "?" when it cannot be shown.
std::string localTimeText(kelvo::filesystem::FileTime time);

/// @returns `size` in bytes below 1024, else in K, M, G, T, P or E (powers
/// of 1024) rounded up, with one decimal below 10: "1023", "1.0K", "1.5K",
/// "10K", "3.4M".
std::string humanSize(std::int64_t size);

/// @returns "true" or "false".
char const* boolText(bool value);

/// Writes the labelled lines describing `path`: text, native bytes, the
/// decomposition, the two flags and the elements.
void printPathReport(std::ostream& out, kelvo::filesystem::Path const& path);

/// @returns the elements of `path` quoted and separated by single spaces, or
/// "(none)" for a path without elements.
std::string elementsText(kelvo::filesystem::Path const& path);

/// @returns a comparison written as `"A" == "B"`, `"A" < "B"` or `"A" > "B"`
/// from the result of `kelvo_private::filesystem::compare`.
std::string comparisonText(kelvo::unicode::String const& a, kelvo::unicode::String const& b, int order);

/// Writes one listing line: type, size (or "-" when unknown) and name (shown
/// as `escapeName` shows names).
void printListingLine(std::ostream& out, kelvo::filesystem::FileType type, std::int64_t size,
                      std::string const& name);

// ---- Subcommands ------------------------------------------------------------
// Each returns the process's exit status.

int runPath(Invocation const& invocation);
int runCompare(Invocation const& invocation);
int runStat(Invocation const& invocation);
int runList(Invocation const& invocation);
int runLock(Invocation const& invocation);
int runLocked(Invocation const& invocation);
int runCurrentDirectory(Invocation const& invocation);
int runDemo(Invocation const& invocation);
int runMutex(Invocation const& invocation);
int runTemporaryDirectories(Invocation const& invocation);
int runInTemporaryDirectory(Invocation const& invocation);

// Usage texts of the path transformation commands.
extern char const kResolveUsage[];
extern char const kCanonicalUsage[];
extern char const kCompleteUsage[];
extern char const kLimitsUsage[];
extern char const kCheckLengthUsage[];
extern char const kSanitizeUsage[];
extern char const kDos83Usage[];
extern char const kElideUsage[];
extern char const kGlobUsage[];
extern char const kFixCaseUsage[];

/// Writes the demo's lines about the path transformations, using the files
/// the demo made in `directory`.
void showTransformations(std::ostream& out, kelvo::filesystem::Path const& directory);

int runResolve(Invocation const& invocation);
int runCanonical(Invocation const& invocation);
int runComplete(Invocation const& invocation);
int runLimits(Invocation const& invocation);
int runCheckLength(Invocation const& invocation);
int runSanitize(Invocation const& invocation);
int runDos83(Invocation const& invocation);
int runElide(Invocation const& invocation);
int runGlob(Invocation const& invocation);
int runFixCase(Invocation const& invocation);

// File operations (FileCommands.cpp), with their usage texts.
extern char const kMakeDirectoryUsage[];
extern char const kRemoveUsage[];
extern char const kRemoveMatchingUsage[];
extern char const kCopyUsage[];
extern char const kMoveUsage[];
extern char const kLinkUsage[];
extern char const kCompareFilesUsage[];
extern char const kCompareTreesUsage[];
int runMakeDirectory(Invocation const& invocation);
int runRemove(Invocation const& invocation);
int runRemoveMatching(Invocation const& invocation);
int runCopy(Invocation const& invocation);
int runMove(Invocation const& invocation);
int runLink(Invocation const& invocation);
int runCompareFiles(Invocation const& invocation);
int runCompareTrees(Invocation const& invocation);

/// @returns the message for a failure of a copy or move from `from` to `to`:
/// "cannot VERB 'PATH': REASON" for a path of the source, "cannot VERB to
/// 'PATH': REASON" for one of the destination.
std::string transferFailureText(char const* verb, kelvo::filesystem::Failure const& failed, std::string const& from,
                                std::string const& to, std::string const& ownReason);

/// kelvo-fs cp -a (CopyCommands.cpp): the copy that keeps times, modes,
/// owners and links, with a progress line on a terminal.
int runCopyKeeping(Invocation const& invocation);

// Finding and measuring trees (FindCommands.cpp), with their usage texts.
extern char const kFindUsage[];
extern char const kDiskUsageUsage[];
int runFind(Invocation const& invocation);
int runDiskUsage(Invocation const& invocation);

// Atomic saves (SaveCommand.cpp), with the usage text.
extern char const kSaveUsage[];
int runSave(Invocation const& invocation);

} // namespace kelvo::tool

#endif
