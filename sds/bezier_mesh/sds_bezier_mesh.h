// SdsBezierMesh: the view that turns one quad of a subdivided mesh into the sixteen control points of a bicubic Bezier
// patch.
//
// It refers to quad indices, patch records and at most four sources of positions: quad vertices, their limit points,
// and a weight. The arrays are somebody else's, are shared by copies, and must outlive every view. With several sources
// a control point is the weighted sum of the sources' control points, since the rules are linear.
//
// The patches of a refined surface come with their control points: a source is then sixteen points a patch, which are
// read where they are, beside the positions of the vertices that the surface is known by. Such a view has no records,
// and its quad indices are those of the quads that were refined, of another number than its patches.
//
// Control order: 4k + j for corner k; see sds/common/control_grid.h. Nothing is validated: patch and vertex indices are
// in range, at most four sources are added, and controls are asked for only once there is a source. Set up by one
// thread, read by any number.
#pragma once

#include <limits>

#include "qn_core/core_array.h"
#include "qn_core/core_base_type.h"
#include "qn_geometry/geometry_position_array.h"
#include "qn_gmath/gmath_vec.h"
#include "sds/common/sds_export.h"
#include "sds/mesh_base/sds_mesh_base.h"

namespace sds {
struct PointLanes;
}

class SDS_EXPORT SdsBezierMesh : public CoreBaseType {
public:
    using Vec3f = GMathVec3<float>;
    // Writes the controls of a quad (four vertex indices) with its patch record.
    using ControlFunction = void (*)(const SdsBezierMesh& mesh, const unsigned int* quad,
                                     const SdsMeshBase::BezierPatch* patch, Vec3f* out);

    static constexpr unsigned int max_source_count = 4;

    SdsBezierMesh() = default;
    // Topology only: sources are added later.
    SdsBezierMesh(const unsigned int& patch_count, const unsigned int& vertex_count, const unsigned int* vertex_indices,
                  const SdsMeshBase::BezierPatch* patches, const unsigned int* patch_indices);
    SdsBezierMesh(const unsigned int& vertex_count, const CoreBasicArray<unsigned int>& quad_indices,
                  const CoreBasicArray<SdsMeshBase::BezierPatch>& patches,
                  const CoreBasicArray<unsigned int>& patch_indices);
    // One source of weight 1. Null (or empty) patch vertices mean the quad vertices, null (or empty) patches bilinear
    // patches, null (or empty) patch indices that patch i has record i.
    SdsBezierMesh(const unsigned int& patch_count, const unsigned int& vertex_count, const unsigned int* vertex_indices,
                  const SdsMeshBase::BezierPatch* patches, const Vec3f* quad_vertices, const Vec3f* patch_vertices,
                  const unsigned int* patch_indices);
    SdsBezierMesh(const CoreBasicArray<unsigned int>& quad_indices,
                  const CoreBasicArray<SdsMeshBase::BezierPatch>& patches, const CoreBasicArray<Vec3f>& quad_vertices,
                  const CoreBasicArray<Vec3f>& patch_vertices, const CoreBasicArray<unsigned int>& patch_indices);
    SdsBezierMesh(const SdsBezierMesh&) = default;
    SdsBezierMesh& operator=(const SdsBezierMesh&) = default;
    ~SdsBezierMesh() override = default;

    const CoreClassInfo& get_class_info() const override;
    static const CoreClassInfo& class_info();
    size_t get_memory_size() const override { return sizeof(*this); }

    // Makes the view single-source with weight 1.
    void set_vertices(const Vec3f* quad_vertices, const Vec3f* patch_vertices);
    void set_vertices(const CoreBasicArray<Vec3f>& quad_vertices, const CoreBasicArray<Vec3f>& patch_vertices);
    // Adds a source. A single source is read without its weight.
    void add_vertices(const Vec3f* quad_vertices, const Vec3f* patch_vertices, const float& weight);
    void add_vertices(const CoreBasicArray<Vec3f>& quad_vertices, const CoreBasicArray<Vec3f>& patch_vertices,
                      const float& weight);
    // Adds a source of stored controls, sixteen per patch. All sources of a view are of one kind.
    void add_controls(const Vec3f* quad_vertices, const Vec3f* controls, const float& weight);

    const unsigned int& get_patch_count() const { return patch_count; }
    const unsigned int& get_vertex_count() const { return vertex_count; }
    const unsigned int& get_source_count() const { return source_count; }
    const unsigned int* get_vertex_indices() const { return vertex_indices; }
    const float& get_weight(const unsigned int& source) const { return weights[source]; }
    const Vec3f* get_quad_vertices(const unsigned int& source) const { return quad_vertices[source]; }
    const Vec3f* get_patch_vertices(const unsigned int& source) const { return patch_vertices[source]; }
    // Blended, per vertex.
    GeometryPositionArray get_quad_vertices() const { return {vertex_count, source_count, quad_vertices, weights}; }
    GeometryPositionArray get_patch_vertices() const { return {vertex_count, source_count, patch_vertices, weights}; }

    // The record of a patch; null for bilinear patches.
    const SdsMeshBase::BezierPatch* get_patch(const unsigned int& patch) const {
        return patches == nullptr ? nullptr : patches + (patch_indices != nullptr ? patch_indices[patch] : patch);
    }
    bool has_stored_controls() const { return stored_controls[0] != nullptr; }
    // A patch's sixteen controls; all NaN when a corner of its quad has no vertex.
    void get_patch_controls(const unsigned int& patch, Vec3f* out) const {
        if (has_stored_controls()) return get_stored_controls(patch, out);
        const unsigned int* quad = vertex_indices + 4 * size_t{patch};
        if (sds::is_void_quad(quad)) return set_void_controls(out);
        compute_controls(*this, quad, get_patch(patch), out);
    }
    // The same in lanes, for this module's own kernels.
    void get_patch_controls(const unsigned int& patch, sds::PointLanes* out) const;

    // The sixteen controls relative to the quad's first vertex, stored ones to the first of them: the same rules on
    // differences. Their own differences keep the digits that those of get_patch_controls lose on an object far from
    // the origin.
    void get_local_patch_controls(const unsigned int& patch, Vec3f* out) const;
    // The same in lanes, for this module's own kernels.
    void get_local_patch_controls(const unsigned int& patch, sds::PointLanes* out) const;

    // The four routines: smooth or bilinear, one source or several (_w). The quad's corners all have a vertex.
    static void compute_bezier_controls(const SdsBezierMesh& mesh, const unsigned int* quad,
                                        const SdsMeshBase::BezierPatch* patch, Vec3f* out);
    static void compute_bezier_controls_w(const SdsBezierMesh& mesh, const unsigned int* quad,
                                          const SdsMeshBase::BezierPatch* patch, Vec3f* out);
    static void compute_linear_controls(const SdsBezierMesh& mesh, const unsigned int* quad,
                                        const SdsMeshBase::BezierPatch* patch, Vec3f* out);
    static void compute_linear_controls_w(const SdsBezierMesh& mesh, const unsigned int* quad,
                                          const SdsMeshBase::BezierPatch* patch, Vec3f* out);

private:
    friend class SdsMeshBase;

    Vec3f get_quad_vertex(const unsigned int& vertex) const { return blend(quad_vertices, vertex); }
    Vec3f get_patch_vertex(const unsigned int& vertex) const { return blend(patch_vertices, vertex); }
    Vec3f blend(const Vec3f* const* arrays, unsigned int vertex) const {
        Vec3f sum = arrays[0][vertex] * weights[0];
        for (unsigned int s = 1; s < source_count; ++s) sum += arrays[s][vertex] * weights[s];
        return sum;
    }
    void choose_controls();
    void compute_smooth_lanes(const unsigned int* quad, const SdsMeshBase::BezierPatch& patch,
                              sds::PointLanes* out) const;
    void get_stored_controls(const unsigned int& patch, Vec3f* out) const;
    static void set_void_controls(Vec3f* out) {
        constexpr float nan = std::numeric_limits<float>::quiet_NaN();
        for (unsigned int i = 0; i < 16; ++i) out[i] = {nan, nan, nan};
    }

    unsigned int patch_count = 0;
    unsigned int vertex_count = 0;
    unsigned int source_count = 0;
    const unsigned int* vertex_indices = nullptr;
    const unsigned int* patch_indices = nullptr;
    const SdsMeshBase::BezierPatch* patches = nullptr;
    const Vec3f* quad_vertices[max_source_count] = {};
    const Vec3f* patch_vertices[max_source_count] = {};
    const Vec3f* stored_controls[max_source_count] = {};
    float weights[max_source_count] = {};
    ControlFunction compute_controls = nullptr;
};
