// kelvo::filesystem::Path: normalised Unicode path text with a cached native form.
#ifndef KELVO_FILESYSTEM_PATH_H
#define KELVO_FILESYSTEM_PATH_H

#include <kelvo/export.h>
#include <kelvo/text/String.h>
#include <kelvo/text/TokenIterator.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>

namespace kelvo::filesystem {

class Path;
struct PathNativeAccess;

/// @returns U+002F, the separator every path text uses. Kept: the name is
/// spelled so, letter for letter, with no corrected alias (see
/// docs/odd-behaviours.md, 'Two names keep their own spelling').
KELVO_FILESYSTEM_API char32_t nativeSeparartor();
/// @returns U+005C, the separator turned into U+002F when a path is built.
KELVO_FILESYSTEM_API char32_t nonNativeSeparartor();

/// Cuts one element out of the rest of a path text: first the root name, then
/// the root directory, then each name, and a final "." standing for a
/// trailing separator. Each copy advances its own `state`.
struct KELVO_FILESYSTEM_API PathIteratorExtractorFunc {
    /// 0: a root name may come; 1: a root directory may come; 2: ordinary
    /// elements; 3: the trailing "." has been produced.
    std::uint32_t state = 0;
    /// Where the walk stands in the native form of `path`: the byte offset
    /// that matches the position the last call returned as `next`, so that
    /// each element's piece of the native form is found from there rather
    /// than from the start (a walk costs time in proportion to the length of
    /// the path). A cursor that does not fit the position it is called with
    /// is found again from the text.
    std::uint32_t nativeCursor = 0;
    /// The path whose text is walked, set by `Path::begin()`: each element
    /// then gets the matching piece of that path's native form. Null for a
    /// text that belongs to no path; elements then get the native form of
    /// their own text. (Sixteen bytes in all, so that the iterator's function
    /// wrapper holds the functor without an allocation.)
    Path const* path = nullptr;

    kelvo::parsing::TokenInfo<Path, kelvo::unicode::String::const_iterator>
    operator()(kelvo::unicode::String::const_iterator first,
               kelvo::unicode::String::const_iterator last);
};

/// A path: Unicode text with "/" separators in Normalization Form D, plus its
/// native form, the bytes handed to the operating system.
///
/// Construction turns every backslash into "/" and decomposes the text; nothing
/// else is normalised (repeated and trailing separators, "." and ".." and
/// letter case are kept). Kept: a backslash is a separator on every system
/// (see docs/odd-behaviours.md, 'Backslashes become separators'). Paths
/// compare case- and composition-insensitively.
///
/// The native form is part of the value. A path made from bytes (a
/// `std::string`, a `char const*`, a name read from the system) keeps exactly
/// those bytes, each backslash turned into "/", so a name the system handed
/// out always reaches the same file, whatever its composition and even when it
/// is not UTF-8. A path made from code points gets the UTF-8 of its text
/// composed (NFC), the form programs here write. A path derived from others
/// (a part, an element, a join, an append) gets the matching pieces of their
/// native forms. Copies and moves keep it. Two paths can therefore be equal
/// (same text) and still name two files.
///
/// Every const member may be called on one `Path` from several threads at
/// once: a native form made on first use is published atomically. A
/// non-const member must not run while another thread uses the same object.
class KELVO_FILESYSTEM_API Path {
public:
    using String = kelvo::unicode::String;
    using iterator = kelvo::parsing::TokenIterator<Path, String::const_iterator>;
    using const_iterator = iterator;

    /// An empty path.
    Path() noexcept = default;
    /// Copies the text and the native form.
    Path(Path const& other);
    /// Takes over the text and the native form; `other` is left empty.
    Path(Path&& other) noexcept;
    /// Normalises a copy of `text`; the native form is its composed UTF-8.
    Path(String const& text);
    /// Normalises `text` in place and takes it over; the native form is its
    /// composed UTF-8. If normalising throws, `text` is left as it was.
    Path(String&& text);
    /// Decodes UTF-8 (bytes that are not UTF-8 are kept, see `String`) and
    /// normalises; the native form is `utf8` itself, backslashes made "/".
    Path(std::string const& utf8);
    /// The same for NUL-terminated bytes; a null pointer gives an empty path.
    Path(char const* utf8);
    ~Path();

    /// Copies the text and the native form of `other`.
    Path& operator=(Path const& other);
    /// Takes over the text and the native form of `other`, which is left
    /// empty.
    Path& operator=(Path&& other) noexcept;

    /// Exchanges texts and native forms with `other`.
    void swap(Path& other) noexcept;
    /// Empties the text and the native form.
    void clear() noexcept;

    /// @returns the normalised text.
    String const& string() const noexcept;
    /// @returns the bytes the operating system is given for this path (see
    /// the class comment); empty for an empty path.
    std::string nativeString() const;
    /// @returns the number of code points of the text.
    unsigned long length() const noexcept;
    /// @returns the number of code points of the text.
    unsigned long size() const noexcept;
    /// @returns true when the text is empty.
    bool empty() const noexcept { return text == nullptr || text->empty(); }
    /// Does nothing: the native form is part of the value and is kept (a path
    /// made from bytes could not recompute it from its text, and a path
    /// shared between threads must not lose it under another reader).
    void clearCache() const noexcept;

    /// @returns the network root name ("//server" of "//server/share"), or an
    /// empty path.
    Path rootName() const;
    /// @returns "/" when the path has a root directory, else an empty path.
    Path rootDirectory() const;
    /// @returns root name followed by root directory; empty when neither.
    Path rootPath() const;
    /// @returns the text after the root path and the separators that follow
    /// it; the whole path when it has no root; empty when nothing follows.
    Path relativePath() const;
    /// @returns the path without its last element ("a/b" for "a/b/"); empty
    /// when there is none. Decomposition keeps every oddity of the text (see
    /// docs/odd-behaviours.md, 'Decomposition keeps every oddity of the
    /// text').
    Path parentPath() const;
    /// @returns the last element: "/" for "/", "." after a trailing
    /// separator, empty for an empty path.
    Path filename() const;
    /// @returns the file name without its extension; "." and ".." whole.
    Path stem() const;
    /// @returns the extension with its dot, or an empty path; a text ending in
    /// a dot has none, except "." itself, whose extension is ".".
    Path extension() const;

    /// @returns true when the path has a root name or a root directory.
    bool isAbsolute() const;
    /// @returns the negation of `isAbsolute()`.
    bool isRelative() const;
    /// @returns true when the path has a root directory.
    bool isComplete() const;

    /// Replaces the extension (from the last dot of the last element) by
    /// `newExtension`, adding a leading dot when it lacks one; an empty
    /// extension removes it.
    void replaceExtension(Path const& newExtension);

    /// Appends "/" unless the text already ends with one (an empty path
    /// becomes "/").
    void appendSeparator();
    /// Joins `rhs` with exactly one separator between the two texts (an
    /// absolute `rhs` does not replace the path).
    Path& operator/=(Path const& rhs);
    /// Appends the text of `rhs` with no separator and normalises the result.
    Path& operator+=(Path const& rhs);

    /// @returns an iterator on the first element. The path must outlive the
    /// iterator and stay unchanged while it is used. Kept: empty and "."
    /// elements are yielded ("a/b/" gives "a", "b", "."; see
    /// docs/odd-behaviours.md, 'Iteration yields empty and "." elements').
    iterator begin() const;
    /// @returns the end iterator.
    iterator end() const;

private:
    friend struct PathNativeAccess;
    friend Path operator/(Path const&, Path const&);
    friend Path operator/(Path&&, Path const&);
    friend Path operator+(Path const&, Path const&);
    friend Path operator+(Path&&, Path const&);

    void release() noexcept;
    String& mutableText();
    std::string const& nativeReference() const;
    std::string const& makeNative() const;
    std::string* takeNative() noexcept;
    void setNative(std::string* newNative) noexcept;

    // A null text pointer stands for the empty text: default construction and
    // moves then cost no allocation, and a moved-from path stays usable.
    String* text = nullptr;
    // The native form; null while it is the composed UTF-8 of the text and has
    // not been asked for yet. Set once by a const call (atomically, so that
    // readers on other threads see a whole string), changed otherwise only by
    // the non-const members.
    mutable std::atomic<std::string*> native{nullptr};
};

/// Exchanges two paths.
KELVO_FILESYSTEM_API void swap(Path& a, Path& b) noexcept;

/// @returns `a` joined with `b` as `a /= b` does.
KELVO_FILESYSTEM_API Path operator/(Path const& a, Path const& b);
/// @returns `a` joined with `b`, reusing the text of `a`, which is left empty.
KELVO_FILESYSTEM_API Path operator/(Path&& a, Path const& b);
/// @returns the concatenation of both texts, normalised.
KELVO_FILESYSTEM_API Path operator+(Path const& a, Path const& b);
/// @returns the concatenation, reusing the text of `a`, which is left empty.
KELVO_FILESYSTEM_API Path operator+(Path&& a, Path const& b);

/// Tolerant equality: letter case and Unicode composition are ignored. Two
/// paths with the same native bytes are equal at once.
KELVO_FILESYSTEM_API bool operator==(Path const& a, Path const& b);
KELVO_FILESYSTEM_API bool operator!=(Path const& a, Path const& b);
/// The text is normalised as a path is (backslashes become "/") first.
KELVO_FILESYSTEM_API bool operator==(Path const& a, kelvo::unicode::String const& b);
KELVO_FILESYSTEM_API bool operator==(kelvo::unicode::String const& a, Path const& b);
KELVO_FILESYSTEM_API bool operator==(Path const& a, char const* utf8);
KELVO_FILESYSTEM_API bool operator==(char const* utf8, Path const& b);
KELVO_FILESYSTEM_API bool operator==(Path const& a, std::string const& utf8);
KELVO_FILESYSTEM_API bool operator==(std::string const& utf8, Path const& b);
/// The text is compared as it stands: backslashes are not turned into "/",
/// so "a/b" is both equal and unequal to "a\b".
/// Kept: `==` and `!=` with a text disagree about backslashes (see
/// docs/odd-behaviours.md, '== and != disagree about backslashes').
KELVO_FILESYSTEM_API bool operator!=(Path const& a, kelvo::unicode::String const& b);
KELVO_FILESYSTEM_API bool operator!=(kelvo::unicode::String const& a, Path const& b);
KELVO_FILESYSTEM_API bool operator!=(Path const& a, char const* utf8);
KELVO_FILESYSTEM_API bool operator!=(char const* utf8, Path const& b);
KELVO_FILESYSTEM_API bool operator!=(Path const& a, std::string const& utf8);
KELVO_FILESYSTEM_API bool operator!=(std::string const& utf8, Path const& b);
/// Tolerant ordering; see `kelvo_private::filesystem::compare`. Kept: not
/// transitive across letter case, so use `PathLess` for sorting (see
/// docs/odd-behaviours.md, 'The ordering is not transitive across letter
/// case').
KELVO_FILESYSTEM_API bool operator<(Path const& a, Path const& b);
KELVO_FILESYSTEM_API bool operator<=(Path const& a, Path const& b);
KELVO_FILESYSTEM_API bool operator>(Path const& a, Path const& b);
KELVO_FILESYSTEM_API bool operator>=(Path const& a, Path const& b);

/// Writes the UTF-8 of the path's text.
KELVO_FILESYSTEM_API std::ostream& operator<<(std::ostream& out, Path const& path);

} // namespace kelvo::filesystem

#endif
