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

// Where the exact walk has to start: the first group of code points that
// differ beyond ASCII letter case, or about the end of the shorter text. A
// group whose code points agree once ASCII letters are lowered holds no
// difference in the tolerant sense, so it needs no closer look.
using SkipEqualBlocks = std::size_t (*)(char32_t const*, char32_t const*, std::size_t) noexcept;

#if defined(__GNUC__)
// Eight code points a vector, two vectors a step, in the compiler's generic
// vectors. The body is written once and inlined into each version, so every
// version is compiled for its own instruction set.
using Lanes = std::uint32_t __attribute__((vector_size(32)));

__attribute__((always_inline)) inline std::size_t skipEqualBlocksBody(
    char32_t const* pa, char32_t const* pb, std::size_t common) noexcept
{
    // Constants as whole vectors: a scalar of a character type mixed into
    // vector arithmetic is not accepted by every compiler.
    Lanes const upperA = {0x41u, 0x41u, 0x41u, 0x41u, 0x41u, 0x41u, 0x41u, 0x41u};
    Lanes const letters = {26u, 26u, 26u, 26u, 26u, 26u, 26u, 26u};
    Lanes const caseBit = {0x20u, 0x20u, 0x20u, 0x20u, 0x20u, 0x20u, 0x20u, 0x20u};
    std::size_t i = 0;
    for (; i + 16 <= common; i += 16) {
        Lanes a0, a1, b0, b1;
        std::memcpy(&a0, pa + i, sizeof a0);
        std::memcpy(&a1, pa + i + 8, sizeof a1);
        std::memcpy(&b0, pb + i, sizeof b0);
        std::memcpy(&b1, pb + i + 8, sizeof b1);
        // A comparison gives all ones in each lane where it holds.
        a0 |= reinterpret_cast<Lanes>((a0 - upperA) < letters) & caseBit;
        a1 |= reinterpret_cast<Lanes>((a1 - upperA) < letters) & caseBit;
        b0 |= reinterpret_cast<Lanes>((b0 - upperA) < letters) & caseBit;
        b1 |= reinterpret_cast<Lanes>((b1 - upperA) < letters) & caseBit;
        Lanes const d = (a0 ^ b0) | (a1 ^ b1);
        std::uint64_t words[4];
        std::memcpy(words, &d, sizeof words);
        if ((words[0] | words[1] | words[2] | words[3]) != 0)
            break;
    }
    return i;
}
#else
std::size_t skipEqualBlocksBody(char32_t const* pa, char32_t const* pb, std::size_t common) noexcept
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
    return skipEqualBlocksBody(pa, pb, common);
}

#if defined(KELVO_HAS_AVX2_DISPATCH)
// The processor's widest instructions are chosen by a plain function pointer,
// set on the first comparison, rather than by a resolver the loader runs: a
// resolver runs before any sanitizer's runtime is ready, and instrumented it
// crashes the program before main.
__attribute__((target("avx2"))) std::size_t skipEqualBlocksAvx2(
    char32_t const* pa, char32_t const* pb, std::size_t common) noexcept
{
    return skipEqualBlocksBody(pa, pb, common);
}

std::size_t chooseSkipEqualBlocks(char32_t const* pa, char32_t const* pb, std::size_t common) noexcept;

// Constant-initialised, so that it is ready before any static initialiser
// compares paths. Threads racing on the first comparison all store the same
// choice.
std::atomic<SkipEqualBlocks> skipEqualBlocksChosen{chooseSkipEqualBlocks};

std::size_t chooseSkipEqualBlocks(char32_t const* pa, char32_t const* pb, std::size_t common) noexcept
{
    __builtin_cpu_init();
    SkipEqualBlocks const chosen
        = __builtin_cpu_supports("avx2") ? skipEqualBlocksAvx2 : skipEqualBlocksPortable;
    skipEqualBlocksChosen.store(chosen, std::memory_order_relaxed);
    return chosen(pa, pb, common);
}

inline std::size_t skipEqualBlocks(char32_t const* pa, char32_t const* pb, std::size_t common) noexcept
{
    return skipEqualBlocksChosen.load(std::memory_order_relaxed)(pa, pb, common);
}
#else
inline std::size_t skipEqualBlocks(char32_t const* pa, char32_t const* pb, std::size_t common) noexcept
{
    return skipEqualBlocksPortable(pa, pb, common);
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
