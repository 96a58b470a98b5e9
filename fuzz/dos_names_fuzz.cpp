// Fuzz target: sanitised names keep their length and only safe characters; DOS short names, made in an empty scratch directory, follow the 8.3 rules.
#include "FuzzCheck.h"

#include <kelvo/filesystem/Operations.h>
#include <kelvo/filesystem/Path.h>
#include <kelvo/text/String.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <unistd.h>

using kelvo::filesystem::Path;
using kelvo::unicode::String;
using kelvo::fuzzing::bytesOf;
using kelvo::fuzzing::contains;

namespace {

/// The empty directory the short names are made in, so that nothing exists
/// beside them unless this target creates it.
std::string scratch;

void removeScratch()
{
    if (!scratch.empty())
        ::rmdir(scratch.c_str());
}

bool isDigit(char32_t c) { return c >= U'0' && c <= U'9'; }
bool isCapital(char32_t c) { return c >= U'A' && c <= U'Z'; }
bool isSmall(char32_t c) { return c >= U'a' && c <= U'z'; }

bool isShortNamePunctuation(char32_t c)
{
    static String const set("!#$&'()-@^_`{}~");
    return contains(set, c);
}

bool isSanitizeKept(char32_t c)
{
    static String const set(" !#$&'()-@^_`{}~.");
    return isDigit(c) || isCapital(c) || isSmall(c) || c == U'/' || contains(set, c);
}

/// A short name being built: its base, its extension and the counter.
struct ShortName {
    String base;
    String ext;
    int counter = 0;

    String text() const { return ext.empty() ? base : base + String(".") + ext; }

    /// The next numbered base: padded with "_" to eight, its end
    /// overwritten by "~" and the counter.
    void number()
    {
        while (base.length() < 8)
            base.push_back(U'_');
        ++counter;
        String const suffix = String("~") + String(std::to_string(counter));
        base.replace(8 - suffix.length(), suffix.length(), suffix);
    }
};

/// The first short name tried for `name`, written out here independently of
/// the library.
ShortName modelShortName(String const& name)
{
    String out;
    bool dotTaken = false;
    for (auto it = name.rbegin(); it != name.rend(); ++it) {
        char32_t const c = *it;
        if (isDigit(c) || isCapital(c) || isShortNamePunctuation(c))
            out.insert(out.begin(), c);
        else if (isSmall(c))
            out.insert(out.begin(), static_cast<char32_t>(c - U'a' + U'A'));
        else if (c == U'.' && !dotTaken && !out.empty()) {
            out.insert(out.begin(), c);
            dotTaken = true;
        }
    }
    std::size_t const dot = out.find(U'.');
    ShortName result;
    result.base = dot == String::npos ? out : out.substr(0, dot);
    result.ext = dot == String::npos ? String() : out.substr(dot + 1);
    if (result.base.empty())
        result.base = String("FILE");
    if (result.base.length() > 8) {
        result.base = String(result.base.substr(0, 6)) + String("~1");
        result.counter = 1;
    }
    if (result.ext.length() > 3)
        result.ext = result.ext.substr(0, 3);
    return result;
}

/// Checks the shape every short name has: a base of one to eight characters
/// and an optional extension of one to three, upper case, one dot at most.
void checkShape(String const& shortName)
{
    std::size_t const dot = shortName.find(U'.');
    std::size_t const baseLength = dot == String::npos ? shortName.length() : dot;
    KELVO_FUZZ_CHECK(baseLength >= 1 && baseLength <= 8);
    if (dot != String::npos) {
        std::size_t const extLength = shortName.length() - dot - 1;
        KELVO_FUZZ_CHECK(extLength >= 1 && extLength <= 3);
        KELVO_FUZZ_CHECK(shortName.find(U'.', dot + 1) == String::npos);
    }
    for (char32_t c : shortName)
        KELVO_FUZZ_CHECK(isDigit(c) || isCapital(c) || isShortNamePunctuation(c) || c == U'.');
}

void checkSanitize(std::string const& bytes)
{
    Path const path(bytes);
    String const& text = path.string();
    Path const clean = kelvo::filesystem::sanitize(path);
    String const& cleanText = clean.string();
    KELVO_FUZZ_CHECK(cleanText.length() == text.length());
    for (std::size_t i = 0; i < text.length(); ++i) {
        KELVO_FUZZ_CHECK(isSanitizeKept(cleanText[i]));
        KELVO_FUZZ_CHECK(cleanText[i] == (isSanitizeKept(text[i]) ? text[i] : U'_'));
    }
    // Sanitising again changes nothing.
    KELVO_FUZZ_CHECK(kelvo::filesystem::sanitize(clean).string() == cleanText);
}

void checkShortName(std::string name, std::uint8_t form)
{
    // The name stays one element inside the scratch directory.
    for (char& c : name) {
        if (c == '/' || c == '\\')
            c = '_';
    }
    if (name == "..")
        return;
    // Existence is read up to a NUL byte, so a parent holding one could name
    // an existing directory ("scratch/." for ".\0x/") and every numbered
    // candidate beside it would exist: the numbering would never end. Only
    // the file name itself may hold NUL bytes.
    if (form % 3 != 0 && name.find('\0') != std::string::npos)
        return;
    std::string text = scratch + "/" + name;
    if (form % 3 == 1)
        text += "/"; // the file name is then "."
    else if (form % 3 == 2 && !name.empty())
        text += "/.."; // and here ".."
    Path const path(text);
    Path const shortPath = kelvo::filesystem::toDos8Dot3(path);
    ShortName model = modelShortName(path.filename().string());
    KELVO_FUZZ_CHECK(shortPath == path.parentPath() / Path(model.text()));
    KELVO_FUZZ_CHECK(shortPath.parentPath() == path.parentPath());
    String const shortName = shortPath.filename().string();
    KELVO_FUZZ_CHECK(shortName == model.text());
    checkShape(shortName);

    // With that name taken, the next call numbers the base until the name
    // differs from the taken one.
    if ((form & 0x80) == 0 || form % 3 != 0)
        return;
    std::string const taken = shortPath.nativeString();
    int const fd = ::open(taken.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600);
    KELVO_FUZZ_CHECK(fd >= 0);
    ::close(fd);
    String const numbered = kelvo::filesystem::toDos8Dot3(path).filename().string();
    ::unlink(taken.c_str());
    do
        model.number();
    while (model.text() == shortName);
    KELVO_FUZZ_CHECK(numbered == model.text());
    checkShape(numbered);
    KELVO_FUZZ_CHECK(numbered != shortName);
    std::size_t const dot = numbered.find(U'.');
    KELVO_FUZZ_CHECK((dot == String::npos ? numbered.length() : dot) == 8);
    KELVO_FUZZ_CHECK(numbered.find(U'~') != String::npos);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    char pattern[] = "/tmp/kelvo-dos-names-fuzz-XXXXXX";
    char const* made = ::mkdtemp(pattern);
    if (made == nullptr)
        std::abort();
    scratch = made;
    std::atexit(removeScratch);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    if (size < 1 || size > 4096)
        return 0;
    std::string const bytes = bytesOf(data + 1, size - 1);
    checkSanitize(bytes);
    checkShortName(bytes, data[0]);
    return 0;
}
