#include "sds/mesh_maps/sds_mesh_maps.h"

#include <new>

#include "sds/common/array_bytes.h"
#include "sds/common/progress.h"
#include "sds/mesh_maps/control_polygons.h"
#include "sds/mesh_maps/refined_map.h"

using sds::bytes_of;
using sds::none;

SdsMeshMaps::~SdsMeshMaps() = default;

SdsMeshMaps::SdsUvMap& SdsMeshMaps::SdsUvMap::operator=(const SdsUvMap& other) {
    if (this == &other) return *this;
    name = other.name;
    quad_indices = other.quad_indices;
    vertex_count = other.vertex_count;
    vertices = other.vertices;
    vertex_infos = other.vertex_infos;
    edges = other.edges;
    patch_indices = other.patch_indices;
    patches = other.patches;
    corners = other.corners;
    refined = other.refined;
    bind_controls();
    return *this;
}

void SdsMeshMaps::SdsUvMap::bind_controls() {
    if (refined) {
        controls = SdsBezierMesh(refined->get_patch_count(), vertex_count, quad_indices.get_data(), nullptr, nullptr);
        controls.add_controls(vertices.get_data(), refined->controls.get_data(), 1.0f);
        return;
    }
    controls = SdsBezierMesh(quad_indices.get_count() / 4, vertex_count, quad_indices.get_data(), patches.get_data(),
                             vertices.get_data(), corners.get_data(), patch_indices.get_data());
}

size_t SdsMeshMaps::SdsUvMap::get_memory_size() const {
    return sizeof(*this) + name.get_count() + bytes_of(quad_indices) + bytes_of(vertices) + bytes_of(vertex_infos) +
           bytes_of(edges.opposite_edges) + bytes_of(edges.quad_edge_flags) + bytes_of(patch_indices) +
           bytes_of(patches) + bytes_of(corners) + get_refined_memory_size();
}

size_t SdsMeshMaps::SdsUvMap::get_refined_memory_size() const { return refined ? refined->get_memory_size() : 0; }

const CoreClassInfo& SdsMeshMaps::get_class_info() const { return class_info(); }
const CoreClassInfo& SdsMeshMaps::class_info() {
    static const CoreClassInfo& info =
        CoreClassInfo::new_class("SdsMeshMaps", &destroy_object<SdsMeshMaps>, &ResourceData::class_info(),
                                 []() -> CoreBaseType* { return new (std::nothrow) SdsMeshMaps; });
    return info;
}

size_t SdsMeshMaps::get_memory_size() const {
    size_t size = sizeof(*this);
    for (const SdsUvMap& map : uv_maps) size += map.get_memory_size();
    for (const SdsColorMap& map : color_maps)
        size += sizeof(map) + map.name.get_count() + bytes_of(map.colors) + bytes_of(map.indices);
    return size;
}

void SdsMeshMaps::set(const SdsMeshBase& mesh_base, const CoreArray<unsigned int>& polygon_vertex_counts,
                      const CoreArray<GeometryUvMap>& host_uv_maps, const CoreArray<GeometryColorMap>& host_color_maps,
                      const InterpolationMode& interpolation_mode, AppProgressBar* progress) {
    sds::progress_value(progress, 0.0f);
    base = &mesh_base;
    mode = interpolation_mode;
    const ControlPolygons polygons(polygon_vertex_counts);

    uv_maps.clear();
    color_maps.clear();
    uv_maps.resize(host_uv_maps.get_count());
    color_maps.resize(host_color_maps.get_count());
    {
        const sds::ProgressTask task(progress, "UV maps", 0.5f);
        const float share = host_uv_maps.is_empty() ? 0.0f : 1.0f / static_cast<float>(host_uv_maps.get_count());
        for (unsigned int i = 0; i < host_uv_maps.get_count(); ++i)
            set_uv_map(host_uv_maps[i], polygons, share, uv_maps[i], progress);
    }
    const sds::ProgressTask task(progress, "color maps", 0.5f);
    const float share = host_color_maps.is_empty() ? 0.0f : 1.0f / static_cast<float>(host_color_maps.get_count());
    for (unsigned int i = 0; i < host_color_maps.get_count(); ++i)
        set_color_map(host_color_maps[i], polygons, share, color_maps[i], progress);
}

void SdsMeshMaps::set_uv_map(const GeometryUvMap& source, const ControlPolygons& polygons, float share, SdsUvMap& map,
                             AppProgressBar* progress) const {
    const bool subdivided = base->get_base_tessellation_level();
    const bool linear = mode == InterpolationMode::all_fixed;
    map.name = source.name;

    SdsMeshBase::SubdivisionTopology subdivision;
    if (subdivided) {
        const sds::ProgressTask task(progress, "subdivide", share * 0.25f);
        SdsMeshBase::subdivide(source.indices, polygons.counts, polygons.offsets, source.vertices.get_count(),
                               map.quad_indices, map.vertex_infos, map.edges, subdivision, progress);
    } else {
        const sds::ProgressTask task(progress, "import quads", share * 0.34f);
        SdsMeshBase::import_quads(source.indices, polygons.counts, polygons.offsets, source.vertices.get_count(),
                                  map.quad_indices, map.vertex_infos, map.edges, progress);
    }
    set_vertices_interpolation(map.quad_indices, map.edges, base->get_edges(), mode, map.vertex_infos);
    if (mode == InterpolationMode::corners_plus1 || mode == InterpolationMode::corners_plus2)
        set_junction_vertices_as_fixed(map);
    map.vertex_count = map.vertex_infos.get_count();
    map.refined.reset();
    const SdsMeshBase::ControlCage* cage = base->get_control_cage();
    const bool is_refined = !linear && cage != nullptr && cage->refinement.refine_maps;

    CoreArray<SdsMeshBase::VertexLocalTopology> fans;
    if (!is_refined) {
        fans.resize(map.quad_indices.get_count());
        // One weight whatever the number of maps: with several of them the bar runs ahead here.
        const sds::ProgressTask task(progress, "analyse vertices topology", subdivided ? 0.25f : 0.33f);
        SdsMeshBase::analyse_vertices_local_topology(map.edges, fans, linear, progress);
    }
    const SdsMeshBase::TopologyContext context{&map.quad_indices, &map.vertex_infos,
                                               fans.get_data(),   nullptr,
                                               &map.edges,        subdivided ? &subdivision : nullptr};
    if (subdivided) {
        const sds::ProgressTask task(progress, "compute subdivision positions", share * 0.25f);
        map.vertices.assign(map.vertex_count, {0, 0, 0});
        SdsMeshBase::compute_subdivision_positions(source.vertices, context, map.vertices.get_data(), linear, progress);
    } else {
        map.vertices = source.vertices;
    }
    if (is_refined) {
        const sds::ProgressTask task(progress, "refine UV map", share * (subdivided ? 0.5f : 0.66f));
        refine_uv_map(source, map, progress);
        return;
    }
    const sds::ProgressTask task(progress, "compute UV map controls", share * (subdivided ? 0.25f : 0.33f));
    compute_uv_map_controls(context, map, linear, progress);
    map.bind_controls();
}

void SdsMeshMaps::compute_uv_map_controls(const SdsMeshBase::TopologyContext& context, SdsUvMap& map,
                                          const bool& linear, AppProgressBar*) {
    const unsigned int quad_count = map.quad_indices.get_count() / 4;
    const auto is_mapped = [&map](unsigned int q) {
        for (unsigned int k = 0; k < 4; ++k)
            if (map.quad_indices[4 * size_t{q} + k] == none) return false;
        return true;
    };
    map.patch_indices.resize(quad_count);
    unsigned int patch_count = 0;
    for (unsigned int q = 0; q < quad_count; ++q) {
        map.patch_indices[q] = patch_count;
        if (is_mapped(q)) ++patch_count;
    }
    map.patches.clear();
    map.corners.clear();
    if (linear) return;

    map.patches.resize(patch_count);
    for (unsigned int q = 0; q < quad_count; ++q)
        if (is_mapped(q)) SdsMeshBase::compute_bezier_topology(context, q, map.patches[map.patch_indices[q]]);

    map.corners = map.vertices;  // vertices that no quad uses stay where they are
    CoreArray<unsigned char> visited(map.vertex_count, 0);
    for (unsigned int e = 0; e < map.quad_indices.get_count(); ++e) {
        const unsigned int v = map.quad_indices[e];
        if (v == none || visited[v] != 0) continue;
        SdsMeshBase::compute_bezier_corner(context, e, map.vertices.get_data(), map.corners[v]);
        visited[v] = 1;
    }
}

CoreArray<CoreArray<GMathVec3<float>>> SdsMeshMaps::get_uv_maps() const {
    CoreArray<CoreArray<Vec3f>> copies;
    for (const SdsUvMap& map : uv_maps) copies.add(map.vertices);
    return copies;
}

CoreArray<CoreArray<GMathVec4<unsigned char>>> SdsMeshMaps::get_color_maps() const {
    CoreArray<CoreArray<Color8>> copies;
    for (const SdsColorMap& map : color_maps) copies.add(map.colors);
    return copies;
}
