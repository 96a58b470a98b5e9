// Sanitised and DOS 8.3 names: sanitize replaces unsafe characters one for one, toDos8Dot3 makes a unique short name beside the path.
#include <kelvo/filesystem/Operations.h>

#include "filesystem/path/PathInternal.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace kelvo::filesystem {

using kelvo::unicode::String;

namespace {

// Punctuation a short name may hold; a sanitised path also keeps the space
// and the full stop.
constexpr char32_t kShortNamePunctuation[] = U"!#$&'()-@^_`{}~";
constexpr char32_t kSanitizePunctuation[] = U" !#$&'()-@^_`{}~.";

constexpr std::size_t kBaseLength = 8;
constexpr std::size_t kTruncatedBaseLength = 6;
constexpr std::size_t kExtensionLength = 3;

bool isDigit(char32_t c) noexcept { return c >= U'0' && c <= U'9'; }
bool isCapital(char32_t c) noexcept { return c >= U'A' && c <= U'Z'; }
bool isSmallLetter(char32_t c) noexcept { return c >= U'a' && c <= U'z'; }

bool isIn(char32_t const* set, char32_t c) noexcept
{
    for (; *set != U'\0'; ++set) {
        if (*set == c)
            return true;
    }
    return false;
}

/// Keeps the characters a short name may hold, small letters made capital,
/// and the rightmost full stop that has a kept character after it.
String filterShortName(String const& name)
{
    String reversed;
    bool dotTaken = false;
    for (auto c = name.rbegin(); c != name.rend(); ++c) {
        if (isDigit(*c) || isCapital(*c) || isIn(kShortNamePunctuation, *c))
            reversed.push_back(*c);
        else if (isSmallLetter(*c))
            reversed.push_back(*c - U'a' + U'A');
        else if (*c == U'.' && !dotTaken && !reversed.empty()) {
            reversed.push_back(U'.');
            dotTaken = true;
        }
    }
    return String(reversed.rbegin(), reversed.rend());
}

Path shortNameBeside(Path const& parent, String const& base, String const& extension)
{
    String shortName = base;
    if (Path(extension) != "") {
        shortName.push_back(U'.');
        shortName.append(extension);
    }
    return parent / Path(shortName);
}

} // namespace

Path sanitize(Path const& path)
{
    String text = PathNativeAccess::text(path);
    for (char32_t& c : text) {
        if (!(isDigit(c) || isCapital(c) || isSmallLetter(c) || c == U'/' || isIn(kSanitizePunctuation, c)))
            c = U'_';
    }
    return Path(std::move(text));
}

Path toDos8Dot3(Path const& path)
{
    String const out = filterShortName(path.filename().string());
    std::size_t const dot = out.find(U'.');
    String base = dot == String::npos ? out : String(out.substr(0, dot));
    String extension = dot == String::npos ? String() : String(out.substr(dot + 1));
    if (base.empty())
        base = U"FILE";

    std::int32_t counter = 0;
    if (base.length() > kBaseLength) {
        base.resize(kTruncatedBaseLength);
        base.append(U"~1");
        counter = 1;
    }
    if (extension.length() > kExtensionLength)
        extension.resize(kExtensionLength);

    Path const parent = path.parentPath();
    Path candidate = shortNameBeside(parent, base, extension);
    // No bound of its own: the first name that does not exist ends it. A
    // name holding a NUL byte names no file, so none exists: asking the
    // system would test the shorter path before the NUL instead, and if that
    // one exists every candidate would read as taken too.
    while (PathNativeAccess::cStringForChange(candidate) != nullptr && exists(candidate)) {
        if (base.length() < kBaseLength)
            base.append(kBaseLength - base.length(), U'_');
        ++counter;
        std::string const digits = "~" + std::to_string(counter);
        String const suffix(digits.begin(), digits.end());
        base.replace(kBaseLength - suffix.length(), suffix.length(), suffix);
        candidate = shortNameBeside(parent, base, extension);
    }
    return candidate;
}

} // namespace kelvo::filesystem
