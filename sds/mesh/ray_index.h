// A mesh's own hierarchy: SdsMesh::make_ray_index.
#pragma once

#include "sds/common/array_bytes.h"
#include "sds/intersection/fast/trace_tree.h"
#include "sds/mesh/sds_mesh.h"

namespace sds {

class RayIndex final : public GeometryRayIndex, private TreeSurface {
public:
    // Above these counts what rays meet leaves the second-level cache, and what is saved is lost on fetching it. Small
    // patches need few steps each, so that limit surfaces gain up to a larger count where they are refined. Where cells
    // are kept, a quad of a surface that is refined to sixteenths at most counts as one patch.
    static constexpr unsigned int max_patch_count = 8192, max_refined_patch_count = 16384, max_kept_patch_count = 2048;
    // For surfaces of patches most of which are slivers aslant in their boxes, as about the middle of a polygon of
    // thousands of corners, where a ray enters hundreds of boxes: these are cut into slices.
    static constexpr unsigned int max_sliver_count = 262144;

    // Null for surfaces without patches, with more than the greatest count, in motion, or so small or large that
    // lengths cannot be multiplied.
    static std::unique_ptr<const RayIndex> make(const SdsMesh& mesh, const CoreBasicArray<GMathBbox3<double>>& boxes);

    // About the most bytes that one takes, 0 where there is none.
    static size_t estimate_size(const SdsMesh& mesh);

    void intersect(const CtxEval& ctx, GeometryRaytraceCtx& rays) const override;
    size_t get_memory_size() const override {
        return sizeof(*this) + bytes_of(m_nodes) + bytes_of(m_boxes) + bytes_of(m_cells) + bytes_of(m_groups);
    }

private:
    const ControlLanes& get_controls(const CtxEval& ctx, unsigned int patch) const override;
    unsigned int get_level(unsigned int patch) const override { return m_mesh->get_cell_level(patch); }

    class Builder;

    // What the hierarchy takes for patches: `count` of them, none where the mesh has no hierarchy of its own.
    struct Plan {
        CoreArray<PatchGroup> groups;           // empty where they are the patches themselves
        CoreArray<unsigned char> slice_counts;  // of each patch; empty where none is sliced
        unsigned int count = 0, level = 0;
        bool keeps_cells = false;
    };
    static Plan make_plan(const SdsMesh& mesh, const CoreBasicArray<GMathBbox3<double>>& boxes);

    const SdsMesh* m_mesh = nullptr;
    GMathVec3<double> m_center{0, 0, 0};
    RayTree m_tree{};
    CoreArray<RayTreeNode> m_nodes;
    CoreArray<PartBoxes> m_boxes;
    CoreArray<float> m_cells;
    CoreArray<PatchGroup> m_groups;
};

}  // namespace sds
