// A built surface and the operations on many fragments and rays, on plain memory: nothing here knows Python.
#pragma once

#include <memory>
#include <mutex>
#include <span>
#include <vector>

#include "mesh_arrays.h"
#include "model/mesh_properties.h"
#include "traced_meshes.h"

namespace sds_python {

/// Positions of the control points at several times.
struct TimeSamples {
    std::vector<double> times;     ///< strictly increasing; empty: none
    std::vector<float> positions;  ///< [time][point][3]
};

/// Points on the surface; n of each, or a single time for all.
struct Fragments {
    std::span<const std::int32_t> primitives;  ///< -1: none, the answer is NaN
    std::span<const double> uv;                ///< u v per fragment, both in [0, 1]
    std::span<const double> times;

    std::size_t size() const { return primitives.size(); }
    GeometryFragment at(std::size_t i) const;
};

inline constexpr std::size_t limit_row_size = 12;

/// The properties of a cage and what they are bound to.
struct CageProperties {
    std::vector<std::uint32_t> face_counts, face_indices;
    std::vector<std::uint8_t> corner_creases;
    std::vector<sds_model::PropertySource> sources;

    /// The cage's polygons and creases.
    sds_model::CageView get_cage() const;
};

struct RayArrays {
    std::span<const double> origins, directions;  ///< three per ray or, of one of them, three for all
    std::span<const double> tnear, tfar, times;   ///< one per ray or one for all

    std::size_t size() const { return (origins.size() == 3 ? directions : origins).size() / 3; }
    GeometryRay at(std::size_t i) const;
};

/// One row per ray; a miss is primitive -1, u = v = 0 and t infinite.
struct HitArrays {
    std::int32_t* primitives;
    double *u, *v, *t;
};

/// Immutable once made, so any number of threads may use it at once; new positions make another one that shares the
/// topology and the maps. All operations check what they are given and run on every core.
class SurfaceState {
public:
    /// `properties` may be null.
    SurfaceState(std::unique_ptr<sds_model::Surface> surface, TimeSamples samples,
                 std::shared_ptr<const CageProperties> properties);

    const sds_model::Surface& surface() const { return *m_surface; }

    /// Throws std::out_of_range for a primitive the surface does not have, std::invalid_argument for u or v outside
    /// [0, 1] and for what Surface::check_time refuses.
    void check(const Fragments& fragments) const;

    /// Writes sds_model::sample_row_size values per fragment, of the cells of a level or of the limit.
    void sample(const Fragments& fragments, unsigned int level, double* out) const;
    /// Writes limit_row_size values per fragment: position, derivatives and normal of the limit at rest.
    void compute_limit_points(const Fragments& fragments, float* out) const;
    /// Writes sds_model::uv_row_size values per fragment; NaN where the face is not mapped. The map exists.
    void look_up_uvs(const Fragments& fragments, unsigned int map, double* out) const;
    /// Writes value, d/du and d/dv per fragment, each of the property's extent. The property exists; the first call
    /// prepares all.
    void look_up_property(const Fragments& fragments, unsigned int property, double* out) const;
    const std::shared_ptr<const CageProperties>& get_properties() const { return m_properties; }
    /// Writes r g b a per fragment. The color map exists.
    void look_up_colors(const Fragments& fragments, unsigned int map, float* out) const;

    /// Rays first to last. `shutter` holds their times.
    void intersect(const RayArrays& rays, std::size_t first, std::size_t last, unsigned int level,
                   const sds_render::Shutter& shutter, const HitArrays& hits) const;
    /// Rays first to last, into one flag each.
    void find_occluded(const RayArrays& rays, std::size_t first, std::size_t last, unsigned int level,
                       const sds_render::Shutter& shutter, bool* is_occluded) const;

    std::vector<unsigned int> select(const GeometryFrustum& frustum, sds_render::SelectMode mode,
                                     unsigned int level) const;

private:
    /// The rays as records, with their hits on the mesh.
    std::vector<GeometryRay> trace(const RayArrays& rays, std::size_t first, std::size_t last, const TracedMesh& traced,
                                   GeometryRayMode mode) const;
    /// visit(first, last) for ranges of up to fragments_per_task fragments.
    template <class Visit>
    void for_each_range(const Fragments& fragments, const Visit& visit) const;
    template <class Visit>
    void for_each_fragment(const Fragments& fragments, const Visit& visit) const;

    std::unique_ptr<sds_model::Surface> m_surface;
    mutable TracedMeshes m_traced;
    std::shared_ptr<const CageProperties> m_properties;
    mutable std::once_flag m_is_bound;
    mutable SdsMesh m_property_mesh;
    mutable std::unique_ptr<sds_model::MeshProperties> m_bound;
};

}  // namespace sds_python
