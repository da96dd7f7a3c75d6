#include "oracles/opensubdiv_oracle.h"

namespace sds_test {

namespace {

constexpr unsigned int isolation_level = 8;

std::unique_ptr<OpenSubdivCage> make_cage(const ZooMesh& mesh) {
    auto cage = std::make_unique<OpenSubdivCage>(mesh.counts, mesh.indices, mesh.corner_creases, mesh.positions);
    cage->uv_indices.assign(mesh.uv_indices.begin(), mesh.uv_indices.end());
    cage->uv_points = mesh.uv_points;
    return cage;
}

SurfacePoint to_point(const OpenSubdivSurface<double>::Sample& sample) {
    return {sample.position, sample.du, sample.dv};
}

}  // namespace

OpenSubdivOracle::OpenSubdivOracle(const ZooMesh& cage, Boundary boundary, FaceVarying rule)
    : m_cage(make_cage(cage)), m_surface(*m_cage, {isolation_level, boundary, rule}) {
    m_surface.make_map();
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
