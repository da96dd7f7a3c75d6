// The flat list of patches that a refined surface is traced and sampled by, and the way between a place on a patch and
// a place on the quad that users see.
//
//     quad (depth 0)      1 +-------+---+---+       patches of one quad follow each other in the order of a quadtree:
//                           |       | c | d |       (0,0), (1,0), (0,1), (1,1) of each square.
//                           |       +---+---+       A patch of level l at (x, y) covers
//                           |   b   | e | f |           u in [x, x + 1] / 2^l,  v in [y, y + 1] / 2^l,
//                           +-------+---+---+       its own (u, v) running the same way.
//                           |       |       |
//                           |   a   |   g   |
//                         0 +-------+-------+ 1
//
// In a cage with polygons that are not quads, a regular quad polygon stays one patch of level -1, which covers the four
// user quads at its corners. It is listed under the first of them, in whose frame it begins; the others have no patch
// of their own.
#pragma once

#include <algorithm>

#include "qn_core/core_array.h"
#include "qn_geometry/geometry_fragment.h"
#include "sds/common/half_edge.h"

namespace sds {

class RefinedPatch {
public:
    RefinedPatch() = default;
    RefinedPatch(unsigned int quad, unsigned int x, unsigned int y, int level, bool is_leaf)
        : m_quad(quad), m_bits(x | y << 10 | static_cast<unsigned int>(level + 1) << 20 | (is_leaf ? leaf_bit : 0u)) {}

    // The quarter (dx, dy) of a square that is no leaf, one level down.
    RefinedPatch get_child(unsigned int dx, unsigned int dy, bool is_leaf) const {
        RefinedPatch child;
        child.m_quad = m_quad;
        child.m_bits = m_bits + (1u << 20) + (m_bits & place_bits) + (dx | dy << 10 | (is_leaf ? leaf_bit : 0u));
        return child;
    }

    unsigned int quad() const { return m_quad; }
    unsigned int x() const { return m_bits & 1023u; }
    unsigned int y() const { return (m_bits >> 10) & 1023u; }
    int level() const { return static_cast<int>((m_bits >> 20) & 15u) - 1; }
    // An approximation of an irregular quad; others are the limit surface itself.
    bool is_leaf() const { return (m_bits >> 24) != 0; }
    bool covers_four_quads() const { return level() < 0; }
    // 2^level: what derivatives by the patch's (u, v) are multiplied with to be derivatives by the user quad's.
    float derivative_scale() const {
        return covers_four_quads() ? 0.5f : static_cast<float>(1u << static_cast<unsigned int>(level()));
    }

private:
    static constexpr unsigned int leaf_bit = 1u << 24;
    static constexpr unsigned int place_bits = (1u << 20) - 1;

    unsigned int m_quad;
    unsigned int m_bits;
};

struct PatchPlace {
    unsigned int patch;  // none where the quad is a hole
    double u, v;
    // Quarter turns from the user quad's frame to the patch's, counterclockwise; 0 but on patches that cover four
    // quads. With t turns the patch's (du, dv) are the quad's turned t times: one turn takes (a, b) to (-b, a).
    unsigned int turns;
};

struct QuadPoint {
    unsigned int quad;
    double u, v;
    unsigned int turns;  // as above
};

// Read-only once built; any thread.
class PatchPlaces {
public:
    unsigned int get_patch_count() const { return m_patches.get_count(); }
    unsigned int get_leaf_count() const { return m_leaf_count; }
    unsigned int get_quad_count() const { return m_quad_count; }
    const RefinedPatch& get_patch(unsigned int patch) const { return m_patches[patch]; }
    // The patches first_patch(quad) to first_patch(quad + 1) - 1 are the quad's own.
    unsigned int first_patch(unsigned int quad) const { return find_first(quad, 0); }

    // (u, v) in [0, 1]. The result is exact on the quad's own patches, and rounded once on one that it shares with
    // three others.
    PatchPlace find_patch(unsigned int quad, double u, double v) const {
        const unsigned int key = interleave(cell_of(u)) | interleave(cell_of(v)) << 1;
        const unsigned int found = find_first(quad, key + 1) - 1;
        if (found == none || m_patches[found].quad() != quad) return find_shared(quad, found, u, v);
        const RefinedPatch& patch = m_patches[found];
        if (patch.covers_four_quads()) return {found, 0.5 * u, 0.5 * v, 0};
        const auto scale = static_cast<double>(patch.derivative_scale());
        return {found, u * scale - patch.x(), v * scale - patch.y(), 0};
    }

    // How derivatives by the (u, v) of a patch that was found become those by the quad's.
    GeometryPlace get_frame(const PatchPlace& at) const {
        GeometryPlace frame;
        frame.turns = at.turns;
        frame.derivative_scale = static_cast<double>(m_patches[at.patch].derivative_scale());
        return frame;
    }

    // The inverse of find_patch. On a patch that covers four quads the middle lines belong to the quads with the larger
    // coordinate.
    QuadPoint find_quad(unsigned int patch, double u, double v) const {
        const RefinedPatch& place = m_patches[patch];
        if (place.covers_four_quads()) return find_quarter(place.quad(), u, v);
        const double side = 1.0 / static_cast<double>(place.derivative_scale());
        return {place.quad(), (place.x() + u) * side, (place.y() + v) * side, 0};
    }

    size_t get_memory_size() const {
        return sizeof(RefinedPatch) * size_t{m_patches.get_count()} +
               sizeof(unsigned int) * size_t{m_block_offsets.get_count()};
    }

    // Building: a quad's patches follow each other in the order of the quadtree. What is put at a patch replaces what
    // was there, and what is put behind the last one does not count.
    void start(unsigned int quad_count, unsigned int patch_count, unsigned int leaf_count) {
        m_patches.clear();
        m_patches.resize(patch_count + 1);
        m_patches.resize(patch_count);
        m_block_offsets.clear();
        m_block_offsets.reserve(quad_count / block + 2);
        m_quad_count = 0;
        m_leaf_count = leaf_count;
    }
    void put_patch(unsigned int patch, const RefinedPatch& place) { m_patches[patch] = place; }
    // Patches from `first` on that cover four quads each, which begin at `quads`: these are ended, too.
    void put_covering_patches(unsigned int first, const unsigned int* quads, unsigned int count) {
        const unsigned int first_quad = m_quad_count;
        RefinedPatch* out = m_patches.get_data() + first;
        for (unsigned int i = 0; i < count; ++i) out[i] = {quads[i], 0, 0, -1, false};
        m_quad_count += 4 * count;
        for (unsigned int quad; (quad = m_block_offsets.get_count() * block) <= m_quad_count;)
            m_block_offsets.add(first + (quad - first_quad + 3) / 4);
    }
    // Quads in increasing order; `next_patch` is the first patch after them.
    void end_quads(unsigned int count, unsigned int next_patch) {
        for (m_quad_count += count; m_block_offsets.get_count() * block <= m_quad_count;)
            m_block_offsets.add(next_patch);
    }

private:
    static constexpr unsigned int finest = 10;
    // Quads to an offset. Most quads are one patch or share one, so an offset each would be much of the list.
    static constexpr unsigned int block = 32;

    // The first patch at or after a place in the order of quads and cells.
    unsigned int find_first(unsigned int quad, unsigned int key) const {
        const unsigned int at = quad / block;
        unsigned int begin = at == 0 ? 0 : m_block_offsets[at];
        unsigned int end = at + 1 < m_block_offsets.get_count() ? m_block_offsets[at + 1] : m_patches.get_count();
        while (begin < end) {
            const unsigned int middle = begin + (end - begin) / 2;
            const RefinedPatch& patch = m_patches[middle];
            if (patch.quad() < quad || (patch.quad() == quad && key_of(patch) < key))
                begin = middle + 1;
            else
                end = middle;
        }
        return begin;
    }
    static unsigned int cell_of(double t) {
        constexpr double cells = 1u << finest;
        return t > 0.0 ? std::min(static_cast<unsigned int>(t * cells), (1u << finest) - 1u) : 0u;
    }
    // The bits of a number of ten bits, one apart.
    static unsigned int interleave(unsigned int x) {
        x = (x | x << 8) & 0x00FF00FFu;
        x = (x | x << 4) & 0x0F0F0F0Fu;
        x = (x | x << 2) & 0x33333333u;
        return (x | x << 1) & 0x55555555u;
    }
    static unsigned int key_of(const RefinedPatch& patch) {
        const auto up = finest - static_cast<unsigned int>(std::max(0, patch.level()));
        return interleave(patch.x() << up) | interleave(patch.y() << up) << 1;
    }

    //     3 ---- 2      quarter t begins at corner t of the patch; its u runs towards corner t + 1.
    //     | 3  2 |
    //     | 0  1 |
    //     0 ---- 1
    PatchPlace find_shared(unsigned int quad, unsigned int before, double u, double v) const {
        if (before == none) return {none, 0.0, 0.0, 0};
        const RefinedPatch& patch = m_patches[before];
        if (!patch.covers_four_quads() || quad - patch.quad() > 3) return {none, 0.0, 0.0, 0};
        double s = 0.5 * u;
        double t = 0.5 * v;
        const unsigned int turns = quad - patch.quad();
        for (unsigned int i = 0; i < turns; ++i) {
            const double former = s;
            s = 1.0 - t;
            t = former;
        }
        return {before, s, t, turns};
    }
    static QuadPoint find_quarter(unsigned int quad, double u, double v) {
        const bool is_right = u >= 0.5;
        const bool is_upper = v >= 0.5;
        const unsigned int turns = is_upper ? (is_right ? 2 : 3) : (is_right ? 1 : 0);
        for (unsigned int i = 0; i < turns; ++i) {
            const double former = u;
            u = v;
            v = 1.0 - former;
        }
        return {quad + turns, 2.0 * u, 2.0 * v, turns};
    }

    CoreArray<RefinedPatch> m_patches;
    CoreArray<unsigned int> m_block_offsets;  // per block of quads: its first patch
    unsigned int m_quad_count = 0;
    unsigned int m_leaf_count = 0;
};

}  // namespace sds
