#include "oracles/built_surface.h"

#include "qn_poly/poly_crease_scope.h"

namespace sds_test {

BuiltSurface::BuiltSurface(const ZooMesh& cage, const Options& options) { build(cage, options); }

void BuiltSurface::build(const ZooMesh& cage, const Options& options) {
    m_diagonal = cage.get_diagonal();
    const CoreArray<unsigned int> counts = to_core_array(cage.counts);
    const CoreArray<unsigned int> indices = to_core_array(cage.indices);
    const CoreArray<unsigned char> creases = to_core_array(cage.corner_creases);
    const CoreArray<unsigned int> groups(counts.get_count(), 0u);
    CoreArray<CoreString> group_names;
    group_names.add(CoreString("default"));

    const PolyCreaseScope scope(creases);
    base.set_refinement(options.refinement);
    if (!options.keeps_base || base.get_topology_stamp() == 0)
        base.set(static_cast<unsigned int>(cage.positions.size()), indices, counts, groups, group_names,
                 options.progress);
    geometry.set(base, to_core_array(cage.positions), to_core_array(options.motion_vectors), options.mode,
                 options.progress);
    CoreArray<GeometryUvMap> uv_maps;
    if (cage.is_in(uvs)) uv_maps.add({CoreString("uv"), to_core_array(cage.uv_points), to_core_array(cage.uv_indices)});
    maps.set(base, counts, uv_maps, {}, options.uv_mode, options.progress);
    mesh.set(geometry, maps, options.level, options.progress);
}

SdsMeshBase::TopologyContext BuiltSurface::context() const {
    return {&base.get_quad_indices(),
            &geometry.get_vertex_infos(),
            geometry.get_local_topologies().get_data(),
            &geometry.get_tangent_infos(),
            &base.get_edges(),
            base.get_subdivision()};
}

}  // namespace sds_test
