// Fuzz target: the tolerant comparison is irreflexive under <, symmetric under ==, antisymmetric, and every operator agrees with compare.
#include "FuzzCheck.h"

#include <kelvo/filesystem/Path.h>
#include <kelvo/filesystem/private/Compare.h>
#include <kelvo/text/String.h>
#include <kelvo/text/Unicode.h>

#include <cstddef>
#include <cstdint>
#include <string>

using kelvo::filesystem::Path;
using kelvo::unicode::String;
using kelvo::fuzzing::bytesOf;
using kelvo_private::filesystem::compare;

namespace {

void checkAgainstItself(Path const& a)
{
    KELVO_FUZZ_CHECK(compare(a.string(), a.string()) == 0);
    KELVO_FUZZ_CHECK(a == a && !(a != a));
    KELVO_FUZZ_CHECK(!(a < a) && !(a > a) && a <= a && a >= a);

    // Another letter case of ASCII is the same path.
    std::string upper = a.nativeString();
    for (char& c : upper) {
        if (c >= 'a' && c <= 'z')
            c = static_cast<char>(c - 'a' + 'A');
    }
    Path const shouted(upper);
    KELVO_FUZZ_CHECK(a == shouted && shouted == a);
    KELVO_FUZZ_CHECK(compare(a.string(), shouted.string()) == 0);
    // Another composition is the same path too.
    KELVO_FUZZ_CHECK(Path(a.nativeString()) == a);
    KELVO_FUZZ_CHECK(compare(String(a.nativeString()), a.string()) == 0);
}

void checkPair(Path const& a, Path const& b)
{
    int const ab = compare(a.string(), b.string());
    int const ba = compare(b.string(), a.string());
    KELVO_FUZZ_CHECK(ab == -1 || ab == 0 || ab == 1);
    KELVO_FUZZ_CHECK(ab == -ba);
    KELVO_FUZZ_CHECK((a == b) == (b == a));
    KELVO_FUZZ_CHECK((a == b) == (ab == 0));
    KELVO_FUZZ_CHECK((a != b) == (ab != 0));
    KELVO_FUZZ_CHECK((a < b) == (ab < 0));
    KELVO_FUZZ_CHECK((a <= b) == (ab <= 0));
    KELVO_FUZZ_CHECK((a > b) == (ab > 0));
    KELVO_FUZZ_CHECK((a >= b) == (ab >= 0));
    KELVO_FUZZ_CHECK(!((a < b) && (b < a)));
    // compare normalises what is not decomposed: the texts as given agree with the paths.
    KELVO_FUZZ_CHECK(compare(String(a.nativeString()), String(b.nativeString())) == ab);
    // A text holding no backslash is equal to the path it makes, both ways round.
    KELVO_FUZZ_CHECK((a == b.string()) == (ab == 0));
    KELVO_FUZZ_CHECK((b.string() == a) == (ab == 0));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    if (size > 4096 || size == 0)
        return 0;
    // The first byte says where the two paths part.
    std::size_t const split = 1 + (size > 1 ? data[0] % size : 0);
    std::string const bytes = bytesOf(data + 1, size - 1);
    std::size_t const cut = split - 1 < bytes.size() ? split - 1 : bytes.size();
    Path const a(bytes.substr(0, cut));
    Path const b(bytes.substr(cut));
    checkAgainstItself(a);
    checkAgainstItself(b);
    checkPair(a, b);
    return 0;
}
