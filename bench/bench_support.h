// Benchmark support: the path inputs shared by every comparison, and the on-disk directories the listing benchmarks walk.
#ifndef KELVO_BENCH_SUPPORT_H
#define KELVO_BENCH_SUPPORT_H

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kelvo::bench {

/// One path text and the variants the comparison benchmarks pair it with.
struct PathInput {
    std::string label;     ///< short name used in benchmark names
    std::string text;      ///< the path, UTF-8 (NFC for the accented one)
    std::string upper;     ///< the same path with every letter upper-cased
    std::string upperLast; ///< the same path with only the last element upper-cased
    std::string greater;   ///< the same path with its last byte raised by one
};

namespace detail {

inline std::string upperASCII(std::string text)
{
    for (char& c : text)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

// Upper-cases what follows the last "/" of `text`, taking it from `upper`,
// which must have the same byte layout.
inline std::string upperLastElement(std::string const& text, std::string const& upper)
{
    std::string::size_type const slash = text.rfind('/');
    return text.substr(0, slash + 1) + upper.substr(slash + 1);
}

inline std::string raiseLastByte(std::string text)
{
    text.back() = static_cast<char>(text.back() + 1);
    return text;
}

inline PathInput makeInput(std::string label, std::string text, std::string upper)
{
    if (upper.size() != text.size()) {
        std::fprintf(stderr, "bench input %s: upper-case variant has another length\n", label.c_str());
        std::abort();
    }
    PathInput input;
    input.label = std::move(label);
    input.upperLast = upperLastElement(text, upper);
    input.greater = raiseLastByte(text);
    input.upper = std::move(upper);
    input.text = std::move(text);
    return input;
}

// A deep ASCII path of exactly 400 bytes ending in a file name with an
// extension.
inline std::string make400()
{
    std::string s = "/srv/archive/projects/kelvo-filesystem";
    int level = 0;
    while (s.size() < 400 - 40) {
        char piece[32];
        std::snprintf(piece, sizeof piece, "/component-level-%02d", level++);
        s += piece;
    }
    std::string name = "/quarterly-report";
    while (s.size() + name.size() + 4 < 400)
        name += 'x';
    s += name + ".pdf";
    return s;
}

// An accented path (NFC UTF-8) of exactly `size` bytes: French folder names,
// then a file name padded to the length.
inline std::string makeAccented(std::size_t size)
{
    std::string s = "/Users/zo\xC3\xA9/Documents";
    int level = 0;
    while (s.size() + 22 + 24 < size) {
        char piece[40];
        std::snprintf(piece, sizeof piece, "/r\xC3\xA9sum\xC3\xA9-\xC3\xA9l\xC3\xA8ve-%02d", level++);
        s += piece;
    }
    std::string name = "/ann\xC3\xA9" "e-";
    while (s.size() + name.size() + 4 < size)
        name += 'x';
    s += name + ".pdf";
    return s;
}

// Upper-cases ASCII letters and the lower-case letters of Latin-1 written as
// two bytes (é to É), which keeps the byte length.
inline std::string upperAccented(std::string text)
{
    for (std::size_t i = 0; i < text.size(); ++i) {
        auto const byte = static_cast<unsigned char>(text[i]);
        if (byte == 0xC3 && i + 1 < text.size()) {
            auto const next = static_cast<unsigned char>(text[i + 1]);
            if (next >= 0xA0 && next <= 0xBE && next != 0xB7)
                text[i + 1] = static_cast<char>(next - 0x20);
            ++i;
        } else if (byte < 0x80) {
            text[i] = static_cast<char>(std::toupper(byte));
        }
    }
    return text;
}

} // namespace detail

/// The inputs: a 40-byte and a 400-byte ASCII path, an accented one of 46
/// bytes and accented ones of 50, 130 and 430 bytes.
inline std::vector<PathInput> const& pathInputs()
{
    static std::vector<PathInput> const inputs = [] {
        std::vector<PathInput> v;
        std::string const a40 = "/usr/local/share/kelvo/icons/16x16/a.png";
        std::string const a400 = detail::make400();
        // NFC UTF-8, as Linux programs write names.
        std::string const accented = "/Users/zo\xC3\xA9/Documents/R\xC3\xA9sum\xC3\xA9 de l'ann\xC3\xA9" "e.pdf";
        std::string const accentedUpper = "/USERS/ZO\xC3\x89/DOCUMENTS/R\xC3\x89SUM\xC3\x89 DE L'ANN\xC3\x89" "E.PDF";
        v.push_back(detail::makeInput("ascii40", a40, detail::upperASCII(a40)));
        v.push_back(detail::makeInput("ascii400", a400, detail::upperASCII(a400)));
        v.push_back(detail::makeInput("accented", accented, accentedUpper));
        for (std::size_t size : {50, 130, 430}) {
            std::string const text = detail::makeAccented(size);
            v.push_back(detail::makeInput("accented" + std::to_string(size), text, detail::upperAccented(text)));
        }
        if (v[0].text.size() != 40 || v[1].text.size() != 400 || v[3].text.size() != 50 || v[4].text.size() != 130
            || v[5].text.size() != 430) {
            std::fprintf(stderr, "bench inputs have the wrong lengths\n");
            std::abort();
        }
        return v;
    }();
    return inputs;
}

/// The path whose elements the iteration benchmarks walk: "/" and seven names.
inline std::string const& eightElementPath() { return pathInputs()[0].text; }
constexpr std::size_t kEightElements = 8;

/// The name joined to each input by the operator/ benchmarks.
inline char const* joinedName() { return "notes.txt"; }

/// @returns true for the names "." and "..", which a listing skips.
inline bool isDotOrDotDot(char const* name) noexcept
{
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

/// Removes a tree with plain system calls, independent of the code measured.
inline void removeTree(std::string const& path)
{
    struct stat st;
    if (::lstat(path.c_str(), &st) != 0)
        return;
    if (S_ISDIR(st.st_mode)) {
        if (DIR* dir = ::opendir(path.c_str())) {
            std::vector<std::string> names;
            while (dirent* entry = ::readdir(dir)) {
                if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
                    names.emplace_back(entry->d_name);
            }
            ::closedir(dir);
            for (std::string const& name : names)
                removeTree(path + "/" + name);
        }
        ::rmdir(path.c_str());
    } else {
        ::unlink(path.c_str());
    }
}

/// A private temporary directory holding one populated directory per listing
/// size, made on first request and removed with everything in it at exit.
class ListingDirectories {
public:
    static ListingDirectories& instance()
    {
        static ListingDirectories directories;
        return directories;
    }

    /// @returns the absolute path of a directory holding exactly `count`
    /// empty regular files, creating it first if needed; aborts when the
    /// disk refuses.
    std::string const& withEntries(std::size_t count)
    {
        auto found = made.find(count);
        if (found != made.end())
            return found->second;
        std::string const dir = root + "/entries-" + std::to_string(count);
        if (::mkdir(dir.c_str(), 0700) != 0)
            fail("mkdir", dir);
        int const dirFd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY);
        if (dirFd < 0)
            fail("open", dir);
        for (std::size_t i = 0; i < count; ++i) {
            char name[48];
            std::snprintf(name, sizeof name, "file-%06zu.dat", i);
            int const fd = ::openat(dirFd, name, O_WRONLY | O_CREAT | O_EXCL, 0644);
            if (fd < 0)
                fail("create", dir + "/" + name);
            ::close(fd);
        }
        ::close(dirFd);
        return made.emplace(count, dir).first->second;
    }

    ListingDirectories(ListingDirectories const&) = delete;
    ListingDirectories& operator=(ListingDirectories const&) = delete;

    ~ListingDirectories() { removeTree(root); }

private:
    ListingDirectories()
    {
        char const* base = std::getenv("TMPDIR");
        std::string pattern = std::string(base && *base ? base : "/tmp") + "/kelvo-bench-XXXXXX";
        if (::mkdtemp(pattern.data()) == nullptr)
            fail("mkdtemp", pattern);
        root = pattern;
    }

    [[noreturn]] void fail(char const* what, std::string const& path)
    {
        std::fprintf(stderr, "benchmark setup: %s %s failed\n", what, path.c_str());
        if (!root.empty())
            removeTree(root);
        std::exit(2);
    }

    std::string root;
    std::map<std::size_t, std::string> made;
};

} // namespace kelvo::bench

#endif
