#include "bench/support/opensubdiv_surface.h"

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wshadow"
#pragma GCC diagnostic ignored "-Wextra"
#include <opensubdiv/far/patchMap.h>
#include <opensubdiv/far/patchTableFactory.h>
#include <opensubdiv/far/primvarRefiner.h>
#include <opensubdiv/far/ptexIndices.h>
#include <opensubdiv/far/stencilTable.h>
#include <opensubdiv/far/stencilTableFactory.h>
#include <opensubdiv/far/topologyDescriptor.h>
#pragma GCC diagnostic pop

#include <algorithm>
#include <stdexcept>

namespace sds_bench {

namespace {

namespace Far = OpenSubdiv::Far;
namespace Sdc = OpenSubdiv::Sdc;

constexpr unsigned int adaptive_level = 2;
constexpr float infinitely_sharp = 10.0f;

// What the library asks of a value.
struct Value {
    Vec3f v;
    void Clear() { v = {0, 0, 0}; }
    void AddWithWeight(const Value& other, float weight) { v += other.v * weight; }
};

// Where a quad lies: the parametric face, and which quarter of it, -1 for all.
struct Place {
    int face;
    int quarter;
};

std::unique_ptr<Far::TopologyRefiner> make_refiner(const OpenSubdivCage& cage) {
    Far::TopologyDescriptor descriptor;
    descriptor.numVertices = static_cast<int>(cage.positions.size());
    descriptor.numFaces = static_cast<int>(cage.counts.size());
    descriptor.numVertsPerFace = cage.counts.data();
    descriptor.vertIndicesPerFace = cage.indices.data();
    descriptor.numCreases = static_cast<int>(cage.sharpness.size());
    descriptor.creaseVertexIndexPairs = cage.crease_pairs.data();
    descriptor.creaseWeights = cage.sharpness.data();
    Sdc::Options options;
    options.SetVtxBoundaryInterpolation(Sdc::Options::VTX_BOUNDARY_EDGE_AND_CORNER);
    using Factory = Far::TopologyRefinerFactory<Far::TopologyDescriptor>;
    std::unique_ptr<Far::TopologyRefiner> refiner(
        Factory::Create(descriptor, Factory::Options(Sdc::SCHEME_CATMARK, options)));
    if (!refiner) throw std::runtime_error("OpenSubdiv refuses the cage");
    return refiner;
}

}  // namespace

OpenSubdivCage::OpenSubdivCage(const HostCage& cage)
    : counts(cage.counts.begin(), cage.counts.end()),
      indices(cage.indices.begin(), cage.indices.end()),
      positions(cage.positions.begin(), cage.positions.end()) {
    std::vector<std::pair<int, int>> edges;
    for (size_t p = 0, first = 0; p < counts.size(); first += static_cast<size_t>(counts[p++]))
        for (size_t k = 0, n = static_cast<size_t>(counts[p]); k < n; ++k)
            if (cage.creases[first + k] != 0)
                edges.push_back(std::minmax(indices[first + k], indices[first + (k + 1) % n]));
    std::sort(edges.begin(), edges.end());
    edges.erase(std::unique(edges.begin(), edges.end()), edges.end());
    for (const auto& [a, b] : edges) crease_pairs.insert(crease_pairs.end(), {a, b});
    sharpness.assign(edges.size(), infinitely_sharp);
}

struct OpenSubdivSurface::Impl {
    const OpenSubdivCage* cage;
    std::unique_ptr<Far::TopologyRefiner> refiner;
    std::unique_ptr<Far::PatchTable> table;
    std::unique_ptr<Far::PatchMap> map;
    std::unique_ptr<const Far::StencilTable> stencils;
    std::vector<Place> places;
    std::vector<Value> points;

    void refine_positions();
};

void OpenSubdivSurface::Impl::refine_positions() {
    const Far::PrimvarRefiner primvars(*refiner);
    const int refined = refiner->GetNumVerticesTotal();
    points.resize(static_cast<size_t>(refined + table->GetNumLocalPoints()));
    for (size_t i = 0; i < cage->positions.size(); ++i) points[i].v = cage->positions[i];
    Value* source = points.data();
    for (int level = 1; level <= refiner->GetMaxLevel(); ++level) {
        Value* target = source + refiner->GetLevel(level - 1).GetNumVertices();
        primvars.Interpolate(level, source, target);
        source = target;
    }
    if (table->GetNumLocalPoints() > 0) table->ComputeLocalPointValues(points.data(), points.data() + refined);
}

OpenSubdivSurface::OpenSubdivSurface(const OpenSubdivCage& cage) : m_impl(std::make_unique<Impl>()) {
    m_impl->cage = &cage;
    m_impl->refiner = make_refiner(cage);
    Far::PatchTableFactory::Options options(adaptive_level);
    options.useInfSharpPatch = true;
    options.generateLegacySharpCornerPatches = false;
    options.generateVaryingTables = false;
    options.SetEndCapType(Far::PatchTableFactory::Options::ENDCAP_GREGORY_BASIS);
    m_impl->refiner->RefineAdaptive(options.GetRefineAdaptiveOptions());
    m_impl->table.reset(Far::PatchTableFactory::Create(*m_impl->refiner, options));
    m_impl->refine_positions();
}

OpenSubdivSurface::~OpenSubdivSurface() = default;

void OpenSubdivSurface::make_stencils() {
    Far::StencilTableFactory::Options options;
    options.generateIntermediateLevels = true;
    options.generateOffsets = true;
    std::unique_ptr<const Far::StencilTable> refined(Far::StencilTableFactory::Create(*m_impl->refiner, options));
    if (const Far::StencilTable* local = m_impl->table->GetLocalPointStencilTable(); local != nullptr)
        m_impl->stencils.reset(
            Far::StencilTableFactory::AppendLocalPointStencilTable(*m_impl->refiner, refined.get(), local));
    if (!m_impl->stencils) m_impl->stencils = std::move(refined);
}

void OpenSubdivSurface::update_positions() {
    const size_t cage_count = m_impl->cage->positions.size();
    std::vector<Value>& points = m_impl->points;
    for (size_t i = 0; i < cage_count; ++i) points[i].v = m_impl->cage->positions[i];
    m_impl->stencils->UpdateValues(points.data(), points.data() + cage_count);
}

void OpenSubdivSurface::make_map(const HostCage& cage) {
    m_impl->map = std::make_unique<Far::PatchMap>(*m_impl->table);
    const Far::PtexIndices faces(*m_impl->refiner);
    m_impl->places.clear();
    for (unsigned int p = 0; p < cage.get_polygon_count(); ++p) {
        const int face = faces.GetFaceId(static_cast<int>(p));
        if (cage.is_all_quads()) {
            m_impl->places.push_back({face, -1});
            continue;
        }
        for (int c = 0; c < static_cast<int>(cage.counts[p]); ++c)
            m_impl->places.push_back(cage.counts[p] == 4 ? Place{face, c} : Place{face + c, -1});
    }
}

// A quad polygon that took a step: quarter c has its origin at corner c and runs around the polygon.
OpenSubdivSurface::Sample OpenSubdivSurface::evaluate(unsigned int quad, float u, float v) const {
    const Place& place = m_impl->places[quad];
    float s = u, t = v;
    switch (place.quarter) {
        case 0:
            s = u / 2, t = v / 2;
            break;
        case 1:
            s = 1 - v / 2, t = u / 2;
            break;
        case 2:
            s = 1 - u / 2, t = 1 - v / 2;
            break;
        case 3:
            s = v / 2, t = 1 - u / 2;
            break;
        default:
            break;
    }
    const Far::PatchTable::PatchHandle* handle = m_impl->map->FindPatch(place.face, s, t);
    float weights[20], s_weights[20], t_weights[20];
    m_impl->table->EvaluateBasis(*handle, s, t, weights, s_weights, t_weights);
    const Far::ConstIndexArray vertices = m_impl->table->GetPatchVertices(*handle);
    Sample sample;
    for (int i = 0; i < vertices.size(); ++i) {
        const Vec3f& value = m_impl->points[static_cast<size_t>(vertices[i])].v;
        sample.position += value * weights[i];
        sample.du += value * s_weights[i];
        sample.dv += value * t_weights[i];
    }
    return sample;
}

}  // namespace sds_bench
