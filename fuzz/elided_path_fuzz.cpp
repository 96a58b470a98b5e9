// Fuzz target: an elided display path agrees with a model of the elision, keeps the first and last elements and fits its width once an element is added.
#include "FuzzCheck.h"

#include <kelvo/filesystem/Operations.h>
#include <kelvo/filesystem/Path.h>
#include <kelvo/text/String.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>

using kelvo::filesystem::Path;
using kelvo::unicode::String;
using kelvo::fuzzing::bytesOf;
using kelvo::fuzzing::endsWith;
using kelvo::fuzzing::startsWith;

namespace {

/// What the elision gives, written out here independently of the library,
/// with `addedOne` telling whether an element joined head or tail.
String modelElision(Path const& path, unsigned long maxLength, String const& ellipsis, bool& addedOne)
{
    addedOne = false;
    if (path.length() < maxLength)
        return path.string();
    std::deque<String> elements;
    bool absolute = false;
    for (Path const& element : path) {
        if (element == Path("/")) {
            if (elements.empty())
                absolute = true;
            continue;
        }
        elements.push_back(element.string());
    }
    if (elements.empty())
        return path.string();
    String tail = elements.back();
    elements.pop_back();
    if (elements.empty())
        return path.string();
    String head = absolute ? String("/") : String();
    head += elements.front();
    elements.pop_front();

    std::size_t const e = ellipsis.length();
    bool tailClosed = false;
    bool headClosed = false;
    while (!elements.empty()) {
        String const back = elements.back();
        elements.pop_back();
        if (!tailClosed && head.length() + e + 2 + tail.length() + back.length() < maxLength) {
            tail = back + String("/") + tail;
            addedOne = true;
        } else {
            tailClosed = true;
        }
        if (elements.empty())
            break;
        String const front = elements.front();
        elements.pop_front();
        if (!headClosed && head.length() + e + 2 + tail.length() + front.length() < maxLength) {
            head = head + String("/") + front;
            addedOne = true;
        } else {
            headClosed = true;
        }
    }
    if (!tailClosed && !headClosed)
        return path.string();
    return head + String("/") + ellipsis + String("/") + tail;
}

/// The first and the last collected elements of `path`, and whether it is
/// absolute; false when it has fewer than two.
bool ends(Path const& path, String& first, String& last, bool& absolute)
{
    std::size_t count = 0;
    absolute = false;
    for (Path const& element : path) {
        if (element == Path("/")) {
            absolute = absolute || count == 0;
            continue;
        }
        if (count == 0)
            first = element.string();
        last = element.string();
        ++count;
    }
    return count >= 2;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    if (size < 3 || size > 4096)
        return 0;
    // Byte 0: the ellipsis's length in bytes (0 to 7) and whether the width
    // is the largest there is; bytes 1-2: the width; then the ellipsis's
    // bytes and the path's.
    std::size_t const ellipsisBytes = data[0] & 7;
    unsigned long maxLength = static_cast<unsigned long>(data[1]) | static_cast<unsigned long>(data[2]) << 8;
    if (data[0] & 0x80)
        maxLength = ~0UL;
    if (size < 3 + ellipsisBytes)
        return 0;
    String const ellipsis(bytesOf(data + 3, ellipsisBytes));
    Path const path(bytesOf(data + 3 + ellipsisBytes, size - 3 - ellipsisBytes));

    String const result = kelvo::filesystem::generateElidedPath(path, maxLength, ellipsis);
    bool addedOne = false;
    KELVO_FUZZ_CHECK(result == modelElision(path, maxLength, ellipsis, addedOne));

    // A path that fits is handed back whole.
    if (path.length() < maxLength)
        KELVO_FUZZ_CHECK(result == path.string());
    // An elided result keeps the first element (after the root when there
    // is one) at its start and the last element at its end.
    if (result != path.string()) {
        String first;
        String last;
        bool absolute = false;
        KELVO_FUZZ_CHECK(ends(path, first, last, absolute));
        String const start = (absolute ? String("/") : String()) + first + String("/");
        KELVO_FUZZ_CHECK(startsWith(result, start));
        KELVO_FUZZ_CHECK(endsWith(result, String("/") + last));
        KELVO_FUZZ_CHECK(result.length() >= start.length() + ellipsis.length() + 1 + last.length());
        // Once an element has been added under the width test, the result fits.
        if (addedOne)
            KELVO_FUZZ_CHECK(result.length() <= maxLength);
    }
    // Being a pure text function, it gives the same answer again.
    KELVO_FUZZ_CHECK(kelvo::filesystem::generateElidedPath(path, maxLength, ellipsis) == result);
    return 0;
}
