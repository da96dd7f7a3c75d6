#pragma once

#include "model/control_cage.h"
#include "model/stage_timer.h"
#include "qn_poly/poly_crease_scope.h"
#include "sds/mesh/sds_mesh.h"

#include <memory>
#include <span>
#include <string>
#include <vector>

namespace sds_model {

/// A UV map on the polygons of a cage.
struct UvSource {
    std::string name;
    std::vector<float> points;           ///< u v w of every point
    std::vector<std::uint32_t> indices;  ///< point of every face-corner or `unmapped_corner`
    UvJoinCounts join = {};              ///< what became of the points that were given
};

struct SurfaceModes {
    SdsMeshGeometry::InterpolationMode positions = SdsMeshGeometry::InterpolationMode::corners_fixed;
    SdsMeshMaps::InterpolationMode uvs = SdsMeshMaps::InterpolationMode::corners_fixed;
    unsigned int depth = 0;     ///< levels of refinement, at most SdsRefinement::max_depth; 0: one patch per quad
    float error = 0.0f;         ///< SdsRefinement::error
    bool open_borders = false;  ///< no surface beside borders; overrides the rule of `positions`
    bool chaikin = false;
    bool smooth_triangles = false;

    /// Whether fractional sharpness, sharp vertices, holes and open borders are kept. UV maps and properties of kind
    /// vertex are then refined too.
    bool is_refined() const { return depth > 0 && positions != SdsMeshGeometry::InterpolationMode::all_fixed; }
};

/// Modes with what a file says of its surface added; its rules of borders and of UVs only where `has_border_rule` and
/// `has_uv_rule` leave them open.
SurfaceModes follow_rules(SurfaceModes modes, const CageRules& rules, bool has_border_rule, bool has_uv_rule);

/// The mode of a rule of UVs.
SdsMeshMaps::InterpolationMode to_uv_mode(CageRules::FaceVarying rule);

/// The subdivision surface of a cage: base, geometry and maps together, built on construction.
///
/// Stays at its address; meshes made from it must not outlive it. Building uses the calling arena's threads; afterwards
/// any number of threads may read.
class Surface {
public:
    /// The cage's own UVs become map "uv" when there are any, `further_uvs` follow; its colors become color map
    /// "color". `motion` holds x y z per vertex, or nothing. `progress` may be null; its innermost task goes to its
    /// end. Inputs are trusted.
    Surface(const CageView& cage, const std::vector<UvSource>& further_uvs, std::span<const float> motion,
            const SurfaceModes& modes, AppProgressBar* progress);
    Surface(const ControlCage& cage, const std::vector<UvSource>& further_uvs, const std::vector<float>& motion,
            const SurfaceModes& modes, AppProgressBar* progress)
        : Surface(cage.view(), further_uvs, motion, modes, progress) {}
    Surface(const Surface&) = delete;
    Surface& operator=(const Surface&) = delete;

    /// The same topology and maps, shared, at other positions: x y z per control vertex, and per vertex or nothing for
    /// the motion. Time samples are not carried over. This surface stays as it is and may go first.
    std::unique_ptr<Surface> moved(std::span<const float> positions, std::span<const float> motion) const;

    const SdsMeshBase& get_base() const { return *m_base; }
    const SdsMeshMaps& get_maps() const { return *m_maps; }
    const SdsMeshGeometry& get_geometry() const { return m_geometry; }
    SdsMeshGeometry& get_geometry() { return m_geometry; }

    /// Throws std::invalid_argument for a time that is not finite or at which the motion vectors may have carried a
    /// vertex beyond the range of coordinates, so that nothing but finite numbers comes of the others. Every time that
    /// a caller names is asked about here.
    void check_time(double time) const;

    /// A renderable mesh at a tessellation level, 0 for the limit surface. It refers to this surface.
    SdsMesh make_mesh(unsigned int level) const;

    std::size_t get_memory_size() const;  ///< bytes of base, geometry and maps
    const std::vector<Stage>& get_stages() const { return m_stages; }
    double get_build_seconds() const;  ///< the outermost stages together

private:
    Surface(std::shared_ptr<SdsMeshBase> base, std::shared_ptr<SdsMeshMaps> maps, const SdsMeshGeometry& geometry)
        : m_base(std::move(base)), m_maps(std::move(maps)), m_geometry(geometry) {}
    void measure(std::span<const float> positions, std::span<const float> motion);
    void build_base(const CageView& cage, const SurfaceModes& modes, AppProgressBar& progress);
    void build_maps(const CageView& cage, const std::vector<UvSource>& further_uvs, SdsMeshMaps::InterpolationMode mode,
                    AppProgressBar& progress);

    std::shared_ptr<SdsMeshBase> m_base;
    std::shared_ptr<SdsMeshMaps> m_maps;
    SdsMeshGeometry m_geometry;
    double m_reach = 0.0;     ///< greatest coordinate at rest
    double m_velocity = 0.0;  ///< greatest component of the motion vectors
    std::vector<Stage> m_stages;
};

}  // namespace sds_model
