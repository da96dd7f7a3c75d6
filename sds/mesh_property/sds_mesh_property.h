// SdsMeshProperty: a property of the control mesh, read on the subdivision surface.
//
// Bound to one SdsMesh and one PolyMeshProperty, which must outlive it. `init` prepares one time sample at a time,
// before rendering; afterwards the callbacks may be called from any number of threads and allocate nothing.
//
// What the values do between the control mesh's items:
//   per vertex   smooth: carried through the surface's own subdivision, limit and patch rules, in double precision;
//                derivatives along u and v are per patch parameter, the third derivative is zero. At a fixed
//                tessellation level the value is that of the cell's corner (SdsMesh::get_cell_corner), as for UVs.
//                Where the base is refined and says so (SdsRefinement::refine_maps), values are refined like positions,
//                by the same rules and as deep.
//   varying      linear: bilinear on polygons of four corners, and on the quads of the others between their corners,
//   the
//                edges' middles and the mean of the corners. Same derivatives, same cells.
//   per polygon  the same all over a polygon's quads; derivatives zero.
//   constant     item 0; derivatives zero.
//
// Types: integers are stored back after subdivision as the nearest value of their type, ties to even, saturated at its
// ends. The integer callback rounds reals the same way, saturates at the ends of 64-bit integers and gives 0 for NaN;
// unsigned 64-bit values pass through it as their bit pattern. The real callback gives integers by value. A property
// with indices of its own sees the creases of the PolyCreaseScope that is bound while `init` first runs.
#pragma once

#include <memory>

#include "qn_geometry/geometry_property.h"
#include "qn_poly/poly_mesh_property.h"
#include "sds/common/sds_export.h"
#include "sds/mesh/sds_mesh.h"

namespace sds {
class RefinedTopology;
class RefinedValues;
}  // namespace sds

class SDS_EXPORT SdsMeshProperty : public GeometryProperty {
public:
    SdsMeshProperty(const SdsMesh& mesh, const PolyMeshProperty& property);
    // The copy has topology and surface values of its own.
    SdsMeshProperty(const SdsMeshProperty& other);
    SdsMeshProperty& operator=(const SdsMeshProperty&) = delete;
    ~SdsMeshProperty() override;

    const CoreClassInfo& get_class_info() const override;
    static const CoreClassInfo& class_info();
    size_t get_memory_size() const override;

    // Makes one time sample ready to be evaluated. Per-polygon and constant values are used where they are and must
    // stay alive; others are copied. False, with the sample emptied, for missing values, values of another type, or a
    // kind of property that is not evaluated. Void primitives and quads with a corner that has no index give no values.
    bool init(const unsigned int& sample, const ResourceProperty* values);

    const SdsMesh& get_mesh() const { return *mesh; }
    const PolyMeshProperty& get_source() const { return *source; }
    const PolyMeshProperty::Type& get_type() const { return source->get_type(); }
    bool has_indices() const { return source->has_indices(); }
    // Which item each corner of the quads has; empty for values at the mesh's own vertices.
    const CoreArray<unsigned int>& get_indices() const { return indices; }
    const unsigned int& get_index_count() const override { return source->get_index_count(); }
    const unsigned int& get_value_count() const override { return source->get_value_count(); }
    // Values and limit values in use for a sample, null when absent.
    const ResourceProperty* get_values_property(const unsigned int& sample) const { return samples[sample].values; }
    const ResourceProperty* get_bezier_corners(const unsigned int& sample) const {
        return samples[sample].corners.get();
    }

    // The refined values of a sample, which has no values and limit values of quads then; null when absent.
    const sds::RefinedValues* get_refined_values(const unsigned int& sample) const {
        return samples[sample].refined.get();
    }

    // What evaluation reads: the indices and patch records (null for bilinear patches) that the surface values belong
    // to.
    const CoreBasicArray<unsigned int>& get_quad_indices() const;
    const SdsMeshBase::BezierPatch* get_patches() const;

private:
    struct Sample {
        const ResourceProperty* values = nullptr;
        std::unique_ptr<ResourceProperty> surface_values;
        std::unique_ptr<ResourceProperty> corners;
        std::shared_ptr<const sds::RefinedValues> refined;

        void clear();
    };
    struct Topology {
        CoreArray<SdsMeshBase::VertexInfo> vertex_infos;
        SdsMeshBase::EdgesTopology edges;
        SdsMeshBase::SubdivisionTopology subdivision;
        CoreArray<SdsMeshBase::VertexLocalTopology> local_topologies;
        CoreArray<SdsMeshBase::BezierPatch> patches;
    };

    // What the samples of a refined property share.
    struct RefinedLevels {
        // The levels are there until every sample is ready.
        std::shared_ptr<const sds::RefinedTopology> topology;
        std::shared_ptr<const sds::PatchPlaces> places;
    };

    bool is_refined() const;
    bool init_indices();
    void init_quads();
    void init_levels(const ResourceProperty& values);
    void init_refined(Sample& entry, const ResourceProperty& values);
    bool need_indices_init() const { return source->has_indices() && indices.is_empty(); }
    SdsMeshBase::TopologyContext get_topology_context() const;

    const PolyMeshProperty* source;
    const SdsMesh* mesh;
    CoreArray<Sample> samples;
    CoreArray<unsigned int> indices;
    std::unique_ptr<Topology> topology;
    RefinedLevels levels;
};
