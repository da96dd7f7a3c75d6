#include "sds/refinement/refined_patches.h"

#include <algorithm>
#include <cmath>

#include "sds/common/array_bytes.h"
#include "sds/mesh_base/control_rules.h"
#include "sds/refinement/handed_edges.h"
#include "sds/refinement/leaf_patches.h"
#include "sds/refinement/patch_topology.h"

namespace sds {

namespace {

using Vec3f = GMathVec3<float>;
using Vec3d = GMathVec3<double>;
using Nets = DerivativeNets<Vec3d>;

void store_nets(const Nets& nets, unsigned int offset, Vec3f* out) {
    out += offset;
    for (const auto& row : nets.u)
        for (const Vec3d& d : row) *out++ = Vec3f(d);
    for (const auto& row : nets.v)
        for (const Vec3d& d : row) *out++ = Vec3f(d);
}

// The limit points of the vertices that patches of a level touch, each computed once.
class PatchLimits {
public:
    void start(const RefinementLevel& level) {
        m_level = &level;
        m_limits.resize(level.vertex_count);
        m_known.assign(level.vertex_count, false);
    }

    // limit_at(face-corner) gives a limit point.
    template <class LimitAt>
    void compute(unsigned int face, const LimitAt& limit_at) {
        const unsigned int begin = m_level->face_begin(face);
        for (unsigned int k = 0; k < 4; ++k) {
            const unsigned int v = m_level->corner_vertices[begin + k];
            if (m_known[v]) continue;
            m_known[v] = true;
            m_limits[v] = limit_at(begin + k);
        }
    }
    const Vec3d* get() const { return m_limits.get_data(); }

private:
    const RefinementLevel* m_level = nullptr;
    CoreArray<Vec3d> m_limits;
    CoreArray<bool> m_known;
};

// Carries positions down the levels and gives every patch's exact controls to the sink:
//     sink.begin_level(level, next level or null), sink.add_patch(level, face, patch, controls, make_nets),
//     sink.end_level()
template <class Sink>
void compute_patches(const RefinedTopology& topology, const CoreBasicArray<Vec3f>& positions, Sink& sink) {
    LevelValues<Vec3d> values;
    LevelValues<Vec3d> next;
    DartMasks darts;
    PatchLimits limits;
    // Sized for the largest level at once: arrays that grow from level to level would be touched anew each time.
    unsigned int face_count = 0;
    unsigned int vertex_count = 0;
    for (unsigned int i = 0; i < topology.get_level_count(); ++i) {
        face_count = std::max(face_count, topology.get_level(i).face_count);
        vertex_count = std::max(vertex_count, topology.get_level(i).vertex_count);
    }
    values.reserve(face_count, vertex_count);
    next.points.reserve(vertex_count);
    values.points.resize(topology.get_level(0).vertex_count);
    for (unsigned int v = 0; v < values.points.get_count(); ++v)
        values.points[v] = v < positions.get_count() ? Vec3d(positions[v]) : Vec3d(0, 0, 0);

    for (unsigned int i = 0; i < topology.get_level_count(); ++i) {
        const RefinementLevel& level = topology.get_level(i);
        const RefinementLevel* fine = level.has_step ? &topology.get_level(i + 1) : nullptr;
        sum_neighbours(level, values);
        if (fine != nullptr) refine_values(level, *fine, topology.has_smooth_triangles() && i == 0, values, next);

        sink.begin_level(level, fine);
        limits.start(level);
        std::unique_ptr<LeafPatches> leaves;
        Vec3d controls[16];
        for (unsigned int f = 0; f < level.candidate_count; ++f) {
            const unsigned int patch = level.face_patches[f];
            if (patch == none) continue;
            if (level.states[f] == FaceState::emitted) {
                limits.compute(f, [&](unsigned int c) { return limit_point(level, values, level.corner_vertices[c]); });
                smooth_controls(
                    level.corner_vertices.get_data() + level.face_begin(f), regular_patch(level, f),
                    [&](unsigned int w) -> const Vec3d& { return values.points[w]; },
                    [&](unsigned int w) -> const Vec3d& { return limits.get()[w]; }, controls);
                sink.add_patch(f, patch, controls, [&] { return Nets(controls); });
            } else {
                if (!leaves) leaves = std::make_unique<LeafPatches>(level, darts);
                limits.compute(f, [&](unsigned int c) { return leaves->limit_at(c, values); });
                leaves->compute(f, values, limits.get(), controls);
                sink.add_patch(f, patch, controls, [&] {
                    Nets nets(controls);
                    leaves->compute_nets(f, values, controls, nets);
                    return nets;
                });
            }
        }
        sink.end_level();
        values.points.swap(next.points);
    }
}

struct ExactSink {
    Vec3d* controls;
    Vec3d* nets;

    void begin_level(const RefinementLevel&, const RefinementLevel*) {}
    void end_level() {}
    template <class MakeNets>
    void add_patch(unsigned int, unsigned int patch, const Vec3d* exact, const MakeNets& make_nets) {
        std::copy(exact, exact + 16, controls + 16 * size_t{patch});
        if (nets == nullptr) return;
        const Nets exact_nets = make_nets();
        Vec3d* out = nets + 24 * size_t{patch};
        out = std::copy(&exact_nets.u[0][0], &exact_nets.u[0][0] + 12, out);
        std::copy(&exact_nets.v[0][0], &exact_nets.v[0][0] + 12, out);
    }
};

class RoundingSink {
public:
    RoundingSink(RefinedPatches& patches, NetStorage storage, double shortest_edge)
        : m_patches(patches), m_storage(storage), m_shortest_squared(shortest_edge * shortest_edge) {}
    RoundingSink(RefinedPatches& patches, const RefinedPatches& like) : m_patches(patches), m_like(&like) {}

    void begin_level(const RefinementLevel& level, const RefinementLevel* fine) {
        m_level = &level;
        m_handed.begin_level(level, fine);
    }
    void end_level() { m_handed.end_level(); }

    template <class MakeNets>
    void add_patch(unsigned int face, unsigned int patch, const Vec3d* exact, const MakeNets& make_nets) {
        Vec3f* controls = m_patches.controls.get_data() + 16 * size_t{patch};
        for (unsigned int i = 0; i < 16; ++i) controls[i] = Vec3f(exact[i]);
        m_handed.exchange(face, controls);
        m_patches.net_offsets[patch] = none;
        if (!stores_nets(face, patch, exact)) return;
        const unsigned int offset = m_patches.nets.get_count();
        if (m_patches.nets.get_count() + 24 > m_capacity) {
            m_capacity = std::max(offset + 24 * 64, offset + offset / 2);
            m_patches.nets.reserve(m_capacity);
        }
        m_patches.nets.resize(offset + 24);
        m_patches.net_offsets[patch] = offset;
        store_nets(make_nets(), offset, m_patches.nets.get_data());
    }

private:
    bool stores_nets(unsigned int face, unsigned int patch, const Vec3d* exact) const {
        if (m_like != nullptr) return m_like->net_offsets[patch] != none;
        if (m_storage != NetStorage::where_needed) return m_storage == NetStorage::all;
        return m_level->states[face] == FaceState::leaf || is_short(exact);
    }
    bool is_short(const Vec3d* exact) const {
        for (unsigned int k = 0; k < 4; ++k)
            if ((exact[corner_control((k + 1) & 3u)] - exact[corner_control(k)]).length_squared() < m_shortest_squared)
                return true;
        return false;
    }

    RefinedPatches& m_patches;
    NetStorage m_storage = NetStorage::never;
    double m_shortest_squared = 0.0;
    const RefinedPatches* m_like = nullptr;
    unsigned int m_capacity = 0;
    const RefinementLevel* m_level = nullptr;
    HandedEdges m_handed;
};

// An edge of fewer roundings of the largest coordinate has differences that are off by more than a 2^-12th.
double shortest_safe_edge(const CoreBasicArray<Vec3f>& positions) {
    float largest = 0.0f;
    for (const Vec3f& p : positions)
        for (unsigned int i = 0; i < 3; ++i) largest = std::max(largest, std::fabs(p[i]));
    return 4096.0 * static_cast<double>(std::nextafter(largest, 2.0f * largest) - largest);
}

}  // namespace

void RefinedPatches::make_room(unsigned int patch_count) {
    controls.resize(16 * patch_count);
    net_offsets.resize(patch_count);
    nets.resize(0);
}

void RefinedPatches::build(const RefinedTopology& topology, const CoreBasicArray<Vec3f>& positions,
                           NetStorage storage) {
    make_room(topology.get_places().get_patch_count());
    RoundingSink sink(*this, storage, shortest_safe_edge(positions));
    compute_patches(topology, positions, sink);
}

void RefinedPatches::build_like(const RefinedPatches& other, const RefinedTopology& topology,
                                const CoreBasicArray<Vec3f>& positions) {
    make_room(topology.get_places().get_patch_count());
    RoundingSink sink(*this, other);
    compute_patches(topology, positions, sink);
}

size_t RefinedPatches::get_memory_size() const { return bytes_of(controls) + bytes_of(net_offsets) + bytes_of(nets); }

void compute_exact_patches(const RefinedTopology& topology, const CoreBasicArray<Vec3f>& positions, Vec3d* out,
                           Vec3d* nets) {
    ExactSink sink{out, nets};
    compute_patches(topology, positions, sink);
}

}  // namespace sds
