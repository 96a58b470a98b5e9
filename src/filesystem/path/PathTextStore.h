// Internal: the per-thread store of path texts and native-form strings kept for reuse.
#ifndef KELVO_SRC_FILESYSTEM_PATH_TEXT_STORE_H
#define KELVO_SRC_FILESYSTEM_PATH_TEXT_STORE_H

#include <kelvo/text/String.h>

#include <cstddef>
#include <memory>
#include <string>

namespace kelvo::filesystem::detail {

/// Texts of paths come from and go back to a small per-thread store, so that
/// the short-lived paths of everyday work (a file name, a parent, a join, an
/// element) cost no allocation once a thread has made a few.
///
/// Kept small, and limited to texts of ordinary path length, so that the
/// store never holds on to much memory.
constexpr std::size_t kStoredTexts = 16;
constexpr std::size_t kLargestStoredCapacity = 512;

/// One shelf of strings of one kind, taken from and put back at the top.
template <typename Text>
struct TextShelf {
    Text* items[kStoredTexts];
    std::size_t count;
};

/// Plain data, constant-initialised: readable at any point of the thread's
/// life, including after the thread's keeper has emptied it.
struct TextStore {
    TextShelf<kelvo::unicode::String> texts;
    TextShelf<std::string> natives;
    /// Set once the thread's keeper, which empties the store when the thread
    /// ends, is in place; cleared again when it has done so.
    bool open;
    /// Set when the thread's keeper has emptied the store: from then on texts
    /// are freed directly.
    bool closed;
};

/// The ways to a text: taken from the shelf, or made new when it is empty
/// (@throws std::bad_alloc); given back, or freed when the shelf cannot keep
/// it. The inline forms below call these only when the shelf cannot serve.
kelvo::unicode::String* acquireTextSlow();
void releaseTextSlow(kelvo::unicode::String* text) noexcept;
std::string* acquireNativeSlow();
void releaseNativeSlow(std::string* native) noexcept;
/// Frees the texts and strings this thread keeps for reuse.
void emptyTextStore() noexcept;

// Where the compiler offers plain thread-local data (no construction, no
// destruction), the shelves are reached inline from every path operation:
// taking and giving back a text is then a few instructions and no call. The
// thread-local model is chosen as in PathTextStore.cpp.
#if defined(__GNUC__) && defined(__ELF__)
#define KELVO_TEXT_STORE_INLINE 1
#if defined(KELVO_TEXT_STORE_INITIAL_EXEC)
#define KELVO_STORE_TLS_MODEL __attribute__((tls_model("initial-exec")))
#else
#define KELVO_STORE_TLS_MODEL
#endif
extern __thread TextStore textStore KELVO_STORE_TLS_MODEL;

/// @returns this thread's store. Its address is looked up once per use here
/// and kept in a register: left to itself, the compiler looks it up again
/// (a call, with TLS descriptors) after every write through it.
inline TextStore& localStore() noexcept
{
    TextStore* store = &textStore;
    __asm__("" : "+r"(store));
    return *store;
}

template <typename Text>
inline bool keeps(TextStore const& store, TextShelf<Text> const& shelf, Text const* text) noexcept
{
    return store.open && shelf.count < kStoredTexts && text->capacity() <= kLargestStoredCapacity;
}

/// @returns an empty text, recycled when one is at hand. @throws std::bad_alloc.
inline kelvo::unicode::String* acquireText()
{
    TextStore& store = localStore();
    if (store.texts.count > 0)
        return store.texts.items[--store.texts.count];
    return acquireTextSlow();
}

template <typename Text>
inline void putBack(TextStore& store, TextShelf<Text>& shelf, Text* text, void (*slow)(Text*) noexcept) noexcept
{
    if (text == nullptr)
        return;
    if (keeps(store, shelf, text)) {
        text->clear();
        shelf.items[shelf.count++] = text;
        return;
    }
    slow(text);
}

/// Takes back a text that no path holds any longer (null is ignored).
inline void releaseText(kelvo::unicode::String* text) noexcept
{
    TextStore& store = localStore();
    putBack(store, store.texts, text, releaseTextSlow);
}

/// The same for the strings that hold native forms.
/// @returns an empty string. @throws std::bad_alloc.
inline std::string* acquireNative()
{
    TextStore& store = localStore();
    if (store.natives.count > 0)
        return store.natives.items[--store.natives.count];
    return acquireNativeSlow();
}

/// Takes back a native-form string (null is ignored).
inline void releaseNative(std::string* native) noexcept
{
    TextStore& store = localStore();
    putBack(store, store.natives, native, releaseNativeSlow);
}

/// Takes back a path's text and native form (either may be null) with one
/// look at the thread's store.
inline void releaseTextAndNative(kelvo::unicode::String* text, std::string* native) noexcept
{
    TextStore& store = localStore();
    putBack(store, store.texts, text, releaseTextSlow);
    putBack(store, store.natives, native, releaseNativeSlow);
}

/// @returns true, with an empty text and an empty native-form string taken
/// from the thread's store, when it holds both; false, with nothing taken,
/// when it does not.
inline bool takeTextAndNative(kelvo::unicode::String*& text, std::string*& native) noexcept
{
    TextStore& store = localStore();
    if (store.texts.count == 0 || store.natives.count == 0)
        return false;
    text = store.texts.items[--store.texts.count];
    native = store.natives.items[--store.natives.count];
    return true;
}
#else
inline kelvo::unicode::String* acquireText() { return acquireTextSlow(); }
inline void releaseText(kelvo::unicode::String* text) noexcept { releaseTextSlow(text); }
inline std::string* acquireNative() { return acquireNativeSlow(); }
inline void releaseNative(std::string* native) noexcept { releaseNativeSlow(native); }
inline void releaseTextAndNative(kelvo::unicode::String* text, std::string* native) noexcept
{
    releaseTextSlow(text);
    releaseNativeSlow(native);
}
inline bool takeTextAndNative(kelvo::unicode::String*&, std::string*&) noexcept { return false; }
#endif

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
