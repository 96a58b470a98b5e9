// PathHash and PathLess: a hash and a strict weak ordering of paths that agree with the tolerant ==.
#include <kelvo/filesystem/PathHash.h>

#include "filesystem/path/PathInternal.h"

#include <kelvo/text/Unicode.h>

#include <cstdint>

namespace kelvo::filesystem {

using kelvo::unicode::String;

namespace {

// Two path texts are equal under == when they have the same length and, at
// every position, the same code point or two code points with the same
// simple case folding (ASCII is lowered directly: its folding is the same).
// Folding each code point on its own therefore gives one representative per
// class of equal texts; no decomposition is needed because path texts are
// always decomposed.
inline char32_t foldCodePoint(char32_t c) noexcept
{
    if (c < 0x80)
        return (c - U'A' < 26u) ? c + (U'a' - U'A') : c;
    return kelvo::unicode::simpleCaseFold(c);
}

constexpr std::uint64_t kFnvOffset = 0xcbf29ce484222325ull;
constexpr std::uint64_t kFnvPrime = 0x100000001b3ull;

// Spreads the bits of the running hash, so that bucket indices taken from its
// low bits are well mixed.
inline std::uint64_t finish(std::uint64_t h) noexcept
{
    h ^= h >> 33;
    h *= 0xff51afd7ed558ccdull;
    h ^= h >> 33;
    h *= 0xc4ceb9fe1a85ec53ull;
    h ^= h >> 33;
    return h;
}

} // namespace

std::size_t PathHash::operator()(Path const& path) const noexcept
{
    String const& text = PathNativeAccess::text(path);
    std::uint64_t h = kFnvOffset;
    for (char32_t c : text) {
        h ^= foldCodePoint(c);
        h *= kFnvPrime;
    }
    h ^= text.size();
    return static_cast<std::size_t>(finish(h));
}

bool PathLess::operator()(Path const& a, Path const& b) const noexcept
{
    String const& x = PathNativeAccess::text(a);
    String const& y = PathNativeAccess::text(b);
    std::size_t const common = x.size() < y.size() ? x.size() : y.size();
    for (std::size_t i = 0; i < common; ++i) {
        if (x[i] == y[i])
            continue;
        char32_t const fx = foldCodePoint(x[i]);
        char32_t const fy = foldCodePoint(y[i]);
        if (fx != fy)
            return fx < fy;
    }
    return x.size() < y.size();
}

} // namespace kelvo::filesystem
