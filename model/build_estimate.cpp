#include "model/build_estimate.h"

#include "model/cage_edges.h"

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
    facts.valences.assign(cage.vertex_count(), 0);
    facts.sharp.assign(cage.corner_count(), 0);
    for (const std::uint32_t v : cage.polygon_indices) ++facts.valences[v];
    const CageEdges edges(cage);
    edges.for_each_edge([&](std::span<const std::uint32_t> sides) {
        // An edge that is not shared by two splits into one for each.
        facts.edges += sides.size() == 2 ? 1 : sides.size();
        const bool is_crease = !cage.corner_creases.empty() && cage.corner_creases[sides.front()] != 0;
        if (sides.size() == 2 && !is_crease) return;
        for (const std::uint32_t c : sides) facts.sharp[c] = 1;
        for (const std::uint32_t v : {edges.start(sides.front()), edges.end(sides.front())}) facts.valences[v] = 0;
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
    counts.corners = cage.corner_count();
    counts.has_step = !cage.is_all_quads();
    counts.quads = counts.has_step ? counts.corners : cage.polygon_count();
    counts.vertices = cage.vertex_count() + (counts.has_step ? facts.edges + cage.polygon_count() : 0);
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

std::size_t uv_map_bytes(const Counts& counts, const std::string& name, std::size_t points, bool is_linear) {
    using Map = SdsMeshMaps::SdsUvMap;
    // A seam on every edge at worst: the points of the step are at most those of the mesh and one more per UV point.
    const std::size_t vertices = counts.has_step ? counts.vertices + points : points;
    std::size_t bytes =
        sizeof(Map) + name.size() + vertices * (sizeof(GMathVec3<float>) + sizeof(SdsMeshBase::VertexInfo));
    bytes += counts.quads * (4 * sizeof(unsigned int) + 4 * sizeof(unsigned int) + 1 + sizeof(unsigned int));
    if (!is_linear) bytes += counts.quads * sizeof(SdsMeshBase::BezierPatch) + vertices * sizeof(GMathVec3<float>);
    return bytes;
}

}  // namespace

BuildEstimate estimate_build(const ControlCage& cage, const std::vector<UvSource>& further_uvs, bool has_motion,
                             const SurfaceModes& modes) {
    const bool is_linear = modes.positions == SdsMeshGeometry::InterpolationMode::all_fixed;
    const bool is_uv_linear = modes.uvs == SdsMeshMaps::InterpolationMode::all_fixed;
    const Counts counts = count(cage, is_linear);
    const std::size_t vector = sizeof(GMathVec3<float>), index = sizeof(unsigned int);
    BuildEstimate estimate;
    const auto add = [&estimate](const char* name, std::size_t bytes) {
        if (bytes == 0) return;
        estimate.arrays.emplace_back(name, bytes);
        estimate.bytes += bytes;
    };
    add("quad indices", 4 * index * counts.quads);
    add("opposite edges", 4 * index * counts.quads);
    add("edge flags", counts.quads);
    add("vertex infos", counts.vertices);
    if (counts.has_step) {
        add("step: vertex rings", sizeof(SdsMeshBase::RingSpan) * counts.vertices);
        add("step: ring edges", 4 * index * counts.quads);
        add("step: quad parents", index * counts.quads);
    }
    add("vertices", vector * counts.vertices);
    add("motion vectors", has_motion ? vector * counts.vertices : 0);
    add("interpolated vertex infos", counts.vertices);
    add("vertex fans", 4 * sizeof(SdsMeshBase::VertexLocalTopology) * counts.quads);
    add("tangent infos", sizeof(SdsMeshBase::PatchTangentInfo) * counts.quads);
    add("patches", is_linear ? 0 : sizeof(SdsMeshBase::BezierPatch) * counts.quads);
    add("limit corners", is_linear ? 0 : vector * counts.vertices);
    add("tangents", vector * counts.tangents);
    if (cage.has_uvs()) add("uv map uv", uv_map_bytes(counts, "uv", cage.uv_count(), is_uv_linear));
    for (const UvSource& uvs : further_uvs)
        add(("uv map " + uvs.name).c_str(), uv_map_bytes(counts, uvs.name, uvs.points.size() / 3, is_uv_linear));
    if (cage.has_colours()) add("color map color", 4 * counts.vertices);

    // Neighbours and edge buckets of the topology, or the fans of one UV map.
    const std::size_t pairing = counts.corners * (5 * index + 1) + cage.vertex_count() * 4 * index;
    const bool has_maps = cage.has_uvs() || !further_uvs.empty();
    const std::size_t fans = has_maps ? 4 * sizeof(SdsMeshBase::VertexLocalTopology) * counts.quads : 0;
    estimate.scratch = pairing + fans + vector * cage.vertex_count();
    return estimate;
}

std::vector<Stage> estimate_stages(const ControlCage& cage, const SurfaceModes& modes) {
    ControlCage sample;
    const std::size_t polygons = std::min(sample_polygons, cage.polygon_count());
    std::vector<std::uint32_t> places(cage.vertex_count(), unseen);
    std::size_t corner = 0;
    for (std::size_t p = 0; p < polygons; ++p) {
        // One huge polygon is sample enough.
        if (p > 0 && corner + cage.polygon_counts[p] > 8 * sample_polygons) break;
        sample.polygon_counts.push_back(cage.polygon_counts[p]);
        sample.polygon_groups.push_back(0);
        for (std::size_t k = 0; k < cage.polygon_counts[p]; ++k, ++corner) {
            std::uint32_t& place = places[cage.polygon_indices[corner]];
            if (place == unseen) {
                place = static_cast<std::uint32_t>(sample.vertex_count());
                const float* xyz = &cage.positions[3 * std::size_t{cage.polygon_indices[corner]}];
                sample.positions.insert(sample.positions.end(), xyz, xyz + 3);
            }
            sample.polygon_indices.push_back(place);
            if (!cage.corner_creases.empty()) sample.corner_creases.push_back(cage.corner_creases[corner]);
            if (cage.has_uvs()) sample.uv_indices.push_back(cage.uv_indices[corner]);
        }
    }
    if (cage.has_uvs()) sample.uv_points = cage.uv_points;
    sample.group_names = {"sample"};
    if (sample.polygon_counts.empty()) return {};

    // The first build warms up.
    { const Surface warm(sample, {}, {}, modes, nullptr); }
    const Surface built(sample, {}, {}, modes, nullptr);
    std::vector<Stage> stages = built.stages();
    const double scale = static_cast<double>(cage.corner_count()) / static_cast<double>(corner);
    for (Stage& stage : stages) stage.seconds *= scale;
    return stages;
}

std::string to_size_text(std::size_t bytes) {
    constexpr const char* units[] = {"bytes", "KiB", "MiB", "GiB", "TiB"};
    double size = static_cast<double>(bytes);
    unsigned int unit = 0;
    for (; size >= 1024.0 && unit < 4; ++unit) size /= 1024.0;
    char text[32];
    std::snprintf(text, sizeof(text), unit == 0 ? "%.0f %s" : "%.1f %s", size, units[unit]);
    return text;
}

void check_memory_limit(const BuildEstimate& estimate, std::size_t limit) {
    if (limit == 0 || estimate.peak() <= limit) return;
    throw std::runtime_error("the surface needs about " + to_size_text(estimate.peak()) + ", more than the limit of " +
                             to_size_text(limit) + "; nothing was built");
}

}  // namespace sds_model
