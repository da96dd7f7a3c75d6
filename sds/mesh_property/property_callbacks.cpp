#include "sds/mesh_property/property_callbacks.h"

#include <algorithm>

#include "sds/common/cubic_basis.h"
#include "sds/mesh_base/control_rules.h"
#include "sds/mesh_property/refined_values.h"
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

// Where a fragment lies on the quads, and how derivatives by their (u, v) become those by the primitive's.
GeometryPlace find_place(const SdsMesh& mesh, const GeometryFragment& fragment) {
    return mesh.get_primitive_place(fragment.primitive, mesh.get_cell_corner(fragment.primitive, fragment.u),
                                    mesh.get_cell_corner(fragment.primitive, fragment.v));
}

// Components [first, first + 4) of a value and its derivatives by the primitive's (u, v), of `count` in all.
template <class T, class Value>
void write_jet(const sds::PatchJet<Components>& jet, unsigned int first, unsigned int count, Value* values,
               Value* const (&derivatives)[2]) {
    const Components* slopes[2] = {&jet.du, &jet.dv};
    for (unsigned int i = 0; i < sds::components_at_once && first + i < count; ++i) {
        if (values != nullptr) values[first + i] = convert_result<T, Value>(jet.value.c[i]);
        for (unsigned int d = 0; d < 2; ++d)
            if (derivatives[d] != nullptr)
                derivatives[d][first + i] = convert_result<std::int64_t, Value>(slopes[d]->c[i]);
    }
}

template <class T, class Value>
unsigned int evaluate_refined(const SdsMesh& mesh, const sds::RefinedValues& refined, const GeometryFragment& fragment,
                              Value* values, Value* const (&derivatives)[2], unsigned int max_count) {
    const GeometryPlace place = find_place(mesh, fragment);
    const sds::PatchPlaces& places = refined.get_places();
    const sds::PatchPlace at = places.find_patch(place.face, place.u, place.v);
    if (at.patch == none) return 0;
    const GeometryPlace frame = places.get_frame(at);
    const unsigned int count = std::min(max_count, refined.get_extent());
    for (unsigned int first = 0; first < count; first += sds::components_at_once) {
        Components controls[16];
        refined.get_controls(at.patch, first, controls);
        sds::PatchJet<Components> jet = sds::evaluate_jet(controls, at.u, at.v);
        jet.value = jet.value + refined.get_reference(first);
        frame.turn_to_face(jet.du, jet.dv);
        place.turn_to_primitive(jet.du, jet.dv);
        write_jet<T>(jet, first, count, values, derivatives);
    }
    return count;
}

// Linear on a quad: between the polygon's corners, or, where a step made the quad c of face-corner c, between the
// corner, the middle of the edge ahead, the polygon's mean and the middle of the edge behind.
template <class T, class Value>
unsigned int evaluate_varying(const GeometryProperty& base, const CtxEval&, const GeometryFragment& fragment,
                              const unsigned int& sample, Value* values, Value* du, Value* dv, Value* dw,
                              const unsigned int& max_count) {
    const auto& property = static_cast<const SdsMeshProperty&>(base);
    const ResourceProperty* items = property.get_values_property(sample);
    const SdsMesh& mesh = property.get_mesh();
    if (fragment.primitive >= mesh.get_primitive_count() || items == nullptr) return 0;
    const GeometryPlace place = find_place(mesh, fragment);
    const PolyMesh& polygons = property.get_source().get_mesh();
    const unsigned int polygon = mesh.get_base()->get_primitive_polygon_id(place.face);
    if (polygon == none) return 0;
    const unsigned int corner_count = polygons.get_polygon_counts()[polygon];
    const unsigned int offset = polygons.get_polygon_offsets()[polygon];
    const unsigned int* corners = (property.has_indices() ? property.get_source().get_indices().get_data()
                                                          : polygons.get_polygon_indices().get_data()) +
                                  offset;
    for (unsigned int j = 0; j < corner_count; ++j)
        if (corners[j] >= items->get_item_count()) return 0;

    const bool has_step = mesh.get_base()->get_base_tessellation_level();
    const unsigned int k = has_step ? place.face - offset : 0;
    const unsigned int extent = items->get_min_item_length();
    const unsigned int count = std::min(max_count, extent);
    Value* const derivatives[2] = {du, dv};
    for (unsigned int first = 0; first < count; first += sds::components_at_once) {
        const sds::ComponentAccess<T> access(*items, first, extent);
        const Components reference = access.get(corners[k]);
        const auto at = [&](unsigned int j) { return access.get(corners[j % corner_count]) - reference; };
        Components q[4] = {at(k), at(k + 1), at(k + 2), at(k + 3)};
        if (has_step) {
            q[1] = q[1] * 0.5;
            q[2] = {};
            for (unsigned int j = 0; j < corner_count; ++j) q[2] = q[2] + at(j);
            q[2] = sds::ValueOps<Components>::divide(q[2], static_cast<double>(corner_count));
            q[3] = at(k + corner_count - 1) * 0.5;
        }
        const double u = place.u, v = place.v;
        sds::PatchJet<Components> jet;
        jet.value = (q[0] * (1.0 - u) + q[1] * u) * (1.0 - v) + (q[3] * (1.0 - u) + q[2] * u) * v + reference;
        jet.du = (q[1] - q[0]) * (1.0 - v) + (q[2] - q[3]) * v;
        jet.dv = (q[3] - q[0]) * (1.0 - u) + (q[2] - q[1]) * u;
        place.turn_to_primitive(jet.du, jet.dv);
        write_jet<T>(jet, first, count, values, derivatives);
    }
    write_zero(dw, count);
    return count;
}

template <class T, class Value>
unsigned int evaluate_vertex(const GeometryProperty& base, const CtxEval&, const GeometryFragment& fragment,
                             const unsigned int& sample, Value* values, Value* du, Value* dv, Value* dw,
                             const unsigned int& max_count) {
    const auto& property = static_cast<const SdsMeshProperty&>(base);
    const SdsMesh& mesh = property.get_mesh();
    Value* const derivatives[2] = {du, dv};
    if (const sds::RefinedValues* refined = property.get_refined_values(sample); refined != nullptr) {
        if (fragment.primitive >= mesh.get_primitive_count()) return 0;
        const unsigned int count = evaluate_refined<T>(mesh, *refined, fragment, values, derivatives, max_count);
        write_zero(dw, count);
        return count;
    }
    const CoreBasicArray<unsigned int>& quad_indices = property.get_quad_indices();
    const ResourceProperty* surface = property.get_values_property(sample);
    const bool is_refined = mesh.get_geometry()->is_refined();
    const unsigned int primitive_count = is_refined ? mesh.get_primitive_count() : quad_indices.get_count() / 4;
    if (fragment.primitive >= primitive_count || surface == nullptr) return 0;
    const GeometryPlace place = find_place(mesh, fragment);
    const unsigned int* quad = quad_indices.get_data() + 4 * size_t{place.face};
    if (quad[0] == none || quad[1] == none || quad[2] == none || quad[3] == none) return 0;

    const unsigned int count = std::min(max_count, surface->get_extent());
    const ResourceProperty* corners = property.get_bezier_corners(sample);
    const SdsMeshBase::BezierPatch* patches = property.get_patches();
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
        jet.value = jet.value + reference;
        write_jet<T>(jet, first, count, values, derivatives);
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
            case PolyMeshProperty::Type::varying:
                callbacks = {&evaluate_varying<T, long long>, &evaluate_varying<T, double>};
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
