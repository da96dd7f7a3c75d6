#include "io/usda/scene_places.h"

#include "io/usda/scene_readers.h"

#include <algorithm>

namespace sds_usda {

namespace {

constexpr std::size_t max_depth = 16;  // of prototypes in prototypes

/// visit(node, whether its operations count) from a place to the world, innermost first, until a node says that nothing
/// above it matters to transforms, if `stops`. between(link) comes behind the root of every prototype.
template <class Visit, class Between>
void walk_up(const UsdScene& scene, const UsdPlace& place, bool stops, const Visit& visit, const Between& between) {
    std::uint32_t node = place.node;
    for (std::size_t l = 0; l <= place.links.size(); ++l) {
        const UsdLink* link = l < place.links.size() ? &place.links[l] : nullptr;
        for (; node != 0; node = scene.nodes[node].parent) {
            const bool is_root = link != nullptr && node == link->root;
            visit(node, !(is_root && link->replaces_ops));
            if (stops && scene.nodes[node].resets_stack) return;
            if (is_root) break;
        }
        if (link == nullptr) return;
        between(*link);
        node = link->node;
    }
}

/// Elements of a place, `stride` numbers from `first` on, at a time code; blended where the sample behind has as many
/// places. A sample with another number of places than the frame's is not asked.
class PlaceValues {
public:
    PlaceValues(const Timed<float>& timed, std::size_t stride, std::uint32_t place, const UsdFrame& frame, double time)
        : m_timed(timed), m_first(stride * place) {
        const auto at_frame = find_sample(timed.times, frame.time);
        m_at = find_sample(timed.times, time);
        const std::size_t count = timed.sample(at_frame.sample).size();
        if (timed.sample(m_at.sample).size() != count) m_at = {at_frame.sample, 0.0};
        if (m_at.share > 0.0 && timed.sample(m_at.sample + 1).size() != count) m_at.share = 0.0;
    }
    double share() const { return m_at.share; }
    double before(std::size_t i) const { return static_cast<double>(m_timed.sample(m_at.sample)[m_first + i]); }
    double after(std::size_t i) const { return static_cast<double>(m_timed.sample(m_at.sample + 1)[m_first + i]); }
    double operator[](std::size_t i) const {
        return share() > 0.0 ? (1.0 - share()) * before(i) + share() * after(i) : before(i);
    }

private:
    const Timed<float>& m_timed;
    std::size_t m_first;
    SamplePlace m_at;
};

/// Scaled, turned and put there.
Matrix4 instance_matrix(const UsdInstancer& instancer, std::uint32_t place, const UsdFrame& frame, double time) {
    using Op = UsdXformOp;
    Matrix4 out = identity_matrix;
    if (!instancer.scales.is_empty()) {
        const PlaceValues scale(instancer.scales, 3, place, frame, time);
        for (std::size_t i = 0; i < 3; ++i) out[5 * i] = scale[i];
    }
    if (!instancer.orientations.is_empty()) {
        const PlaceValues turn(instancer.orientations, 4, place, frame, time);
        std::array<double, 4> q{turn.before(0), turn.before(1), turn.before(2), turn.before(3)};
        if (turn.share() > 0.0)
            q = slerp(q, {turn.after(0), turn.after(1), turn.after(2), turn.after(3)}, turn.share());
        out = product(out, op_matrix({Op::Kind::orient, false, "", 0}, q));
    }
    const bool has_velocities = !instancer.velocities.is_empty();
    const std::vector<double>& times = instancer.positions.times;
    const double base = times.empty() ? frame.time : times[find_sample(times, frame.time).sample];
    const PlaceValues position(instancer.positions, 3, place, frame, has_velocities ? base : time);
    for (std::size_t i = 0; i < 3; ++i) out[12 + i] = position[i];
    if (has_velocities) {
        const PlaceValues velocity(instancer.velocities, 3, place, frame, frame.time);
        for (std::size_t i = 0; i < 3; ++i) out[12 + i] += velocity.before(i) * (time - base) / frame.codes_per_second;
    }
    return out;
}

class PlaceVisitor {
public:
    PlaceVisitor(const UsdScene& scene, const UsdFrame& frame,
                 const std::function<void(std::uint32_t, const UsdPlace&)>& visit)
        : m_scene(scene), m_frame(frame), m_visit(visit) {
        for (std::uint32_t n = 1; n < scene.nodes.size(); ++n)
            if (scene.nodes[n].is_hidden) m_steps.push_back({n, Kind::hidden, 0});
        add_steps(scene.meshes, Kind::mesh);
        add_steps(scene.references, Kind::reference);
        add_steps(scene.instancers, Kind::instancer);
        std::sort(m_steps.begin(), m_steps.end());
    }

    bool visit_all() { return visit_below(0); }

private:
    enum class Kind : std::uint8_t { hidden, mesh, reference, instancer };
    struct Step {
        std::uint32_t node;
        Kind kind;
        std::uint32_t index;

        auto operator<=>(const Step&) const = default;
    };

    template <class Items>
    void add_steps(const Items& items, Kind kind) {
        for (std::uint32_t i = 0; i < items.size(); ++i) m_steps.push_back({items[i].node, kind, i});
    }

    bool visit_below(std::uint32_t root);
    bool visit_step(const Step& step);
    bool visit_prototype(const UsdLink& link);
    bool visit_instancer(const UsdInstancer& instancer);

    const UsdScene& m_scene;
    const UsdFrame& m_frame;
    const std::function<void(std::uint32_t, const UsdPlace&)>& m_visit;
    std::vector<Step> m_steps;
    std::vector<UsdLink> m_links;  // outermost first
    std::size_t m_visited = 0;
};

bool PlaceVisitor::visit_below(std::uint32_t root) {
    const std::uint32_t end = m_scene.nodes[root].end;
    std::uint32_t next = root;  // what lies before has been skipped
    auto step = std::lower_bound(m_steps.begin(), m_steps.end(), Step{root, Kind::hidden, 0});
    for (; step != m_steps.end() && step->node < end; ++step) {
        if (step->node < next) continue;
        if (step->kind == Kind::hidden) {
            if (step->node != root) next = m_scene.nodes[step->node].end;
            continue;
        }
        if (!visit_step(*step)) return false;
        if (step->kind == Kind::instancer) next = m_scene.nodes[step->node].end;
    }
    return true;
}

bool PlaceVisitor::visit_step(const Step& step) {
    if (!m_links.empty() && ++m_visited > max_places) return false;
    if (step.kind == Kind::mesh) {
        m_visit(step.index, {step.node, {m_links.rbegin(), m_links.rend()}});
        return true;
    }
    if (step.kind == Kind::instancer) return visit_instancer(m_scene.instancers[step.index]);
    const UsdReference& reference = m_scene.references[step.index];
    return visit_prototype({reference.target, reference.node, nullptr, 0, m_scene.nodes[reference.node].says_ops});
}

bool PlaceVisitor::visit_prototype(const UsdLink& link) {
    const bool is_within_itself =
        std::any_of(m_links.begin(), m_links.end(), [&](const UsdLink& outer) { return outer.root == link.root; });
    if (is_within_itself || m_links.size() == max_depth) return true;
    m_links.push_back(link);
    const bool is_done = visit_below(link.root);
    m_links.pop_back();
    return is_done;
}

bool PlaceVisitor::visit_instancer(const UsdInstancer& instancer) {
    const auto at_frame = [&](const auto& timed) {
        return timed.sample(find_sample(timed.times, m_frame.time).sample);
    };
    const auto indices = at_frame(instancer.proto_indices);
    std::vector<std::int64_t> invisible;
    if (!instancer.invisible_ids.is_empty()) {
        const auto ids = at_frame(instancer.invisible_ids);
        invisible.assign(ids.begin(), ids.end());
        std::sort(invisible.begin(), invisible.end());
    }
    const auto ids = instancer.ids.is_empty() ? std::span<const std::int64_t>() : at_frame(instancer.ids);
    for (std::uint32_t i = 0; i < indices.size(); ++i) {
        const std::int64_t id = ids.empty() ? i : ids[i];
        if (std::binary_search(invisible.begin(), invisible.end(), id)) continue;
        if (++m_visited > max_places) return false;
        if (!visit_prototype({instancer.prototypes[indices[i]], instancer.node, &instancer, i, false})) return false;
    }
    return true;
}

}  // namespace

std::string place_path(const UsdScene& scene, const UsdPlace& place) {
    std::string path;
    std::uint32_t node = place.node;
    for (const UsdLink& link : place.links) {
        std::string own = prim_path(scene, node).substr(prim_path(scene, link.root).size()) + path;
        path = (link.instancer == nullptr ? "" : "[" + std::to_string(link.place) + "]") + std::move(own);
        node = link.node;
    }
    return prim_path(scene, node) + path;
}

Matrix4 place_matrix(const UsdScene& scene, const UsdPlace& place, const UsdFrame& frame, double time) {
    Matrix4 out = identity_matrix;
    walk_up(
        scene, place, true,
        [&](std::uint32_t node, bool has_ops) {
            if (has_ops) append_ops(scene.nodes[node], time, out);
        },
        [&](const UsdLink& link) {
            if (link.instancer != nullptr)
                out = product(out, instance_matrix(*link.instancer, link.place, frame, time));
        });
    return out;
}

std::vector<double> place_times(const UsdScene& scene, const UsdPlace& place) {
    std::vector<double> times;
    const auto add = [&times](const auto& timed) { times.insert(times.end(), timed.times.begin(), timed.times.end()); };
    bool goes = false;
    walk_up(
        scene, place, true,
        [&](std::uint32_t node, bool has_ops) {
            if (has_ops) std::for_each(scene.nodes[node].op_values.begin(), scene.nodes[node].op_values.end(), add);
        },
        [&](const UsdLink& link) {
            if (link.instancer == nullptr) return;
            goes |= !link.instancer->velocities.is_empty();
            if (link.instancer->velocities.is_empty()) add(link.instancer->positions);
            add(link.instancer->orientations);
            add(link.instancer->scales);
        });
    if (goes && times.empty()) times.push_back(0.0);  // any: it never stands still
    std::sort(times.begin(), times.end());
    times.erase(std::unique(times.begin(), times.end()), times.end());
    return times;
}

bool is_place_shown(const UsdScene& scene, const UsdPlace& place, double time) {
    const auto is_meant = [&](std::uint32_t node) {
        const Purpose purpose = scene.nodes[node].purpose;
        return purpose == Purpose::default_ || purpose == Purpose::render;
    };
    bool is_shown = is_meant(place.node);
    walk_up(
        scene, place, false,
        [&](std::uint32_t node, bool) {
            const Timed<std::uint8_t>& invisible = scene.nodes[node].invisible;
            is_shown &=
                invisible.is_empty() || invisible.sample(find_sample(invisible.times, time).sample).front() == 0;
        },
        [&](const UsdLink& link) { is_shown &= is_meant(link.node); });
    return is_shown;
}

bool visit_places(const UsdScene& scene, const UsdFrame& frame,
                  const std::function<void(std::uint32_t, const UsdPlace&)>& visit) {
    return PlaceVisitor(scene, frame, visit).visit_all();
}

}  // namespace sds_usda
