// The tolerant path comparison and the equality and ordering operators built on it.
#include <kelvo/filesystem/Path.h>
#include <kelvo/filesystem/private/Compare.h>

#include "PathInternal.h"

#include <kelvo/text/Unicode.h>

#include <cstdint>
#include <cstring>

namespace kelvo::filesystem {

using kelvo::unicode::String;

namespace detail {

namespace {

// ASCII is lowered directly rather than through the C library's locale-bound
// tolower, so that a program's locale cannot change how paths compare; under
// the default locale the two agree.
inline char32_t lowerASCII(char32_t c) noexcept
{
    return (c - U'A' < 26u) ? c + (U'a' - U'A') : c;
}

// Where the exact walk has to start: the first group of code points that
// differ beyond ASCII letter case, or about the end of the shorter text. A
// group whose code points agree once ASCII letters are lowered holds no
// difference in the tolerant sense, so it needs no closer look.
#if defined(__GNUC__)
// Eight code points a vector, two vectors a step, in the compiler's generic
// vectors: built for the widest instructions the processor offers where the
// system can choose a version at load time.
using Lanes = std::uint32_t __attribute__((vector_size(32)));

#if defined(KELVO_HAS_TARGET_CLONES)
__attribute__((target_clones("avx2", "default")))
#endif
std::size_t skipEqualBlocks(char32_t const* pa, char32_t const* pb, std::size_t common) noexcept
{
    std::size_t i = 0;
    for (; i + 16 <= common; i += 16) {
        Lanes a0, a1, b0, b1;
        std::memcpy(&a0, pa + i, sizeof a0);
        std::memcpy(&a1, pa + i + 8, sizeof a1);
        std::memcpy(&b0, pb + i, sizeof b0);
        std::memcpy(&b1, pb + i + 8, sizeof b1);
        // Lowering written out in place: a vector passed to or returned from
        // a helper would change the calling convention between the versions.
        a0 |= reinterpret_cast<Lanes>(a0 - U'A' < 26u) & 0x20u;
        a1 |= reinterpret_cast<Lanes>(a1 - U'A' < 26u) & 0x20u;
        b0 |= reinterpret_cast<Lanes>(b0 - U'A' < 26u) & 0x20u;
        b1 |= reinterpret_cast<Lanes>(b1 - U'A' < 26u) & 0x20u;
        Lanes const d = (a0 ^ b0) | (a1 ^ b1);
        std::uint64_t words[4];
        std::memcpy(words, &d, sizeof words);
        if ((words[0] | words[1] | words[2] | words[3]) != 0)
            break;
    }
    return i;
}
#else
std::size_t skipEqualBlocks(char32_t const* pa, char32_t const* pb, std::size_t common) noexcept
{
    constexpr std::size_t kBlock = 8;
    std::size_t i = 0;
    for (; i + kBlock <= common; i += kBlock) {
        char32_t difference = 0;
        for (std::size_t k = 0; k < kBlock; ++k)
            difference |= lowerASCII(pa[i + k]) ^ lowerASCII(pb[i + k]);
        if (difference != 0)
            break;
    }
    return i;
}
#endif

} // namespace

int compareDecomposed(String const& a, String const& b) noexcept
{
    std::size_t const la = a.size();
    std::size_t const lb = b.size();
    char32_t const* const pa = a.data();
    char32_t const* const pb = b.data();
    if (la == lb && (pa == pb || std::memcmp(pa, pb, la * sizeof(char32_t)) == 0))
        return 0;
    std::size_t const n = la > lb ? la : lb;
    for (std::size_t i = skipEqualBlocks(pa, pb, la < lb ? la : lb); i < n; ++i) {
        // Past its end a text reads U+0000.
        char32_t const x = i < la ? pa[i] : 0;
        char32_t const y = i < lb ? pb[i] : 0;
        if (x == y)
            continue;
        char32_t fx, fy;
        if ((x | y) > 0x7F) {
            fx = kelvo::unicode::simpleCaseFold(x);
            fy = kelvo::unicode::simpleCaseFold(y);
        } else {
            fx = lowerASCII(x);
            fy = lowerASCII(y);
        }
        if (fx != fy)
            // The raw code points decide the order, not the folded ones.
            return x < y ? -1 : 1;
    }
    if (la == lb)
        return 0;
    return la < lb ? -1 : 1;
}

} // namespace detail

namespace {

int compareWithText(Path const& path, String const& other)
{
    return kelvo_private::filesystem::compare(path.string(), other);
}

// The == forms normalise the other operand as a path would be.
bool equalsNormalised(Path const& path, String const& other)
{
    String copy(other);
    detail::fixStuff(copy);
    return detail::compareDecomposed(path.string(), copy) == 0;
}

String decode(char const* utf8) { return utf8 ? String(std::string(utf8)) : String(); }

// Two paths whose native forms are the same bytes have texts decoded and
// normalised from those bytes, or composed to them, so they are equal with no
// look at the texts.
inline bool sameNative(Path const& a, Path const& b) noexcept
{
    std::string const* const na = PathNativeAccess::nativeIfMade(a);
    std::string const* const nb = PathNativeAccess::nativeIfMade(b);
    if (na == nullptr || nb == nullptr)
        return false;
    std::size_t const size = na->size();
    return size == nb->size() && std::memcmp(na->data(), nb->data(), size) == 0;
}

} // namespace

bool operator==(Path const& a, Path const& b)
{
    return sameNative(a, b) || detail::compareDecomposed(PathNativeAccess::text(a), PathNativeAccess::text(b)) == 0;
}
bool operator!=(Path const& a, Path const& b)
{
    return !sameNative(a, b) && detail::compareDecomposed(PathNativeAccess::text(a), PathNativeAccess::text(b)) != 0;
}

bool operator==(Path const& a, String const& b) { return equalsNormalised(a, b); }
bool operator==(String const& a, Path const& b) { return equalsNormalised(b, a); }
bool operator==(Path const& a, char const* b) { return a == Path(b); }
bool operator==(char const* a, Path const& b) { return Path(a) == b; }
bool operator==(Path const& a, std::string const& b) { return a == Path(b); }
bool operator==(std::string const& a, Path const& b) { return Path(a) == b; }

bool operator!=(Path const& a, String const& b) { return compareWithText(a, b) != 0; }
bool operator!=(String const& a, Path const& b) { return kelvo_private::filesystem::compare(a, b.string()) != 0; }
bool operator!=(Path const& a, char const* b) { return compareWithText(a, decode(b)) != 0; }
bool operator!=(char const* a, Path const& b) { return kelvo_private::filesystem::compare(decode(a), b.string()) != 0; }
bool operator!=(Path const& a, std::string const& b) { return compareWithText(a, String(b)) != 0; }
bool operator!=(std::string const& a, Path const& b) { return kelvo_private::filesystem::compare(String(a), b.string()) != 0; }

bool operator<(Path const& a, Path const& b) { return detail::compareDecomposed(PathNativeAccess::text(a), PathNativeAccess::text(b)) < 0; }
bool operator<=(Path const& a, Path const& b) { return detail::compareDecomposed(PathNativeAccess::text(a), PathNativeAccess::text(b)) <= 0; }
bool operator>(Path const& a, Path const& b) { return detail::compareDecomposed(PathNativeAccess::text(a), PathNativeAccess::text(b)) > 0; }
bool operator>=(Path const& a, Path const& b) { return detail::compareDecomposed(PathNativeAccess::text(a), PathNativeAccess::text(b)) >= 0; }

} // namespace kelvo::filesystem

namespace kelvo_private::filesystem {

int compare(kelvo::unicode::String const& a, kelvo::unicode::String const& b)
{
    using kelvo::unicode::isNFD;
    using kelvo::unicode::toNFD;
    bool const aReady = isNFD(a);
    bool const bReady = isNFD(b);
    if (aReady && bReady)
        return kelvo::filesystem::detail::compareDecomposed(a, b);
    kelvo::unicode::String const da = aReady ? a : toNFD(a);
    kelvo::unicode::String const db = bReady ? b : toNFD(b);
    return kelvo::filesystem::detail::compareDecomposed(da, db);
}

} // namespace kelvo_private::filesystem
