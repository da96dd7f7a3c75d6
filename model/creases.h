#pragma once

#include "model/finding.h"
#include "qn_poly/poly_edge_buckets.h"

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

namespace sds_model {

/// What becomes of a sharpness s with 0 < s < 10: only refined surfaces can keep it.
enum class FractionalSharpness : std::uint8_t { harden, drop, exact };

/// The sharpness that a cage asks of the edge between two vertices; may be infinite, never NaN.
struct CreaseEdge {
    std::uint32_t a, b;
    float sharpness;
};

/// The sharpness that a cage asks of a vertex; may be infinite, never NaN.
struct SharpCorner {
    std::uint32_t vertex;
    float sharpness;
};

/// Per face-corner, of the edge that leaves it.
struct SettledCreases {
    std::vector<std::uint8_t> flags;  ///< 1 where it is a crease: a sharpness of 10 and above
    std::vector<float> sharpness;     ///< a fractional one that is kept, 0 elsewhere; empty without any
};

/// Gives place and detail of the first case of a finding.
using DescribeEntry = std::function<FirstCase(FindingCode code, std::size_t entry)>;

/// A sharpness of 10 and above makes a crease, 0 and below none, between is as `fractional` says. The last entry on an
/// edge counts, for all its sides. `edges` is sorted.
///
/// Records tag_without_edge for every entry whose edge no polygon has, and fractional_sharpness, in which an edge
/// counts once however many entries and sides it has, unless it is kept.
SettledCreases settle_creases(const PolyEdgeBuckets& edges, std::size_t corner_count,
                              std::span<const CreaseEdge> creases, FractionalSharpness fractional, Findings& findings,
                              const DescribeEntry& describe);

/// The sharpness of every vertex, or nothing where all are smooth; the last entry of a vertex counts. Records
/// fractional_corner for entries that are hardened or dropped. Vertices are in range.
std::vector<float> settle_corners(std::size_t vertex_count, std::span<const SharpCorner> corners,
                                  FractionalSharpness fractional, Findings& findings, const DescribeEntry& describe);

}  // namespace sds_model
