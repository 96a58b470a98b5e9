// Elided display paths: a run of middle elements replaced by an ellipsis, keeping the first and the last and as many beside them as fit.
#include <kelvo/filesystem/Operations.h>

#include "filesystem/path/PathInternal.h"

#include <deque>

namespace kelvo::filesystem {

using kelvo::unicode::String;

String generateElidedPath(Path const& path, unsigned long maxLength, String const& ellipsis)
{
    String const& text = PathNativeAccess::text(path);
    // Kept: a path of exactly the width still goes on to be elided (see
    // docs/odd-behaviours.md, 'generateElidedPath may exceed the limit').
    if (path.length() < maxLength)
        return text;

    Path const root("/");
    std::deque<String> elements;
    bool absolute = false;
    for (Path::iterator element = path.begin(), end = path.end(); !(element == end); ++element) {
        if (*element == root) {
            if (elements.empty())
                absolute = true;
            continue;
        }
        elements.push_back(element->string());
    }
    if (elements.empty())
        return text;

    String tail = std::move(elements.back());
    elements.pop_back();
    if (elements.empty())
        return text;
    // The first and the last element are kept whatever their length.
    String head = absolute ? String(U"/") : String();
    head.append(elements.front());
    elements.pop_front();

    unsigned long const ellipsisLength = ellipsis.length();
    auto fits = [&](String const& element) {
        // The two separators around the ellipsis count; the one that joins
        // the new element to its side does not.
        return head.length() + ellipsisLength + 2 + tail.length() + element.length() < maxLength;
    };
    bool tailClosed = false;
    bool headClosed = false;
    // The tail is served first in every pass, so the file-name end wins; a
    // side, once closed, stays closed and drops what it takes.
    while (!elements.empty()) {
        String back = std::move(elements.back());
        elements.pop_back();
        if (!tailClosed && fits(back))
            tail = std::move(back) + U'/' + tail;
        else
            tailClosed = true;

        if (elements.empty())
            break;
        String front = std::move(elements.front());
        elements.pop_front();
        if (!headClosed && fits(front)) {
            head.push_back(U'/');
            head.append(front);
        } else {
            headClosed = true;
        }
    }
    if (!tailClosed && !headClosed)
        return text;
    String result = std::move(head);
    result.push_back(U'/');
    result.append(ellipsis);
    result.push_back(U'/');
    result.append(tail);
    return result;
}

} // namespace kelvo::filesystem
