// kelvo-fs stat, ls and cwd: what lies at a path, what a directory holds, where the process stands.
#include "Commands.h"
#include "Json.h"

#include <algorithm>
#include <iostream>
#include <optional>

namespace kelvo::tool {

using kelvo::filesystem::DirectoryEntry;
using kelvo::filesystem::DirectoryIterator;
using kelvo::filesystem::FileTime;
using kelvo::filesystem::FileType;
using kelvo::filesystem::Path;
using kelvo::filesystem::PathLess;
using kelvo::filesystem::Permissions;

namespace {

namespace fs = kelvo::filesystem;

constexpr int kStatLabelWidth = 20;

void printStatField(std::string const& label, std::string const& value)
{
    std::string labelText = label + ":";
    labelText.resize(std::max<std::size_t>(labelText.size(), kStatLabelWidth), ' ');
    std::cout << labelText << value << '\n';
}

/// @returns the JSON array of the bytes `bytes`, each a number from 0 to 255:
/// the exact native bytes, which the escaped name shows only as far as text can.
nlohmann::ordered_json jsonBytes(std::string const& bytes)
{
    nlohmann::ordered_json array = nlohmann::ordered_json::array();
    for (char c : bytes)
        array.push_back(static_cast<unsigned int>(static_cast<unsigned char>(c)));
    return array;
}

/// @returns the name as a listing shows it: as `escapeName` shows it, or
/// quoted as `quoteName` quotes it when `isMarkedName` (not composed, not
/// UTF-8, escaped or holding a quote), so that two names whose texts differ
/// only in composition never look the same.
std::string listedName(std::string const& bytes)
{
    return isMarkedName(bytes) ? quoteName(bytes) : escapeName(bytes);
}

/// @returns `value` when it is known, else JSON's null.
template <typename Value>
nlohmann::ordered_json orNull(bool known, Value const& value)
{
    return known ? nlohmann::ordered_json(value) : nlohmann::ordered_json();
}

// ---- ls -------------------------------------------------------------------------

/// One line of a listing, whichever form it is shown in.
struct Row {
    std::string name;        ///< the bytes of the name as listed or as typed
    std::string path;        ///< the bytes of the full path
    FileType type = FileType::none;
    Permissions permissions = Permissions::unknownPermissions;
    bool isLink = false;
    std::string target;      ///< what a symbolic link holds
    std::int64_t size = -1;
    std::optional<FileTime> modified;
};

/// What a symbolic link is in itself, which the status does not tell (it
/// follows links, and the link status cannot tell a link from a regular
/// file): whether `path` is a link, and its own size, time and contents.
bool describeLink(Path const& path, Row& row)
{
    fs::SymbolicLinkInformation link;
    if (!fs::readSymbolicLinkInformation(path, link))
        return false;
    row.isLink = true;
    row.type = FileType::symbolicLink;
    row.permissions = link.permissions;
    row.size = link.size;
    row.modified = link.modificationTime;
    row.target = link.target.nativeString();
    return true;
}

/// Fills a row from the library's status of `path`, or from the link itself
/// when `mayBeLink` and `path` is a symbolic link.
Row makeRow(std::string name, Path const& path, fs::FileStatus status, bool mayBeLink)
{
    Row row;
    row.name = std::move(name);
    row.path = path.nativeString();
    if (mayBeLink && describeLink(path, row))
        return row;
    row.type = status.getType();
    row.permissions = status.getPermissions();
    if (row.type != FileType::none) {
        row.size = fs::fileSize(path);
        row.modified = fs::getModificationTime(path);
    }
    return row;
}

char typeLetter(Row const& row)
{
    if (row.isLink)
        return 'l';
    switch (row.type) {
    case FileType::regularFile:
        return '-';
    case FileType::directory:
        return 'd';
    case FileType::symbolicLink:
        return 'l';
    case FileType::blockDevice:
        return 'b';
    case FileType::characterDevice:
        return 'c';
    case FileType::fifo:
        return 'p';
    default:
        return '?';
    }
}

std::string modeText(Row const& row)
{
    std::string mode(1, typeLetter(row));
    if (row.permissions == Permissions::unknownPermissions)
        return mode + "?????????";
    unsigned int bits = static_cast<unsigned int>(row.permissions);
    char const* letters = "rwxrwxrwx";
    for (int i = 0; i < 9; ++i)
        mode += (bits & (0400u >> i)) ? letters[i] : '-';
    return mode;
}

struct ListOptions {
    bool all = false;
    bool longForm = false;
    bool human = false;
    bool json = false;
};

void printRows(std::vector<Row> const& rows, ListOptions const& options)
{
    if (options.json) {
        for (Row const& row : rows) {
            nlohmann::ordered_json line;
            line["name"] = jsonName(row.name);
            line["native"] = jsonBytes(row.name);
            line["path"] = jsonName(row.path);
            line["type"] = typeName(row.type);
            line["target"] = row.isLink ? jsonName(row.target) : nlohmann::ordered_json();
            line["permissions"] = orNull(row.permissions != Permissions::unknownPermissions,
                                         permissionsText(row.permissions));
            line["size"] = orNull(row.size >= 0, row.size);
            line["modified"] = row.modified ? nlohmann::ordered_json(timeText(*row.modified)) : nlohmann::ordered_json();
            printJsonLine(std::cout, line);
        }
        return;
    }
    if (!options.longForm) {
        for (Row const& row : rows)
            std::cout << listedName(row.name) << '\n';
        return;
    }
    std::vector<std::string> sizes;
    std::vector<std::string> times;
    std::size_t sizeWidth = 0;
    std::size_t timeWidth = 0;
    for (Row const& row : rows) {
        sizes.push_back(row.size < 0 ? "?" : options.human ? humanSize(row.size) : std::to_string(row.size));
        times.push_back(row.modified ? localTimeText(*row.modified) : "?");
        sizeWidth = std::max(sizeWidth, sizes.back().size());
        timeWidth = std::max(timeWidth, times.back().size());
    }
    for (std::size_t i = 0; i < rows.size(); ++i) {
        Row const& row = rows[i];
        std::cout << modeText(row) << ' ' << std::string(sizeWidth - sizes[i].size(), ' ') << sizes[i] << ' '
                  << times[i] << std::string(timeWidth - times[i].size(), ' ') << ' ' << listedName(row.name);
        if (row.isLink)
            std::cout << " -> " << listedName(row.target);
        std::cout << '\n';
    }
}

/// Orders rows by name as paths compare (letter case and composition
/// ignored), names that compare equal by their bytes.
void sortRows(std::vector<Row>& rows)
{
    std::sort(rows.begin(), rows.end(), [](Row const& a, Row const& b) {
        Path const x(a.name);
        Path const y(b.name);
        if (PathLess()(x, y))
            return true;
        if (PathLess()(y, x))
            return false;
        return a.name < b.name;
    });
}

/// Lists the directory `text`.
/// @returns false, with the reason told, when it cannot be opened.
bool listDirectory(Invocation const& invocation, std::string const& text, ListOptions const& options,
                   std::vector<Row>& rows)
{
    Path const directory(text);
    startRecording();
    DirectoryIterator listing(directory);
    if (!listing.canIterate()) {
        reportFailure(invocation, "open directory", text, "it cannot be listed");
        return false;
    }
    if (options.all) {
        for (char const* dot : {".", ".."}) {
            Path const path = directory / Path(dot);
            rows.push_back(makeRow(dot, path, fs::status(path), true));
        }
    }
    for (DirectoryIterator end; listing != end; ++listing) {
        DirectoryEntry const& entry = *listing;
        std::string name = entry.getPath().filename().nativeString();
        if (!options.all && !name.empty() && name[0] == '.')
            continue;
        // The listing tells a symbolic link by its own type.
        bool const link = entry.getSymlinkStatus().getType() == FileType::symbolicLink;
        rows.push_back(makeRow(std::move(name), entry.getPath(), entry.getStatus(), link));
    }
    sortRows(rows);
    return true;
}

} // namespace

int runStat(Invocation const& invocation)
{
    std::vector<std::string> paths = invocation.allOperands();
    if (paths.empty())
        return badUsage(invocation, "expects at least one PATH");
    bool const json = invocation.hasOption("--json");
    int result = kExitSuccess;
    bool first = true;
    for (std::string const& text : paths) {
        Path path(text);
        startRecording();
        fs::FileStatus followed = fs::status(path);
        kelvo::filesystem::Failure const failed = recordedFailure();
        bool const found = followed.getType() != FileType::none;
        std::string const own = "it does not exist";
        std::string const reason = failed ? failed.error.message() : own;
        fs::FileStatus itself = fs::symbolicLinkStatus(path);
        std::int64_t const size = found ? fs::fileSize(path) : -1;
        FileTime const modified = fs::getModificationTime(path);
        bool const knownPermissions = followed.getPermissions() != Permissions::unknownPermissions;
        if (json) {
            nlohmann::ordered_json line;
            line["path"] = jsonName(text);
            line["native"] = jsonBytes(path.nativeString());
            line["exists"] = found;
            line["status"] = typeName(followed.getType());
            line["symbolicLinkStatus"] = typeName(itself.getType());
            line["permissions"] = orNull(knownPermissions, permissionsText(followed.getPermissions()));
            line["size"] = orNull(found, size);
            line["modified"] = orNull(found, timeText(modified));
            line["error"] = orNull(!found, reason);
            printJsonLine(std::cout, line);
        } else {
            if (!first)
                std::cout << '\n';
            first = false;
            printStatField("path", quoteText(kelvo::unicode::String(text)));
            // The text alone does not tell a name from its other compositions,
            // nor show every byte: the exact bytes then follow.
            if (isMarkedName(path.nativeString()))
                printStatField("native", quoteBytes(path.nativeString()));
            printStatField("status", typeName(followed.getType()));
            printStatField("symbolicLinkStatus", typeName(itself.getType()));
            // The access bits of a link are those of what it points to.
            printStatField("permissions", permissionsText(followed.getPermissions()));
            printStatField("size", found ? std::to_string(size) : "unknown");
            printStatField("modified", found ? timeText(modified) : "unknown");
        }
        if (!found)
            result = failure(invocation, failureText("stat", failed, text, own));
    }
    return result;
}

int runList(Invocation const& invocation)
{
    ListOptions options;
    options.all = invocation.hasOption("-a");
    options.longForm = invocation.hasOption("-l");
    options.human = invocation.hasOption("-h");
    options.json = invocation.hasOption("--json");
    std::vector<std::string> operands = invocation.allOperands();
    if (operands.empty())
        operands.push_back(".");

    int result = kExitSuccess;
    std::vector<Row> files;
    std::vector<std::string> directories;
    for (std::string const& text : operands) {
        Path const path(text);
        startRecording();
        fs::FileStatus const status = fs::status(path);
        kelvo::filesystem::Failure const failed = recordedFailure();
        if (status.getType() == FileType::directory) {
            directories.push_back(text);
            continue;
        }
        if (status.getType() == FileType::none) {
            // A dangling link is still there to be shown.
            Row row;
            if (!describeLink(path, row)) {
                result = failure(invocation, failureText("access", failed, text, "it does not exist"));
                continue;
            }
        }
        files.push_back(makeRow(text, path, status, true));
    }
    sortRows(files);
    std::sort(directories.begin(), directories.end(), [](std::string const& a, std::string const& b) {
        return PathLess()(Path(a), Path(b)) || (!PathLess()(Path(b), Path(a)) && a < b);
    });

    printRows(files, options);
    bool const headings = operands.size() > 1 && !options.json;
    bool printedGroup = !files.empty();
    for (std::string const& text : directories) {
        std::vector<Row> rows;
        if (!listDirectory(invocation, text, options, rows)) {
            result = kExitNegative;
            continue;
        }
        if (headings) {
            if (printedGroup)
                std::cout << '\n';
            std::cout << listedName(text) << ":\n";
        }
        printedGroup = true;
        printRows(rows, options);
    }
    return result;
}

int runCurrentDirectory(Invocation const& invocation)
{
    if (!invocation.allOperands().empty())
        return badUsage(invocation, "takes no arguments");
    startRecording();
    Path directory = kelvo::filesystem::getCurrentDirectory();
    if (directory.empty()) {
        kelvo::filesystem::Failure const failed = recordedFailure();
        return failure(invocation, "cannot find the current directory: "
                                       + (failed ? failed.error.message() : std::string("it has no path")));
    }
    std::cout << escapeName(directory.nativeString()) << '\n';
    return kExitSuccess;
}

} // namespace kelvo::tool
