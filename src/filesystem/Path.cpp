// The Path value: construction and normalisation, the native-form cache, joining and appending.
#include <kelvo/filesystem/Path.h>

#include "PathInternal.h"
#include "text/Encoding.h"
#include "text/Normalization.h"

#include <kelvo/text/Unicode.h>

#include <cstring>
#include <memory>
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

// The per-thread store of texts for reuse. Kept small, and limited to texts
// of ordinary path length, so that it never holds on to much memory.
constexpr std::size_t kStoredTexts = 16;
constexpr std::size_t kLargestStoredCapacity = 512;

// One shelf of strings of one kind, taken from and put back at the top.
template <typename Text>
struct Shelf {
    Text* items[kStoredTexts];
    std::size_t count;

    Text* take() { return count > 0 ? items[--count] : new Text(); }

    // @returns false when the text is not kept (shelf full or text too large).
    bool put(Text* text) noexcept
    {
        if (count == kStoredTexts || text->capacity() > kLargestStoredCapacity)
            return false;
        text->clear();
        items[count++] = text;
        return true;
    }

    void empty() noexcept
    {
        while (count > 0)
            delete items[--count];
    }
};

// Plain data, constant-initialised: readable at any point of the thread's
// life, including after the keeper below has emptied it.
struct TextStore {
    Shelf<String> texts;
    Shelf<std::string> natives;
    bool closed;
};
// The initial-exec model spares a lookup on every use; the store is small
// enough for the room the system keeps for libraries loaded later.
#if defined(__GNUC__) && defined(__ELF__)
__attribute__((tls_model("initial-exec")))
#endif
thread_local TextStore store = {};

// Empties the store when the thread ends; from then on texts are freed
// directly.
struct TextStoreKeeper {
    TextStoreKeeper() noexcept = default;
    TextStoreKeeper(TextStoreKeeper const&) = delete;
    TextStoreKeeper& operator=(TextStoreKeeper const&) = delete;
    ~TextStoreKeeper()
    {
        detail::emptyTextStore();
        store.closed = true;
    }
};
#if defined(__GNUC__) && defined(__ELF__)
__attribute__((tls_model("initial-exec")))
#endif
thread_local TextStoreKeeper keeper;

template <typename Text>
void putBack(Shelf<Text>& shelf, Text* text) noexcept
{
    if (text == nullptr)
        return;
    if (!store.closed) {
        if (shelf.count == 0)
            (void)&keeper; // makes sure the store is emptied when the thread ends
        if (shelf.put(text))
            return;
    }
    delete text;
}

} // namespace

namespace detail {

String* acquireText() { return store.texts.take(); }

void releaseText(String* text) noexcept { putBack(store.texts, text); }

std::string* acquireNative() { return store.natives.take(); }

void releaseNative(std::string* native) noexcept { putBack(store.natives, native); }

void emptyTextStore() noexcept
{
    store.texts.empty();
    store.natives.empty();
}

} // namespace detail

namespace {

// Backslashes become "/" in every path text.
void replaceBackslashes(String& text) noexcept
{
    for (char32_t& c : text)
        c = (c == kOtherSeparator) ? kSeparator : c;
}

// Appends the non-empty text `r` to the non-empty text `s` with exactly one
// separator between them, removing only one: "a//" joined with "/b" gives
// "a//b".
void appendJoined(String& s, String const& r)
{
    bool const leftEnds = s.back() == kSeparator;
    bool const rightBegins = r.front() == kSeparator;
    s.reserve(s.size() + r.size() + 1);
    if (leftEnds && rightBegins)
        s.pop_back();
    else if (!leftEnds && !rightBegins)
        s.push_back(kSeparator);
    s.append(r);
}

} // namespace

char32_t nativeSeparartor() { return kSeparator; }
char32_t nonNativeSeparartor() { return kOtherSeparator; }

namespace detail {

void fixStuff(String& text)
{
    replaceBackslashes(text);
    kelvo::unicode::detail::decomposeInPlace(text);
}

} // namespace detail

Path::Path(Path const& other)
{
    if (!other.empty()) {
        detail::OwnedText owned(detail::acquireText());
        owned->assign(*other.text);
        text = owned.release();
    }
}

Path::Path(Path&& other) noexcept : text(other.text), nativeCache(other.nativeCache)
{
    // The native form travels with its text; the source is left a plain empty
    // path.
    other.text = nullptr;
    other.nativeCache = nullptr;
}

namespace {

// Normalises a new heap text and hands it over; if normalising throws, the
// text is freed rather than left behind by the unfinished constructor.
String* adoptNormalised(detail::OwnedText owned)
{
    detail::fixStuff(*owned);
    return owned.release();
}

detail::OwnedText newText() { return detail::OwnedText(detail::acquireText()); }

struct NativeReleaser {
    void operator()(std::string* native) const noexcept { detail::releaseNative(native); }
};

} // namespace

Path::Path(String const& value)
{
    detail::OwnedText owned = newText();
    owned->assign(value);
    text = adoptNormalised(std::move(owned));
}

Path::Path(String&& value)
{
    detail::OwnedText owned = newText();
    owned->swap(value);
    text = adoptNormalised(std::move(owned));
}

namespace {

// A new heap text from UTF-8 bytes, normalised. ASCII, the common case, needs
// no decoding and is its own decomposition: only backslashes change.
String* textFromUTF8(char const* data, std::size_t size)
{
    detail::OwnedText owned = newText();
    if (kelvo::unicode::detail::isASCII(data, size)) {
        owned->resize(size);
        char32_t* const out = owned->data();
        for (std::size_t i = 0; i < size; ++i) {
            char32_t const c = static_cast<unsigned char>(data[i]);
            out[i] = (c == kOtherSeparator) ? kSeparator : c;
        }
        return owned.release();
    }
    kelvo::unicode::detail::decodeUTF8ToNFD(data, size, *owned);
    // A backslash is ASCII, untouched by the decomposition.
    replaceBackslashes(*owned);
    return owned.release();
}

} // namespace

Path::Path(std::string const& utf8) : text(textFromUTF8(utf8.data(), utf8.size())) {}

Path::Path(char const* utf8) : text(utf8 && *utf8 ? textFromUTF8(utf8, std::strlen(utf8)) : nullptr) {}

Path::~Path()
{
    detail::releaseText(text);
    detail::releaseNative(nativeCache);
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
        detail::releaseText(text);
        detail::releaseNative(nativeCache);
        text = other.text;
        nativeCache = other.nativeCache;
        other.text = nullptr;
        other.nativeCache = nullptr;
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
    if (nativeCache == nullptr) {
        std::unique_ptr<std::string, NativeReleaser> native(detail::acquireNative());
        kelvo::unicode::detail::encodeNative(string(), *native);
        nativeCache = native.release();
    }
    return *nativeCache;
}

std::string Path::nativeString() const { return nativeReference(); }

unsigned long Path::length() const noexcept { return text ? text->size() : 0; }

unsigned long Path::size() const noexcept { return length(); }

bool Path::empty() const noexcept { return text == nullptr || text->empty(); }

void Path::clearCache() const noexcept
{
    detail::releaseNative(nativeCache);
    nativeCache = nullptr;
}

String& Path::mutableText()
{
    if (text == nullptr)
        text = detail::acquireText();
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
    if (&rhs == this)
        // Joining a path to itself reads the right text while the left one
        // changes: join a copy instead.
        return *this /= Path(rhs);
    if (!rhs.empty()) {
        if (empty()) {
            mutableText() = *rhs.text;
        } else {
            appendJoined(*text, *rhs.text);
        }
    }
    clearCache();
    return *this;
}

Path& Path::operator+=(Path const& rhs)
{
    String& s = mutableText();
    String::size_type const previousSize = s.size();
    s.append(rhs.string());
    clearCache();
    try {
        detail::fixStuff(s);
    } catch (...) {
        // Normalising failed (out of memory): take the appended text back, so
        // the path keeps a normalised text.
        s.resize(previousSize);
        throw;
    }
    return *this;
}

Path operator/(Path const& a, Path const& b)
{
    if (a.empty())
        return Path(b);
    if (b.empty())
        return Path(a);
    detail::OwnedText joined = newText();
    joined->reserve(a.text->size() + b.text->size() + 1);
    joined->append(*a.text);
    appendJoined(*joined, *b.text);
    return PathNativeAccess::adopt(std::move(joined));
}

Path operator/(Path&& a, Path const& b)
{
    if (&a == &b)
        return a / b;
    Path result(std::move(a));
    result /= b;
    return result;
}

Path operator+(Path const& a, Path const& b)
{
    detail::OwnedText joined = newText();
    joined->reserve(a.size() + b.size());
    joined->append(a.string());
    joined->append(b.string());
    detail::fixStuff(*joined);
    return PathNativeAccess::adopt(std::move(joined));
}

Path operator+(Path&& a, Path const& b)
{
    if (&a == &b)
        return a + b;
    Path result(std::move(a));
    result += b;
    return result;
}

std::ostream& operator<<(std::ostream& out, Path const& path)
{
    return out << path.string().toUTF8String();
}

} // namespace kelvo::filesystem
