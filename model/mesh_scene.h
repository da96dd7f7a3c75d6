#pragma once

#include "model/mesh_properties.h"
#include "model/surface.h"
#include "render/scene.h"

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace sds_model {

/// How the vertices of a mesh move; its cage has them where they are at time 0.
struct MeshMotion {
    std::vector<float> vectors;               ///< x y z per vertex and unit of time; empty without
    std::vector<double> times;                ///< of the samples, strictly increasing; empty without
    std::vector<std::vector<float>> samples;  ///< x y z per vertex at each time

    bool is_moving() const { return !vectors.empty() || !times.empty(); }
};

/// A mesh with all that belongs to it, every count, index and number checked.
struct MeshSource {
    std::string name;  ///< path of a prim, or a file
    ControlCage cage;
    std::vector<UvSource> further_uvs;  ///< joined on the cage
    MeshMotion motion;
    std::vector<PropertySource> properties;
};

/// Builds the surface of a mesh and gives it its motion. `progress` may be null. The source may go before it.
std::unique_ptr<Surface> build_surface(const MeshSource& source, const SurfaceModes& modes, AppProgressBar* progress);

/// A place of a mesh in a scene. One mesh may have many.
struct MeshInstance {
    std::string name;  ///< path of the prim, or the file
    std::uint32_t mesh = 0;
    sds_render::Transform transform;
};

/// Meshes with their instances, ready to be put into a scene of the renderer. What it refers to outlives it. After
/// construction any number of threads may read.
class MeshScene {
public:
    struct Mesh {
        const Surface* surface;
        CageView cage;
        const std::vector<PropertySource>* properties;
    };

    /// At a tessellation level, 0 for the limit surface.
    MeshScene(const std::vector<Mesh>& meshes, std::vector<MeshInstance> instances, unsigned int level);
    MeshScene(const MeshScene&) = delete;
    MeshScene& operator=(const MeshScene&) = delete;

    const std::vector<MeshInstance>& get_instances() const { return m_instances; }
    const SdsMesh& get_mesh(const MeshInstance& instance) const { return m_meshes[instance.mesh]; }
    const MeshProperties& get_properties(const MeshInstance& instance) const { return m_properties[instance.mesh]; }

    /// Object i of the scene, which has none yet, is instance i.
    void add_to(sds_render::Scene& scene) const;

    /// The property of that name on every instance, nullptr where its mesh has none. Throws std::invalid_argument, with
    /// the known names, when no mesh has it.
    std::vector<const SurfaceProperty*> find_property(const std::string& name) const;

    /// A layer with the property's name, of the most numbers that a mesh has for it; 0 where there is none. Throws
    /// std::invalid_argument as find_property does, and for more than four numbers. The scene outlives the layer.
    sds_render::Layer make_property_layer(const std::string& name) const;

private:
    std::deque<SdsMesh> m_meshes;
    std::deque<MeshProperties> m_properties;
    std::vector<MeshInstance> m_instances;
};

/// sample_row of a hit on an instance, as the scene sees it: the derivatives are by the quad's u and v.
void sample_instance_hit(const MeshScene& scene, const MeshInstance& instance, const CtxEval& ctx,
                         const GeometryHit& hit, double time, double* out);

}  // namespace sds_model
