#include "model/mesh_scene.h"

#include "model/array_view.h"
#include "model/quad_places.h"

#include <algorithm>
#include <stdexcept>

namespace sds_model {

namespace {

class ArraySampleLoader : public SdsMeshGeometry::SampleLoader {
public:
    explicit ArraySampleLoader(std::vector<std::vector<float>> samples) : m_samples(std::move(samples)) {}

    void get_positions(const GMathTimeSampling&, const unsigned int& sample, GMathVec3<float>* out) override {
        const auto points = points_view(m_samples[sample]);
        std::copy(points.begin(), points.end(), out);
    }

private:
    std::vector<std::vector<float>> m_samples;
};

}  // namespace

std::unique_ptr<Surface> build_surface(const MeshSource& source, const SurfaceModes& modes, AppProgressBar* progress) {
    auto surface = std::make_unique<Surface>(source.cage, source.further_uvs, source.motion.vectors, modes, progress);
    if (source.motion.times.empty()) return surface;
    using Loader = CoreSharedPointer<SdsMeshGeometry::SampleLoader, CoreSharedCounter>;
    surface->get_geometry().set_positions_sampling(GMathTimeSampling(view_of(source.motion.times)),
                                                   Loader(new ArraySampleLoader(source.motion.samples)));
    return surface;
}

MeshScene::MeshScene(const std::vector<Mesh>& meshes, std::vector<MeshInstance> instances, unsigned int level)
    : m_instances(std::move(instances)) {
    for (const Mesh& mesh : meshes) {
        m_meshes.push_back(mesh.surface->make_mesh(level));
        m_properties.emplace_back(*mesh.properties, mesh.cage, m_meshes.back());
    }
}

void MeshScene::add_to(sds_render::Scene& scene) const {
    for (const MeshInstance& instance : m_instances) scene.add(get_mesh(instance), instance.transform);
}

std::vector<const SurfaceProperty*> MeshScene::find_property(const std::string& name) const {
    std::vector<std::string> names;
    std::vector<const SurfaceProperty*> by_mesh(m_properties.size(), nullptr);
    bool is_known = false;
    for (std::size_t m = 0; m < m_properties.size(); ++m)
        for (const SurfaceProperty& property : m_properties[m].get_all()) {
            if (property.get_name() == name) by_mesh[m] = &property;
            is_known |= by_mesh[m] != nullptr;
            if (std::find(names.begin(), names.end(), property.get_name()) == names.end())
                names.push_back(property.get_name());
        }
    if (!is_known) {
        std::string known;
        for (const std::string& each : names) known += (known.empty() ? "" : ", ") + each;
        throw std::invalid_argument("no property '" + name + "'; known are " + (known.empty() ? "none" : known));
    }
    std::vector<const SurfaceProperty*> found;
    for (const MeshInstance& instance : m_instances) found.push_back(by_mesh[instance.mesh]);
    return found;
}

sds_render::Layer MeshScene::make_property_layer(const std::string& name) const {
    const std::vector<const SurfaceProperty*> properties = find_property(name);
    const SurfaceProperty* widest = nullptr;
    for (const SurfaceProperty* property : properties)
        if (property != nullptr && (widest == nullptr || property->get_extent() > widest->get_extent()))
            widest = property;
    if (widest == nullptr) throw std::invalid_argument("property '" + name + "' is on no mesh that is shown");
    sds_render::Layer layer = sds_model::make_property_layer(*widest);
    if (properties.size() == 1) return layer;
    layer.evaluate = [properties](const sds_render::SurfacePoint& point) {
        double values[sds_render::Layer::max_component_count] = {};
        const SurfaceProperty* property = properties[point.object_index];
        sds_render::Layer::Value out;
        if (property == nullptr) return out;
        property->evaluate(*point.ctx, point.fragment, values, nullptr, nullptr);
        for (unsigned int i = 0; i < property->get_extent(); ++i) out.components[i] = static_cast<float>(values[i]);
        return out;
    };
    return layer;
}

void sample_instance_hit(const MeshScene& scene, const MeshInstance& instance, const CtxEval& ctx,
                         const GeometryHit& hit, double time, double* out) {
    const SdsMesh& mesh = scene.get_mesh(instance);
    GeometrySample sample;
    mesh.compute_fragment_sample(ctx, {hit.primitive, hit.u, hit.v, time, 0.0}, sample);
    const bool is_mirrored = !sds_render::place_sample(instance.transform, time, sample);
    sample_row(sample, out);
    for (unsigned int c = 9; is_mirrored && c < 12; ++c) out[c] = -out[c];
    if (!mesh.get_geometry()->is_refined()) return;
    const GeometryPlace place = mesh.get_primitive_place(hit.primitive, hit.u, hit.v);
    for (unsigned int c = 0; c < 3; ++c) place.turn_to_face(out[3 + c], out[6 + c]);
}

}  // namespace sds_model
