// kelvo::parsing::TokenIterator: a generic iterator over the tokens a functor extracts from a range.
#ifndef KELVO_TEXT_TOKEN_ITERATOR_H
#define KELVO_TEXT_TOKEN_ITERATOR_H

#include <cstddef>
#include <functional>
#include <iterator>
#include <utility>

namespace kelvo::parsing {

/// The result of one extraction step.
template <typename T, typename It>
struct TokenInfo {
    T token{};         ///< the element just extracted
    It next{};         ///< where the following extraction starts
    bool last = false; ///< true when this element is the last one
};

/// Iterates over the tokens of [begin, end) that `extractor` cuts out, one
/// call per step. Each copy carries its own copy of the extractor and of any
/// state inside it. `T` needs a default constructor, copy assignment and
/// `empty()`.
template <typename T, typename It>
struct TokenIterator {
    using iterator_category = std::input_iterator_tag;
    using value_type = T;
    using difference_type = std::ptrdiff_t;
    using pointer = T const*;
    using reference = T const&;
    using Extractor = std::function<TokenInfo<T, It>(It, It)>;

    It begin{};
    It end{};
    It current{};
    Extractor extractor;
    TokenInfo<T, It> info;

    TokenIterator() = default;

    /// Positions on the first token of [first, last), if there is one.
    TokenIterator(It first, It last, Extractor extract)
        : begin(first), end(last), current(first), extractor(std::move(extract))
    {
        info.next = first;
        info.last = (first == last);
        if (first != last)
            ++*this;
    }

    /// Moves to the next token; past the last one the iterator equals the
    /// end iterator, and advancing it further leaves it there.
    /// @throws std::bad_function_call when the extractor is empty.
    TokenIterator& operator++()
    {
        if (info.last) {
            info.token = T();
            current = end;
            return *this;
        }
        current = info.next;
        TokenInfo<T, It> extracted = extractor(info.next, end);
        info.token = std::move(extracted.token);
        info.last = extracted.last;
        info.next = extracted.next;
        return *this;
    }

    TokenIterator operator++(int)
    {
        TokenIterator previous(*this);
        ++*this;
        return previous;
    }

    T const& operator*() const noexcept { return info.token; }
    T const* operator->() const noexcept { return &info.token; }

    /// Two iterators are equal when their key positions are: the end of the
    /// range once the last token has been consumed, else the current
    /// position, moved back one step when it stands at the end so that a
    /// token extracted there is still visited before the end compares equal.
    friend bool operator==(TokenIterator const& a, TokenIterator const& b)
    {
        return a.key() == b.key();
    }
    friend bool operator!=(TokenIterator const& a, TokenIterator const& b)
    {
        return !(a == b);
    }

private:
    It key() const
    {
        if (info.last && info.token.empty())
            return end;
        if (current == end && current != begin)
            return std::prev(current);
        return current;
    }
};

} // namespace kelvo::parsing

#endif
