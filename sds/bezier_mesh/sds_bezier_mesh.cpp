#include "sds/bezier_mesh/sds_bezier_mesh.h"

#include <algorithm>

#include "sds/common/point_lanes.h"
#include "sds/mesh_base/control_rules.h"

using Vec3f = GMathVec3<float>;
using BezierPatch = SdsMeshBase::BezierPatch;
using sds::PointLanes;

namespace {

// An emptied array may keep its storage.
template <class T>
const T* data_or_null(const CoreBasicArray<T>& array) {
    return array.is_empty() ? nullptr : array.get_data();
}

}  // namespace

SdsBezierMesh::SdsBezierMesh(const unsigned int& patches_in, const unsigned int& vertices, const unsigned int* indices,
                             const BezierPatch* records, const unsigned int* record_indices)
    : patch_count(patches_in),
      vertex_count(vertices),
      vertex_indices(indices),
      patch_indices(record_indices),
      patches(records) {}

SdsBezierMesh::SdsBezierMesh(const unsigned int& vertices, const CoreBasicArray<unsigned int>& quad_indices,
                             const CoreBasicArray<BezierPatch>& records,
                             const CoreBasicArray<unsigned int>& record_indices)
    : SdsBezierMesh(quad_indices.get_count() / 4, vertices, quad_indices.get_data(), data_or_null(records),
                    data_or_null(record_indices)) {}

SdsBezierMesh::SdsBezierMesh(const unsigned int& patches_in, const unsigned int& vertices, const unsigned int* indices,
                             const BezierPatch* records, const Vec3f* quad_points, const Vec3f* patch_points,
                             const unsigned int* record_indices)
    : SdsBezierMesh(patches_in, vertices, indices, records, record_indices) {
    set_vertices(quad_points, patch_points);
}

SdsBezierMesh::SdsBezierMesh(const CoreBasicArray<unsigned int>& quad_indices,
                             const CoreBasicArray<BezierPatch>& records, const CoreBasicArray<Vec3f>& quad_points,
                             const CoreBasicArray<Vec3f>& patch_points,
                             const CoreBasicArray<unsigned int>& record_indices)
    : SdsBezierMesh(quad_points.get_count(), quad_indices, records, record_indices) {
    set_vertices(quad_points, patch_points);
}

const CoreClassInfo& SdsBezierMesh::get_class_info() const { return class_info(); }
const CoreClassInfo& SdsBezierMesh::class_info() {
    static const CoreClassInfo& info =
        CoreClassInfo::new_class("SdsBezierMesh", &destroy_object<SdsBezierMesh>, &CoreBaseType::class_info(),
                                 []() -> CoreBaseType* { return new (std::nothrow) SdsBezierMesh; });
    return info;
}

void SdsBezierMesh::set_vertices(const Vec3f* quad_points, const Vec3f* patch_points) {
    source_count = 0;
    stored_controls[0] = nullptr;
    add_vertices(quad_points, patch_points, 1.0f);
}

void SdsBezierMesh::set_vertices(const CoreBasicArray<Vec3f>& quad_points, const CoreBasicArray<Vec3f>& patch_points) {
    set_vertices(quad_points.get_data(), data_or_null(patch_points));
}

void SdsBezierMesh::add_vertices(const Vec3f* quad_points, const Vec3f* patch_points, const float& weight) {
    quad_vertices[source_count] = quad_points;
    patch_vertices[source_count] = patch_points != nullptr ? patch_points : quad_points;
    weights[source_count] = weight;
    ++source_count;
    choose_controls();
}

void SdsBezierMesh::add_vertices(const CoreBasicArray<Vec3f>& quad_points, const CoreBasicArray<Vec3f>& patch_points,
                                 const float& weight) {
    add_vertices(quad_points.get_data(), data_or_null(patch_points), weight);
}

void SdsBezierMesh::add_controls(const Vec3f* quad_points, const Vec3f* controls, const float& weight) {
    stored_controls[source_count] = controls;
    add_vertices(quad_points, nullptr, weight);
}

void SdsBezierMesh::get_stored_controls(const unsigned int& patch, Vec3f* out) const {
    const size_t first = 16 * size_t{patch};
    std::copy_n(stored_controls[0] + first, 16, out);
    if (source_count == 1) return;
    for (unsigned int i = 0; i < 16; ++i) out[i] = out[i] * weights[0];
    for (unsigned int s = 1; s < source_count; ++s)
        for (unsigned int i = 0; i < 16; ++i) out[i] += stored_controls[s][first + i] * weights[s];
}

// Of a single source.
inline void SdsBezierMesh::compute_smooth_lanes(const unsigned int* quad, const BezierPatch& patch,
                                                PointLanes* out) const {
    const Vec3f* const vertices = quad_vertices[0];
    const Vec3f* const corners = patch_vertices[0];
    sds::smooth_controls(
        quad, patch, [vertices](unsigned int w) { return PointLanes(vertices[w]); },
        [corners](unsigned int w) { return PointLanes(corners[w]); }, out);
}

void SdsBezierMesh::get_patch_controls(const unsigned int& patch, PointLanes* out) const {
    if (!has_stored_controls() && compute_controls == &compute_bezier_controls) {
        const unsigned int* const quad = vertex_indices + 4 * size_t{patch};
        if (!sds::is_void_quad(quad)) return compute_smooth_lanes(quad, *get_patch(patch), out);
    }
    Vec3f controls[16];
    get_patch_controls(patch, controls);
    for (unsigned int i = 0; i < 16; ++i) out[i] = PointLanes(controls[i]);
}

void SdsBezierMesh::get_local_patch_controls(const unsigned int& patch, Vec3f* out) const {
    if (has_stored_controls()) {
        get_stored_controls(patch, out);
        const Vec3f origin = out[0];
        for (unsigned int i = 0; i < 16; ++i) out[i] = out[i] - origin;
        return;
    }
    PointLanes controls[16];
    get_local_patch_controls(patch, controls);
    for (unsigned int i = 0; i < 16; ++i) controls[i].store(out[i]);
}

void SdsBezierMesh::get_local_patch_controls(const unsigned int& patch, PointLanes* out) const {
    const unsigned int* quad = vertex_indices + 4 * size_t{patch};
    if (has_stored_controls() || sds::is_void_quad(quad)) {
        Vec3f controls[16];
        if (has_stored_controls())
            get_local_patch_controls(patch, controls);
        else
            set_void_controls(controls);
        for (unsigned int i = 0; i < 16; ++i) out[i] = PointLanes(controls[i]);
        return;
    }
    const SdsMeshBase::BezierPatch* record = get_patch(patch);
    const auto compute = [&](const auto& vertex, const auto& corner) {
        const PointLanes origin(vertex(quad[0]));
        const auto local_vertex = [&](unsigned int w) { return PointLanes(vertex(w)) - origin; };
        const auto local_corner = [&](unsigned int w) { return PointLanes(corner(w)) - origin; };
        if (record != nullptr)
            sds::smooth_controls(quad, *record, local_vertex, local_corner, out);
        else
            sds::linear_controls(quad, local_vertex, out);
    };
    if (source_count == 1)
        compute([this](unsigned int w) -> const Vec3f& { return quad_vertices[0][w]; },
                [this](unsigned int w) -> const Vec3f& { return patch_vertices[0][w]; });
    else
        compute([this](unsigned int w) { return get_quad_vertex(w); },
                [this](unsigned int w) { return get_patch_vertex(w); });
}

void SdsBezierMesh::choose_controls() {
    if (patches != nullptr)
        compute_controls = source_count == 1 ? &compute_bezier_controls : &compute_bezier_controls_w;
    else
        compute_controls = source_count == 1 ? &compute_linear_controls : &compute_linear_controls_w;
}

void SdsBezierMesh::compute_bezier_controls(const SdsBezierMesh& mesh, const unsigned int* quad,
                                            const BezierPatch* patch, Vec3f* out) {
    PointLanes controls[16];
    mesh.compute_smooth_lanes(quad, *patch, controls);
    for (unsigned int i = 0; i < 16; ++i) controls[i].store(out[i]);
}

void SdsBezierMesh::compute_bezier_controls_w(const SdsBezierMesh& mesh, const unsigned int* quad,
                                              const BezierPatch* patch, Vec3f* out) {
    sds::smooth_controls(
        quad, *patch, [&mesh](unsigned int w) { return mesh.get_quad_vertex(w); },
        [&mesh](unsigned int w) { return mesh.get_patch_vertex(w); }, out);
}

void SdsBezierMesh::compute_linear_controls(const SdsBezierMesh& mesh, const unsigned int* quad, const BezierPatch*,
                                            Vec3f* out) {
    const Vec3f* vertices = mesh.quad_vertices[0];
    sds::linear_controls(
        quad, [vertices](unsigned int w) -> const Vec3f& { return vertices[w]; }, out);
}

void SdsBezierMesh::compute_linear_controls_w(const SdsBezierMesh& mesh, const unsigned int* quad, const BezierPatch*,
                                              Vec3f* out) {
    sds::linear_controls(
        quad, [&mesh](unsigned int w) { return mesh.get_quad_vertex(w); }, out);
}
