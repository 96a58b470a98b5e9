// A merge sort that stays inside its range for any deterministic ordering, even one that is not a strict weak ordering.
#ifndef KELVO_SRC_FILESYSTEM_SAFE_SORT_H
#define KELVO_SRC_FILESYSTEM_SAFE_SORT_H

#include <cstddef>
#include <utility>
#include <vector>

namespace kelvo::filesystem::detail {

/// Sorts `items` by `less`. Every loop is bounded by positions, never by what
/// `less` answers, so an ordering that breaks transitivity (as the tolerant
/// path ordering does across letter case) yields some permutation of the
/// items and never reads or writes outside them. For a strict weak ordering
/// the result is sorted as by `std::sort`, and stable besides.
template <typename T, typename Less>
void safeSort(std::vector<T>& items, Less less)
{
    std::size_t const count = items.size();
    constexpr std::size_t kRun = 16;

    // Insertion sort of short runs, with the position checked before `less`.
    for (std::size_t start = 0; start < count; start += kRun) {
        std::size_t const end = start + kRun < count ? start + kRun : count;
        for (std::size_t i = start + 1; i < end; ++i) {
            std::size_t j = i;
            while (j > start && less(items[j], items[j - 1])) {
                std::swap(items[j], items[j - 1]);
                --j;
            }
        }
    }
    if (count <= kRun)
        return;

    // Bottom-up merges of neighbouring runs through one buffer.
    std::vector<T> buffer;
    buffer.reserve(count);
    for (std::size_t width = kRun; width < count; width *= 2) {
        buffer.clear();
        for (std::size_t left = 0; left < count; left += 2 * width) {
            std::size_t const middle = left + width < count ? left + width : count;
            std::size_t const right = middle + width < count ? middle + width : count;
            std::size_t i = left;
            std::size_t j = middle;
            while (i < middle && j < right) {
                if (less(items[j], items[i]))
                    buffer.push_back(std::move(items[j++]));
                else
                    buffer.push_back(std::move(items[i++]));
            }
            while (i < middle)
                buffer.push_back(std::move(items[i++]));
            while (j < right)
                buffer.push_back(std::move(items[j++]));
        }
        items.swap(buffer);
    }
}

} // namespace kelvo::filesystem::detail

#endif
