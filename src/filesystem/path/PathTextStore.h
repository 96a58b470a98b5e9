// Internal: the per-thread store of path texts and native-form strings kept for reuse.
#ifndef KELVO_SRC_FILESYSTEM_PATH_TEXT_STORE_H
#define KELVO_SRC_FILESYSTEM_PATH_TEXT_STORE_H

#include <kelvo/text/String.h>

#include <memory>
#include <string>

namespace kelvo::filesystem::detail {

/// Texts of paths come from and go back to a small per-thread store, so that
/// the short-lived paths of everyday work (a file name, a parent, a join)
/// cost no allocation once a thread has made a few.
/// @returns an empty text, recycled when one is at hand. @throws std::bad_alloc.
kelvo::unicode::String* acquireText();
/// Takes back a text that no path holds any longer (null is ignored).
void releaseText(kelvo::unicode::String* text) noexcept;
/// The same for the strings that hold native forms.
/// @returns an empty string. @throws std::bad_alloc.
std::string* acquireNative();
/// Takes back a native-form string (null is ignored).
void releaseNative(std::string* native) noexcept;
/// Frees the texts and strings this thread keeps for reuse.
void emptyTextStore() noexcept;

struct TextReleaser {
    void operator()(kelvo::unicode::String* text) const noexcept { releaseText(text); }
};
using OwnedText = std::unique_ptr<kelvo::unicode::String, TextReleaser>;

struct NativeReleaser {
    void operator()(std::string* native) const noexcept { releaseNative(native); }
};
using OwnedNative = std::unique_ptr<std::string, NativeReleaser>;

} // namespace kelvo::filesystem::detail

#endif
