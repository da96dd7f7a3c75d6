#include "sds/mesh_property/property_callbacks.h"

#include <algorithm>

#include "sds/common/cubic_basis.h"
#include "sds/mesh_base/control_rules.h"
#include "sds/mesh_property/property_rules.h"
#include "sds/mesh_property/sds_mesh_property.h"

namespace {

using sds::Components;
using sds::none;

template <class Value>
struct Outputs {
    Value* values;
    Value* derivatives[3];
};

template <class Value>
void write_zero(Value* out, unsigned int count) {
    if (out != nullptr) std::fill(out, out + count, Value(0));
}

// Copies an item, converted; its derivatives are zero.
template <class T, class Value>
unsigned int write_item(const ResourceProperty* values, unsigned int item, const Outputs<Value>& out,
                        unsigned int max_count) {
    if (values == nullptr || item >= values->get_item_count()) return 0;
    const unsigned int count = std::min(max_count, values->get_item_length(item));
    const T* elements = values->get_item_values<T>(item);
    if (out.values != nullptr)
        for (unsigned int i = 0; i < count; ++i) {
            if constexpr (std::is_same_v<Value, double>)
                out.values[i] = sds::to_real(elements[i]);
            else
                out.values[i] = sds::to_integer(elements[i]);
        }
    for (Value* derivative : out.derivatives) write_zero(derivative, count);
    return count;
}

template <class T, class Value>
unsigned int evaluate_polygon(const GeometryProperty& base, const CtxEval&, const GeometryFragment& fragment,
                              const unsigned int& sample, Value* values, Value* du, Value* dv, Value* dw,
                              const unsigned int& max_count) {
    const auto& property = static_cast<const SdsMeshProperty&>(base);
    const SdsMesh& mesh = property.get_mesh();
    if (property.has_indices() || fragment.primitive >= mesh.get_primitive_count()) return 0;
    return write_item<T, Value>(property.get_values_property(sample), mesh.get_primitive_polygon_id(fragment.primitive),
                                {values, {du, dv, dw}}, max_count);
}

template <class T, class Value>
unsigned int evaluate_constant(const GeometryProperty& base, const CtxEval&, const GeometryFragment&,
                               const unsigned int& sample, Value* values, Value* du, Value* dv, Value* dw,
                               const unsigned int& max_count) {
    const auto& property = static_cast<const SdsMeshProperty&>(base);
    return write_item<T, Value>(property.get_values_property(sample), 0, {values, {du, dv, dw}}, max_count);
}

template <class T, class Value>
Value convert_result(double value) {
    if constexpr (std::is_same_v<Value, double>)
        return value;
    else
        return sds::real_to_integer<T>(value);
}

template <class T, class Value>
unsigned int evaluate_vertex(const GeometryProperty& base, const CtxEval&, const GeometryFragment& fragment,
                             const unsigned int& sample, Value* values, Value* du, Value* dv, Value* dw,
                             const unsigned int& max_count) {
    const auto& property = static_cast<const SdsMeshProperty&>(base);
    const CoreBasicArray<unsigned int>& quad_indices = property.get_quad_indices();
    const ResourceProperty* surface = property.get_values_property(sample);
    const SdsMesh& mesh = property.get_mesh();
    const bool is_refined = mesh.get_geometry()->is_refined();
    const unsigned int primitive_count = is_refined ? mesh.get_primitive_count() : quad_indices.get_count() / 4;
    if (fragment.primitive >= primitive_count || surface == nullptr) return 0;
    const GeometryPlace place =
        mesh.get_primitive_place(fragment.primitive, mesh.get_cell_corner(fragment.primitive, fragment.u),
                                 mesh.get_cell_corner(fragment.primitive, fragment.v));
    const unsigned int* quad = quad_indices.get_data() + 4 * size_t{place.face};
    if (quad[0] == none || quad[1] == none || quad[2] == none || quad[3] == none) return 0;

    const unsigned int count = std::min(max_count, surface->get_extent());
    const ResourceProperty* corners = property.get_bezier_corners(sample);
    const SdsMeshBase::BezierPatch* patches = property.get_patches();
    Value* const derivatives[2] = {du, dv};
    for (unsigned int first = 0; first < count; first += sds::components_at_once) {
        const sds::ComponentAccess<T> access(*surface, first, surface->get_extent());
        const Components reference = access.get(quad[0]);
        const auto vertex = [&](unsigned int w) { return access.get(w) - reference; };
        Components controls[16];
        if (corners != nullptr && patches != nullptr) {
            const sds::ComponentAccess<T> limits(*corners, first, corners->get_extent());
            sds::smooth_controls(
                quad, patches[place.face], vertex, [&](unsigned int w) { return limits.get(w) - reference; }, controls);
        } else {
            sds::linear_controls(quad, vertex, controls);
        }
        sds::PatchJet<Components> jet = sds::evaluate_jet(controls, place.u, place.v);
        if (is_refined) place.turn_to_primitive(jet.du, jet.dv);
        const Components result = jet.value + reference;
        const Components* slopes[2] = {&jet.du, &jet.dv};
        for (unsigned int i = 0; i < sds::components_at_once && first + i < count; ++i) {
            if (values != nullptr) values[first + i] = convert_result<T, Value>(result.c[i]);
            for (unsigned int d = 0; d < 2; ++d)
                if (derivatives[d] != nullptr)
                    derivatives[d][first + i] = convert_result<std::int64_t, Value>(slopes[d]->c[i]);
        }
    }
    write_zero(dw, count);
    return count;
}

}  // namespace

sds::PropertyCallbacks sds::find_property_callbacks(PolyMeshProperty::Type kind, ResourceProperty::Type type) {
    PropertyCallbacks callbacks;
    with_element(type, [&](auto element) {
        using T = decltype(element);
        switch (kind) {
            case PolyMeshProperty::Type::per_vertex:
                callbacks = {&evaluate_vertex<T, long long>, &evaluate_vertex<T, double>};
                break;
            case PolyMeshProperty::Type::per_polygon:
                callbacks = {&evaluate_polygon<T, long long>, &evaluate_polygon<T, double>};
                break;
            case PolyMeshProperty::Type::constant:
                callbacks = {&evaluate_constant<T, long long>, &evaluate_constant<T, double>};
                break;
        }
    });
    return callbacks;
}
