// Fuzz support: a check that stops the run with the failed condition, so that the fuzzer keeps the input that broke it.
#ifndef KELVO_FUZZ_FUZZ_CHECK_H
#define KELVO_FUZZ_FUZZ_CHECK_H

#include <kelvo/text/String.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

/// Aborts with the file, line and text of `condition` when it does not hold.
#define KELVO_FUZZ_CHECK(condition)                                                             \
    do {                                                                                        \
        if (!(condition)) {                                                                     \
            std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                                       \
        }                                                                                       \
    } while (false)

namespace kelvo::fuzzing {

/// @returns the fuzzer's bytes as a std::string, NUL bytes included.
inline std::string bytesOf(std::uint8_t const* data, std::size_t size)
{
    return std::string(reinterpret_cast<char const*>(data), size);
}

/// @returns true when `text` contains `c`.
inline bool contains(kelvo::unicode::String const& text, char32_t c)
{
    return text.find(c) != kelvo::unicode::String::npos;
}

/// @returns true when `text` begins with `prefix` (exact code points).
inline bool startsWith(kelvo::unicode::String const& text, kelvo::unicode::String const& prefix)
{
    return text.size() >= prefix.size() && text.compare(0, prefix.size(), prefix) == 0;
}

/// @returns true when `text` ends with `suffix` (exact code points).
inline bool endsWith(kelvo::unicode::String const& text, kelvo::unicode::String const& suffix)
{
    return text.size() >= suffix.size() && text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

} // namespace kelvo::fuzzing

#endif
