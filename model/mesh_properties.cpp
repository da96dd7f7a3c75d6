#include "model/mesh_properties.h"

#include "model/array_view.h"
#include "qn_poly/poly_crease_scope.h"

#include <stdexcept>

namespace sds_model {

SurfaceProperty::SurfaceProperty(const PolyMesh& polygons, const SdsMesh& mesh, const PropertySource& source)
    : name_(source.name), source_(make_host_property(polygons, source)), property_(mesh, source_) {
    for (unsigned int i = 0; i < source_.get_sample_count(); ++i) property_.init(i, &source_.get_sample_values(i));
}

void SurfaceProperty::evaluate(const CtxEval& ctx, const GeometryFragment& fragment, double* value, double* du,
                               double* dv) const {
    unsigned int sample = 0;
    double share = 0.0;
    property_.get_time_sampling().get_span(fragment.time, sample, share);
    property_.evaluate(ctx, fragment, sample, value, du, dv, nullptr, extent());
    if (!(share > 0.0)) return;
    std::vector<double> next(3 * std::size_t{extent()});
    double* const out[] = {value, du, dv};
    double* const other[] = {next.data(), next.data() + extent(), next.data() + 2 * std::size_t{extent()}};
    property_.evaluate(ctx, fragment, sample + 1, other[0], other[1], other[2], nullptr, extent());
    for (std::size_t row = 0; row < 3; ++row)
        for (unsigned int i = 0; i < extent() && out[row] != nullptr; ++i)
            out[row][i] += (other[row][i] - out[row][i]) * share;
}

MeshProperties::MeshProperties(const std::vector<PropertySource>& sources, const ControlCage& cage,
                               const SdsMesh& mesh) {
    polygons_.set_polygons(view_of(cage.polygon_counts), view_of(cage.polygon_indices), view_of(cage.corner_creases));
    const PolyCreaseScope creases(view_of(cage.corner_creases));
    for (const PropertySource& source : sources) properties_.emplace_back(polygons_, mesh, source);
}

const SurfaceProperty& MeshProperties::find(const std::string& name) const {
    std::string known;
    for (const SurfaceProperty& property : properties_) {
        if (property.name() == name) return property;
        known += (known.empty() ? "" : ", ") + property.name();
    }
    throw std::invalid_argument("no property '" + name + "'; known are " + (known.empty() ? "none" : known));
}

sds_render::Layer make_property_layer(const SurfaceProperty& property) {
    constexpr unsigned int most = sds_render::Layer::max_component_count;
    const unsigned int extent = property.extent();
    if (extent > most)
        throw std::invalid_argument("property '" + property.name() + "': a layer shows up to " + std::to_string(most) +
                                    " numbers, found an extent of " + std::to_string(extent));
    sds_render::Layer layer;
    layer.name = property.name();
    for (unsigned int i = 0; i < extent; ++i) layer.components.push_back(extent == 1 ? "" : std::string(1, "XYZW"[i]));
    layer.evaluate = [&property, extent](const sds_render::SurfacePoint& point) {
        double values[most] = {};
        property.evaluate(*point.ctx, point.fragment, values, nullptr, nullptr);
        sds_render::Layer::Value out;
        for (unsigned int i = 0; i < extent; ++i) out.components[i] = static_cast<float>(values[i]);
        return out;
    };
    return layer;
}

}  // namespace sds_model
