#include "model/cage_edges.h"

namespace sds_model {

namespace {

/// Stable counting sort of `items` by key(item) < key_count. Returns the first position of every key and the end.
template <class Key>
std::vector<std::uint32_t> counting_sort(std::vector<std::uint32_t>& items, std::size_t key_count, Key&& key) {
    std::vector<std::uint32_t> offsets(key_count + 1, 0);
    for (const std::uint32_t item : items) ++offsets[key(item) + 1];
    for (std::size_t k = 0; k < key_count; ++k) offsets[k + 1] += offsets[k];
    std::vector<std::uint32_t> next(offsets.begin(), offsets.end() - 1);
    std::vector<std::uint32_t> sorted(items.size());
    for (const std::uint32_t item : items) sorted[next[key(item)]++] = item;
    items.swap(sorted);
    return offsets;
}

}  // namespace

CageEdges::CageEdges(std::size_t vertex_count, std::span<const std::uint32_t> polygon_counts,
                     std::span<const std::uint32_t> polygon_indices)
    : starts_(polygon_indices), ends_(polygon_indices.size()), corners_(polygon_indices.size()) {
    std::uint32_t first = 0;
    for (const std::uint32_t count : polygon_counts) {
        for (std::uint32_t k = 0; k < count; ++k) {
            ends_[first + k] = starts_[first + (k + 1 == count ? 0 : k + 1)];
            corners_[first + k] = first + k;
        }
        first += count;
    }
    counting_sort(corners_, vertex_count, [this](std::uint32_t c) { return high(c); });
    low_offsets_ = counting_sort(corners_, vertex_count, [this](std::uint32_t c) { return low(c); });
}

std::span<const std::uint32_t> CageEdges::sides(std::uint32_t a, std::uint32_t b) const {
    const auto [lower, higher] = std::minmax(a, b);
    if (static_cast<std::size_t>(higher) + 1 >= low_offsets_.size()) return {};
    const auto begin = corners_.begin() + low_offsets_[lower];
    const auto end = corners_.begin() + low_offsets_[static_cast<std::size_t>(lower) + 1];
    const auto first =
        std::lower_bound(begin, end, higher, [this](std::uint32_t c, std::uint32_t v) { return high(c) < v; });
    const auto last =
        std::upper_bound(first, end, higher, [this](std::uint32_t v, std::uint32_t c) { return v < high(c); });
    return {first, last};
}

}  // namespace sds_model
