#include "oracles/opensubdiv_refiner.h"

#include <opensubdiv/far/topologyDescriptor.h>

#include <algorithm>
#include <stdexcept>

namespace sds_test {

namespace Far = OpenSubdiv::Far;
namespace Sdc = OpenSubdiv::Sdc;

namespace {

constexpr float infinitely_sharp = 10.0f;

std::vector<float> to_sharpness(std::span<const unsigned char> corner_creases) {
    std::vector<float> sharpness;
    sharpness.reserve(corner_creases.size());
    for (const unsigned char crease : corner_creases) sharpness.push_back(crease != 0 ? infinitely_sharp : 0.0f);
    return sharpness;
}

}  // namespace

OpenSubdivCage::OpenSubdivCage(std::span<const unsigned int> polygon_counts,
                               std::span<const unsigned int> polygon_indices,
                               std::span<const unsigned char> corner_creases,
                               std::span<const GMathVec3<float>> vertices)
    : OpenSubdivCage(polygon_counts, polygon_indices, to_sharpness(corner_creases), vertices) {}

OpenSubdivCage::OpenSubdivCage(std::span<const unsigned int> polygon_counts,
                               std::span<const unsigned int> polygon_indices, std::span<const float> edge_sharpness,
                               std::span<const GMathVec3<float>> vertices)
    : counts(polygon_counts.begin(), polygon_counts.end()),
      indices(polygon_indices.begin(), polygon_indices.end()),
      positions(vertices.begin(), vertices.end()) {
    struct Crease {
        std::pair<int, int> ends;
        float sharpness;
    };
    std::vector<Crease> creases;
    for (size_t p = 0, first = 0; p < counts.size(); first += static_cast<size_t>(counts[p++]))
        for (size_t k = 0, n = static_cast<size_t>(counts[p]); k < n; ++k)
            if (edge_sharpness[first + k] > 0.0f)
                creases.push_back(
                    {std::minmax(indices[first + k], indices[first + (k + 1) % n]), edge_sharpness[first + k]});
    std::sort(creases.begin(), creases.end(), [](const Crease& a, const Crease& b) {
        return a.ends != b.ends ? a.ends < b.ends : a.sharpness > b.sharpness;
    });
    for (const Crease& crease : creases) {
        const size_t size = crease_pairs.size();
        if (size >= 2 && crease_pairs[size - 2] == crease.ends.first && crease_pairs[size - 1] == crease.ends.second)
            continue;
        crease_pairs.insert(crease_pairs.end(), {crease.ends.first, crease.ends.second});
        sharpness.push_back(crease.sharpness);
    }
}

std::unique_ptr<Far::TopologyRefiner> make_opensubdiv_refiner(const OpenSubdivCage& cage, OpenSubdivBoundary boundary,
                                                              int uv_rule, bool chaikin, bool smooth_triangles) {
    static constexpr Sdc::Options::VtxBoundaryInterpolation boundaries[] = {Sdc::Options::VTX_BOUNDARY_NONE,
                                                                            Sdc::Options::VTX_BOUNDARY_EDGE_ONLY,
                                                                            Sdc::Options::VTX_BOUNDARY_EDGE_AND_CORNER};
    Sdc::Options options;
    options.SetVtxBoundaryInterpolation(boundaries[static_cast<unsigned int>(boundary)]);
    options.SetFVarLinearInterpolation(static_cast<Sdc::Options::FVarLinearInterpolation>(uv_rule));
    if (chaikin) options.SetCreasingMethod(Sdc::Options::CREASE_CHAIKIN);
    if (smooth_triangles) options.SetTriangleSubdivision(Sdc::Options::TRI_SUB_SMOOTH);

    Far::TopologyDescriptor descriptor;
    descriptor.numVertices = static_cast<int>(cage.positions.size());
    descriptor.numFaces = static_cast<int>(cage.counts.size());
    descriptor.numVertsPerFace = cage.counts.data();
    descriptor.vertIndicesPerFace = cage.indices.data();
    descriptor.numCreases = static_cast<int>(cage.sharpness.size());
    descriptor.creaseVertexIndexPairs = cage.crease_pairs.data();
    descriptor.creaseWeights = cage.sharpness.data();
    descriptor.numCorners = static_cast<int>(cage.corners.size());
    descriptor.cornerVertexIndices = cage.corners.data();
    descriptor.cornerWeights = cage.corner_sharpness.data();
    descriptor.numHoles = static_cast<int>(cage.holes.size());
    descriptor.holeIndices = cage.holes.data();
    Far::TopologyDescriptor::FVarChannel channel;
    channel.numValues = static_cast<int>(cage.uv_points.size());
    channel.valueIndices = cage.uv_indices.data();
    if (cage.has_uvs()) {
        descriptor.numFVarChannels = 1;
        descriptor.fvarChannels = &channel;
    }
    using Factory = Far::TopologyRefinerFactory<Far::TopologyDescriptor>;
    std::unique_ptr<Far::TopologyRefiner> refiner(
        Factory::Create(descriptor, Factory::Options(Sdc::SCHEME_CATMARK, options)));
    if (!refiner) throw std::runtime_error("OpenSubdiv refuses the cage");
    return refiner;
}

}  // namespace sds_test
