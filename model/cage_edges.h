#pragma once

#include "model/control_cage.h"

#include <algorithm>
#include <cstdint>
#include <span>
#include <vector>

namespace sds_model {

/// The face-corners of a polygon mesh sorted by the undirected edge that leaves them, so that the sides of one edge are
/// neighbours.
///
/// Built in time linear in corners + vertices for any input, by two counting sorts. Holds 8 bytes a corner and 4 a
/// vertex, and refers to the cage's indices: they must outlive it unchanged. Indices must be < the vertex count. Reads
/// are thread-safe.
class CageEdges {
public:
    CageEdges(std::size_t vertex_count, std::span<const std::uint32_t> polygon_counts,
              std::span<const std::uint32_t> polygon_indices);
    explicit CageEdges(const ControlCage& cage)
        : CageEdges(cage.vertex_count(), cage.polygon_counts, cage.polygon_indices) {}

    std::uint32_t start(std::uint32_t corner) const {
        return starts_[corner];
    }  ///< vertex where the edge of `corner` begins
    std::uint32_t end(std::uint32_t corner) const { return ends_[corner]; }  ///< vertex where it ends

    /// Face-corners whose edge joins vertices a and b, in either direction, ascending; empty when no polygon has that
    /// edge.
    std::span<const std::uint32_t> sides(std::uint32_t a, std::uint32_t b) const;

    /// Calls visit(span of face-corners, ascending) once per undirected edge, ordered by (lower vertex, higher vertex).
    template <class Visit>
    void for_each_edge(Visit&& visit) const {
        const std::span<const std::uint32_t> all(corners_);
        for (std::size_t first = 0; first < all.size();) {
            std::size_t last = first + 1;
            while (last < all.size() && low(all[last]) == low(all[first]) && high(all[last]) == high(all[first]))
                ++last;
            visit(all.subspan(first, last - first));
            first = last;
        }
    }

private:
    std::uint32_t low(std::uint32_t corner) const { return std::min(starts_[corner], ends_[corner]); }
    std::uint32_t high(std::uint32_t corner) const { return std::max(starts_[corner], ends_[corner]); }

    std::span<const std::uint32_t> starts_;
    std::vector<std::uint32_t> ends_;
    std::vector<std::uint32_t> corners_;      // by (lower vertex, higher vertex, corner)
    std::vector<std::uint32_t> low_offsets_;  // first entry of corners_ per lower vertex
};

}  // namespace sds_model
