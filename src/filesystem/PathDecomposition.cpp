// Taking a path apart: root name and directory, relative and parent paths, file name, stem and extension.
#include <kelvo/filesystem/Path.h>

#include "PathInternal.h"

namespace kelvo::filesystem {

using kelvo::unicode::String;

namespace {

constexpr char32_t kSeparator = U'/';
constexpr char32_t kDot = U'.';

// A network root name: two separators, then a name up to the next separator.
bool hasRootNameShape(String const& s) noexcept
{
    return s.size() >= 3 && s[0] == kSeparator && s[1] == kSeparator && s[2] != kSeparator;
}

bool isDotOrDotDot(String const& s) noexcept
{
    // "." and ".." have no other spelling under case folding or decomposition.
    return (s.size() == 1 && s[0] == kDot) || (s.size() == 2 && s[0] == kDot && s[1] == kDot);
}

String getParentPath(String const& s)
{
    if (s.empty())
        return s;
    if (s.size() == 1 && s[0] == kSeparator)
        return String();
    String::size_type const p = s.find_last_of(kSeparator);
    if (p == String::npos)
        return String();
    if (p == s.size() - 1)
        // A trailing separator counts as an element "." whose parent is the
        // text before it.
        return getParentPath(s + kDot);
    if (p == 0)
        return String(1, kSeparator);
    String r = s.substr(0, p);
    while (r.size() >= 2 && r.back() == kSeparator)
        r.pop_back();
    return r;
}

String getFilename(String const& s)
{
    if (s.empty())
        return String();
    if (s.size() == 1 && s[0] == kSeparator)
        return s;
    if (s.back() == kSeparator)
        return String(1, kDot);
    String::size_type const p = s.find_last_of(kSeparator);
    if (p != String::npos)
        return s.substr(p + 1);
    return s;
}

} // namespace

Path Path::rootName() const
{
    String const& s = string();
    if (!hasRootNameShape(s))
        return Path();
    return Path(s.substr(0, s.find_first_of(kSeparator, 2)), Normalised{});
}

Path Path::rootDirectory() const
{
    String const& s = string();
    if (hasRootNameShape(s)) {
        if (s.find_first_of(kSeparator, 2) != String::npos)
            return Path(String(1, kSeparator), Normalised{});
        return Path();
    }
    if (!s.empty() && s[0] == kSeparator)
        return Path(String(1, kSeparator), Normalised{});
    return Path();
}

Path Path::rootPath() const
{
    String r = rootName().string();
    r.append(rootDirectory().string());
    return Path(std::move(r), Normalised{});
}

bool Path::isAbsolute() const { return !rootPath().empty(); }

bool Path::isRelative() const { return !isAbsolute(); }

bool Path::isComplete() const { return !rootDirectory().empty(); }

Path Path::relativePath() const
{
    String const& s = string();
    String const r = rootPath().string();
    if (r.empty())
        return *this;
    String::size_type const p = s.find(r, 0);
    if (p == String::npos)
        return Path();
    String const rest = s.substr(p + r.size());
    String::size_type const i = rest.find_first_not_of(kSeparator, 0);
    if (i == String::npos)
        return Path();
    return Path(rest.substr(i), Normalised{});
}

Path Path::parentPath() const { return Path(getParentPath(string()), Normalised{}); }

Path Path::filename() const { return Path(getFilename(string()), Normalised{}); }

Path Path::stem() const
{
    String f = getFilename(string());
    if (isDotOrDotDot(f))
        return Path(std::move(f), Normalised{});
    String::size_type d = f.find_last_of(kDot);
    String::size_type const q = f.find_last_of(kSeparator);
    if (d == String::npos || (q != String::npos && q > d))
        d = f.size();
    f.resize(d);
    return Path(std::move(f), Normalised{});
}

Path Path::extension() const
{
    String const& s = string();
    // A name that ends in a dot has no extension, and neither has "..";
    // a lone "." keeps itself as its extension.
    if (s.size() >= 2 && s.back() == kDot)
        return Path();
    String::size_type const q = s.find_last_of(kSeparator);
    String::size_type const d = s.find_last_of(kDot);
    if (d == String::npos || (q != String::npos && d < q))
        return Path();
    return Path(s.substr(d), Normalised{});
}

void Path::replaceExtension(Path const& newExtension)
{
    String e = newExtension.string();
    if (!e.empty() && e.front() != kDot)
        e.insert(e.begin(), kDot);
    String& s = mutableText();
    String::size_type const q = s.find_last_of(kSeparator);
    String::size_type d = s.find_last_of(kDot);
    if (d == String::npos || (q != String::npos && d < q))
        d = s.size();
    s.replace(d, String::npos, e);
    clearCache();
}

} // namespace kelvo::filesystem
