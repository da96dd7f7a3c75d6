// The road of refined surfaces: from the polygons of the cage to a flat list of patches with their control points.
#include <algorithm>

#include "sds/common/progress.h"
#include "sds/mesh_base/tangent_rules.h"
#include "sds/mesh_geometry/corner_cache.h"
#include "sds/mesh_geometry/late_vertices.h"
#include "sds/mesh_geometry/pair_kernels/pair_kernels.h"
#include "sds/mesh_geometry/refined_surface.h"
#include "sds/refinement/refined_chart.h"

using Vec3f = GMathVec3<float>;
using Mode = SdsMeshGeometry::InterpolationMode;

namespace {

sds::RefinementOptions get_options(const SdsRefinement& settings, Mode mode) {
    sds::RefinementOptions options = sds::get_refinement_options(settings);
    options.border_rule = settings.open_borders         ? sds::BorderRule::open
                          : mode == Mode::corners_fixed ? sds::BorderRule::edge_and_corner
                          : mode == Mode::borders_fixed ? sds::BorderRule::fixed
                                                        : sds::BorderRule::edge_only;
    return options;
}

std::shared_ptr<sds::RefinedTopology> refine(const SdsMeshBase::ControlCage& cage, Mode mode,
                                             const CoreBasicArray<Vec3f>& positions, bool may_have_siblings,
                                             AppProgressBar* progress) {
    sds::RefinementOptions options = get_options(cage.refinement, mode);
    options.may_have_siblings = may_have_siblings;
    auto topology = std::make_shared<sds::RefinedTopology>();
    topology->build({cage.vertex_count, cage.polygon_counts, cage.polygon_indices, cage.opposite_corners,
                     cage.edge_sharpness, cage.refinement.vertex_sharpness, cage.refinement.holes},
                    options, positions, progress);
    return topology;
}

// Of the patches: all candidates of the last level are some.
unsigned int find_finest_level(const sds::RefinedTopology& topology) {
    return static_cast<unsigned int>(std::max(0, topology.get_level(topology.get_level_count() - 1).depth));
}

}  // namespace

const sds::PatchPlaces& SdsMeshGeometry::get_places() const { return refinement->get_places(); }
unsigned int SdsMeshGeometry::get_finest_level() const { return refinement->finest_level; }
float SdsMeshGeometry::get_largest_coordinate() const { return refinement ? refinement->largest_coordinate : 0.0f; }
unsigned int SdsMeshGeometry::get_patch_count() const {
    return refinement ? refinement->get_places().get_patch_count() : base->get_primitive_count();
}

void SdsMeshGeometry::build_refined(const CoreArray<Vec3f>& positions, const CoreArray<Vec3f>& motion_vectors,
                                    const bool& is_update, std::shared_ptr<Refinement> former,
                                    AppProgressBar* progress) {
    const SdsMeshBase::ControlCage& cage = *base->get_control_cage();
    if (!is_update) {
        arrays.local_topologies.clear();
        arrays.tangent_infos.clear();
        arrays.bezier_patches.clear();
        arrays.bezier_tangents.clear();
    }
    arrays.bezier_corners.clear();
    arrays.bezier_corner_motion_vectors.clear();
    const bool has_motion = motion_vectors.get_count() == positions.get_count() && !positions.is_empty();
    if (base->has_late_step()) {
        const sds::ProgressTask task(progress, "compute subdivision positions", 0.1f);
        point_cloud.init(0, nullptr, nullptr, nullptr);
        arrays.vertex_infos.clear();
        late_vertices = std::make_unique<LateVertices>();
        late_vertices->has_motion = has_motion;
        late_vertices->positions = positions;
        if (has_motion) late_vertices->motion_vectors = motion_vectors;
        are_vertices_due = true;
    } else {
        build_point_cloud(positions, motion_vectors, progress);
    }

    // Copies of the geometry keep what they share; else the arrays are used again.
    const bool keeps_arrays = former && former.use_count() == 1;
    const auto built = keeps_arrays ? former : std::make_shared<Refinement>();
    const bool has_fixed_depth = !(cage.refinement.error > 0.0f);
    const bool drops_levels = !is_update && has_fixed_depth;
    const bool is_alone = SysThreadTaskManager().get_thread_count() == 1;
    {
        const sds::ProgressTask task(progress, "refine cage", 0.3f);
        if (is_update && former && has_fixed_depth && former->topology->has_levels())
            built->topology = former->topology;
        else
            built->topology = refine(cage, mode, positions, drops_levels && is_alone, progress);
        built->finest_level = find_finest_level(*built->topology);
    }
    const auto tasks = make_task_manager(built->get_places().get_patch_count());
    SysThreadTaskManager* const helpers = tasks && tasks->get_thread_count() > 1 ? tasks.get() : nullptr;
    former.reset();
    {
        const sds::ProgressTask task(progress, "compute refined patches", has_motion ? 0.2f : 0.4f);
        built->rest.build(*built->topology, positions, sds::NetStorage::where_needed, progress, helpers);
    }
    if (has_motion) {
        const sds::ProgressTask task(progress, "compute refined motion vectors", 0.2f);
        built->motion.build_like(built->rest, *built->topology, motion_vectors, progress, helpers);
    } else {
        built->motion = {};
    }
    if (drops_levels) built->topology->drop_levels();
    refinement = built;
    bind_view();
    build_boxes(0.2f, tasks.get(), progress);
    for (unsigned int axis = 0; axis < 3; ++axis)
        built->largest_coordinate = std::max(
            {axis == 0 ? 0.0f : built->largest_coordinate, -arrays.bbox.get_min()[axis], arrays.bbox.get_max()[axis]});
}

std::shared_ptr<const sds::RefinedTopology> SdsMeshGeometry::get_refined_levels() const {
    if (refinement->topology->has_levels()) return refinement->topology;
    // Levels went because positions did not decide them.
    return refine(*base->get_control_cage(), mode, {}, false, nullptr);
}

void SdsMeshGeometry::keep_refined_levels() {
    if (refinement->topology->has_levels()) return;
    if (refinement.use_count() > 1) refinement = std::make_shared<Refinement>(*refinement);
    refinement->topology = refine(*base->get_control_cage(), mode, {}, false, nullptr);
    bind_view();
}

const sds::RefinedPatches& SdsMeshGeometry::get_refined_sample(const unsigned int& sample) const {
    const auto make = [&] {
        auto patches = std::make_unique<sds::RefinedPatches>();
        const CoreBasicArray<Vec3f> vertices = get_vertices_sample(sample);
        if (!base->get_base_tessellation_level())
            patches->build(*refinement->topology, vertices, sds::NetStorage::where_needed);
        else
            patches->build(*refinement->topology, take_control_positions(sample), sds::NetStorage::where_needed);
        return patches;
    };
    return *corner_cache->patches.get(sample, *sample_lock, make, [this] { advert_memory_changed(); });
}

sds::PatchArrays SdsMeshGeometry::get_refined_arrays() const {
    const sds::RefinedPatches& rest = refinement->rest;
    sds::PatchArrays patches{};
    patches.controls = rest.get_patch_count() == 0 ? nullptr : rest.get_controls()->get_data();
    patches.net_places = rest.get_net_places();
    patches.nets = rest.get_net_count() == 0 ? nullptr : rest.get_nets()->get_data();
    return patches;
}

void SdsMeshGeometry::add_refined_nets(const sds::RefinedPatches& patches, const unsigned int& primitive,
                                       const float& weight, Vec3f* out) {
    const unsigned int offset = patches.get_net_places().find(primitive);
    if (offset != sds::none) {
        const Vec3f* stored = patches.get_nets() + offset;
        for (unsigned int i = 0; i < 24; ++i) out[i] += stored[i] * weight;
        return;
    }
    const sds::DerivativeNets<Vec3f> nets(patches.get_controls() + 16 * size_t{primitive});
    for (unsigned int i = 0; i < 12; ++i) {
        out[i] += (&nets.u[0][0])[i] * weight;
        out[12 + i] += (&nets.v[0][0])[i] * weight;
    }
}

void SdsMeshGeometry::get_refined_nets_at(const unsigned int& primitive, const double& time, Vec3f* out) const {
    std::fill_n(out, 24, Vec3f(0, 0, 0));
    if (is_rest_time(time) || !is_animated()) return add_refined_nets(refinement->rest, primitive, 1.0f, out);
    if (has_positions_sampling()) {
        const SampleBlend blend = get_sample_blend(time);
        for (unsigned int i = 0; i < blend.count; ++i)
            add_refined_nets(get_refined_sample(blend.samples[i]), primitive, blend.weights[i], out);
        return;
    }
    add_refined_nets(refinement->rest, primitive, 1.0f, out);
    add_refined_nets(refinement->motion, primitive, static_cast<float>(time), out);
}
