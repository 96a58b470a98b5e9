// The tolerant path comparison and the equality and ordering operators built on it.
#include <kelvo/filesystem/Path.h>
#include <kelvo/filesystem/private/Compare.h>

#include "filesystem/path/PathInternal.h"

#include <kelvo/text/Unicode.h>

#include <atomic>
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

// Whether two different code points are the same ASCII letter in two cases:
// the common difference of a tolerant comparison, settled without folding.
inline bool sameLetter(char32_t x, char32_t y) noexcept
{
    return (x ^ y) == 0x20u && ((x | 0x20u) - U'a') < 26u;
}

// Where the exact walk has to start: the first group of code points (or
// bytes) that differ beyond ASCII letter case, or the end of the shorter text
// when none does. A group whose elements agree once ASCII letters are lowered
// holds no difference in the tolerant sense, so it needs no closer look.
using SkipEqualBlocks = std::size_t (*)(char32_t const*, char32_t const*, std::size_t) noexcept;
using SkipEqualByteBlocks = std::size_t (*)(unsigned char const*, unsigned char const*, std::size_t) noexcept;

#if defined(__GNUC__)
// Eight code points (or thirty-two bytes) a vector, in the compiler's generic
// vectors. The bodies are written once and inlined into each version, so
// every version is compiled for its own instruction set.
using Lanes = std::uint32_t __attribute__((vector_size(32)));
using ByteLanes = unsigned char __attribute__((vector_size(32)));

// The lanes where `a` and `b` differ beyond ASCII letter case, into `out`:
// zero in every other lane. Two elements agree when they are equal, or when
// they differ in the case bit alone and `a` with that bit set is a lower-case
// letter. (Vectors pass by reference: by value they would change the calling
// convention between the versions.)
template <typename V, typename Unit>
__attribute__((always_inline)) inline void differences(V& out, Unit const* pa, Unit const* pb, V const& caseBit,
                                                       V const& lowerA, V const& lastLetter) noexcept
{
    V a, b;
    std::memcpy(&a, pa, sizeof a);
    std::memcpy(&b, pb, sizeof b);
    V const x = a ^ b;
    V const v = (a | caseBit) - lowerA;
    // A comparison gives all ones in each lane where it holds.
    V const letter = reinterpret_cast<V>(v <= lastLetter);
    out = x & ~(letter & caseBit);
}

template <typename V>
__attribute__((always_inline)) inline bool anyLane(V const& v) noexcept
{
    std::uint64_t words[4];
    static_assert(sizeof words == sizeof v, "four words a vector");
    std::memcpy(words, &v, sizeof words);
    return ((words[0] | words[1]) | (words[2] | words[3])) != 0;
}

template <typename V, typename Unit>
__attribute__((always_inline)) inline std::size_t skipBody(Unit const* pa, Unit const* pb, std::size_t common) noexcept
{
    constexpr std::size_t kLanes = sizeof(V) / sizeof(Unit);
    // Constants as whole vectors: a scalar of a character type mixed into
    // vector arithmetic is not accepted by every compiler.
    V caseBit, lowerA, lastLetter;
    for (std::size_t k = 0; k < kLanes; ++k) {
        caseBit[k] = 0x20;
        lowerA[k] = 'a';
        lastLetter[k] = 'z' - 'a';
    }
    std::size_t i = 0;
    V d0, d1, d2, d3;
    for (; i + 4 * kLanes <= common; i += 4 * kLanes) {
        differences(d0, pa + i, pb + i, caseBit, lowerA, lastLetter);
        differences(d1, pa + i + kLanes, pb + i + kLanes, caseBit, lowerA, lastLetter);
        differences(d2, pa + i + 2 * kLanes, pb + i + 2 * kLanes, caseBit, lowerA, lastLetter);
        differences(d3, pa + i + 3 * kLanes, pb + i + 3 * kLanes, caseBit, lowerA, lastLetter);
        d0 |= d1;
        d2 |= d3;
        d0 |= d2;
        if (anyLane(d0))
            return i;
    }
    // The rest, group by group, the last one ending with the shorter text
    // and overlapping what was already found alike.
    if (i < common && common >= kLanes) {
        for (;;) {
            std::size_t const at = i + kLanes <= common ? i : common - kLanes;
            differences(d0, pa + at, pb + at, caseBit, lowerA, lastLetter);
            if (anyLane(d0))
                return i;
            if (at + kLanes == common)
                return common;
            i += kLanes;
        }
    }
    return i;
}
#else
template <typename Unit>
std::size_t skipBody(Unit const* pa, Unit const* pb, std::size_t common) noexcept
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

std::size_t skipEqualBlocksPortable(char32_t const* pa, char32_t const* pb, std::size_t common) noexcept
{
#if defined(__GNUC__)
    return skipBody<Lanes>(pa, pb, common);
#else
    return skipBody(pa, pb, common);
#endif
}

std::size_t skipEqualByteBlocksPortable(unsigned char const* pa, unsigned char const* pb, std::size_t common) noexcept
{
#if defined(__GNUC__)
    return skipBody<ByteLanes>(pa, pb, common);
#else
    return skipBody(pa, pb, common);
#endif
}

#if defined(KELVO_HAS_AVX2_DISPATCH)
// The processor's widest instructions are chosen by a plain function pointer,
// set on the first comparison, rather than by a resolver the loader runs: a
// resolver runs before any sanitizer's runtime is ready, and instrumented it
// crashes the program before main.
__attribute__((target("avx2"))) std::size_t skipEqualBlocksAvx2(
    char32_t const* pa, char32_t const* pb, std::size_t common) noexcept
{
    return skipBody<Lanes>(pa, pb, common);
}

__attribute__((target("avx2"))) std::size_t skipEqualByteBlocksAvx2(
    unsigned char const* pa, unsigned char const* pb, std::size_t common) noexcept
{
    return skipBody<ByteLanes>(pa, pb, common);
}

std::size_t chooseSkipEqualBlocks(char32_t const* pa, char32_t const* pb, std::size_t common) noexcept;
std::size_t chooseSkipEqualByteBlocks(unsigned char const* pa, unsigned char const* pb, std::size_t common) noexcept;

// Constant-initialised, so that they are ready before any static initialiser
// compares paths. Threads racing on the first comparison all store the same
// choice.
std::atomic<SkipEqualBlocks> skipEqualBlocksChosen{chooseSkipEqualBlocks};
std::atomic<SkipEqualByteBlocks> skipEqualByteBlocksChosen{chooseSkipEqualByteBlocks};

bool hasAvx2() noexcept
{
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2");
}

std::size_t chooseSkipEqualBlocks(char32_t const* pa, char32_t const* pb, std::size_t common) noexcept
{
    SkipEqualBlocks const chosen = hasAvx2() ? skipEqualBlocksAvx2 : skipEqualBlocksPortable;
    skipEqualBlocksChosen.store(chosen, std::memory_order_relaxed);
    return chosen(pa, pb, common);
}

std::size_t chooseSkipEqualByteBlocks(unsigned char const* pa, unsigned char const* pb, std::size_t common) noexcept
{
    SkipEqualByteBlocks const chosen = hasAvx2() ? skipEqualByteBlocksAvx2 : skipEqualByteBlocksPortable;
    skipEqualByteBlocksChosen.store(chosen, std::memory_order_relaxed);
    return chosen(pa, pb, common);
}

inline std::size_t skipEqualBlocks(char32_t const* pa, char32_t const* pb, std::size_t common) noexcept
{
    return skipEqualBlocksChosen.load(std::memory_order_relaxed)(pa, pb, common);
}

inline std::size_t skipEqualBlocks(unsigned char const* pa, unsigned char const* pb, std::size_t common) noexcept
{
    return skipEqualByteBlocksChosen.load(std::memory_order_relaxed)(pa, pb, common);
}
#else
inline std::size_t skipEqualBlocks(char32_t const* pa, char32_t const* pb, std::size_t common) noexcept
{
    return skipEqualBlocksPortable(pa, pb, common);
}

inline std::size_t skipEqualBlocks(unsigned char const* pa, unsigned char const* pb, std::size_t common) noexcept
{
    return skipEqualByteBlocksPortable(pa, pb, common);
}
#endif

// The tolerant comparison from the first group that may differ on. `Unit` is
// char32_t for texts, or unsigned char for the bytes of ASCII native forms,
// which are their texts one byte a code point.
template <typename Unit>
int compareFolded(Unit const* pa, std::size_t la, Unit const* pb, std::size_t lb) noexcept
{
    std::size_t const n = la > lb ? la : lb;
    for (std::size_t i = skipEqualBlocks(pa, pb, la < lb ? la : lb); i < n; ++i) {
        // Past its end a text reads U+0000.
        char32_t const x = i < la ? pa[i] : 0;
        char32_t const y = i < lb ? pb[i] : 0;
        if (x == y || sameLetter(x, y))
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
            // Kept: the raw code points decide the order, not the folded
            // ones, so the order is not transitive across letter case (see
            // docs/odd-behaviours.md, 'The ordering is not transitive across
            // letter case').
            return x < y ? -1 : 1;
    }
    if (la == lb)
        return 0;
    return la < lb ? -1 : 1;
}

} // namespace

int compareDecomposed(String const& a, String const& b) noexcept
{
    std::size_t const la = a.size();
    std::size_t const lb = b.size();
    char32_t const* const pa = a.data();
    char32_t const* const pb = b.data();
    if (la == lb && (pa == pb || std::memcmp(pa, pb, la * sizeof(char32_t)) == 0))
        return 0;
    return compareFolded(pa, la, pb, lb);
}

int compareFoldedTexts(String const& a, String const& b) noexcept
{
    return compareFolded(a.data(), a.size(), b.data(), b.size());
}

int compareASCIIFolded(std::string const& a, std::string const& b) noexcept
{
    return compareFolded(reinterpret_cast<unsigned char const*>(a.data()), a.size(),
                         reinterpret_cast<unsigned char const*>(b.data()), b.size());
}

int compareASCII(std::string const& a, std::string const& b) noexcept
{
    std::size_t const la = a.size();
    std::size_t const lb = b.size();
    auto const* const pa = reinterpret_cast<unsigned char const*>(a.data());
    auto const* const pb = reinterpret_cast<unsigned char const*>(b.data());
    if (la == lb && std::memcmp(pa, pb, la) == 0)
        return 0;
    return compareFolded(pa, la, pb, lb);
}

} // namespace detail

namespace {

int compareWithText(Path const& path, String const& other)
{
    return kelvo_private::filesystem::compare(path.string(), other);
}

// The == forms normalise the other operand as a path would be. Kept: the !=
// forms compare the text as it stands, backslashes included (see
// docs/odd-behaviours.md, '== and != disagree about backslashes').
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
inline bool sameBytes(std::string const* na, std::string const* nb) noexcept
{
    std::size_t const size = na->size();
    return size == nb->size() && std::memcmp(na->data(), nb->data(), size) == 0;
}

// The tolerant comparison of two paths. Native forms marked plain are their
// texts, all ASCII, one byte a code point: two of them are compared in their
// bytes, a quarter of the texts' size, with the same result.
inline int comparePaths(Path const& a, Path const& b) noexcept
{
    std::string const* const pa = PathNativeAccess::plainNative(a);
    std::string const* const pb = PathNativeAccess::plainNative(b);
    if (pa != nullptr && pb != nullptr)
        return detail::compareASCII(*pa, *pb);
    return detail::compareDecomposed(PathNativeAccess::text(a), PathNativeAccess::text(b));
}

// Equality: the same bytes first, then the bytes of two plain native forms,
// or else the texts (with no second look for identical texts when the bytes
// were there and differed).
inline bool equalPaths(Path const& a, Path const& b) noexcept
{
    std::string const* const na = PathNativeAccess::nativeIfMade(a);
    std::string const* const nb = PathNativeAccess::nativeIfMade(b);
    if (na == nullptr || nb == nullptr)
        return detail::compareDecomposed(PathNativeAccess::text(a), PathNativeAccess::text(b)) == 0;
    if (sameBytes(na, nb))
        return true;
    if (PathNativeAccess::plainNative(a) != nullptr && PathNativeAccess::plainNative(b) != nullptr)
        return detail::compareASCIIFolded(*na, *nb) == 0;
    return detail::compareFoldedTexts(PathNativeAccess::text(a), PathNativeAccess::text(b)) == 0;
}

} // namespace

bool operator==(Path const& a, Path const& b) { return equalPaths(a, b); }
bool operator!=(Path const& a, Path const& b) { return !equalPaths(a, b); }

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

bool operator<(Path const& a, Path const& b) { return comparePaths(a, b) < 0; }
bool operator<=(Path const& a, Path const& b) { return comparePaths(a, b) <= 0; }
bool operator>(Path const& a, Path const& b) { return comparePaths(a, b) > 0; }
bool operator>=(Path const& a, Path const& b) { return comparePaths(a, b) >= 0; }

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
