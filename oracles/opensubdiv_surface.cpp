#include "oracles/opensubdiv_surface.h"

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
#include <utility>

namespace sds_test {

namespace {

namespace Far = OpenSubdiv::Far;
namespace Sdc = OpenSubdiv::Sdc;

using Vec3f = GMathVec3<float>;

constexpr float infinitely_sharp = 10.0f;

// What the library asks of a value.
template <class Real>
struct Value {
    GMathVec3<Real> v{0, 0, 0};
    void Clear() { v = {0, 0, 0}; }
    void AddWithWeight(const Value& other, Real weight) { v += other.v * weight; }
};

// Where a quad lies: the parametric face, and which quarter of it, -1 for all.
struct Place {
    int face;
    int quarter;
};

std::vector<Place> locate_quads(const Far::TopologyRefiner& refiner, const OpenSubdivCage& cage) {
    const Far::PtexIndices faces(refiner);
    std::vector<Place> places;
    for (size_t p = 0; p < cage.counts.size(); ++p) {
        const int face = faces.GetFaceId(static_cast<int>(p));
        if (cage.is_all_quads()) {
            places.push_back({face, -1});
            continue;
        }
        for (int c = 0; c < cage.counts[p]; ++c)
            places.push_back(cage.counts[p] == 4 ? Place{face, c} : Place{face + c, -1});
    }
    return places;
}

std::unique_ptr<Far::TopologyRefiner> make_refiner(const OpenSubdivCage& cage, const Sdc::Options& options) {
    Far::TopologyDescriptor descriptor;
    descriptor.numVertices = static_cast<int>(cage.positions.size());
    descriptor.numFaces = static_cast<int>(cage.counts.size());
    descriptor.numVertsPerFace = cage.counts.data();
    descriptor.vertIndicesPerFace = cage.indices.data();
    descriptor.numCreases = static_cast<int>(cage.sharpness.size());
    descriptor.creaseVertexIndexPairs = cage.crease_pairs.data();
    descriptor.creaseWeights = cage.sharpness.data();
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

}  // namespace

OpenSubdivCage::OpenSubdivCage(std::span<const unsigned int> polygon_counts,
                               std::span<const unsigned int> polygon_indices,
                               std::span<const unsigned char> corner_creases, std::span<const Vec3f> vertices)
    : counts(polygon_counts.begin(), polygon_counts.end()),
      indices(polygon_indices.begin(), polygon_indices.end()),
      positions(vertices.begin(), vertices.end()) {
    std::vector<std::pair<int, int>> edges;
    for (size_t p = 0, first = 0; p < counts.size(); first += static_cast<size_t>(counts[p++]))
        for (size_t k = 0, n = static_cast<size_t>(counts[p]); k < n; ++k)
            if (corner_creases[first + k] != 0)
                edges.push_back(std::minmax(indices[first + k], indices[first + (k + 1) % n]));
    std::sort(edges.begin(), edges.end());
    edges.erase(std::unique(edges.begin(), edges.end()), edges.end());
    for (const auto& [a, b] : edges) crease_pairs.insert(crease_pairs.end(), {a, b});
    sharpness.assign(edges.size(), infinitely_sharp);
}

template <class Real>
struct OpenSubdivSurface<Real>::Impl {
    const OpenSubdivCage* cage;
    std::unique_ptr<Far::TopologyRefiner> refiner;
    std::unique_ptr<Far::PatchTable> table;
    std::unique_ptr<Far::PatchMap> map;
    std::unique_ptr<const Far::StencilTableReal<Real>> stencils;
    std::vector<Place> places;
    std::vector<Value<Real>> points;
    std::vector<Value<Real>> uv_points;

    std::vector<Value<Real>> refine(const std::vector<Vec3f>& controls, bool is_uv) const;
    Sample evaluate(unsigned int quad, Real u, Real v, bool is_uv) const;
};

// The controls, the values of every level after them, and the local points of the patches.
template <class Real>
std::vector<Value<Real>> OpenSubdivSurface<Real>::Impl::refine(const std::vector<Vec3f>& controls, bool is_uv) const {
    const Far::PrimvarRefinerReal<Real> primvars(*refiner);
    const int refined = is_uv ? refiner->GetNumFVarValuesTotal(0) : refiner->GetNumVerticesTotal();
    const int local = is_uv ? table->GetNumLocalPointsFaceVarying(0) : table->GetNumLocalPoints();
    std::vector<Value<Real>> values(static_cast<size_t>(refined + local));
    for (size_t i = 0; i < controls.size(); ++i) values[i].v = GMathVec3<Real>(controls[i]);
    Value<Real>* source = values.data();
    for (int level = 1; level <= refiner->GetMaxLevel(); ++level) {
        const Far::TopologyLevel& coarse = refiner->GetLevel(level - 1);
        Value<Real>* target = source + (is_uv ? coarse.GetNumFVarValues(0) : coarse.GetNumVertices());
        if (is_uv)
            primvars.InterpolateFaceVarying(level, source, target, 0);
        else
            primvars.Interpolate(level, source, target);
        source = target;
    }
    const auto* local_stencils = is_uv ? table->template GetLocalPointFaceVaryingStencilTable<Real>(0)
                                       : table->template GetLocalPointStencilTable<Real>();
    if (local > 0) local_stencils->UpdateValues(values.data(), values.data() + refined);
    return values;
}

template <class Real>
OpenSubdivSurface<Real>::OpenSubdivSurface(const OpenSubdivCage& cage, const Options& options)
    : m_impl(std::make_unique<Impl>()) {
    Sdc::Options rules;
    rules.SetVtxBoundaryInterpolation(options.boundary == Boundary::edge_only
                                          ? Sdc::Options::VTX_BOUNDARY_EDGE_ONLY
                                          : Sdc::Options::VTX_BOUNDARY_EDGE_AND_CORNER);
    rules.SetFVarLinearInterpolation(static_cast<Sdc::Options::FVarLinearInterpolation>(options.uv_rule));
    m_impl->cage = &cage;
    m_impl->refiner = make_refiner(cage, rules);
    Far::PatchTableFactory::Options patches(options.level);
    patches.template SetPatchPrecision<Real>();
    patches.template SetFVarPatchPrecision<Real>();
    patches.useInfSharpPatch = true;
    patches.generateLegacySharpCornerPatches = false;
    patches.generateVaryingTables = false;
    patches.generateFVarTables = cage.has_uvs();
    patches.generateFVarLegacyLinearPatches = false;
    patches.SetEndCapType(Far::PatchTableFactory::Options::ENDCAP_GREGORY_BASIS);
    m_impl->refiner->RefineAdaptive(patches.GetRefineAdaptiveOptions());
    m_impl->table.reset(Far::PatchTableFactory::Create(*m_impl->refiner, patches));
    m_impl->points = m_impl->refine(cage.positions, false);
    if (cage.has_uvs()) m_impl->uv_points = m_impl->refine(cage.uv_points, true);
}

template <class Real>
OpenSubdivSurface<Real>::OpenSubdivSurface(OpenSubdivSurface&&) noexcept = default;
template <class Real>
OpenSubdivSurface<Real>::~OpenSubdivSurface() = default;

template <class Real>
void OpenSubdivSurface<Real>::make_stencils() {
    using Factory = Far::StencilTableFactoryReal<Real>;
    typename Factory::Options options;
    options.generateIntermediateLevels = true;
    options.generateOffsets = true;
    std::unique_ptr<const Far::StencilTableReal<Real>> refined(Factory::Create(*m_impl->refiner, options));
    if (const auto* local = m_impl->table->template GetLocalPointStencilTable<Real>(); local != nullptr)
        m_impl->stencils.reset(Factory::AppendLocalPointStencilTable(*m_impl->refiner, refined.get(), local));
    if (!m_impl->stencils) m_impl->stencils = std::move(refined);
}

template <class Real>
void OpenSubdivSurface<Real>::update_positions() {
    const size_t cage_count = m_impl->cage->positions.size();
    std::vector<Value<Real>>& points = m_impl->points;
    for (size_t i = 0; i < cage_count; ++i) points[i].v = GMathVec3<Real>(m_impl->cage->positions[i]);
    m_impl->stencils->UpdateValues(points.data(), points.data() + cage_count);
}

template <class Real>
void OpenSubdivSurface<Real>::make_map() {
    m_impl->map = std::make_unique<Far::PatchMap>(*m_impl->table);
    m_impl->places = locate_quads(*m_impl->refiner, *m_impl->cage);
}

// The four quarters of a quad polygon that took a step: each has its origin at its corner and runs around the polygon.
//
//        3 ---------- 2        quarter c: u towards corner c + 1, v towards corner c - 1
//        |  u^ | v^   |
//        |   v<+ u<.  |        (sketch of the origins only)
//        0 ---------- 1
template <class Real>
typename OpenSubdivSurface<Real>::Sample OpenSubdivSurface<Real>::Impl::evaluate(unsigned int quad, Real u, Real v,
                                                                                 bool is_uv) const {
    const Place& place = places[quad];
    const bool is_quarter = place.quarter >= 0;
    Real s = is_quarter ? u / 2 : u, t = is_quarter ? v / 2 : v;
    for (int turn = 0; turn < place.quarter; ++turn) s = 1 - std::exchange(t, s);

    const Far::PatchTable::PatchHandle* handle = map->FindPatch(place.face, s, t);
    if (handle == nullptr) throw std::logic_error("OpenSubdiv has no patch there");
    Real weights[20], s_weights[20], t_weights[20];
    Far::ConstIndexArray vertices;
    if (is_uv) {
        table->EvaluateBasisFaceVarying(*handle, s, t, weights, s_weights, t_weights);
        vertices = table->GetPatchFVarValues(*handle);
    } else {
        table->EvaluateBasis(*handle, s, t, weights, s_weights, t_weights);
        vertices = table->GetPatchVertices(*handle);
    }
    const std::vector<Value<Real>>& values = is_uv ? uv_points : points;
    Sample sample;
    for (int i = 0; i < vertices.size(); ++i) {
        const GMathVec3<Real>& value = values[static_cast<size_t>(vertices[i])].v;
        sample.position += value * weights[i];
        sample.du += value * s_weights[i];
        sample.dv += value * t_weights[i];
    }
    if (!is_quarter) return sample;
    sample.du *= Real(0.5);
    sample.dv *= Real(0.5);
    for (int turn = 0; turn < place.quarter; ++turn) sample.dv = std::exchange(sample.du, sample.dv) * Real(-1);
    return sample;
}

template <class Real>
typename OpenSubdivSurface<Real>::Sample OpenSubdivSurface<Real>::evaluate(unsigned int quad, Real u, Real v) const {
    return m_impl->evaluate(quad, u, v, false);
}

template <class Real>
typename OpenSubdivSurface<Real>::Sample OpenSubdivSurface<Real>::evaluate_uv(unsigned int quad, Real u, Real v) const {
    return m_impl->evaluate(quad, u, v, true);
}

template class OpenSubdivSurface<float>;
template class OpenSubdivSurface<double>;

}  // namespace sds_test
