// The Path value: construction and normalisation, the native-form cache, joining and appending.
#include <kelvo/filesystem/Path.h>

#include "PathInternal.h"

#include <kelvo/text/Unicode.h>

#include <cstring>
#include <ostream>

namespace kelvo::filesystem {

using kelvo::unicode::String;

namespace {

// Constants, so that paths built by other static initialisers already see
// them.
constexpr char32_t kSeparator = U'/';
constexpr char32_t kOtherSeparator = U'\\';

String const& emptyString() noexcept
{
    static String const empty;
    return empty;
}

} // namespace

char32_t nativeSeparartor() { return kSeparator; }
char32_t nonNativeSeparartor() { return kOtherSeparator; }

namespace detail {

void fixStuff(String& text)
{
    for (char32_t& c : text)
        if (c == kOtherSeparator)
            c = kSeparator;
    if (!kelvo::unicode::isNFD(text))
        text = kelvo::unicode::toNFD(text);
}

} // namespace detail

Path::Path(Path const& other) : text(other.text ? new String(*other.text) : nullptr) {}

Path::Path(Path&& other) noexcept : text(other.text) { other.text = nullptr; }

Path::Path(String const& value) : text(new String(value)) { detail::fixStuff(*text); }

Path::Path(String&& value) : text(new String(std::move(value))) { detail::fixStuff(*text); }

Path::Path(std::string const& utf8) : text(new String(utf8)) { detail::fixStuff(*text); }

Path::Path(char const* utf8) : text(utf8 && *utf8 ? new String(std::string(utf8)) : nullptr)
{
    if (text)
        detail::fixStuff(*text);
}

Path::Path(String&& normalisedText, Normalised) noexcept
{
    if (!normalisedText.empty()) {
        // Allocation failure here is as fatal as anywhere else in a
        // constructor; the noexcept keeps element extraction lean.
        text = new String(std::move(normalisedText));
    }
}

Path::~Path()
{
    delete text;
    delete nativeCache;
}

Path& Path::operator=(Path const& other)
{
    if (this != &other) {
        if (other.empty())
            clear();
        else {
            mutableText() = *other.text;
            clearCache();
        }
    }
    return *this;
}

Path& Path::operator=(Path&& other) noexcept
{
    if (this != &other) {
        delete text;
        text = other.text;
        other.text = nullptr;
        other.clearCache();
        clearCache();
    }
    return *this;
}

void Path::swap(Path& other) noexcept
{
    if (this != &other) {
        std::swap(text, other.text);
        std::swap(nativeCache, other.nativeCache);
    }
}

void swap(Path& a, Path& b) noexcept { a.swap(b); }

void Path::clear() noexcept
{
    if (text)
        text->clear();
    clearCache();
}

String const& Path::string() const noexcept { return text ? *text : emptyString(); }

std::string const& Path::nativeReference() const
{
    if (nativeCache == nullptr)
        nativeCache = new std::string(string().toNativeString());
    return *nativeCache;
}

std::string Path::nativeString() const { return nativeReference(); }

unsigned long Path::length() const noexcept { return text ? text->size() : 0; }

unsigned long Path::size() const noexcept { return length(); }

bool Path::empty() const noexcept { return text == nullptr || text->empty(); }

void Path::clearCache() const noexcept
{
    delete nativeCache;
    nativeCache = nullptr;
}

String& Path::mutableText()
{
    if (text == nullptr)
        text = new String();
    return *text;
}

void Path::appendSeparator()
{
    String& s = mutableText();
    if (s.empty() || s.back() != kSeparator)
        s.push_back(kSeparator);
    clearCache();
}

Path& Path::operator/=(Path const& rhs)
{
    if (!rhs.empty()) {
        if (empty()) {
            mutableText() = *rhs.text;
        } else {
            String& s = *text;
            String const& r = *rhs.text;
            bool const leftEnds = s.back() == kSeparator;
            bool const rightBegins = r.front() == kSeparator;
            s.reserve(s.size() + r.size() + 1);
            if (leftEnds && rightBegins)
                s.pop_back(); // only one: "a//" joined with "/b" gives "a//b"
            else if (!leftEnds && !rightBegins)
                s.push_back(kSeparator);
            s.append(r);
        }
    }
    clearCache();
    return *this;
}

Path& Path::operator+=(Path const& rhs)
{
    String& s = mutableText();
    s.append(rhs.string());
    clearCache();
    detail::fixStuff(s);
    return *this;
}

Path operator/(Path const& a, Path const& b)
{
    if (a.empty())
        return Path(b);
    if (b.empty())
        return Path(a);
    String joined;
    String const& s = *a.text;
    String const& r = *b.text;
    joined.reserve(s.size() + r.size() + 1);
    joined.append(s);
    bool const leftEnds = s.back() == kSeparator;
    bool const rightBegins = r.front() == kSeparator;
    if (leftEnds && rightBegins)
        joined.pop_back();
    else if (!leftEnds && !rightBegins)
        joined.push_back(kSeparator);
    joined.append(r);
    return Path(std::move(joined), Path::Normalised{});
}

Path operator/(Path&& a, Path const& b)
{
    Path result(std::move(a));
    result /= b;
    return result;
}

Path operator+(Path const& a, Path const& b)
{
    String joined;
    joined.reserve(a.size() + b.size());
    joined.append(a.string());
    joined.append(b.string());
    return Path(std::move(joined));
}

Path operator+(Path&& a, Path const& b)
{
    Path result(std::move(a));
    result += b;
    return result;
}

std::ostream& operator<<(std::ostream& out, Path const& path)
{
    return out << path.string().toUTF8String();
}

} // namespace kelvo::filesystem
