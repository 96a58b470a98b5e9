// The Path value: construction and normalisation, the native form kept with the text, joining and appending.
#include <kelvo/filesystem/Path.h>

#include "filesystem/path/PathInternal.h"
#include "text/Encoding.h"
#include "text/Normalization.h"

#include <kelvo/text/Unicode.h>

#include <cstring>
#include <memory>
#include <ostream>

namespace kelvo::filesystem {

using kelvo::unicode::String;
using detail::kOtherSeparator;
using detail::kSeparator;
using detail::OwnedNative;
using detail::OwnedText;

namespace {

// Where file names are stored decomposed, the native form is always the
// UTF-8 of the text; elsewhere a path made from bytes keeps those bytes.
#if defined(__APPLE__)
constexpr bool kNativeKeepsBytes = false;
#else
constexpr bool kNativeKeepsBytes = true;
#endif

String const& emptyString() noexcept
{
    static String const empty;
    return empty;
}

OwnedText newText() { return OwnedText(detail::acquireText()); }

OwnedNative newNative() { return OwnedNative(detail::acquireNative()); }

// Backslashes become "/" in every path text.
void replaceBackslashes(String& text) noexcept
{
    for (char32_t& c : text)
        c = (c == kOtherSeparator) ? kSeparator : c;
}

// Appends the non-empty text `r` to the non-empty text `s` with exactly one
// separator between them, removing only one: "a//" joined with "/b" gives
// "a//b". Works alike for texts and native forms, whose separators match.
// Makes room first, so that nothing changes if that fails.
template <typename Text>
void appendJoined(Text& s, Text const& r)
{
    using Unit = typename Text::value_type;
    bool const leftEnds = s.back() == Unit('/');
    bool const rightBegins = r.front() == Unit('/');
    s.reserve(s.size() + r.size() + 1);
    if (leftEnds && rightBegins)
        s.pop_back();
    else if (!leftEnds && !rightBegins)
        s.push_back(Unit('/'));
    s.append(r);
}

// The native form made from the bytes a path is built from: the bytes
// themselves, each backslash made "/" as in the text.
OwnedNative nativeFromBytes(char const* data, std::size_t size)
{
    OwnedNative native = newNative();
    native->resize(size);
    char* const out = native->data();
    for (std::size_t i = 0; i < size; ++i)
        out[i] = (data[i] == '\\') ? '/' : data[i];
    return native;
}

// A new heap text from UTF-8 bytes, normalised; `ascii` tells whether the
// bytes were all ASCII. ASCII, the common case, needs no decoding and is its
// own decomposition: only backslashes change.
OwnedText textFromUTF8(char const* data, std::size_t size, bool& ascii)
{
    OwnedText owned = newText();
    ascii = kelvo::unicode::detail::isASCII(data, size);
    if (ascii) {
        owned->resize(size);
        char32_t* const out = owned->data();
        for (std::size_t i = 0; i < size; ++i) {
            char32_t const c = static_cast<unsigned char>(data[i]);
            out[i] = (c == kOtherSeparator) ? kSeparator : c;
        }
        return owned;
    }
    kelvo::unicode::detail::decodeUTF8ToNFD(data, size, *owned);
    // A backslash is ASCII, untouched by the decomposition.
    replaceBackslashes(*owned);
    return owned;
}

// The native form of a path made from `size` bytes at `data`: marked plain
// when the bytes are ASCII, since the text is then the same characters.
std::string* keptBytes(char const* data, std::size_t size, bool ascii)
{
    std::string* const bytes = nativeFromBytes(data, size).release();
    return ascii ? PathNativeAccess::markedPlain(bytes) : bytes;
}

// Whether the `size` bytes at `data` are all ASCII; for the short pieces of
// a path, where an early exit pays.
inline bool asciiBytes(char const* data, std::size_t size) noexcept
{
    for (std::size_t i = 0; i < size; ++i) {
        if (static_cast<unsigned char>(data[i]) >= 0x80)
            return false;
    }
    return true;
}

// @returns a copy of `native` from the store, or null for null.
OwnedNative copyOf(std::string const* native)
{
    if (native == nullptr)
        return OwnedNative();
    OwnedNative copy = newNative();
    copy->assign(*native);
    return copy;
}

} // namespace

char32_t nativeSeparartor() { return kSeparator; }
char32_t nonNativeSeparartor() { return kOtherSeparator; }

namespace detail {

void fixStuff(String& text)
{
    kelvo::unicode::detail::decomposeInPlace(text);
    replaceBackslashes(text);
}

std::size_t nativeOffsetFrom(String const& text, std::string const& native, std::size_t p,
                             std::size_t& textCursor, std::size_t& nativeCursor) noexcept
{
    std::size_t const n = text.size();
    if (p >= n)
        return native.size();
    if (p < textCursor) {
        textCursor = 0;
        nativeCursor = 0;
    }
    char32_t const* const t = text.data();
    std::size_t marks = 0;
    std::size_t afterLast = textCursor;
    for (std::size_t i = textCursor; i < p; ++i) {
        if (isCutMark(t[i])) {
            ++marks;
            afterLast = i + 1;
        }
    }
    char const* const b = native.data();
    std::size_t const m = native.size();
    std::size_t q = nativeCursor;
    while (marks > 0 && q < m) {
        if (isCutMark(b[q]))
            --marks;
        ++q;
    }
    textCursor = afterLast;
    nativeCursor = q;
    if (p == afterLast)
        return q;
    // `p` stands on a mark: the next one in the native form.
    while (q < m && !isCutMark(b[q]))
        ++q;
    return q;
}

std::size_t nativeOffset(String const& text, std::string const& native, std::size_t p) noexcept
{
    std::size_t const n = text.size();
    if (p >= n)
        return native.size();
    if (p == 0)
        return 0;
    if (p < n / 2) {
        std::size_t textCursor = 0;
        std::size_t nativeCursor = 0;
        return nativeOffsetFrom(text, native, p, textCursor, nativeCursor);
    }
    // Near the end, count the marks from the end.
    char32_t const* const t = text.data();
    std::size_t marks = 0;
    for (std::size_t i = p; i < n; ++i)
        marks += isCutMark(t[i]) ? 1 : 0;
    bool const onMark = isCutMark(t[p]);
    if (!onMark)
        ++marks; // `p` follows a mark: the one before the marks counted
    char const* const b = native.data();
    std::size_t q = native.size();
    while (q > 0) {
        --q;
        if (isCutMark(b[q]) && --marks == 0)
            return onMark ? q : q + 1;
    }
    return 0;
}

} // namespace detail

Path PathNativeAccess::piece(char32_t const* first, std::size_t size, char const* nativeFirst, std::size_t nativeSize)
{
    if (size == 0)
        return Path();
    // ASCII bytes as many as the code points are the text itself: the native
    // form is then made from the text, at next to no cost, if it is asked for.
    if (nativeSize == size && asciiBytes(nativeFirst, nativeSize))
        return fromPiece(first, size);
    String* takenText = nullptr;
    std::string* takenNative = nullptr;
    OwnedText owned;
    OwnedNative piece;
    if (detail::takeTextAndNative(takenText, takenNative)) {
        owned.reset(takenText);
        piece.reset(takenNative);
    } else {
        owned = newText();
        piece = newNative();
    }
    owned->append(first, size); // taken texts are empty
    piece->append(nativeFirst, nativeSize);
    return adopt(std::move(owned), std::move(piece));
}

Path PathNativeAccess::fromPiece(Path const& source, char32_t const* first, std::size_t size)
{
    if (size == 0)
        return Path();
    String const& s = text(source);
    std::string const* const sourceNative = nativeToCarry(source);
    if (sourceNative == nullptr || first < s.data() || first + size > s.data() + s.size())
        return fromPiece(first, size);
    std::size_t const offset = static_cast<std::size_t>(first - s.data());
    std::size_t const begin = detail::nativeOffset(s, *sourceNative, offset);
    std::size_t const end = offset + size == s.size() ? sourceNative->size()
                                                      : detail::nativeOffset(s, *sourceNative, offset + size);
    return piece(first, size, sourceNative->data() + begin, end > begin ? end - begin : 0);
}

namespace {

// The longest listed name widened on the stack: longer than any name a
// listing gives.
constexpr std::size_t kLongestListedName = 256;

// Widens the `length` bytes at `name` into `wide` when they form a name that
// is its own text and native form: ASCII bytes other than a backslash (which
// never include "/"). Checked and widened in one pass.
// @returns false for any other name.
bool widenPlainName(char const* name, std::size_t length, char32_t* wide) noexcept
{
    if (length == 0 || length > kLongestListedName)
        return false;
    unsigned notPlain = 0;
    for (std::size_t i = 0; i < length; ++i) {
        unsigned const byte = static_cast<unsigned char>(name[i]);
        notPlain |= (byte & 0x80u) | static_cast<unsigned>(byte == static_cast<unsigned>(kOtherSeparator));
        wide[i] = byte;
    }
    return notPlain == 0;
}

} // namespace

Path PathNativeAccess::joinListedName(Path const& directory, char const* name, std::size_t length)
{
    Path joined;
    assignListedName(joined, directory, name, length);
    return joined;
}

void PathNativeAccess::assignListedName(Path& target, Path const& directory, char const* name, std::size_t length)
{
    char32_t wide[kLongestListedName];
    if (directory.empty() || !widenPlainName(name, length, wide)) {
        target = directory / Path(name);
        return;
    }
    // A plain name never starts with "/": the join adds a separator unless
    // the directory ends with one, in the text and the native form alike.
    String const& left = *directory.text;
    bool const leftEnds = left.back() == kSeparator;
    std::size_t const textSize = left.size() + (leftEnds ? 0 : 1) + length;
    std::string* const held = directory.native.load(std::memory_order_acquire);
    std::string const* const leftNative = unmarked(held);
    std::size_t const nativeSize = leftNative == nullptr ? 0 : leftNative->size() + (leftEnds ? 0 : 1) + length;

    // Room first, in storage the target holds or new storage, so that
    // nothing can fail once the target starts to change.
    OwnedText newTextStore;
    String* text = target.text;
    if (text == nullptr) {
        newTextStore = newText();
        text = newTextStore.get();
    }
    text->reserve(textSize);
    OwnedNative newNativeStore;
    std::string* native = unmarked(target.native.load(std::memory_order_relaxed));
    if (leftNative != nullptr) {
        if (native == nullptr) {
            newNativeStore = newNative();
            native = newNativeStore.get();
        }
        native->reserve(nativeSize);
    }

    text->assign(left);
    if (!leftEnds)
        text->push_back(kSeparator);
    text->append(wide, length);
    target.text = text;
    newTextStore.release();
    if (leftNative == nullptr) {
        // Made from the text on first use, as the directory's.
        detail::releaseNative(native);
        target.native.store(nullptr, std::memory_order_relaxed);
        return;
    }
    native->assign(*leftNative);
    if (!leftEnds)
        native->push_back('/');
    native->append(name, length);
    newNativeStore.release();
    // Where the directory's native form is its ASCII text, the join's is too.
    target.native.store(isPlain(held) ? markedPlain(native) : native, std::memory_order_relaxed);
}

Path::Path(Path const& other)
{
    if (!other.empty()) {
        OwnedText owned = newText();
        owned->assign(*other.text);
        OwnedNative copy = copyOf(PathNativeAccess::nativeToCarry(other));
        text = owned.release();
        native.store(copy.release(), std::memory_order_relaxed);
    }
}

Path::Path(Path&& other) noexcept
    : text(other.text), native(other.native.load(std::memory_order_relaxed))
{
    // The native form travels with its text; the source is left a plain empty
    // path.
    other.text = nullptr;
    other.native.store(nullptr, std::memory_order_relaxed);
}

Path::Path(String const& value)
{
    OwnedText owned = newText();
    owned->assign(value);
    detail::fixStuff(*owned);
    text = owned.release();
}

Path::Path(String&& value)
{
    OwnedText owned = newText();
    owned->swap(value);
    try {
        kelvo::unicode::detail::decomposeInPlace(*owned);
    } catch (...) {
        // Decomposing leaves the text as it was when it fails: the caller
        // gets it back.
        owned->swap(value);
        throw;
    }
    replaceBackslashes(*owned);
    text = owned.release();
}

Path::Path(std::string const& utf8)
{
    if (utf8.empty())
        return;
    bool ascii = false;
    OwnedText owned = textFromUTF8(utf8.data(), utf8.size(), ascii);
    if (kNativeKeepsBytes)
        native.store(keptBytes(utf8.data(), utf8.size(), ascii), std::memory_order_relaxed);
    text = owned.release();
}

Path::Path(char const* utf8)
{
    if (utf8 == nullptr || *utf8 == '\0')
        return;
    std::size_t const size = std::strlen(utf8);
    bool ascii = false;
    OwnedText owned = textFromUTF8(utf8, size, ascii);
    if (kNativeKeepsBytes)
        native.store(keptBytes(utf8, size, ascii), std::memory_order_relaxed);
    text = owned.release();
}

Path::~Path()
{
    // An empty or moved-from path (every element of a walk leaves one
    // behind) holds nothing to give back.
    if (text != nullptr || native.load(std::memory_order_relaxed) != nullptr)
        release();
}

void Path::release() noexcept
{
    detail::releaseTextAndNative(text, PathNativeAccess::unmarked(native.load(std::memory_order_relaxed)));
}

std::string* Path::takeNative() noexcept
{
    std::string* const previous = native.load(std::memory_order_relaxed);
    native.store(nullptr, std::memory_order_relaxed);
    return previous;
}

void Path::setNative(std::string* newNative) noexcept
{
    detail::releaseNative(PathNativeAccess::unmarked(native.load(std::memory_order_relaxed)));
    native.store(newNative, std::memory_order_relaxed);
}

Path& Path::operator=(Path const& other)
{
    if (this != &other) {
        if (other.empty()) {
            clear();
        } else {
            OwnedNative copy = copyOf(PathNativeAccess::nativeToCarry(other));
            mutableText() = *other.text;
            setNative(copy.release());
        }
    }
    return *this;
}

Path& Path::operator=(Path&& other) noexcept
{
    if (this != &other) {
        // Both of this path's strings go back to the store with one look at
        // it (an element replacing the previous one in a walk does this).
        detail::releaseTextAndNative(text, PathNativeAccess::unmarked(native.load(std::memory_order_relaxed)));
        native.store(other.takeNative(), std::memory_order_relaxed);
        text = other.text;
        other.text = nullptr;
    }
    return *this;
}

void Path::swap(Path& other) noexcept
{
    if (this != &other) {
        std::swap(text, other.text);
        std::string* const mine = takeNative();
        native.store(other.takeNative(), std::memory_order_relaxed);
        other.native.store(mine, std::memory_order_relaxed);
    }
}

void swap(Path& a, Path& b) noexcept { a.swap(b); }

void Path::clear() noexcept
{
    if (text)
        text->clear();
    setNative(nullptr);
}

String const& Path::string() const noexcept { return text ? *text : emptyString(); }

std::string const& Path::nativeReference() const
{
    std::string const* const made = PathNativeAccess::unmarked(native.load(std::memory_order_acquire));
    if (made != nullptr)
        return *made;
    return makeNative();
}

std::string const& Path::makeNative() const
{
    OwnedNative made = newNative();
    kelvo::unicode::detail::encodeNative(string(), *made);
    std::string* expected = nullptr;
    // Published whole: another thread reading the same path sees either no
    // native form or this one. When another thread was first, its form is
    // kept and this one goes back to the store.
    if (native.compare_exchange_strong(expected, made.get(), std::memory_order_acq_rel, std::memory_order_acquire))
        return *made.release();
    return *PathNativeAccess::unmarked(expected);
}

std::string Path::nativeString() const { return nativeReference(); }

unsigned long Path::length() const noexcept { return text ? text->size() : 0; }

unsigned long Path::size() const noexcept { return length(); }

void Path::clearCache() const noexcept {}

String& Path::mutableText()
{
    if (text == nullptr)
        text = detail::acquireText();
    return *text;
}

void Path::appendSeparator()
{
    String& s = mutableText();
    if (!s.empty() && s.back() == kSeparator)
        return;
    // A plain form stays plain: a separator is ASCII.
    std::string* const n = PathNativeAccess::unmarked(native.load(std::memory_order_relaxed));
    if (n != nullptr)
        n->reserve(n->size() + 1);
    s.push_back(kSeparator);
    if (n != nullptr)
        n->push_back('/'); // room was made above: cannot fail
}

Path& Path::operator/=(Path const& rhs)
{
    if (&rhs == this)
        // Joining a path to itself reads the right text while the left one
        // changes: join a copy instead.
        return *this /= Path(rhs);
    if (rhs.empty())
        return *this;
    if (empty())
        return *this = rhs;
    if (PathNativeAccess::nativeToCarry(rhs) == nullptr && PathNativeAccess::nativeToCarry(*this) == nullptr) {
        // Both native forms are the composed text, and so is the join's, made
        // on first use.
        appendJoined(*text, *rhs.text);
        setNative(nullptr);
        return *this;
    }
    OwnedNative joined = newNative();
    joined->assign(nativeReference());
    appendJoined(*joined, PathNativeAccess::native(rhs));
    appendJoined(*text, *rhs.text);
    setNative(joined.release());
    return *this;
}

namespace {

// Whether joining the native forms of two texts with nothing between them
// could differ from composing the joined text: only when the right one starts
// with a code point that can combine with what comes before it (none below
// U+0300 can).
bool mayComposeAcross(Path const& rhs) noexcept
{
    String const& r = PathNativeAccess::text(rhs);
    return !r.empty() && r.front() >= 0x300;
}

// Two path texts are each decomposed and hold no backslash. Joined, they stay
// so unless the right one starts with a combining mark, which may have to be
// reordered with those that end the left one: every code point below U+0300
// is a starter, which no reordering crosses. The same test as above.
bool mayNeedNormalising(Path const& rhs) noexcept { return mayComposeAcross(rhs); }

} // namespace

Path& Path::operator+=(Path const& rhs)
{
    OwnedNative joined;
    if (PathNativeAccess::nativeToCarry(rhs) != nullptr || PathNativeAccess::nativeToCarry(*this) != nullptr
        || mayComposeAcross(rhs)) {
        joined = newNative();
        joined->assign(nativeReference());
        joined->append(PathNativeAccess::native(rhs));
    }
    String& s = mutableText();
    String::size_type const previousSize = s.size();
    s.append(rhs.string());
    try {
        if (mayNeedNormalising(rhs))
            detail::fixStuff(s);
    } catch (...) {
        // Normalising failed (out of memory): take the appended text back, so
        // the path keeps a normalised text and its own native form.
        s.resize(previousSize);
        throw;
    }
    setNative(joined.release());
    return *this;
}

Path operator/(Path const& a, Path const& b)
{
    if (a.empty())
        return Path(b);
    if (b.empty())
        return Path(a);
    OwnedText joined = newText();
    joined->reserve(a.text->size() + b.text->size() + 1);
    joined->append(*a.text);
    appendJoined(*joined, *b.text);
    OwnedNative joinedNative;
    if (PathNativeAccess::nativeToCarry(a) != nullptr || PathNativeAccess::nativeToCarry(b) != nullptr) {
        std::string const& left = a.nativeReference();
        std::string const& right = b.nativeReference();
        joinedNative = newNative();
        joinedNative->reserve(left.size() + right.size() + 1);
        joinedNative->append(left);
        appendJoined(*joinedNative, right);
    }
    return PathNativeAccess::adopt(std::move(joined), std::move(joinedNative));
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
    OwnedText joined = newText();
    joined->reserve(a.size() + b.size());
    joined->append(a.string());
    joined->append(b.string());
    if (mayNeedNormalising(b))
        detail::fixStuff(*joined);
    OwnedNative joinedNative;
    if (PathNativeAccess::nativeToCarry(a) != nullptr || PathNativeAccess::nativeToCarry(b) != nullptr
        || mayComposeAcross(b)) {
        std::string const& left = a.nativeReference();
        std::string const& right = b.nativeReference();
        joinedNative = newNative();
        joinedNative->reserve(left.size() + right.size());
        joinedNative->append(left);
        joinedNative->append(right);
    }
    return PathNativeAccess::adopt(std::move(joined), std::move(joinedNative));
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
