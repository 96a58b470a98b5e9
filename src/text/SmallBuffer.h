// Internal: a scratch array kept on the stack for the short texts paths are made of, and on the heap beyond.
#ifndef KELVO_SRC_TEXT_SMALL_BUFFER_H
#define KELVO_SRC_TEXT_SMALL_BUFFER_H

#include <cstddef>
#include <memory>

namespace kelvo::unicode::detail {

template <typename T, std::size_t kInline = 256>
class SmallBuffer {
public:
    SmallBuffer() = default;
    SmallBuffer(SmallBuffer const&) = delete;
    SmallBuffer& operator=(SmallBuffer const&) = delete;

    /// Makes room for `size` elements; the previous contents are not kept.
    /// @returns the storage. @throws std::bad_alloc.
    T* reserve(std::size_t size)
    {
        if (size > capacity) {
            heap.reset(new T[size]);
            elements = heap.get();
            capacity = size;
        }
        return elements;
    }

    T* data() noexcept { return elements; }

private:
    T inlineElements[kInline];
    std::unique_ptr<T[]> heap;
    T* elements = inlineElements;
    std::size_t capacity = kInline;
};

} // namespace kelvo::unicode::detail

#endif
