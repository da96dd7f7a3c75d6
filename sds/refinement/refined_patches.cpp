#include "sds/refinement/refined_patches.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "sds/common/array_bytes.h"
#include "sds/common/listed_walks.h"
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
    regular.compute(face, [controls](unsigned int i, const DoublePointLanes& lanes) {
        ValueLanes<Vec3d>::store(lanes, controls[i]);
    });
}

Nets leaf_nets(unsigned int face, const Vec3d* controls, const LevelValues<Vec3d>& values, LeafPatches& leaves) {
    Nets nets(controls);
    leaves.bend_nets(face, values, nets);
    return nets;
}

struct ExactSink {
    Vec3d* controls;
    Vec3d* nets;
    CoreArray<unsigned int> faces = {};

    void begin_level(const RefinementLevel&, const RefinementLevel*) {}
    void end_level(const PatchLimits<Vec3d>&) {}
    void begin_leaves(const RefinementLevel&, const CoreArray<unsigned int>&) {}
    static void expect_leaf(unsigned int) {}
    static bool add_smooth_leaf(unsigned int, unsigned int) { return false; }
    void add_regular(const RefinementLevel& level, const LevelValues<Vec3d>&, PatchLimits<Vec3d>&,
                     RegularPatches<Vec3d>& regular) {
        list_faces(level, FaceState::emitted, faces);
        for (const unsigned int f : faces) {
            const unsigned int patch = level.face_patches[f];
            Vec3d* exact = controls + 16 * size_t{patch};
            compute_exact(regular, f, exact);
            if (nets != nullptr) copy_nets(Nets(exact), patch);
        }
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
        m_patches.m_net_words.assign((patch_count + 31) / 32, NetPlaces::Word{0, 0});
        m_scratch->net_offsets.assign(patch_count, none);
    }
    // Keeps where the nets are.
    void end() {
        const unsigned int* found = m_scratch->net_offsets.get_data();
        m_patches.m_net_offsets.resize(m_patches.get_net_count());
        unsigned int* out = m_patches.m_net_offsets.get_data();
        unsigned int count = 0;
        for (unsigned int w = 0; w < m_patches.m_net_words.get_count(); ++w) {
            NetPlaces::Word& word = m_patches.m_net_words[w];
            word.first_offset = count;
            for (unsigned int rest = word.has_nets; rest != 0; rest &= rest - 1)
                out[count++] = found[32 * w + static_cast<unsigned int>(std::countr_zero(rest))];
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
        CoreArray<unsigned int>& faces = m_scratch->faces;
        compute_controls(level, m_faces, faces);
        if (!needs_short_only()) list_faces(level, FaceState::emitted, faces);
        make_room_for_nets(level, faces);
        run_faces(m_tasks, faces.get_count(), [&](unsigned int begin, unsigned int end) {
            for (unsigned int i = begin; i < end; ++i) {
                Vec3f* nets = get_nets(level.face_patches[faces[i]]);
                if (nets == nullptr) continue;
                Vec3d exact[16];
                compute_exact(regular, faces[i], exact);
                store_nets(Nets(exact), nets);
            }
        });
    }
    void begin_leaves(const RefinementLevel& level, const CoreArray<unsigned int>& faces) {
        make_room_for_nets(level, faces);
    }
    // Their patches lie here and there, and stores that wait for memory hold up what comes after them. Any thread.
    // Inlined, since compilers leave out calls of functions that do nothing else.
    [[gnu::always_inline]] void expect_leaf(unsigned int patch) {
        const Vec3f *controls = get_controls(patch), *nets = get_nets(patch);
        for (unsigned int i = 0; i < 16; i += 5) __builtin_prefetch(controls + i, 1);
        if (nets == nullptr) return;
        for (unsigned int i = 0; i < 24; i += 5) __builtin_prefetch(nets + i, 1);
    }
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
            Vec3f& corner = controls[corner_control(k)];
            const float* const choice[2] = {corner.get_data(), m_faces.handed + 4 * v};
            const float* const chosen = choice[m_faces.is_handed[v]];
            corner = {chosen[0], chosen[1], chosen[2]};
        }
        if (Vec3f* nets = get_nets(patch); nets != nullptr) store_nets(leaf_nets(face, exact, values, leaves), nets);
    }

private:
    // The limits that smooth neighbors do not tell.
    void set_sharp_limits(const RefinementLevel& level, const LevelValues<Vec3d>& values, PatchLimits<Vec3d>& limits) {
        const SharpVertex* vertices = level.sharp_vertices.get_data();
        const unsigned char* kinds = level.vertex_kinds.get_data();
        for_each_where(
            level.sharp_vertices.get_count(),
            [=](unsigned int i) { return kinds[vertices[i].vertex] != RefinementLevel::irregular_vertex; },
            [&](unsigned int i) { limits.set_untouched(vertices[i].vertex, limit_point(level, values, vertices[i])); });
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
        faces.is_handed = m_handed.get_has_point();
        faces.handed = m_handed.get_points();
        faces.controls = reinterpret_cast<float*>(m_patches.m_points.get_data());
        faces.nets = nullptr;
        faces.net_offsets = m_scratch->net_offsets.get_data();
        faces.shortest_squared = m_shortest_squared;
        faces.emitted = static_cast<unsigned char>(FaceState::emitted);
        static_assert(RefinementLevel::regular_vertex == 0);
        faces.kinds = level.vertex_kinds.get_data();
        faces.valences = level.valences.get_data();
        faces.leaf_weights = get_leaf_weights();
        return faces;
    }
    // Lists the faces whose patches are so short that they need nets.
    void compute_controls(const RefinementLevel& level, const LevelFaces& faces, CoreArray<unsigned int>& short_faces) {
        const LevelKernels& kernels = get_level_kernels();
        const unsigned int count = level.candidate_count;
        short_faces.resize(count + 1);
        if (m_tasks == nullptr)
            return short_faces.resize(kernels.compute_controls(faces, 0, count, short_faces.get_data()));
        // All limit points first, each from the face that asks for it first.
        CoreArray<unsigned int> first(level.vertex_count, none);
        list_faces(level, FaceState::emitted, short_faces);
        for (const unsigned int f : short_faces)
            for (unsigned int c = level.face_begin(f), end = c + 4; c < end; ++c) {
                unsigned int& corner = first[level.corner_vertices[c]];
                corner = std::min(corner, c);
            }
        run_faces(m_tasks, count, [&](unsigned int begin, unsigned int end) {
            kernels.compute_limits(faces, first.get_data(), begin, end);
        });
        LevelFaces known_faces = faces;
        known_faces.has_limits = true;
        // Every part begins where its faces would, with gaps behind it.
        short_faces.assign(count + 1, none);
        run_faces(m_tasks, count, [&](unsigned int begin, unsigned int end) {
            kernels.compute_controls(known_faces, begin, end, short_faces.get_data() + begin);
        });
        short_faces.resize(
            static_cast<unsigned int>(std::remove(short_faces.begin(), short_faces.end(), none) - short_faces.begin()));
    }
    void add_siblings(const RefinementLevel& level) {
        const LevelStep step = view_step();
        const auto compute = [&](unsigned int parts) {
            m_faces.controls = reinterpret_cast<float*>(m_patches.m_points.get_data());
            m_faces.nets = m_faces.controls + 48 * size_t{m_patches.m_patch_count};
            return get_level_kernels().compute_siblings(m_faces, step, parts);
        };
        CoreArray<unsigned int>& faces = m_scratch->faces;
        const auto make_room = [&](FaceState state) {
            list_faces(level, state, faces);
            make_room_for_nets(level, faces);
        };
        if (needs_short_only()) {
            // As if no regular patch were short: hardly any surface has such patches.
            const unsigned int count = m_patches.m_points.get_count();
            make_room(FaceState::leaf);
            if (compute(regular_siblings | sibling_leaves) == 0) return;
            m_patches.m_points.resize(count);
            list_faces(level, FaceState::emitted, faces);
            const auto is_long = [&](unsigned int f) { return m_scratch->net_offsets[level.face_patches[f]] == none; };
            faces.resize(
                static_cast<unsigned int>(std::remove_if(faces.begin(), faces.end(), is_long) - faces.begin()));
            make_room_for_nets(level, faces);
        } else {
            compute(regular_siblings);
            make_room(FaceState::emitted);
        }
        make_room(FaceState::leaf);
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
    // Of regular patches.
    bool needs_short_only() const { return m_like == nullptr && m_storage != NetStorage::all; }
    // Gives the patches of these faces places for nets, unless they store none.
    void make_room_for_nets(const RefinementLevel& level, const CoreArray<unsigned int>& faces) {
        if (m_storage == NetStorage::never) return;
        CoreArray<Vec3f>& points = m_patches.m_points;
        const unsigned int begin = 16 * m_patches.get_patch_count();
        unsigned int count = points.get_count();
        for (const unsigned int f : faces) {
            const unsigned int patch = level.face_patches[f];
            if (m_like != nullptr && m_like->get_net_places().find(patch) == none) continue;
            m_scratch->net_offsets[patch] = count - begin;
            m_patches.m_net_words[patch / 32].has_nets |= 1u << patch % 32;
            count += 24;
        }
        if (count > m_capacity) {
            m_capacity = std::max(count, m_capacity + m_capacity / 8);
            points.reserve(m_capacity);
        }
        points.resize(count);
    }
    Vec3f* get_controls(unsigned int patch) { return m_patches.m_points.get_data() + 16 * size_t{patch}; }
    // Null for a patch that stores none.
    Vec3f* get_nets(unsigned int patch) {
        const unsigned int offset = m_scratch->net_offsets[patch];
        if (offset == none) return nullptr;
        return m_patches.m_points.get_data() + 16 * size_t{m_patches.get_patch_count()} + offset;
    }

    struct Scratch {
        CoreArray<unsigned int> net_offsets;  // per patch: where its nets begin, or none
        CoreArray<unsigned int> faces;
        size_t get_memory_size() const { return bytes_of(net_offsets) + bytes_of(faces); }
    };

    RefinedPatches& m_patches;
    KeptScratch<Scratch> m_scratch;
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
