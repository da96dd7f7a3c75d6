#include "model/build_estimate.h"

#include "model/array_view.h"
#include "qn_poly/poly_edge_buckets.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

namespace sds_model {

namespace {

constexpr std::uint32_t unseen = 0xFFFFFFFF;
constexpr std::size_t sample_polygons = 2000;

/// Counts that the sizes of all arrays follow from.
struct Counts {
    std::size_t corners, quads, vertices;  // quads and vertices after the step
    std::size_t tangents = 0;              // vectors
    bool has_step;
};

struct EdgeFacts {
    std::size_t edges = 0;
    std::vector<std::uint32_t> valences;  // polygons per vertex; 0 at borders and creases
    std::vector<std::uint8_t> sharp;      // per face-corner: its edge is a border or crease
};

EdgeFacts find_edges(const ControlCage& cage) {
    EdgeFacts facts;
    facts.valences.assign(cage.get_vertex_count(), 0);
    facts.sharp.assign(cage.get_corner_count(), 1);
    for (const std::uint32_t v : cage.polygon_indices) ++facts.valences[v];
    PolyEdgeBuckets edges(cage.polygon_indices.data(), view_of(cage.polygon_counts),
                          static_cast<unsigned int>(cage.get_vertex_count()));
    edges.sort();
    // An edge that is not shared by two splits into one for each.
    facts.edges = cage.get_corner_count();
    edges.for_each_edge([&](unsigned int low, std::span<const PolyHalfEdge> sides) {
        facts.edges -= sides.size() == 2 ? 1 : 0;
        const bool is_crease = !cage.corner_creases.empty() && cage.corner_creases[sides.front().corner] != 0;
        if (sides.size() == 2 && !is_crease)
            for (const PolyHalfEdge& side : sides) facts.sharp[side.corner] = 0;
        else
            facts.valences[low] = facts.valences[sides.front().high] = 0;
    });
    return facts;
}

/// Tangent vectors of a quad whose corners are irregular by these bits: two per corner and per edge at one.
std::size_t count_tangents(unsigned int irregular) {
    const unsigned int edges = irregular | irregular >> 1 | (irregular & 1u) << 3;
    return 2u * static_cast<unsigned int>(__builtin_popcount(irregular) + __builtin_popcount(edges & 15u));
}

Counts count(const ControlCage& cage, bool is_linear) {
    const EdgeFacts facts = find_edges(cage);
    Counts counts{};
    counts.corners = cage.get_corner_count();
    counts.has_step = !cage.is_all_quads();
    counts.quads = counts.has_step ? counts.corners : cage.get_polygon_count();
    counts.vertices = cage.get_vertex_count() + (counts.has_step ? facts.edges + cage.get_polygon_count() : 0);
    if (is_linear) return counts;
    std::size_t corner = 0;
    for (const std::uint32_t n : cage.polygon_counts) {
        const auto bit = [&](std::size_t k, unsigned int place) {
            return facts.valences[cage.polygon_indices[corner + k]] != 4 ? 1u << place : 0u;
        };
        if (counts.has_step) {
            // Quad k: control vertex, edge point ahead, face point, edge point behind.
            for (std::size_t k = 0; k < n; ++k) {
                const unsigned int edge_points =
                    (facts.sharp[corner + k] != 0 ? 2u : 0u) | (facts.sharp[corner + (k + n - 1) % n] != 0 ? 8u : 0u);
                counts.tangents += count_tangents(bit(k, 0) | edge_points | (n != 4 ? 4u : 0u));
            }
        } else {
            counts.tangents += count_tangents(bit(0, 0) | bit(1, 1) | bit(2, 2) | bit(3, 3));
        }
        corner += n;
    }
    return counts;
}

/// Numbers what is used of an array of triples anew, in the order of use.
class Subset {
public:
    Subset(std::span<const float> from, std::vector<float>& to)
        : m_from(from), m_to(to), m_places(from.size() / 3, unseen) {}

    std::uint32_t operator()(std::uint32_t index) {
        std::uint32_t& place = m_places[index];
        if (place == unseen) {
            place = static_cast<std::uint32_t>(m_to.size() / 3);
            const auto xyz = m_from.subspan(3 * std::size_t{index}, 3);
            m_to.insert(m_to.end(), xyz.begin(), xyz.end());
        }
        return place;
    }

private:
    std::span<const float> m_from;
    std::vector<float>& m_to;
    std::vector<std::uint32_t> m_places;
};

template <class T>
void copy_item(const std::vector<T>& from, std::size_t item, std::vector<T>& to) {
    if (!from.empty()) to.push_back(from[item]);
}

/// The first polygons of a cage, and its first n-gon, so that the sample takes a step where the cage does.
struct Sample {
    Sample(const ControlCage& from, const std::vector<UvSource>& from_uvs) {
        Subset vertices(from.positions, cage.positions), points(from.uv_points, cage.uv_points);
        std::vector<Subset> further;
        for (const UvSource& source : from_uvs) uvs.push_back({source.name, {}, {}});
        for (std::size_t m = 0; m < uvs.size(); ++m) further.emplace_back(from_uvs[m].points, uvs[m].points);
        const auto mapped = [](std::uint32_t point) { return point == unmapped_corner ? 0 : point; };
        bool needs_ngon = !from.is_all_quads();
        std::size_t first = 0;
        for (std::size_t p = 0; p < from.get_polygon_count(); first += from.polygon_counts[p++]) {
            const std::uint32_t count = from.polygon_counts[p];
            const bool is_full = p >= sample_polygons || (p > 0 && first + count > 8 * sample_polygons);
            if (is_full && !needs_ngon) break;
            if (is_full && count == 4) continue;
            needs_ngon = needs_ngon && count == 4;
            cage.polygon_counts.push_back(count);
            cage.polygon_groups.push_back(0);
            copy_item(from.holes, p, cage.holes);
            for (std::size_t c = first; c < first + count; ++c) {
                const std::uint32_t vertex = from.polygon_indices[c];
                const std::size_t known_vertices = cage.get_vertex_count();
                cage.polygon_indices.push_back(vertices(vertex));
                if (cage.get_vertex_count() > known_vertices)
                    copy_item(from.vertex_sharpness, vertex, cage.vertex_sharpness);
                copy_item(from.corner_creases, c, cage.corner_creases);
                copy_item(from.corner_sharpness, c, cage.corner_sharpness);
                if (from.has_uvs()) cage.uv_indices.push_back(points(mapped(from.uv_indices[c])));
                for (std::size_t m = 0; m < uvs.size(); ++m)
                    uvs[m].indices.push_back(further[m](mapped(from_uvs[m].indices[c])));
            }
        }
        if (from.has_colors()) cage.vertex_colors.assign(4 * cage.get_vertex_count(), 255);
        cage.group_names = {"sample"};
    }

    ControlCage cage;
    std::vector<UvSource> uvs;
};

}  // namespace

BuildEstimate estimate_build(const ControlCage& cage, const std::vector<UvSource>& further_uvs, bool has_motion,
                             const SurfaceModes& modes) {
    const Counts counts = count(cage, modes.positions == SdsMeshGeometry::InterpolationMode::all_fixed);
    const Sample sample(cage, further_uvs);
    const std::vector<float> motion(has_motion ? sample.cage.positions.size() : 0);
    const Surface built(sample.cage, sample.uvs, motion, modes, nullptr);

    BuildEstimate estimate;
    std::vector<std::size_t> points;  // per UV map
    if (cage.has_uvs()) points.push_back(cage.get_uv_count());
    for (const UvSource& uvs : further_uvs) points.push_back(uvs.points.size() / 3);
    auto map_points = points.begin();
    const double share = static_cast<double>(counts.corners) /
                         static_cast<double>(std::max<std::size_t>(1, sample.cage.get_corner_count()));
    std::size_t refined = 0;
    for (ArraySize& size : array_sizes(built)) {
        size.bytes = size.fixed + size.per_quad * counts.quads + size.per_vertex * counts.vertices +
                     size.per_tangent * counts.tangents;
        // A seam on every edge at worst: the step makes at most the points of the mesh and one more per UV point.
        if (size.per_uv_point != 0)
            size.bytes += size.per_uv_point * (*map_points++ + (counts.has_step ? counts.vertices : 0));
        if (size.is_refined) {
            size.bytes = static_cast<std::size_t>(static_cast<double>(size.fixed) * share);
            refined += size.bytes;
        }
        estimate.bytes += size.bytes;
        if (size.bytes != 0) estimate.arrays.push_back(std::move(size));
    }

    // Neighbors and edge buckets of the topology, or the fans of one UV map.
    const std::size_t vector = sizeof(GMathVec3<float>), index = sizeof(unsigned int);
    const std::size_t pairing = counts.corners * (5 * index + 1) + cage.get_vertex_count() * 4 * index;
    const std::size_t fans = points.empty() ? 0 : 4 * sizeof(SdsMeshBase::VertexLocalTopology) * counts.quads;
    // The levels of a refinement and the positions on them take about as much again as what is made of them.
    estimate.scratch = pairing + fans + vector * cage.get_vertex_count() + refined;
    return estimate;
}

std::vector<Stage> estimate_stages(const ControlCage& cage, const SurfaceModes& modes) {
    const Sample sample(cage, {});
    if (sample.cage.polygon_counts.empty()) return {};

    // The first build warms up.
    { const Surface warm(sample.cage, {}, {}, modes, nullptr); }
    const Surface built(sample.cage, {}, {}, modes, nullptr);
    std::vector<Stage> stages = built.get_stages();
    const double scale =
        static_cast<double>(cage.get_corner_count()) / static_cast<double>(sample.cage.get_corner_count());
    for (Stage& stage : stages) stage.seconds *= scale;
    return stages;
}

}  // namespace sds_model
