#include "sds/refinement/refined_patches.h"

#include <algorithm>
#include <atomic>
#include <cmath>

#include "sds/common/array_bytes.h"
#include "sds/refinement/handed_edges.h"
#include "sds/refinement/level_kernels/level_kernels.h"
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

void compute_exact(RegularPatches<Vec3d>& regular, unsigned int face, Vec3d* controls) {
    regular.compute(
        face, [controls](unsigned int i, const PointLanes& lanes) { ValueLanes<Vec3d>::store(lanes, controls[i]); });
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
    void end_level(const PatchLimits<Vec3d>&) {}
    void begin_leaves(const RefinementLevel&) {}
    static bool add_smooth_leaf(unsigned int, unsigned int) { return false; }
    void add_regular(const RefinementLevel& level, const LevelValues<Vec3d>&, PatchLimits<Vec3d>&,
                     RegularPatches<Vec3d>& regular) {
        for_each_face(level, FaceState::emitted, [&](unsigned int f) {
            const unsigned int patch = level.face_patches[f];
            Vec3d* exact = controls + 16 * size_t{patch};
            compute_exact(regular, f, exact);
            if (nets != nullptr) copy_nets(Nets(exact), patch);
        });
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
    Vec3f sizes(0, 0, 0);
    for (const Vec3f& p : positions)
        for (unsigned int i = 0; i < 3; ++i) sizes[i] = std::max(sizes[i], std::fabs(p[i]));
    const float largest = std::max({sizes[0], sizes[1], sizes[2]});
    return 4096.0 * static_cast<double>(std::nextafter(largest, 2.0f * largest) - largest);
}

const LeafWeights* get_leaf_weights() {
    struct Table {
        LeafWeights at[max_leaf_valence + 1] = {};
        Table() {
            static_assert(max_leaf_valence == max_summed_valence);
            for (unsigned int n = 1; n <= max_leaf_valence; ++n) {
                const ClosedFanWeights<ExactTrig>& weights = closed_fan_weights<ExactTrig>(n);
                at[n] = {weights.edge, weights.diagonal, turn_cosine<ExactTrig>(n)};
            }
        }
    };
    static const Table table;
    return table.at;
}

template <class Sink>
void visit_points(const RefinedTopology& topology, const CoreBasicArray<Vec3f>& positions, Sink& sink,
                  AppProgressBar* progress, SysThreadTaskManager* tasks) {
    const auto point_at = [given = positions.get_data(), count = positions.get_count()](unsigned int v) {
        return v < count ? Vec3d(given[v]) : Vec3d(0, 0, 0);
    };
    visit_patches<Vec3d>(topology, point_at, sink, progress, tasks);
}

}  // namespace

class RoundingSink {
public:
    RoundingSink(RefinedPatches& patches, NetStorage storage, double shortest_edge, SysThreadTaskManager* tasks)
        : m_patches(patches),
          m_storage(storage),
          m_shortest_squared(storage == NetStorage::where_needed ? shortest_edge * shortest_edge : 0.0),
          m_tasks(tasks) {}
    RoundingSink(RefinedPatches& patches, const RefinedPatches& like, SysThreadTaskManager* tasks)
        : m_patches(patches), m_storage(NetStorage::where_needed), m_like(&like), m_tasks(tasks) {}

    SysThreadTaskManager* get_tasks() const { return m_tasks; }
    // Room for controls, and for nets after them.
    void start(unsigned int patch_count, unsigned int net_count) {
        m_capacity = 16 * patch_count + 24 * net_count;
        m_patches.m_points.resize(0);
        m_patches.m_points.reserve(m_capacity);
        m_patches.m_points.resize(16 * patch_count);
        m_patches.m_patch_count = patch_count;
        m_offsets->array.resize(patch_count);
    }
    // Keeps where the nets are.
    void end() {
        const unsigned int patch_count = m_patches.m_patch_count;
        const unsigned int* found = m_offsets->array.get_data();
        m_patches.m_net_words.resize((patch_count + 31) / 32);
        m_patches.m_net_offsets.resize(m_patches.get_net_count());
        unsigned int* out = m_patches.m_net_offsets.get_data();
        unsigned int count = 0;
        for (unsigned int w = 0; w < m_patches.m_net_words.get_count(); ++w) {
            NetPlaces::Word word{0, count};
            const unsigned int begin = 32 * w, end = std::min(begin + 32, patch_count);
            unsigned int stored[32 + 1];
            unsigned int stored_count = 0;
            for (unsigned int p = begin; p < end; ++p) {
                const unsigned int has_nets = found[p] != none ? 1 : 0;
                stored[stored_count] = found[p];
                stored_count += has_nets;
                word.has_nets |= has_nets << p % 32;
            }
            std::copy(stored, stored + stored_count, out + count);
            count += stored_count;
            m_patches.m_net_words[w] = word;
        }
    }
    void begin_level(const RefinementLevel& level, const RefinementLevel* fine) {
        m_coarse = m_level;
        m_level = &level;
        m_handed.begin_level(level, fine);
    }
    void end_level(const PatchLimits<Vec3d>& limits) { m_handed.end_level(limits, m_patches.m_points.get_data()); }

    void add_regular(const RefinementLevel& level, const LevelValues<Vec3d>& values, PatchLimits<Vec3d>& limits,
                     RegularPatches<Vec3d>& regular) {
        set_sharp_limits(level, values, limits);
        m_faces = view(level, values, limits);
        if (level.has_siblings) return add_siblings(level);
        const bool has_short = compute_controls(level, m_faces);
        if (!has_short && m_like == nullptr && m_storage != NetStorage::all) return;
        make_room_for_nets(level, FaceState::emitted);
        run_faces(m_tasks, level, [&](unsigned int begin, unsigned int end) {
            for_each_face(level, FaceState::emitted, begin, end, [&](unsigned int f) {
                Vec3f* nets = get_nets(level.face_patches[f]);
                if (nets == nullptr) return;
                Vec3d exact[16];
                compute_exact(regular, f, exact);
                store_nets(Nets(exact), nets);
            });
        });
    }
    void begin_leaves(const RefinementLevel& level) { make_room_for_nets(level, FaceState::leaf); }
    // Any thread.
    bool add_smooth_leaf(unsigned int face, unsigned int patch) {
        Vec3f* controls = get_controls(patch);
        Vec3f* nets = get_nets(patch);
        return get_level_kernels().compute_leaf(m_faces, face, controls->get_data(),
                                                nets != nullptr ? nets->get_data() : nullptr);
    }
    void add_leaf(unsigned int face, unsigned int patch, const Vec3d* exact, const LevelValues<Vec3d>& values,
                  LeafPatches& leaves) {
        Vec3f* controls = get_controls(patch);
        for (unsigned int i = 0; i < 16; ++i) controls[i] = Vec3f(exact[i]);
        for (unsigned int k = 0; k < 4; ++k) {
            const size_t v = m_faces.vertices[4 * face + k];
            const float* handed = m_faces.handed + 4 * v;
            if (m_faces.is_handed[v] != 0) controls[corner_control(k)] = {handed[0], handed[1], handed[2]};
        }
        if (Vec3f* nets = get_nets(patch); nets != nullptr) store_nets(leaf_nets(face, exact, values, leaves), nets);
    }

private:
    // The limits that smooth neighbors do not tell.
    static void set_sharp_limits(const RefinementLevel& level, const LevelValues<Vec3d>& values,
                                 PatchLimits<Vec3d>& limits) {
        for (const SharpVertex& vertex : level.sharp_vertices)
            if (level.vertex_kinds[vertex.vertex] != RefinementLevel::irregular_vertex)
                limits.set_untouched(vertex.vertex, limit_point(level, values, vertex.vertex));
    }
    LevelFaces view(const RefinementLevel& level, const LevelValues<Vec3d>& values, PatchLimits<Vec3d>& limits) {
        static_assert(sizeof(FaceState) == 1);
        LevelFaces faces;
        faces.states = reinterpret_cast<const unsigned char*>(level.states.get_data());
        faces.patches = level.face_patches.get_data();
        faces.offsets = level.is_quads() ? nullptr : level.offsets.get_data();
        faces.slots = level.corner_slots.get_data();
        faces.edge_bits = level.edges.quad_edge_flags.get_data();
        faces.vertices = level.corner_vertices.get_data();
        faces.opposites = level.edges.opposite_edges.get_data();
        faces.points = reinterpret_cast<const double*>(values.points.get_data());
        faces.limits = reinterpret_cast<double*>(limits.get_data());
        faces.is_known = limits.get_known();
        faces.has_limits = false;
        faces.has_handed = m_handed.has_points();
        faces.is_handed = m_handed.get_has_point();
        faces.handed = m_handed.get_points();
        faces.controls = reinterpret_cast<float*>(m_patches.m_points.get_data());
        faces.nets = nullptr;
        faces.net_offsets = m_offsets->array.get_data();
        faces.shortest_squared = m_shortest_squared;
        faces.emitted = static_cast<unsigned char>(FaceState::emitted);
        static_assert(RefinementLevel::regular_vertex == 0);
        faces.kinds = level.vertex_kinds.get_data();
        faces.valences = level.valences.get_data();
        faces.sharp_indices = level.sharp_indices.is_empty() ? nullptr : level.sharp_indices.get_data();
        faces.leaf_weights = get_leaf_weights();
        return faces;
    }
    // Returns whether any patch is so short that it needs nets; the net offsets say which.
    bool compute_controls(const RefinementLevel& level, const LevelFaces& faces) {
        const LevelKernels& kernels = get_level_kernels();
        if (m_tasks == nullptr) return kernels.compute_controls(faces, 0, level.candidate_count) != 0;
        // All limit points first, each from the face that asks for it first.
        CoreArray<unsigned int> first(level.vertex_count, none);
        for_each_face(level, FaceState::emitted, [&](unsigned int f) {
            for (unsigned int c = level.face_begin(f), end = c + 4; c < end; ++c) {
                unsigned int& corner = first[level.corner_vertices[c]];
                corner = std::min(corner, c);
            }
        });
        run_faces(m_tasks, level, [&](unsigned int begin, unsigned int end) {
            kernels.compute_limits(faces, first.get_data(), begin, end);
        });
        LevelFaces known_faces = faces;
        known_faces.has_limits = true;
        std::atomic<unsigned int> short_count{0};
        run_faces(m_tasks, level, [&](unsigned int begin, unsigned int end) {
            short_count += kernels.compute_controls(known_faces, begin, end);
        });
        return short_count != 0;
    }
    void add_siblings(const RefinementLevel& level) {
        const LevelStep step = view_step();
        const auto compute = [&](unsigned int parts) {
            m_faces.controls = reinterpret_cast<float*>(m_patches.m_points.get_data());
            m_faces.nets = m_faces.controls + 48 * size_t{m_patches.m_patch_count};
            return get_level_kernels().compute_siblings(m_faces, step, parts);
        };
        if (m_like == nullptr && m_storage != NetStorage::all) {
            // As if no regular patch were short: hardly any surface has such patches.
            const unsigned int count = m_patches.m_points.get_count();
            begin_leaves(level);
            if (compute(regular_siblings | sibling_leaves) == 0) return;
            m_patches.m_points.resize(count);
        } else {
            compute(regular_siblings);
        }
        make_room_for_nets(level, FaceState::emitted);
        begin_leaves(level);
        compute(sibling_leaves | regular_sibling_nets);
    }
    LevelStep view_step() const {
        const RefinementLevel& coarse = *m_coarse;
        LevelStep step;
        step.states = reinterpret_cast<const unsigned char*>(coarse.states.get_data());
        step.refined_faces = coarse.refined_faces.get_data();
        step.first_children = coarse.first_children.get_data();
        step.refined_count = coarse.refined_faces.get_count();
        step.refined = static_cast<unsigned char>(FaceState::refined);
        step.leaf = static_cast<unsigned char>(FaceState::leaf);
        step.offsets = coarse.is_quads() ? nullptr : coarse.offsets.get_data();
        step.faces = coarse.is_quads() ? nullptr : coarse.corner_faces.get_data();
        step.vertices = coarse.corner_vertices.get_data();
        step.opposites = coarse.edges.opposite_edges.get_data();
        step.edges = coarse.corner_edges.get_data();
        step.valences = coarse.valences.get_data();
        step.vertex_children = coarse.vertex_children.get_data();
        step.edge_children = coarse.edge_children.get_data();
        step.face_children = coarse.face_children.get_data();
        return step;
    }
    // Gives the patches of a level's faces that store nets their places. Which of the regular ones do is in the net
    // offsets, unless all do or another surface tells.
    void make_room_for_nets(const RefinementLevel& level, FaceState state) {
        CoreArray<Vec3f>& points = m_patches.m_points;
        unsigned int count = points.get_count();
        const bool has_rule = m_storage == NetStorage::all || (state == FaceState::leaf && m_like == nullptr);
        for_each_face(level, state, [&](unsigned int f) {
            const unsigned int patch = level.face_patches[f];
            unsigned int& offset = m_offsets->array[patch];
            const bool is_stored = has_rule            ? m_storage != NetStorage::never
                                   : m_like != nullptr ? m_like->get_net_places().find(patch) != none
                                                       : offset != none;
            offset = is_stored ? count - 16 * m_patches.get_patch_count() : none;
            count += is_stored ? 24 : 0;
        });
        if (count > m_capacity) {
            m_capacity = std::max(count, m_capacity + m_capacity / 8);
            points.reserve(m_capacity);
        }
        points.resize(count);
    }
    Vec3f* get_controls(unsigned int patch) { return m_patches.m_points.get_data() + 16 * size_t{patch}; }
    // Null for a patch that stores none.
    Vec3f* get_nets(unsigned int patch) {
        const unsigned int offset = m_offsets->array[patch];
        if (offset == none) return nullptr;
        return m_patches.m_points.get_data() + 16 * size_t{m_patches.get_patch_count()} + offset;
    }

    struct Offsets {
        CoreArray<unsigned int> array;
        size_t get_memory_size() const { return bytes_of(array); }
    };

    RefinedPatches& m_patches;
    KeptScratch<Offsets> m_offsets;  // per patch: where its nets begin, or none
    NetStorage m_storage;
    double m_shortest_squared = 0.0;  // of edges whose patches need no nets
    const RefinedPatches* m_like = nullptr;
    SysThreadTaskManager* m_tasks;
    unsigned int m_capacity = 0;  // of points
    LevelFaces m_faces{};         // of the level under work
    const RefinementLevel* m_level = nullptr;
    const RefinementLevel* m_coarse = nullptr;  // the level before it
    HandedEdges m_handed;
};

template <class Sink>
void RefinedPatches::build(const RefinedTopology& topology, const CoreBasicArray<Vec3f>& positions,
                           unsigned int net_count, Sink&& sink, AppProgressBar* progress) {
    try {
        sink.start(topology.get_places().get_patch_count(), net_count);
        visit_points(topology, positions, sink, progress, sink.get_tasks());
        sink.end();
    } catch (...) {
        *this = RefinedPatches();
        throw;
    }
}

void RefinedPatches::build(const RefinedTopology& topology, const CoreBasicArray<Vec3f>& positions, NetStorage storage,
                           AppProgressBar* progress, SysThreadTaskManager* tasks) {
    if (topology.has_siblings()) tasks = nullptr;
    const PatchPlaces& places = topology.get_places();
    // A few short patches are in most surfaces, and growing would copy all controls. Room that is not filled is memory
    // that is never touched.
    const unsigned int leaf_count = places.get_leaf_count();
    const unsigned int net_count = storage == NetStorage::never ? 0
                                   : storage == NetStorage::all ? places.get_patch_count()
                                                                : leaf_count + leaf_count / 8 + 64;
    build(topology, positions, net_count, RoundingSink(*this, storage, shortest_safe_edge(positions), tasks), progress);
}

void RefinedPatches::build_like(const RefinedPatches& other, const RefinedTopology& topology,
                                const CoreBasicArray<Vec3f>& positions, AppProgressBar* progress,
                                SysThreadTaskManager* tasks) {
    if (topology.has_siblings()) tasks = nullptr;
    build(topology, positions, other.get_net_count(), RoundingSink(*this, other, tasks), progress);
}

size_t RefinedPatches::get_memory_size() const {
    return bytes_of(m_points) + bytes_of(m_net_words) + bytes_of(m_net_offsets);
}

void compute_exact_patches(const RefinedTopology& topology, const CoreBasicArray<Vec3f>& positions, Vec3d* out,
                           Vec3d* nets) {
    ExactSink sink{out, nets};
    visit_points(topology, positions, sink, nullptr, nullptr);
}

}  // namespace sds
