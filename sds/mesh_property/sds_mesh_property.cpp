#include "sds/mesh_property/sds_mesh_property.h"

#include <algorithm>

#include "sds/mesh_property/property_callbacks.h"
#include "sds/mesh_property/property_rules.h"
#include "sds/mesh_property/refined_values.h"

using Mode = SdsMeshGeometry::InterpolationMode;

void SdsMeshProperty::Sample::clear() {
    values = nullptr;
    surface_values.reset();
    corners.reset();
    refined.reset();
}

SdsMeshProperty::SdsMeshProperty(const SdsMesh& sds_mesh, const PolyMeshProperty& property)
    : GeometryProperty(property.get_property_name(), property.get_time_sampling(), property.get_value_type(),
                       property.get_value_extent(), property.get_index_count(), property.get_value_count()),
      source(&property),
      mesh(&sds_mesh) {
    // A property without a time sampling has one set of values.
    samples.resize(std::max(1u, property.get_time_sampling().get_sample_count()));
    const sds::PropertyCallbacks callbacks =
        sds::find_property_callbacks(property.get_type(), property.get_value_type());
    set_evaluate_callbacks(callbacks.integer, callbacks.real);
}

SdsMeshProperty::SdsMeshProperty(const SdsMeshProperty& other)
    : GeometryProperty(other), source(other.source), mesh(other.mesh), indices(other.indices), levels(other.levels) {
    if (other.topology) {
        topology = std::make_unique<Topology>();
        topology->vertex_infos = other.topology->vertex_infos;
        topology->edges = other.topology->edges;
        topology->local_topologies = other.topology->local_topologies;
        topology->patches = other.topology->patches;
        topology->subdivision.first_edge_point = other.topology->subdivision.first_edge_point;
        topology->subdivision.first_face_point = other.topology->subdivision.first_face_point;
        topology->subdivision.vertex_rings = other.topology->subdivision.vertex_rings;
        topology->subdivision.ring_edges = other.topology->subdivision.ring_edges;
    }
    samples.resize(other.samples.get_count());
    for (unsigned int i = 0; i < samples.get_count(); ++i) {
        const Sample& from = other.samples[i];
        if (from.surface_values) samples[i].surface_values = std::make_unique<ResourceProperty>(*from.surface_values);
        if (from.corners) samples[i].corners = std::make_unique<ResourceProperty>(*from.corners);
        samples[i].refined = from.refined;
        samples[i].values = from.surface_values ? samples[i].surface_values.get() : from.values;
    }
}

SdsMeshProperty::~SdsMeshProperty() = default;

const CoreClassInfo& SdsMeshProperty::get_class_info() const { return class_info(); }
const CoreClassInfo& SdsMeshProperty::class_info() {
    static const CoreClassInfo& info = CoreClassInfo::new_class("SdsMeshProperty", &destroy_object<SdsMeshProperty>,
                                                                &GeometryProperty::class_info(), nullptr);
    return info;
}

size_t SdsMeshProperty::get_memory_size() const {
    size_t size = sizeof(*this) + sizeof(Sample) * samples.get_count() + sizeof(unsigned int) * indices.get_count();
    for (const Sample& sample : samples) {
        if (sample.surface_values) size += sample.surface_values->get_memory_size();
        if (sample.corners) size += sample.corners->get_memory_size();
        if (sample.refined) size += sample.refined->get_memory_size();
    }
    if (levels.topology) size += levels.topology->get_memory_size();
    if (levels.places) size += levels.places->get_memory_size();
    if (topology) {
        size += sizeof(Topology) + topology->vertex_infos.get_count() + topology->edges.quad_edge_flags.get_count();
        size += sizeof(unsigned int) *
                (size_t{topology->edges.opposite_edges.get_count()} + topology->subdivision.ring_edges.get_count());
        size += sizeof(SdsMeshBase::RingSpan) * topology->subdivision.vertex_rings.get_count();
        size += sizeof(SdsMeshBase::VertexLocalTopology) * topology->local_topologies.get_count();
        size += sizeof(SdsMeshBase::BezierPatch) * topology->patches.get_count();
    }
    return size;
}

const CoreBasicArray<unsigned int>& SdsMeshProperty::get_quad_indices() const {
    if (topology && source->has_indices()) return indices;
    return mesh->get_base()->get_quad_indices();
}

const SdsMeshBase::BezierPatch* SdsMeshProperty::get_patches() const {
    return topology ? topology->patches.get_data() : mesh->get_geometry()->get_bezier_patches().get_data();
}

SdsMeshBase::TopologyContext SdsMeshProperty::get_topology_context() const {
    const SdsMeshBase& base = *mesh->get_base();
    const SdsMeshGeometry& geometry = *mesh->get_geometry();
    if (topology && source->has_indices())
        return {
            &indices, &topology->vertex_infos, topology->local_topologies.get_data(),
            nullptr,  &topology->edges,        base.get_base_tessellation_level() ? &topology->subdivision : nullptr};
    const SdsMeshBase::VertexLocalTopology* fans =
        topology ? topology->local_topologies.get_data() : geometry.get_local_topologies().get_data();
    return {&base.get_quad_indices(), &geometry.get_vertex_infos(), fans, nullptr,
            &base.get_edges(),        base.get_subdivision()};
}

// A refined geometry has no fans and records of the quads.
void SdsMeshProperty::init_quads() {
    auto own = std::make_unique<Topology>();
    const SdsMeshBase& base = *mesh->get_base();
    own->local_topologies.resize(4 * base.get_primitive_count());
    SdsMeshBase::analyse_vertices_local_topology(base.get_edges(), own->local_topologies, false, nullptr);
    own->patches.resize(base.get_primitive_count());
    topology = std::move(own);
    SdsMeshBase::compute_bezier_topology(get_topology_context(), topology->patches, nullptr);
}

bool SdsMeshProperty::init_indices() {
    if (!source->has_indices() && !topology && mesh->get_geometry()->is_refined() && !is_refined() &&
        source->get_type() == PolyMeshProperty::Type::per_vertex)
        init_quads();
    if (!need_indices_init()) return true;
    if (source->get_type() == PolyMeshProperty::Type::constant) {
        indices = source->get_indices();
        return true;
    }
    if (source->get_type() != PolyMeshProperty::Type::per_vertex) return false;

    auto own = std::make_unique<Topology>();
    const PolyMesh& polygons = source->get_mesh();
    // Without values yet the indices tell how many items there are.
    unsigned int item_count = source->get_value_count();
    for (const unsigned int i : source->get_indices())
        if (i != sds::none) item_count = std::max(item_count, i + 1);
    if (mesh->get_base()->get_base_tessellation_level())
        SdsMeshBase::subdivide(source->get_indices(), polygons.get_polygon_counts(), polygons.get_polygon_offsets(),
                               item_count, indices, own->vertex_infos, own->edges, own->subdivision, nullptr);
    else
        SdsMeshBase::import_quads(source->get_indices(), polygons.get_polygon_counts(), polygons.get_polygon_offsets(),
                                  item_count, indices, own->vertex_infos, own->edges, nullptr);

    const Mode mode = mesh->get_geometry()->get_interpolation_mode();
    // Unlike a surface of an unknown mode, its properties are fixed.
    const auto rule =
        mode <= Mode::borders_fixed ? static_cast<SdsMeshBase::VertexRule>(mode) : SdsMeshBase::VertexRule::all_fixed;
    SdsMeshBase::set_vertices_by_rule(indices, own->edges, rule, own->vertex_infos);
    if (is_refined()) {
        topology = std::move(own);
        return true;
    }
    const bool linear = mode == Mode::all_fixed;
    own->local_topologies.resize(indices.get_count());
    SdsMeshBase::analyse_vertices_local_topology(own->edges, own->local_topologies, linear, nullptr);
    topology = std::move(own);
    topology->patches.resize(indices.get_count() / 4);
    SdsMeshBase::compute_bezier_topology(get_topology_context(), topology->patches, nullptr);
    return true;
}

bool SdsMeshProperty::init(const unsigned int& sample, const ResourceProperty* values) {
    Sample& entry = samples[sample];
    entry.clear();
    if (values == nullptr || values->get_type() != get_value_type()) return false;
    const bool has_topology = source->get_type() == PolyMeshProperty::Type::varying || init_indices();
    switch (source->get_type()) {
        case PolyMeshProperty::Type::per_vertex:
            break;
        case PolyMeshProperty::Type::varying:
            entry.surface_values = std::make_unique<ResourceProperty>(*values);
            entry.values = entry.surface_values.get();
            return true;
        case PolyMeshProperty::Type::per_polygon:
        case PolyMeshProperty::Type::constant:
            entry.values = values;
            return true;
        default:
            return false;
    }
    if (!has_topology) return false;
    if (is_refined()) {
        init_refined(entry, *values);
        return true;
    }

    const SdsMeshBase& base = *mesh->get_base();
    const bool linear = mesh->get_geometry()->get_interpolation_mode() == Mode::all_fixed;
    const SdsMeshBase::TopologyContext context = get_topology_context();
    const unsigned int extent = values->get_min_item_length();
    auto surface = std::make_unique<ResourceProperty>(values->get_name());
    const bool known = sds::with_element(values->get_type(), [&](auto element) {
        using T = decltype(element);
        if (base.get_base_tessellation_level()) {
            surface->init(values->get_type(), extent, context.vertex_infos->get_count());
            sds::subdivide_property<T>(context, linear, *values, *surface);
        } else {
            surface->init(values->get_type(), extent, values->get_item_count());
            for (unsigned int i = 0; i < values->get_item_count(); ++i)
                surface->set_item_values(i, values->get_item_values<T>(i), extent);
        }
        if (linear) return;
        entry.corners = std::make_unique<ResourceProperty>(*surface);
        sds::compute_property_corners<T>(context, *surface, *entry.corners);
    });
    if (!known) return false;
    entry.surface_values = std::move(surface);
    entry.values = entry.surface_values.get();
    return true;
}
