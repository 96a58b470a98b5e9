// The per-thread store of path texts and native-form strings: small shelves of freed strings handed out again.
#include "filesystem/path/PathTextStore.h"

#include <cstddef>

namespace kelvo::filesystem {

using kelvo::unicode::String;

// The thread-local model of the store. The compiler's default for a shared
// library looks the store up through a call on every use; with TLS
// descriptors (the build's default where the compiler offers them) that call
// is a single load once the library is loaded with the program, and a late
// dlopen still works. KELVO_TEXT_STORE_INITIAL_EXEC asks for the
// initial-exec model instead: no call at all, but a library loaded late by
// dlopen then needs room in the static TLS block, which may be used up.
#if defined(KELVO_TEXT_STORE_INLINE)
__thread detail::TextStore detail::textStore KELVO_STORE_TLS_MODEL = {};
#define KELVO_STORE detail::textStore
#else
namespace {
thread_local detail::TextStore store = {};
} // namespace
#define KELVO_STORE store
#endif

namespace {

// Empties the store when the thread ends; from then on texts are freed
// directly.
struct TextStoreKeeper {
    TextStoreKeeper() noexcept = default;
    TextStoreKeeper(TextStoreKeeper const&) = delete;
    TextStoreKeeper& operator=(TextStoreKeeper const&) = delete;
    ~TextStoreKeeper()
    {
        detail::emptyTextStore();
        KELVO_STORE.open = false;
        KELVO_STORE.closed = true;
    }
};
thread_local TextStoreKeeper keeper;

template <typename Text>
Text* take(detail::TextShelf<Text>& shelf)
{
    return shelf.count > 0 ? shelf.items[--shelf.count] : new Text();
}

template <typename Text>
void shelve(detail::TextShelf<Text>& shelf, Text* text) noexcept
{
    if (text == nullptr)
        return;
    detail::TextStore& store = KELVO_STORE;
    if (!store.closed) {
        if (!store.open) {
            (void)&keeper; // makes sure the store is emptied when the thread ends
            store.open = true;
        }
        if (shelf.count < detail::kStoredTexts && text->capacity() <= detail::kLargestStoredCapacity) {
            text->clear();
            shelf.items[shelf.count++] = text;
            return;
        }
    }
    delete text;
}

template <typename Text>
void empty(detail::TextShelf<Text>& shelf) noexcept
{
    while (shelf.count > 0)
        delete shelf.items[--shelf.count];
}

} // namespace

namespace detail {

String* acquireTextSlow() { return take(KELVO_STORE.texts); }

void releaseTextSlow(String* text) noexcept { shelve(KELVO_STORE.texts, text); }

std::string* acquireNativeSlow() { return take(KELVO_STORE.natives); }

void releaseNativeSlow(std::string* native) noexcept { shelve(KELVO_STORE.natives, native); }

void emptyTextStore() noexcept
{
    empty(KELVO_STORE.texts);
    empty(KELVO_STORE.natives);
}

} // namespace detail

} // namespace kelvo::filesystem
