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

    const SdsMeshBase& base() const { return *base_; }
    const SdsMeshMaps& maps() const { return *maps_; }
    const SdsMeshGeometry& geometry() const { return geometry_; }
    SdsMeshGeometry& geometry() { return geometry_; }

    /// A renderable mesh at a tessellation level, 0 for the limit surface. It refers to this surface.
    SdsMesh mesh(unsigned int level) const;

    const std::vector<Stage>& stages() const { return stages_; }
    double build_seconds() const;  ///< the outermost stages together

private:
    Surface(std::shared_ptr<SdsMeshBase> base, std::shared_ptr<SdsMeshMaps> maps, const SdsMeshGeometry& geometry)
        : base_(std::move(base)), maps_(std::move(maps)), geometry_(geometry) {}
    void build_base(const CageView& cage, AppProgressBar& progress);
    void build_maps(const CageView& cage, const std::vector<UvSource>& further_uvs, SdsMeshMaps::InterpolationMode mode,
                    AppProgressBar& progress);

    std::shared_ptr<SdsMeshBase> base_;
    std::shared_ptr<SdsMeshMaps> maps_;
    SdsMeshGeometry geometry_;
    std::vector<Stage> stages_;
};

}  // namespace sds_model
