#pragma once

#include "model/finding.h"
#include "qn_poly/poly_edge_buckets.h"

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

namespace sds_model {

/// What becomes of an edge with 0 < sharpness < 10, which the limit surface does not know.
enum class FractionalSharpness : std::uint8_t { harden, drop };

/// The sharpness that a cage asks of the edge between two vertices; may be infinite, never NaN.
struct CreaseEdge {
    std::uint32_t a, b;
    float sharpness;
};

/// One byte per face-corner, 1 where its edge is a crease: a sharpness of 10 and above; 0 and below is none, between is
/// as `fractional` says. The last entry on an edge counts, for all its sides. `edges` is sorted.
///
/// Records tag_without_edge for every entry whose edge no polygon has, and fractional_sharpness, in which an edge
/// counts once however many entries and sides it has. describe(code, entry) gives place and detail of the first case.
std::vector<std::uint8_t> settle_creases(const PolyEdgeBuckets& edges, std::size_t corner_count,
                                         std::span<const CreaseEdge> creases, FractionalSharpness fractional,
                                         Findings& findings,
                                         const std::function<FirstCase(FindingCode code, std::size_t entry)>& describe);

}  // namespace sds_model
