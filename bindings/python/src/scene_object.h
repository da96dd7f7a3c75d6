// The Python object behind `Scene`: surfaces at places, for rays and pictures.
#pragma once

#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "render/renderer.h"
#include "surface_object.h"

namespace sds_python {

/// What a picture is taken with. Vectors of three; without a target the camera frames the scene from the angles.
struct PictureWords {
    unsigned int width, height, samples;
    Array<double> position, target, up;
    double azimuth, elevation, field_of_view;
    bool background;
    std::vector<std::string> layers;
};

/// Immutable once made, with the surfaces as they were then. Any number of threads; members are used with the GIL held
/// and give it back while they work.
class SceneObject {
public:
    /// Instance i is surface i under matrix i, a row-major [4, 4] for row vectors. Equal surfaces are built once.
    SceneObject(const std::vector<const SurfaceObject*>& surfaces, const Array<double>& matrices, unsigned int level);

    /// Instance, primitive, u, v and t per ray.
    pybind11::tuple intersect(const Array<double>& origins, const Array<double>& directions, const Array<double>& tnear,
                              const Array<double>& tfar, const Array<double>& times) const;
    pybind11::array occluded(const Array<double>& origins, const Array<double>& directions, const Array<double>& tnear,
                             const Array<double>& tfar, const Array<double>& times) const;

    /// Channels by name, [height, width], of the shutter from open to close. `progress` is None or is called on this
    /// thread with a share in [0, 1], a few times a second; what it throws, and a signal, end the picture.
    pybind11::dict render(const PictureWords& words, double open, double close, const pybind11::object& progress) const;

    pybind11::array bbox() const;
    std::size_t size() const { return m_mesh_of.size(); }

private:
    std::shared_ptr<const sds_render::Scene> get_scene(sds_render::Shutter shutter) const;
    template <class Visit>
    void trace(const RayArrays& rays, GeometryRayMode mode, const Visit& visit) const;

    std::vector<std::shared_ptr<const SurfaceState>> m_states;  // of the instances
    std::deque<SdsMesh> m_meshes;
    std::vector<std::size_t> m_mesh_of;
    std::vector<sds_render::Transform> m_transforms;
    bool m_is_animated = false;
    mutable std::mutex m_mutex;
    mutable std::shared_ptr<const sds_render::Scene> m_scene;  // the latest
};

}  // namespace sds_python
