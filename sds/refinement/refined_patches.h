// The control points and derivative nets of a refined surface's patches, from the positions of its cage.
#pragma once

#include "qn_app_base/app_progress_bar.h"
#include "qn_gmath/gmath_vec.h"
#include "qn_sys/sys_thread.h"
#include "sds/refinement/net_places.h"
#include "sds/refinement/refined_topology.h"

namespace sds {

// Which patches get their derivative nets stored. The nets of the others are to be formed from their controls.
enum class NetStorage : unsigned char {
    never,
    // Leaves, and patches so small beside their distance from the origin that differences of rounded controls would
    // bend their normals.
    where_needed,
    all,
};

// In the order of the topology's flat list. Built by one thread, then read by any number.
class RefinedPatches {
public:
    using Vec3f = GMathVec3<float>;
    using Vec3d = GMathVec3<double>;

    unsigned int get_patch_count() const { return m_patch_count; }
    // Sixteen per patch, by corner (see control_grid.h). Shared edges have the same bits on both sides; where a coarse
    // patch meets finer ones, theirs are its edge's halves.
    const Vec3f* get_controls() const { return m_points.get_data(); }
    // Where the 24 vectors of a patch begin in the nets, or none; U[r][i] at 3r + i, V[r][c] at 12 + 4r + c, to be
    // multiplied by 3 for derivatives by the patch's (u, v).
    NetPlaces get_net_places() const { return {m_net_words.get_data(), m_net_offsets.get_data()}; }
    const Vec3f* get_nets() const { return m_points.get_data() + 16 * size_t{get_patch_count()}; }
    unsigned int get_net_count() const { return (m_points.get_count() - 16 * get_patch_count()) / 24; }

    // `positions` holds one per vertex of the cage, or any other vectors that follow the same weights, as motion
    // vectors do. Reuses the arrays. One step of progress per level; what is thrown, AppCancelled included, leaves
    // them empty. With a manager its threads take part; the bits are the same for any number of them.
    void build(const RefinedTopology& topology, const CoreBasicArray<Vec3f>& positions, NetStorage storage,
               AppProgressBar* progress = nullptr, SysThreadTaskManager* tasks = nullptr);
    // The same with nets for the patches that have them in `other`, which is of the same topology.
    void build_like(const RefinedPatches& other, const RefinedTopology& topology,
                    const CoreBasicArray<Vec3f>& positions, AppProgressBar* progress = nullptr,
                    SysThreadTaskManager* tasks = nullptr);

    size_t get_memory_size() const;

private:
    friend class RoundingSink;

    template <class Sink>
    void build(const RefinedTopology& topology, const CoreBasicArray<Vec3f>& positions, unsigned int net_count,
               Sink&& sink, AppProgressBar* progress);

    // Controls and after them the nets: together they more often fill large pages.
    CoreArray<Vec3f> m_points;
    unsigned int m_patch_count = 0;
    CoreArray<NetPlaces::Word> m_net_words;
    CoreArray<unsigned int> m_net_offsets;
};

// The unrounded controls of every patch, `out` of sixteen per patch, and `nets` of 24 per patch when not null: what the
// above are rounded from, but for edges that were handed down. For measuring.
void compute_exact_patches(const RefinedTopology& topology, const CoreBasicArray<GMathVec3<float>>& positions,
                           GMathVec3<double>* out, GMathVec3<double>* nets);

}  // namespace sds
