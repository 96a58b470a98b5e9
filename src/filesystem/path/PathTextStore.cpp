// The per-thread store of path texts and native-form strings: small shelves of freed strings handed out again.
#include "filesystem/path/PathTextStore.h"

#include <cstddef>

namespace kelvo::filesystem {

using kelvo::unicode::String;

namespace {

// Kept small, and limited to texts of ordinary path length, so that the store
// never holds on to much memory.
constexpr std::size_t kStoredTexts = 16;
constexpr std::size_t kLargestStoredCapacity = 512;

// One shelf of strings of one kind, taken from and put back at the top.
template <typename Text>
struct Shelf {
    Text* items[kStoredTexts];
    std::size_t count;

    Text* take() { return count > 0 ? items[--count] : new Text(); }

    // @returns false when the text is not kept (shelf full or text too large).
    bool put(Text* text) noexcept
    {
        if (count == kStoredTexts || text->capacity() > kLargestStoredCapacity)
            return false;
        text->clear();
        items[count++] = text;
        return true;
    }

    void empty() noexcept
    {
        while (count > 0)
            delete items[--count];
    }
};

// Plain data, constant-initialised: readable at any point of the thread's
// life, including after the keeper below has emptied it.
struct TextStore {
    Shelf<String> texts;
    Shelf<std::string> natives;
    bool closed;
};

// The thread-local model of the store. The compiler's default for a shared
// library looks the store up through a call on every use; with TLS
// descriptors (the build's default where the compiler offers them) that call
// is a single load once the library is loaded with the program, and a late
// dlopen still works. KELVO_TEXT_STORE_INITIAL_EXEC asks for the
// initial-exec model instead: no call at all, but a library loaded late by
// dlopen then needs room in the static TLS block, which may be used up.
#if defined(KELVO_TEXT_STORE_INITIAL_EXEC) && defined(__GNUC__) && defined(__ELF__)
#define KELVO_STORE_TLS __attribute__((tls_model("initial-exec")))
#else
#define KELVO_STORE_TLS
#endif

KELVO_STORE_TLS thread_local TextStore store = {};

// Empties the store when the thread ends; from then on texts are freed
// directly.
struct TextStoreKeeper {
    TextStoreKeeper() noexcept = default;
    TextStoreKeeper(TextStoreKeeper const&) = delete;
    TextStoreKeeper& operator=(TextStoreKeeper const&) = delete;
    ~TextStoreKeeper()
    {
        detail::emptyTextStore();
        store.closed = true;
    }
};
KELVO_STORE_TLS thread_local TextStoreKeeper keeper;

template <typename Text>
void putBack(Shelf<Text>& shelf, Text* text) noexcept
{
    if (text == nullptr)
        return;
    if (!store.closed) {
        if (shelf.count == 0)
            (void)&keeper; // makes sure the store is emptied when the thread ends
        if (shelf.put(text))
            return;
    }
    delete text;
}

} // namespace

namespace detail {

String* acquireText() { return store.texts.take(); }

void releaseText(String* text) noexcept { putBack(store.texts, text); }

std::string* acquireNative() { return store.natives.take(); }

void releaseNative(std::string* native) noexcept { putBack(store.natives, native); }

void emptyTextStore() noexcept
{
    store.texts.empty();
    store.natives.empty();
}

} // namespace detail

} // namespace kelvo::filesystem
