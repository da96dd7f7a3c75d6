#include "oracles/opensubdiv_surface.h"

#include "oracles/opensubdiv_refiner.h"

#include <opensubdiv/far/patchMap.h>
#include <opensubdiv/far/patchTableFactory.h>
#include <opensubdiv/far/primvarRefiner.h>
#include <opensubdiv/far/ptexIndices.h>
#include <opensubdiv/far/stencilTable.h>
#include <opensubdiv/far/stencilTableFactory.h>

#include <stdexcept>
#include <utility>

namespace sds_test {

namespace {

namespace Far = OpenSubdiv::Far;

using Vec3f = GMathVec3<float>;

// Where a quad lies: the parametric face, and which quarter of it, -1 for all.
struct Place {
    int face;
    int quarter;
    // A quad that the step made of another polygon: the library's derivatives are by the parameters of the polygon that
    // it would be a quarter of.
    bool is_split;
};

std::vector<Place> locate_quads(const Far::TopologyRefiner& refiner, const OpenSubdivCage& cage) {
    const Far::PtexIndices faces(refiner);
    std::vector<Place> places;
    for (size_t p = 0; p < cage.counts.size(); ++p) {
        const int face = faces.GetFaceId(static_cast<int>(p));
        if (cage.is_all_quads()) {
            places.push_back({face, -1, false});
            continue;
        }
        for (int c = 0; c < cage.counts[p]; ++c)
            places.push_back(cage.counts[p] == 4 ? Place{face, c, false} : Place{face + c, -1, true});
    }
    return places;
}

}  // namespace

template <class Real>
struct OpenSubdivSurface<Real>::Impl {
    const OpenSubdivCage* cage;
    std::unique_ptr<Far::TopologyRefiner> refiner;
    std::unique_ptr<Far::PatchTable> table;
    std::unique_ptr<Far::PatchMap> map;
    std::unique_ptr<const Far::StencilTableReal<Real>> stencils;
    std::vector<Place> places;
    std::vector<OpenSubdivValue<Real>> points;
    std::vector<OpenSubdivValue<Real>> uv_points;

    std::vector<OpenSubdivValue<Real>> refine(const std::vector<Vec3f>& controls, bool is_uv) const;
    Sample evaluate(unsigned int quad, Real u, Real v, bool is_uv) const;
};

// The controls, the values of every level after them, and the local points of the patches.
template <class Real>
std::vector<OpenSubdivValue<Real>> OpenSubdivSurface<Real>::Impl::refine(const std::vector<Vec3f>& controls,
                                                                         bool is_uv) const {
    const Far::PrimvarRefinerReal<Real> primvars(*refiner);
    const int refined = is_uv ? refiner->GetNumFVarValuesTotal(0) : refiner->GetNumVerticesTotal();
    const int local = is_uv ? table->GetNumLocalPointsFaceVarying(0) : table->GetNumLocalPoints();
    std::vector<OpenSubdivValue<Real>> values(static_cast<size_t>(refined + local));
    for (size_t i = 0; i < controls.size(); ++i) values[i].v = GMathVec3<Real>(controls[i]);
    OpenSubdivValue<Real>* source = values.data();
    for (int level = 1; level <= refiner->GetMaxLevel(); ++level) {
        const Far::TopologyLevel& coarse = refiner->GetLevel(level - 1);
        OpenSubdivValue<Real>* target = source + (is_uv ? coarse.GetNumFVarValues(0) : coarse.GetNumVertices());
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
    m_impl->cage = &cage;
    m_impl->refiner = make_opensubdiv_refiner(cage, options.boundary, static_cast<int>(options.uv_rule),
                                              options.chaikin, options.smooth_triangles);
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
    std::vector<OpenSubdivValue<Real>>& points = m_impl->points;
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
    const std::vector<OpenSubdivValue<Real>>& values = is_uv ? uv_points : points;
    Sample sample;
    for (int i = 0; i < vertices.size(); ++i) {
        const GMathVec3<Real>& value = values[static_cast<size_t>(vertices[i])].v;
        sample.position += value * weights[i];
        sample.du += value * s_weights[i];
        sample.dv += value * t_weights[i];
    }
    if (!is_quarter && !place.is_split) return sample;
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
