// What a level takes, and levels that builds leave to the next of their thread.
#include <algorithm>
#include <new>
#include <utility>

#include "sds/common/array_bytes.h"
#include "sds/common/kept_scratch.h"
#include "sds/refinement/refinement_level.h"

namespace sds {

namespace {

// body(array) for all arrays of a level.
template <class Level, class Body>
void for_each_array(Level& level, const Body& body) {
    const auto visit = [&body](auto&... arrays) { (body(arrays), ...); };
    visit(level.offsets, level.corner_faces, level.corner_slots, level.corner_vertices, level.corner_edges,
          level.edges.opposite_edges, level.edges.quad_edge_flags, level.states, level.face_patches, level.edge_corners,
          level.edge_ends, level.edge_sharpness, level.edge_marks, level.sharp_edges, level.valences,
          level.vertex_kinds, level.sharp_indices, level.sharp_vertices, level.tagged_vertices, level.vertex_children,
          level.edge_children, level.face_children, level.touched_faces, level.refined_faces, level.first_children,
          level.edge_halves, level.handing_corners);
}

// Last given, first taken, so that every level meets the arrays of its likes.
struct KeptLevels {
    CoreArray<RefinementLevel> levels;
    size_t bytes = 0;
};

KeptLevels& kept_levels() {
    static thread_local KeptLevels kept;
    return kept;
}

}  // namespace

size_t RefinementLevel::get_memory_size() const {
    size_t size = 0;
    for_each_array(*this, [&size](const auto& array) { size += bytes_of(array); });
    return size;
}

void RefinementLevel::restart() {
    for_each_array(*this, [](auto& array) { array.resize(0); });
    depth = 0;
    face_count = candidate_count = vertex_count = edge_count = 0;
    has_step = has_siblings = false;
}

RefinementLevel take_level() {
    KeptLevels& kept = kept_levels();
    const unsigned int count = kept.levels.get_count();
    if (count == 0) return {};
    RefinementLevel level = std::move(kept.levels[count - 1]);
    kept.levels.resize(count - 1);
    kept.bytes -= level.kept_size;
    level.restart();
    return level;
}

void give_level(RefinementLevel&& level) noexcept {
    KeptLevels& kept = kept_levels();
    // Arrays keep what they once took.
    const size_t size = level.kept_size = std::max(level.kept_size, level.get_memory_size());
    if (kept.bytes + size > max_kept_bytes) return;
    const unsigned int count = kept.levels.get_count();
    try {
        kept.levels.resize(count + 1);
    } catch (const std::bad_alloc&) {
        return;  // nothing is kept then
    }
    kept.levels[count] = std::move(level);
    kept.bytes += size;
}

}  // namespace sds
