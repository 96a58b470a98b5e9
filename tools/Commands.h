// The subcommands of kelvo-fs and the formatting helpers they share.
#ifndef KELVO_TOOLS_COMMANDS_H
#define KELVO_TOOLS_COMMANDS_H

#include <kelvo/filesystem.h>

#include <cstdint>
#include <iosfwd>
#include <string>
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
    /// The command's own options given before a "--" ("--native"), in order.
    std::vector<std::string> options;

    /// @returns true when the option `name` was given.
    bool hasOption(char const* name) const
    {
        for (std::string const& option : options)
            if (option == name)
                return true;
        return false;
    }
    /// The arguments after the first "--".
    std::vector<std::string> afterSeparator;
    /// True when a "--" was given.
    bool sawSeparator = false;

    /// @returns every operand, those after "--" included, in order.
    std::vector<std::string> allOperands() const;
};

/// Prints "kelvo-fs NAME: message" and the usage text on standard error.
/// @returns kExitBadUsage.
int badUsage(Invocation const& invocation, std::string const& message);

/// Prints "kelvo-fs NAME: message" on standard error.
/// @returns kExitNegative.
int failure(Invocation const& invocation, std::string const& message);

// ---- Formatting -------------------------------------------------------------

/// @returns `bytes` in double quotes: printable ASCII as it is, `\` and `"`
/// escaped with a backslash, every other byte as \xHH.
std::string quoteBytes(std::string const& bytes);

/// @returns `text` in double quotes as UTF-8: `\` and `"` escaped with a
/// backslash, control characters and the code points that stand for
/// undecodable bytes as \xHH, values that cannot be encoded as \u{HEX}.
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

/// Writes one listing line: type, size (or "-" when unknown) and name.
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

} // namespace kelvo::tool

#endif
