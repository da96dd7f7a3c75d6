// Rays against a surface in double precision by other means than the kernels': the limit patches by subdivision in the
// plane across the ray and Newton's method, the flat cells of a level by two-dimensional edge functions that two
// triangles evaluate to the same bits on their common edge.
//
// The controls are the surface's own, in single precision; everything after them is double. Read by any number of
// threads.
#pragma once

#include <array>
#include <vector>

#include "oracles/box_tree.h"
#include "oracles/built_surface.h"
#include "sds/common/control_grid.h"

namespace sds_test {

// An edge of a patch that other patches meet halfway: patch coordinates at its two ends.
struct TEdge {
    unsigned int primitive;
    double begin[2], end[2];
};

struct Crossing {
    double t;  // in lengths of the direction
    unsigned int primitive;
    double u;
    double v;
    double cosine;  // |normal . direction|, both of unit length
};

class RayOracle {
public:
    // `splits` as the kernels count them: 2^splits cells along a patch side. Without, the limit patches.
    static constexpr unsigned int limit_surface = 0xFFFFFFFF;
    // Sixteen controls a patch, in corner order.
    using Controls = std::array<Vec3f, 16>;
    RayOracle(const std::vector<Controls>& patches, unsigned int splits)
        : RayOracle(patches, std::vector<unsigned int>(patches.size(), splits)) {}
    RayOracle(const SdsMeshGeometry& geometry, unsigned int splits) : RayOracle(get_controls(geometry), splits) {}
    // The surface as the mesh's level has it.
    explicit RayOracle(const SdsMesh& mesh) : RayOracle(get_controls(*mesh.get_geometry()), mesh) {}
    // The same with patches of another time.
    RayOracle(const std::vector<Controls>& patches, const SdsMesh& mesh) : RayOracle(patches, get_splits(mesh)) {}

    bool is_limit() const { return m_blocks.empty(); }
    unsigned int get_patch_count() const { return static_cast<unsigned int>(m_patches.size()); }
    unsigned int get_cells_per_side(unsigned int primitive) const { return m_cells[primitive]; }
    // Of the patches' control points.
    const BoxTree::Box& get_bbox() const { return m_bbox; }
    double get_diagonal() const { return m_bbox.get_diagonal(); }

    // The point of the surface at patch coordinates: of the limit patch, or on the flat triangle.
    Vec3d point(unsigned int primitive, double u, double v) const;
    // The limit patch at (u, v), whatever the level.
    Vec3d limit_point(unsigned int primitive, double u, double v) const;

    // Edges of patches at whose middle others have a corner, to the bit; none unless the surface is refined.
    std::vector<TEdge> find_t_edges() const;

    // Crossings with t in (near, far), unsorted. A crossing of a common edge of limit patches may come twice.
    void find_all(const Vec3d& origin, const Vec3d& direction, double near, double far,
                  std::vector<Crossing>& out) const;
    // The nearest of them; primitive 0xFFFFFFFF and t = far when there is none.
    Crossing find_nearest(const Vec3d& origin, const Vec3d& direction, double near, double far) const;

private:
    using Grid = std::array<Vec3d, 16>;  // row-major, u along the columns
    struct Block {                       // cells [u0, u1) x [v0, v1) of a patch
        unsigned int primitive, u0, v0, u1, v1;
    };
    struct RayPlane;

    // Splits per patch.
    RayOracle(const std::vector<Controls>& patches, const std::vector<unsigned int>& splits);
    static std::vector<Controls> get_controls(const SdsMeshGeometry& geometry);
    static std::vector<unsigned int> get_splits(const SdsMesh& mesh);
    Vec3d grid_point(unsigned int primitive, unsigned int i, unsigned int j) const;
    template <class Report>
    void meet_patch(const RayPlane& ray, unsigned int primitive, Report&& report) const;
    template <class Report>
    void meet_block(const RayPlane& ray, const Block& block, Report&& report) const;
    BoxTree::Box block_box(const Block& block) const;

    std::vector<Grid> m_patches;
    std::vector<unsigned int> m_cells;  // along a patch side, 0 for limit patches
    BoxTree::Box m_bbox = BoxTree::Box::empty();
    std::vector<Block> m_blocks;  // flat cells only
    std::vector<BoxTree> m_tree;  // one; over patches or blocks
};

}  // namespace sds_test
