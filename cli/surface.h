#pragma once

#include "cli/control_cage.h"
#include "cli/stage_timer.h"
#include "qn_poly/poly_crease_scope.h"
#include "sds/mesh/sds_mesh.h"

#include <string>
#include <vector>

namespace sds_cli {

/// A UV map on the polygons of a cage.
struct UvSource {
    std::string name;
    std::vector<float> points;           ///< u v w of every point
    std::vector<std::uint32_t> indices;  ///< point of every face-corner or `unmapped_corner`
};

struct SurfaceModes {
    SdsMeshGeometry::InterpolationMode positions = SdsMeshGeometry::InterpolationMode::corners_fixed;
    SdsMeshMaps::InterpolationMode uvs = SdsMeshMaps::InterpolationMode::corners_fixed;
};

/// The subdivision surface of a cage: base, geometry and maps together, built on construction.
///
/// Stays at its address; meshes made from it must not outlive it. Building uses the calling arena's threads; afterwards
/// any number of threads may read.
class Surface {
public:
    /// The cage's own UVs become map "uv" when there are any, `further_uvs` follow; its colours become colour map
    /// "color". `motion` holds x y z per vertex, or nothing. `progress` may be null; its innermost task goes to its
    /// end. Inputs are trusted.
    Surface(const ControlCage& cage, const std::vector<UvSource>& further_uvs, const std::vector<float>& motion,
            const SurfaceModes& modes, AppProgressBar* progress);
    Surface(const Surface&) = delete;
    Surface& operator=(const Surface&) = delete;

    const SdsMeshBase& base() const { return base_; }
    const SdsMeshMaps& maps() const { return maps_; }
    const SdsMeshGeometry& geometry() const { return geometry_; }
    SdsMeshGeometry& geometry() { return geometry_; }

    /// A renderable mesh at a tessellation level, 0 for the limit surface. It refers to this surface.
    SdsMesh mesh(unsigned int level) const;

    const std::vector<Stage>& stages() const { return stages_; }
    double build_seconds() const;  ///< the outermost stages together

private:
    void build_base(const ControlCage& cage, AppProgressBar& progress);
    void build_maps(const ControlCage& cage, const std::vector<UvSource>& further_uvs,
                    SdsMeshMaps::InterpolationMode mode, AppProgressBar& progress);

    SdsMeshBase base_;
    SdsMeshGeometry geometry_;
    SdsMeshMaps maps_;
    std::vector<Stage> stages_;
};

}  // namespace sds_cli
