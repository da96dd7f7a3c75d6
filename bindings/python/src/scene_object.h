// The Python object behind `Scene`: surfaces at places, for rays and pictures.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "io/picture.h"
#include "surface_object.h"

namespace sds_python {

/// Where a picture is taken from: by a camera, from a place, or from beside the scene, which it then frames.
struct ViewWords {
    /// Times [k] and poses [k, camera_row_size]; empty: no camera.
    Array<double> camera_times, camera_rows;
    /// Vectors of three; empty: no place.
    Array<double> position, target, up_vector;
    double azimuth, elevation, field_of_view;
    unsigned int up;  ///< axis
};

/// Numbers of a camera's pose: position, right, up, forward, width, the shift to the right and up, lens radius, focus,
/// and 1 when it is parallel.
inline constexpr std::size_t camera_row_size = 18;

void write_pose(const sds_render::CameraPose& pose, double* row);

/// Places of surfaces: name, times [k] or none, and row-major matrices [k, 4, 4] or [1, 4, 4] for row vectors.
struct PlaceWords {
    std::string name;
    Array<double> times, matrices;
};

/// Immutable once made, with the surfaces as they were then. Any number of threads; members are used with the GIL held
/// and give it back while they work.
class SceneObject {
public:
    /// Instance i is surface i at place i. Equal surfaces are built once.
    SceneObject(const std::vector<const SurfaceObject*>& surfaces, const std::vector<PlaceWords>& places,
                unsigned int level);

    /// Instance, primitive, u, v and t per ray.
    pybind11::tuple intersect(const Array<double>& origins, const Array<double>& directions, const Array<double>& tnear,
                              const Array<double>& tfar, const Array<double>& times) const;
    pybind11::array occluded(const Array<double>& origins, const Array<double>& directions, const Array<double>& tnear,
                             const Array<double>& tfar, const Array<double>& times) const;

    /// Channels by name, [height, width], of the shutter from open to close. `progress` is None or is called on this
    /// thread with a share in [0, 1], a few times a second; what it throws, and a signal, end the picture. Surfaces
    /// without the UV map that is asked for keep the color they have without it if `keeps_unmapped`.
    pybind11::dict render(unsigned int width, unsigned int height, const ViewWords& view,
                          const sds_io::PictureOptions& options, bool keeps_unmapped, double open, double close,
                          const pybind11::object& progress) const;

    pybind11::array bbox() const;
    std::size_t size() const { return m_meshes->get_instances().size(); }

private:
    std::shared_ptr<const sds_render::Scene> get_scene(sds_render::Shutter shutter) const;
    template <class Visit>
    void trace(const RayArrays& rays, GeometryRayMode mode, const Visit& visit) const;

    std::vector<std::shared_ptr<const SurfaceState>> m_states;  // of the meshes
    std::unique_ptr<sds_model::MeshScene> m_meshes;
    bool m_is_animated = false;
    mutable std::mutex m_mutex;
    mutable std::shared_ptr<const sds_render::Scene> m_scene;  // the latest
};

}  // namespace sds_python
