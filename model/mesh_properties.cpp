#include "model/mesh_properties.h"

#include "model/array_view.h"
#include "qn_poly/poly_crease_scope.h"

#include <stdexcept>

namespace sds_model {

SurfaceProperty::SurfaceProperty(const PolyMesh& polygons, const SdsMesh& mesh, const PropertySource& source)
    : m_name(source.name), m_source(make_host_property(polygons, source)), m_property(mesh, m_source) {
    for (unsigned int i = 0; i < m_source.get_sample_count(); ++i) m_property.init(i, &m_source.get_sample_values(i));
}

void SurfaceProperty::evaluate(const CtxEval& ctx, const GeometryFragment& fragment, double* value, double* du,
                               double* dv) const {
    unsigned int sample = 0;
    double share = 0.0;
    m_property.get_time_sampling().get_span(fragment.time, sample, share);
    m_property.evaluate(ctx, fragment, sample, value, du, dv, nullptr, get_extent());
    if (!(share > 0.0)) return;
    std::vector<double> next(3 * std::size_t{get_extent()});
    double* const out[] = {value, du, dv};
    double* const other[] = {next.data(), next.data() + get_extent(), next.data() + 2 * std::size_t{get_extent()}};
    m_property.evaluate(ctx, fragment, sample + 1, other[0], other[1], other[2], nullptr, get_extent());
    for (std::size_t row = 0; row < 3; ++row)
        for (unsigned int i = 0; i < get_extent() && out[row] != nullptr; ++i)
            out[row][i] += (other[row][i] - out[row][i]) * share;
}

MeshProperties::MeshProperties(const std::vector<PropertySource>& sources, const CageView& cage, const SdsMesh& mesh) {
    m_polygons.set_polygons(view_of(cage.polygon_counts), view_of(cage.polygon_indices), view_of(cage.corner_creases));
    const PolyCreaseScope creases(view_of(cage.corner_creases));
    for (const PropertySource& source : sources) m_properties.emplace_back(m_polygons, mesh, source);
}

const SurfaceProperty& MeshProperties::find(const std::string& name) const {
    std::string known;
    for (const SurfaceProperty& property : m_properties) {
        if (property.get_name() == name) return property;
        known += (known.empty() ? "" : ", ") + property.get_name();
    }
    throw std::invalid_argument("no property '" + name + "'; known are " + (known.empty() ? "none" : known));
}

sds_render::Layer make_property_layer(const SurfaceProperty& property) {
    constexpr unsigned int most = sds_render::Layer::max_component_count;
    const unsigned int extent = property.get_extent();
    if (extent > most)
        throw std::invalid_argument("property '" + property.get_name() + "': a layer shows up to " +
                                    std::to_string(most) + " numbers, found an extent of " + std::to_string(extent));
    sds_render::Layer layer;
    layer.name = property.get_name();
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
