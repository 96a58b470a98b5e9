// How kelvo-fs writes paths, bytes, file types, permissions and times.
#include "Commands.h"
#include "Json.h"

#include <cstdio>
#include <cstring>
#include <ctime>
#include <iomanip>
#include <iostream>
#include <system_error>

namespace kelvo::tool {

using kelvo::filesystem::FileTime;
using kelvo::filesystem::FileType;
using kelvo::filesystem::Path;
using kelvo::filesystem::Permissions;
using kelvo::unicode::String;

namespace {

// Labels are padded so that the values of a report line up.
constexpr int kLabelWidth = 15;

void appendHexByte(std::string& out, unsigned int byte)
{
    char buffer[8];
    std::snprintf(buffer, sizeof buffer, "\\x%02X", byte & 0xFFu);
    out += buffer;
}

void printField(std::ostream& out, char const* label, std::string const& value)
{
    out << std::left << std::setw(kLabelWidth) << (std::string(label) + ":") << value << '\n';
}

} // namespace

std::vector<std::string> Invocation::allOperands() const
{
    std::vector<std::string> all = operands;
    all.insert(all.end(), afterSeparator.begin(), afterSeparator.end());
    return all;
}

bool Invocation::hasOption(char const* name) const
{
    return optionValue(name) != nullptr;
}

std::string const* Invocation::optionValue(char const* name) const
{
    std::string const* found = nullptr;
    for (auto const& option : options) {
        if (option.first == name)
            found = &option.second;
    }
    return found;
}

int badUsage(Invocation const& invocation, std::string const& message)
{
    std::string usage = invocation.usage;
    std::string synopsis = usage.substr(0, usage.find('\n'));
    std::cerr << "kelvo-fs " << invocation.name << ": " << message << '\n'
              << synopsis << "  (kelvo-fs help " << invocation.name << " tells more)\n";
    return kExitBadUsage;
}

int failure(Invocation const& invocation, std::string const& message)
{
    std::cerr << "kelvo-fs " << invocation.name << ": " << message << '\n';
    return kExitNegative;
}

std::string reasonText(int error)
{
    return std::error_code(error, std::generic_category()).message();
}

namespace {

// The one escaping of names: see escapeName. `quote`, when not 0, is the
// quotation mark the value is shown between, escaped too.
std::string escaped(String const& text, char32_t quote)
{
    std::string out;
    out.reserve(text.size());
    for (char32_t c : text) {
        if (c == U'\\' || (quote != 0 && c == quote)) {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c < 0x20 || c == 0x7F) {
            appendHexByte(out, static_cast<unsigned int>(c));
        } else if (c >= 0xDC80 && c <= 0xDCFF) {
            // A byte that was not UTF-8 when the text was decoded.
            appendHexByte(out, static_cast<unsigned int>(c - 0xDC00));
        } else if ((c >= 0x80 && c < 0xA0) || (c >= 0xD800 && c <= 0xDFFF) || c > 0x10FFFF) {
            char buffer[24];
            std::snprintf(buffer, sizeof buffer, "\\u{%X}", static_cast<unsigned int>(c));
            out += buffer;
        } else if (c < 0x80) {
            out += static_cast<char>(c);
        } else {
            out += String(1, c).toUTF8String();
        }
    }
    return out;
}

} // namespace

std::string escapeName(std::string const& bytes)
{
    return escaped(String(bytes), 0);
}

std::string quoteName(std::string const& bytes)
{
    return "'" + escaped(String(bytes), U'\'') + "'";
}

bool isMarkedName(std::string const& bytes)
{
    String const text(bytes);
    // Bytes that are not UTF-8 come back from the native form as themselves,
    // so escaping, not composition, tells them.
    return escapeName(bytes) != bytes || text.toNativeString() != bytes || bytes.find('\'') != std::string::npos;
}

void startRecording()
{
    kelvo::filesystem::clearLastFailure();
}

kelvo::filesystem::Failure recordedFailure()
{
    return kelvo::filesystem::lastFailure();
}

std::string failureText(std::string const& verb, kelvo::filesystem::Failure const& failed,
                        std::string const& fallbackPath, std::string const& ownReason)
{
    if (!failed)
        return "cannot " + verb + " " + quoteName(fallbackPath) + ": " + ownReason;
    std::string const path = failed.path.empty() ? fallbackPath : failed.path.nativeString();
    return "cannot " + verb + " " + quoteName(path) + ": " + failed.error.message();
}

int reportFailure(Invocation const& invocation, std::string const& verb, std::string const& fallbackPath,
                  std::string const& ownReason)
{
    return failure(invocation, failureText(verb, recordedFailure(), fallbackPath, ownReason));
}

nlohmann::ordered_json jsonName(std::string const& bytes)
{
    return escapeName(bytes);
}

void printJsonLine(std::ostream& out, nlohmann::ordered_json const& object)
{
    // Every value is written by the JSON library; only the spacing between
    // members, which it does not offer on one line, is the tool's own.
    auto const write = [](nlohmann::ordered_json const& value) {
        return value.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
    };
    out << '{';
    bool first = true;
    for (auto const& [key, value] : object.items()) {
        out << (first ? "" : ", ") << write(key) << ": " << write(value);
        first = false;
    }
    out << "}\n";
}

std::string quoteBytes(std::string const& bytes)
{
    std::string out = "\"";
    for (char c : bytes) {
        unsigned int byte = static_cast<unsigned char>(c);
        if (c == '\\' || c == '"') {
            out += '\\';
            out += c;
        } else if (byte >= 0x20 && byte < 0x7F) {
            out += c;
        } else {
            appendHexByte(out, byte);
        }
    }
    out += '"';
    return out;
}

std::string quoteText(String const& text)
{
    return "\"" + escaped(text, U'"') + "\"";
}

std::string typeName(FileType type)
{
    switch (type) {
    case FileType::none:
        return "none";
    case FileType::regularFile:
        return "regularFile";
    case FileType::directory:
        return "directory";
    case FileType::symbolicLink:
        return "symbolicLink";
    case FileType::blockDevice:
        return "blockDevice";
    case FileType::characterDevice:
        return "characterDevice";
    case FileType::fifo:
        return "fifo";
    case FileType::unknown:
        return "unknown";
    }
    return "type " + std::to_string(static_cast<std::uint32_t>(type));
}

std::string permissionsText(Permissions permissions)
{
    if (permissions == Permissions::unknownPermissions)
        return "unknown";
    char buffer[16];
    std::snprintf(buffer, sizeof buffer, "0%03o", static_cast<unsigned int>(permissions));
    return buffer;
}

std::string timeText(FileTime time)
{
    long long microseconds = time.time_since_epoch().count();
    long long seconds = microseconds / 1000000;
    long long fraction = microseconds % 1000000;
    if (fraction < 0) {
        // Times before the epoch: the second is the one below, the fraction counts up from it.
        fraction += 1000000;
        seconds -= 1;
    }
    std::time_t whole = static_cast<std::time_t>(seconds);
    std::tm parts{};
    if (::gmtime_r(&whole, &parts) == nullptr)
        return "unknown";
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%04lld-%02d-%02dT%02d:%02d:%02d.%06lldZ",
                  static_cast<long long>(parts.tm_year) + 1900, parts.tm_mon + 1, parts.tm_mday,
                  parts.tm_hour, parts.tm_min, parts.tm_sec, fraction);
    return buffer;
}

std::string localTimeText(FileTime time)
{
    long long microseconds = time.time_since_epoch().count();
    long long seconds = microseconds / 1000000;
    if (microseconds % 1000000 < 0)
        seconds -= 1;
    std::time_t whole = static_cast<std::time_t>(seconds);
    std::tm parts{};
    if (::localtime_r(&whole, &parts) == nullptr)
        return "?";
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%04lld-%02d-%02d %02d:%02d", static_cast<long long>(parts.tm_year) + 1900,
                  parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min);
    return buffer;
}

std::string humanSize(std::int64_t size)
{
    if (size < 1024)
        return std::to_string(size);
    static char const kUnits[] = "KMGTPE";
    std::uint64_t const bytes = static_cast<std::uint64_t>(size);
    std::uint64_t unit = 1024;
    for (int k = 0;; ++k, unit *= 1024) {
        std::uint64_t const whole = bytes / unit;
        std::uint64_t const rest = bytes % unit;
        bool const last = kUnits[k + 1] == '\0';
        // Rounded up, as a size shown must never be less than the real one.
        std::uint64_t const tenths = whole * 10 + (rest * 10) / unit + ((rest * 10) % unit != 0 ? 1 : 0);
        char buffer[32];
        if (tenths < 100) {
            std::snprintf(buffer, sizeof buffer, "%u.%u%c", static_cast<unsigned>(tenths / 10),
                          static_cast<unsigned>(tenths % 10), kUnits[k]);
            return buffer;
        }
        std::uint64_t const roundedUp = whole + (rest != 0 ? 1 : 0);
        if (roundedUp < 1024 || last) {
            std::snprintf(buffer, sizeof buffer, "%llu%c", static_cast<unsigned long long>(roundedUp), kUnits[k]);
            return buffer;
        }
    }
}

char const* boolText(bool value)
{
    return value ? "true" : "false";
}

std::string elementsText(Path const& path)
{
    std::string out;
    for (Path const& element : path) {
        if (!out.empty())
            out += ' ';
        out += quoteText(element.string());
    }
    return out.empty() ? "(none)" : out;
}

void printPathReport(std::ostream& out, Path const& path)
{
    printField(out, "text", quoteText(path.string()));
    printField(out, "native", quoteBytes(path.nativeString()));
    printField(out, "rootName", quoteText(path.rootName().string()));
    printField(out, "rootDirectory", quoteText(path.rootDirectory().string()));
    printField(out, "relativePath", quoteText(path.relativePath().string()));
    printField(out, "parentPath", quoteText(path.parentPath().string()));
    printField(out, "filename", quoteText(path.filename().string()));
    printField(out, "stem", quoteText(path.stem().string()));
    printField(out, "extension", quoteText(path.extension().string()));
    printField(out, "isAbsolute", boolText(path.isAbsolute()));
    printField(out, "isComplete", boolText(path.isComplete()));
    printField(out, "elements", elementsText(path));
}

std::string comparisonText(String const& a, String const& b, int order)
{
    char const* sign = order < 0 ? " < " : order > 0 ? " > " : " == ";
    return quoteText(a) + sign + quoteText(b);
}

void printListingLine(std::ostream& out, FileType type, std::int64_t size, std::string const& name)
{
    std::string sizeText = size < 0 ? "-" : std::to_string(size);
    out << std::left << std::setw(16) << typeName(type) << std::right << std::setw(12) << sizeText << "  "
        << escapeName(name) << '\n';
}

} // namespace kelvo::tool
