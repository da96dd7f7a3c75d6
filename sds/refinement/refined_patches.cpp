#include "sds/refinement/refined_patches.h"

#include <algorithm>
#include <cmath>

#include "sds/common/array_bytes.h"
#include "sds/refinement/handed_edges.h"
#include "sds/refinement/patch_values.h"

namespace sds {

namespace {

using Vec3f = GMathVec3<float>;
using Vec3d = GMathVec3<double>;
using Nets = DerivativeNets<Vec3d>;

void store_nets(const Nets& nets, Vec3f* out) {
    for (const auto& row : nets.u)
        for (const Vec3d& d : row) *out++ = Vec3f(d);
    for (const auto& row : nets.v)
        for (const Vec3d& d : row) *out++ = Vec3f(d);
}

template <class Compute>
void store_controls(const Compute& compute, Vec3d* controls) {
    compute([controls](unsigned int i, const PointLanes& lanes) { ValueLanes<Vec3d>::store(lanes, controls[i]); });
}

Nets leaf_nets(unsigned int face, const Vec3d* controls, const LevelValues<Vec3d>& values, LeafPatches& leaves) {
    Nets nets(controls);
    leaves.compute_nets(face, values, controls, nets);
    return nets;
}

struct ExactSink {
    Vec3d* controls;
    Vec3d* nets;

    void begin_level(const RefinementLevel&, const RefinementLevel*) {}
    void end_level() {}
    template <class Compute>
    void add_regular(unsigned int, unsigned int patch, const Compute& compute) {
        Vec3d* exact = controls + 16 * size_t{patch};
        store_controls(compute, exact);
        if (nets != nullptr) copy_nets(Nets(exact), patch);
    }
    void add_leaf(unsigned int face, unsigned int patch, const Vec3d* exact, const LevelValues<Vec3d>& values,
                  LeafPatches& leaves) {
        std::copy(exact, exact + 16, controls + 16 * size_t{patch});
        if (nets != nullptr) copy_nets(leaf_nets(face, exact, values, leaves), patch);
    }

private:
    void copy_nets(const Nets& exact_nets, unsigned int patch) const {
        Vec3d* out = nets + 24 * size_t{patch};
        out = std::copy(&exact_nets.u[0][0], &exact_nets.u[0][0] + 12, out);
        std::copy(&exact_nets.v[0][0], &exact_nets.v[0][0] + 12, out);
    }
};

// An edge of fewer roundings of the largest coordinate has differences that are off by more than a 2^-12th.
double shortest_safe_edge(const CoreBasicArray<Vec3f>& positions) {
    float largest = 0.0f;
    for (const Vec3f& p : positions)
        for (unsigned int i = 0; i < 3; ++i) largest = std::max(largest, std::fabs(p[i]));
    return 4096.0 * static_cast<double>(std::nextafter(largest, 2.0f * largest) - largest);
}

template <class Sink>
void visit_points(const RefinedTopology& topology, const CoreBasicArray<Vec3f>& positions, Sink& sink,
                  AppProgressBar* progress) {
    visit_patches<Vec3d>(
        topology, [&](unsigned int v) { return v < positions.get_count() ? Vec3d(positions[v]) : Vec3d(0, 0, 0); },
        sink, progress);
}

}  // namespace

class RoundingSink {
public:
    RoundingSink(RefinedPatches& patches, NetStorage storage, double shortest_edge)
        : m_patches(patches), m_storage(storage), m_shortest_squared(shortest_edge * shortest_edge) {}
    RoundingSink(RefinedPatches& patches, const RefinedPatches& like) : m_patches(patches), m_like(&like) {}

    // Room for controls, and for nets after them.
    void start(unsigned int patch_count, unsigned int net_count) {
        m_capacity = 16 * patch_count + 24 * net_count;
        m_patches.m_points.resize(0);
        m_patches.m_points.reserve(m_capacity);
        m_patches.m_points.resize(16 * patch_count);
        m_patches.m_net_offsets.resize(patch_count);
    }
    void begin_level(const RefinementLevel& level, const RefinementLevel* fine) { m_handed.begin_level(level, fine); }
    void end_level() { m_handed.end_level(); }

    template <class Compute>
    void add_regular(unsigned int face, unsigned int patch, const Compute& compute) {
        Vec3f* controls = m_patches.m_points.get_data() + 16 * size_t{patch};
        PointLanes corners[4];
        compute([&](unsigned int i, const PointLanes& lanes) {
            lanes.v.store_rounded3(controls[i].get_data());
            if ((i & 3u) == 0) corners[i >> 2] = lanes;
        });
        m_handed.exchange(face, controls);
        if (!stores_nets(patch, false, [&] { return is_short(corners); })) return;
        Vec3d exact[16];
        store_controls(compute, exact);
        add_nets(patch, Nets(exact));
    }
    void add_leaf(unsigned int face, unsigned int patch, const Vec3d* exact, const LevelValues<Vec3d>& values,
                  LeafPatches& leaves) {
        Vec3f* controls = m_patches.m_points.get_data() + 16 * size_t{patch};
        for (unsigned int i = 0; i < 16; ++i) controls[i] = Vec3f(exact[i]);
        m_handed.exchange(face, controls);
        if (stores_nets(patch, true, [] { return true; })) add_nets(patch, leaf_nets(face, exact, values, leaves));
    }

private:
    template <class IsShort>
    bool stores_nets(unsigned int patch, bool is_leaf, const IsShort& is_short_patch) {
        m_patches.m_net_offsets[patch] = none;
        if (m_like != nullptr) return m_like->m_net_offsets[patch] != none;
        if (m_storage != NetStorage::where_needed) return m_storage == NetStorage::all;
        return is_leaf || is_short_patch();
    }
    bool is_short(const PointLanes (&corners)[4]) const {
        bool is_any = false;
        for (unsigned int k = 0; k < 4; ++k)
            is_any |= (corners[(k + 1) & 3u] - corners[k]).length_squared() < m_shortest_squared;
        return is_any;
    }
    void add_nets(unsigned int patch, const Nets& nets) {
        CoreArray<Vec3f>& points = m_patches.m_points;
        const unsigned int begin = points.get_count();
        if (begin + 24 > m_capacity) {
            m_capacity = std::max(begin + 24 * 64, begin + begin / 8);
            points.reserve(m_capacity);
        }
        points.resize(begin + 24);
        m_patches.m_net_offsets[patch] = begin - 16 * m_patches.get_patch_count();
        store_nets(nets, points.get_data() + begin);
    }

    RefinedPatches& m_patches;
    NetStorage m_storage = NetStorage::never;
    double m_shortest_squared = 0.0;
    const RefinedPatches* m_like = nullptr;
    unsigned int m_capacity = 0;  // of points
    HandedEdges m_handed;
};

template <class Sink>
void RefinedPatches::build(const RefinedTopology& topology, const CoreBasicArray<Vec3f>& positions,
                           unsigned int net_count, Sink&& sink, AppProgressBar* progress) {
    try {
        sink.start(topology.get_places().get_patch_count(), net_count);
        visit_points(topology, positions, sink, progress);
    } catch (...) {
        *this = RefinedPatches();
        throw;
    }
}

void RefinedPatches::build(const RefinedTopology& topology, const CoreBasicArray<Vec3f>& positions, NetStorage storage,
                           AppProgressBar* progress) {
    const PatchPlaces& places = topology.get_places();
    const unsigned int net_count = storage == NetStorage::never ? 0
                                   : storage == NetStorage::all ? places.get_patch_count()
                                                                : places.get_leaf_count();
    build(topology, positions, net_count, RoundingSink(*this, storage, shortest_safe_edge(positions)), progress);
}

void RefinedPatches::build_like(const RefinedPatches& other, const RefinedTopology& topology,
                                const CoreBasicArray<Vec3f>& positions, AppProgressBar* progress) {
    build(topology, positions, other.get_net_count(), RoundingSink(*this, other), progress);
}

size_t RefinedPatches::get_memory_size() const { return bytes_of(m_points) + bytes_of(m_net_offsets); }

void compute_exact_patches(const RefinedTopology& topology, const CoreBasicArray<Vec3f>& positions, Vec3d* out,
                           Vec3d* nets) {
    ExactSink sink{out, nets};
    visit_points(topology, positions, sink, nullptr);
}

}  // namespace sds
