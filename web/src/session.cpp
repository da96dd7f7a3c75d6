#include "web/src/session.h"

#include "model/array_size.h"
#include "model/array_view.h"
#include "model/build_estimate.h"
#include "model/quad_places.h"
#include "qn_ctx/ctx_eval.h"
#include "qn_poly/poly_check.h"
#include "qn_poly/poly_edge_buckets.h"
#include "sds/refinement/patch_places.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace sds_page {

namespace {

using namespace sds_model;

/// WebAssembly has 4 GiB of addresses, browsers give a page about half of it.
constexpr std::size_t memory_limit = std::size_t{1200} << 20;
constexpr float infinite_sharpness = 10.0f;
constexpr std::size_t controls_size = 48;

/// Gives every crease the sharpness `s`. Without refinement a fractional one is infinite.
void set_sharpness(ControlCage& cage, float s, bool is_refined) {
    std::vector<float> sharpness(cage.get_corner_count(), 0.0f);
    bool has_fractions = false;
    for (std::size_t c = 0; c < cage.get_corner_count(); ++c) {
        const bool is_sharp =
            cage.corner_creases[c] != 0 || (!cage.corner_sharpness.empty() && cage.corner_sharpness[c] > 0.0f);
        if (!is_sharp) continue;
        const bool is_infinite = s >= infinite_sharpness || (s > 0.0f && !is_refined);
        cage.corner_creases[c] = is_infinite ? 1 : 0;
        if (!is_infinite && s > 0.0f) {
            sharpness[c] = s;
            has_fractions = true;
        }
    }
    cage.corner_sharpness.clear();
    if (has_fractions) cage.corner_sharpness = std::move(sharpness);
}

/// Whether a ray may meet a box; NaN never does.
bool meets(const GMathBbox3<double>& box, const GeometryRay& ray) {
    double from = ray.tnear, to = ray.tfar;
    for (unsigned int c = 0; c < 3; ++c) {
        const double inverse = 1.0 / ray.direction[c];
        const double a = (box.get_min()[c] - ray.origin[c]) * inverse, b = (box.get_max()[c] - ray.origin[c]) * inverse;
        if (std::isnan(a) || std::isnan(b)) continue;  // along a side of the box
        const double slack = 1e-9 * (std::fabs(a) + std::fabs(b));
        from = std::max(from, std::min(a, b) - slack);
        to = std::min(to, std::max(a, b) + slack);
    }
    return from <= to;
}

}  // namespace

bool Session::load(std::string text, CageFormat format, std::vector<Note>& notes) {
    CageFile file = read_cage(text, format, m_settings.depth > 0);
    notes = file.notes;
    if (!file.cage) return false;
    m_notes = std::move(file.notes);
    m_text = std::move(text);
    m_format = format;
    m_is_read_refined = m_settings.depth > 0;
    m_cage = std::move(file.cage);
    m_positions = m_cage->positions;
    find_edges();
    return true;
}

void Session::build(const Settings& settings) {
    if (!m_cage) return;
    const bool is_refined = settings.depth > 0;
    if (is_refined != m_is_read_refined) {
        CageFile file = read_cage(m_text, m_format, is_refined);
        m_is_read_refined = is_refined;
        m_notes = std::move(file.notes);
        if (!file.cage) return;
        m_cage = std::move(file.cage);
        find_edges();
    }
    m_cage->positions = m_positions;
    ControlCage cage = *m_cage;
    if (settings.sharpness) set_sharpness(cage, *settings.sharpness, is_refined);
    SurfaceModes modes;
    modes.positions = settings.positions;
    modes.depth = settings.depth;
    modes = follow_rules(modes, cage.rules, !settings.follows_file, false);
    check_memory_limit("the surface", estimate_build(cage, {}, false, modes).get_peak(), memory_limit);
    auto surface = std::make_unique<Surface>(cage, std::vector<UvSource>{}, std::vector<float>{}, modes, nullptr);
    SurfaceGrid grid;
    grid.evaluate(*surface, settings.level);
    m_settings = settings;
    m_surface = std::move(surface);
    m_grid = std::move(grid);
    m_controls = get_controls();
}

std::vector<float> Session::get_controls() const {
    const SdsMeshGeometry& geometry = m_surface->get_geometry();
    std::vector<float> controls(controls_size * geometry.get_patch_count());
    GMathVec3<float> patch[16];
    for (unsigned int p = 0; p < geometry.get_patch_count(); ++p) {
        geometry.get_bezier_controls(p, patch);
        std::memcpy(&controls[controls_size * p], patch, sizeof(patch));
    }
    return controls;
}

const std::vector<std::uint32_t>& Session::move_vertex(std::uint32_t vertex, const std::array<float, 3>& position) {
    m_changed.clear();
    const bool is_finite =
        std::all_of(position.begin(), position.end(), [](float x) { return std::fabs(x) < poly_max_coordinate; });
    if (!m_surface || vertex >= m_positions.size() / 3 || !is_finite) return m_changed;
    std::copy(position.begin(), position.end(), m_positions.begin() + static_cast<std::ptrdiff_t>(3 * vertex));
    m_surface = m_surface->moved(m_positions, {});

    // Quads with a patch that changed, and those around them: their normals may follow from more than their own patch.
    const std::vector<float> controls = get_controls();
    const SdsMesh mesh = m_surface->make_mesh(0);
    const SdsMeshBase& base = m_surface->get_base();
    std::vector<bool> is_touched(base.get_vertex_infos().get_count(), false);
    const auto& indices = base.get_quad_indices();
    for (unsigned int p = 0; controls_size * p < controls.size(); ++p) {
        const float *const now = &controls[controls_size * p], *const before = &m_controls[controls_size * p];
        if (std::memcmp(now, before, controls_size * sizeof(float)) == 0) continue;
        const unsigned int quad = mesh.get_primitive_quad(p);
        const bool is_four = m_surface->get_geometry().is_refined() &&
                             m_surface->get_geometry().get_places().get_patch(p).covers_four_quads();
        for (unsigned int e = 4 * quad; e < 4 * quad + (is_four ? 16 : 4); ++e)
            if (indices[e] != 0xFFFFFFFF) is_touched[indices[e]] = true;
    }
    for (unsigned int q = 0; q < base.get_primitive_count(); ++q) {
        const unsigned int* const corners = base.get_quad_indices(q);
        if (std::any_of(corners, corners + 4, [&](unsigned int v) { return v != 0xFFFFFFFF && is_touched[v]; }))
            m_changed.push_back(q);
    }
    m_controls = controls;
    m_grid.evaluate(*m_surface, m_changed);
    return m_changed;
}

std::optional<Hit> Session::intersect(const std::array<double, 3>& origin,
                                      const std::array<double, 3>& direction) const {
    if (!m_surface) return std::nullopt;
    GeometryRay ray;
    ray.start({origin[0], origin[1], origin[2]}, {direction[0], direction[1], direction[2]});
    const SdsMesh mesh = m_surface->make_mesh(m_settings.level);
    const CtxShader shader;
    CtxThread thread;
    const CtxEval ctx(shader, &thread);
    GeometryRaytraceCtx rays(&ray, 1, {});
    GMathBbox3<double> box;
    for (unsigned int p = 0; p < mesh.get_primitive_count(); ++p) {
        mesh.compute_primitive_bbox(ctx, p, box);
        if (meets(box, ray)) mesh.intersect_primitive(ctx, p, rays);
    }
    if (ray.hit.primitive == 0xFFFFFFFF) return std::nullopt;
    Hit hit;
    sample_hit(mesh, ctx, ray.hit, 0.0, hit.sample.data());
    move_to_quad(mesh, ray.hit);
    hit.quad = ray.hit.primitive;
    hit.u = ray.hit.u;
    hit.v = ray.hit.v;
    hit.t = ray.hit.t;
    return hit;
}

void Session::find_edges() {
    m_edges.clear();
    PolyEdgeBuckets edges(m_cage->polygon_indices.data(), view_of(m_cage->polygon_counts),
                          static_cast<unsigned int>(m_cage->get_vertex_count()));
    edges.sort();
    edges.for_each_edge([&](unsigned int low, std::span<const PolyHalfEdge> sides) {
        const std::uint32_t corner = sides[0].corner;
        const float fraction = m_cage->corner_sharpness.empty() ? 0.0f : m_cage->corner_sharpness[corner];
        m_edges.push_back({low, sides[0].high, m_cage->corner_creases[corner] != 0 ? infinite_sharpness : fraction});
    });
}

}  // namespace sds_page
