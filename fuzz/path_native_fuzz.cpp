// Fuzz target: a Path made from any bytes keeps them as its native form, and its text is decomposed, free of backslashes and stable.
#include "FuzzCheck.h"

#include <kelvo/filesystem/Path.h>
#include <kelvo/text/String.h>
#include <kelvo/text/Unicode.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

using kelvo::filesystem::Path;
using kelvo::unicode::String;
using kelvo::fuzzing::bytesOf;
using kelvo::fuzzing::contains;

namespace {

/// Bytes in: the same bytes out, each backslash turned into "/": a path made
/// from bytes keeps them as its native form.
void checkBytes(std::string const& bytes)
{
    // Decoding is lossless on its own.
    KELVO_FUZZ_CHECK(String(bytes).toUTF8String() == bytes);

    Path const path(bytes);
    std::string expected = bytes;
    std::replace(expected.begin(), expected.end(), '\\', '/');
    KELVO_FUZZ_CHECK(path.nativeString() == expected);
    // The cached form is handed out again unchanged.
    KELVO_FUZZ_CHECK(path.nativeString() == expected);

    String const& text = path.string();
    KELVO_FUZZ_CHECK(!contains(text, U'\\'));
    KELVO_FUZZ_CHECK(kelvo::unicode::isNFD(text));
    KELVO_FUZZ_CHECK(path.length() == text.size() && path.size() == text.size());
    KELVO_FUZZ_CHECK(path.empty() == bytes.empty());

    // Made again from its native form or from its text, a path keeps its text.
    KELVO_FUZZ_CHECK(Path(path.nativeString()).string() == text);
    KELVO_FUZZ_CHECK(Path(text).string() == text);
    KELVO_FUZZ_CHECK(Path(path.nativeString()) == path);

    // Copies and moves keep the native form; a dropped cache is rebuilt alike.
    Path copy(path);
    KELVO_FUZZ_CHECK(copy.nativeString() == expected);
    Path moved(std::move(copy));
    KELVO_FUZZ_CHECK(moved.nativeString() == expected);
    moved.clearCache();
    KELVO_FUZZ_CHECK(moved.nativeString() == expected);
    moved.clear();
    KELVO_FUZZ_CHECK(moved.empty() && moved.nativeString().empty());

    // Up to the first NUL, the C string constructor reads the same bytes.
    std::string const beforeNul(bytes.c_str());
    KELVO_FUZZ_CHECK(Path(beforeNul.c_str()).string() == Path(beforeNul).string());
}

/// Code points in: a decomposed text whose native form decodes back to it.
void checkCodePoints(std::uint8_t const* data, std::size_t size)
{
    String text;
    bool plain = true;
    for (std::size_t i = 0; i + 3 <= size; i += 3) {
        // Three bytes a code point reach every plane (and some values past it).
        char32_t const c = static_cast<char32_t>(data[i]) | static_cast<char32_t>(data[i + 1]) << 8
            | static_cast<char32_t>(data[i + 2] & 0x1F) << 16;
        if ((c >= 0xD800 && c <= 0xDFFF) || c > 0x10FFFF)
            plain = false;
        text.push_back(c);
    }
    Path const path(text);
    KELVO_FUZZ_CHECK(!contains(path.string(), U'\\'));
    KELVO_FUZZ_CHECK(kelvo::unicode::isNFD(path.string()));
    KELVO_FUZZ_CHECK(path == text);
    std::string const native = path.nativeString();
    // Surrogates and values past U+10FFFF have no UTF-8 of their own; every
    // other text comes back from its native form.
    if (plain) {
        KELVO_FUZZ_CHECK(Path(native).string() == path.string());
        KELVO_FUZZ_CHECK(native == String(native).toUTF8String());
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    if (size > 4096)
        return 0;
    checkBytes(bytesOf(data, size));
    checkCodePoints(data, size);
    return 0;
}
