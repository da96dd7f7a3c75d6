#include "oracles/opensubdiv_oracle.h"

#include "oracles/opensubdiv_refiner.h"

#include <opensubdiv/far/primvarRefiner.h>

namespace sds_test {

namespace {

constexpr unsigned int isolation_level = 8;

std::unique_ptr<OpenSubdivCage> make_cage(const ZooMesh& mesh) {
    auto cage = std::make_unique<OpenSubdivCage>(mesh.counts, mesh.indices, mesh.corner_creases, mesh.positions);
    cage->uv_indices.assign(mesh.uv_indices.begin(), mesh.uv_indices.end());
    cage->uv_points = mesh.uv_points;
    return cage;
}

std::unique_ptr<OpenSubdivCage> make_cage(const TaggedCage& tagged) {
    const ZooMesh& mesh = tagged.mesh;
    auto cage = std::make_unique<OpenSubdivCage>(mesh.counts, mesh.indices, tagged.edge_sharpness, mesh.positions);
    cage->uv_indices.assign(mesh.uv_indices.begin(), mesh.uv_indices.end());
    cage->uv_points = mesh.uv_points;
    for (size_t v = 0; v < tagged.vertex_sharpness.size(); ++v) {
        if (tagged.vertex_sharpness[v] == 0.0f) continue;
        cage->corners.push_back(static_cast<int>(v));
        cage->corner_sharpness.push_back(tagged.vertex_sharpness[v]);
    }
    for (size_t f = 0; f < tagged.holes.size(); ++f)
        if (tagged.holes[f] != 0) cage->holes.push_back(static_cast<int>(f));
    return cage;
}

SurfacePoint to_point(const OpenSubdivSurface<double>::Sample& sample) {
    return {sample.position, sample.du, sample.dv};
}

}  // namespace

OpenSubdivOracle::OpenSubdivOracle(const ZooMesh& cage, Boundary boundary, FaceVarying rule)
    : m_cage(make_cage(cage)), m_surface(*m_cage, {isolation_level, boundary, rule, false, false}) {
    m_surface.make_map();
}

OpenSubdivOracle::OpenSubdivOracle(const TaggedCage& cage, int isolation, FaceVarying rule)
    : m_cage(make_cage(cage)),
      m_surface(*m_cage,
                {static_cast<unsigned int>(isolation), cage.boundary, rule, cage.chaikin, cage.smooth_triangles}) {
    m_surface.make_map();
}

struct OpenSubdivLevels::Impl {
    std::unique_ptr<OpenSubdiv::Far::TopologyRefiner> refiner;
    std::vector<std::vector<OpenSubdivValue<double>>> levels;
};

OpenSubdivLevels::OpenSubdivLevels(const TaggedCage& tagged, int depth) : m_impl(std::make_unique<Impl>()) {
    namespace Far = OpenSubdiv::Far;
    const std::unique_ptr<OpenSubdivCage> cage = make_cage(tagged);
    m_impl->refiner = make_opensubdiv_refiner(*cage, tagged.boundary, 0, tagged.chaikin, tagged.smooth_triangles);
    Far::TopologyRefiner::UniformOptions options(depth);
    options.fullTopologyInLastLevel = true;
    m_impl->refiner->RefineUniform(options);
    const Far::PrimvarRefinerReal<double> primvars(*m_impl->refiner);
    m_impl->levels.resize(static_cast<size_t>(depth) + 1);
    for (const Vec3f& p : tagged.mesh.positions) m_impl->levels[0].push_back({Vec3d(p)});
    for (size_t level = 1; level < m_impl->levels.size(); ++level) {
        const auto count = m_impl->refiner->GetLevel(static_cast<int>(level)).GetNumVertices();
        m_impl->levels[level].resize(static_cast<size_t>(count));
        primvars.Interpolate(static_cast<int>(level), m_impl->levels[level - 1], m_impl->levels[level]);
    }
}

OpenSubdivLevels::OpenSubdivLevels(OpenSubdivLevels&&) noexcept = default;
OpenSubdivLevels::~OpenSubdivLevels() = default;

int OpenSubdivLevels::vertex(int level, int face, int corner) const {
    return m_impl->refiner->GetLevel(level).GetFaceVertices(face)[corner];
}

int OpenSubdivLevels::child_face(int level, int face, int corner) const {
    return m_impl->refiner->GetLevel(level).GetFaceChildFaces(face)[corner];
}

const Vec3d& OpenSubdivLevels::position(int level, int vertex) const {
    return m_impl->levels[static_cast<size_t>(level)][static_cast<size_t>(vertex)].v;
}

SurfacePoint OpenSubdivOracle::evaluate(unsigned int quad, double u, double v) const {
    return to_point(m_surface.evaluate(quad, u, v));
}

SurfacePoint OpenSubdivOracle::evaluate_uv(unsigned int quad, double u, double v) const {
    return to_point(m_surface.evaluate_uv(quad, u, v));
}

const char* OpenSubdivOracle::name_of(FaceVarying rule) {
    static constexpr const char* names[] = {"FVAR_LINEAR_NONE",          "FVAR_LINEAR_CORNERS_ONLY",
                                            "FVAR_LINEAR_CORNERS_PLUS1", "FVAR_LINEAR_CORNERS_PLUS2",
                                            "FVAR_LINEAR_BOUNDARIES",    "FVAR_LINEAR_ALL"};
    return names[static_cast<unsigned int>(rule)];
}

}  // namespace sds_test
