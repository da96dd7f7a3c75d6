#include "render/scene_bounds.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <new>

#include "qn_geometry/geometry_fragment.h"
#include "qn_geometry/geometry_sample.h"
#include "qn_sys/sys_thread.h"

namespace sds_render {

namespace {

constexpr unsigned int chunk_size = 1024;
constexpr unsigned int max_step_count = 33;

constexpr float infinity = std::numeric_limits<float>::infinity();

// body(begin, end) for the chunks of [0, count).
template <class Body>
void for_each_chunk(unsigned int count, Body&& body) {
    const unsigned int chunks = count / chunk_size + (count % chunk_size != 0 ? 1 : 0);
    sys_parallel_for(chunks, [&](unsigned int chunk, unsigned int) {
        const unsigned int begin = chunk * chunk_size;
        body(begin, begin + std::min(chunk_size, count - begin));
    });
}
template <class Body>
void for_each_primitive(unsigned int count, Body&& body) {
    for_each_chunk(count, [&](unsigned int begin, unsigned int end) {
        for (unsigned int i = begin; i < end; ++i) body(i);
    });
}

// A float above x, by two ulp at most. x is not -infinity.
float round_up(double x) {
    const auto nearest = static_cast<float>(x);
    constexpr float smallest = std::numeric_limits<float>::min();
    return nearest + (std::fabs(nearest) * std::numeric_limits<float>::epsilon() + smallest);
}
float round_down(double x) { return -round_up(-x); }

// Even steps that meet every time when the times are evenly spaced, and about two steps a time otherwise.
unsigned int choose_step_count(const std::vector<double>& times) {
    const auto count = static_cast<unsigned int>(times.size());
    const double step = (times.back() - times.front()) / (count - 1);
    bool is_even = true;
    for (unsigned int i = 0; i < count; ++i)
        is_even = is_even && std::fabs(times[i] - (times.front() + step * i)) <= 1e-9 * (times.back() - times.front());
    return std::min(is_even ? count : 2 * count, max_step_count);
}

// Blended positions may snap to a sample that is less than 1e-4 of the way to the next one away, and are rounded to
// single precision: the box grows by a little more than both.
void pad_moving_box(const Bbox3& travelled, Bbox3& box) {
    Vec3 min = box.get_min(), max = box.get_max();
    for (unsigned int a = 0; a < 3; ++a) {
        const double low = travelled.get_min()[a], high = travelled.get_max()[a];
        const double magnitude = std::max(std::fabs(low), std::fabs(high));
        const double pad = 1.5e-4 * (high - low) + 8.0 * std::numeric_limits<float>::epsilon() * magnitude;
        min[a] -= pad;
        max[a] += pad;
    }
    box = {min, max};
}

struct MotionTimes {
    std::vector<double> steps;
    // All times at which a box is taken: the steps and the bends of the motion, sorted.
    std::vector<double> all;

    explicit MotionTimes(const std::vector<double>& times) {
        const unsigned int count = choose_step_count(times);
        for (unsigned int s = 0; s < count; ++s)
            steps.push_back(times.front() + (times.back() - times.front()) * s / (count - 1));
        steps.back() = times.back();
        const double same = 1e-9 * (times.back() - times.front());
        all = steps;
        for (const double time : times) {
            const bool is_step =
                std::any_of(steps.begin(), steps.end(), [&](double step) { return std::fabs(step - time) <= same; });
            if (!is_step) all.push_back(time);
        }
        std::sort(all.begin(), all.end());
    }
};

// A step's box is exact while no bend lies in the two intervals beside it: control points that move linearly stay in
// the blend of their boxes. An interval with a bend gives everything seen in it to both its ends.
Bbox3 compute_step_box(const MotionTimes& times, unsigned int step, const std::vector<Bbox3>& seen) {
    const double here = times.steps[step];
    const double before = step > 0 ? times.steps[step - 1] : here;
    const double after = step + 1 < times.steps.size() ? times.steps[step + 1] : here;
    const auto grow_by_interval = [&](double begin, double end, Bbox3& box) {
        const auto is_inside = [&](double time) { return time > begin && time < end; };
        if (std::none_of(times.all.begin(), times.all.end(), is_inside)) return;
        for (size_t i = 0; i < times.all.size(); ++i)
            if (times.all[i] >= begin && times.all[i] <= end) box.grow(seen[i]);
    };
    Bbox3 box = Bbox3::empty();
    for (size_t i = 0; i < times.all.size(); ++i)
        if (times.all[i] == here) box.grow(seen[i]);
    grow_by_interval(before, here, box);
    grow_by_interval(here, after, box);
    return box;
}

// Primitives by the bits of their boxes.
class KnownPrimitives {
public:
    explicit KnownPrimitives(unsigned int count)
        : m_slots(std::bit_ceil(2 * std::min(count, most_remembered) + 1), no_index) {}

    // True when same(earlier) holds for an earlier primitive with the same box; else remembers this one, unless too
    // many differ in spite of their boxes.
    template <class Same>
    bool repeats(const CoreArray<Bbox3>& boxes, unsigned int primitive, const Same& same) {
        constexpr unsigned int most_looks = 32;
        size_t slot = get_hash(boxes[primitive]);
        for (unsigned int look = 0; look < most_looks; ++look, ++slot) {
            unsigned int& known = m_slots[slot & (m_slots.get_count() - 1)];
            if (known == no_index) {
                known = primitive;
                return false;
            }
            const Bbox3 &a = boxes[known], &b = boxes[primitive];
            if (a.get_min() == b.get_min() && a.get_max() == b.get_max() && same(known)) return true;
        }
        return false;
    }

private:
    static constexpr unsigned int most_remembered = 1u << 29;

    // A sum of products, which wait for nothing of each other.
    static size_t get_hash(const Bbox3& box) {
        std::uint64_t hash = 0, factor = 0x9E3779B97F4A7C15u;
        for (unsigned int axis = 0; axis < 3; ++axis)
            for (const double side : {box.get_min()[axis], box.get_max()[axis]}) {
                // Doubles that were floats have zeros at the end.
                const auto bits = std::bit_cast<std::uint64_t>(side + 0.0);
                hash += (bits ^ bits >> 29) * factor;
                factor *= 0xD1342543DE82EF95u;
            }
        return hash ^ hash >> 32;
    }

    CoreArray<unsigned int> m_slots;
};

// Two primitives that agree to the bit at their corners, in positions and in all derivatives that a bicubic patch is
// made from, are the same patch; the place between them is for flat cells.
bool is_same_patch(const CtxEval& ctx, const GeometryObject& object, unsigned int first, unsigned int second) {
    constexpr double places[][2] = {{0.375, 0.625}, {0, 0}, {1, 0}, {1, 1}, {0, 1}};
    for (const auto& [u, v] : places) {
        GeometrySample samples[2];
        for (const unsigned int i : {0u, 1u}) {
            GeometryFragment fragment;
            fragment.primitive = i == 0 ? first : second;
            fragment.u = u;
            fragment.v = v;
            object.compute_fragment_sample(ctx, fragment, samples[i]);
        }
        if (!(samples[0].get_geometric_position() == samples[1].get_geometric_position() &&
              samples[0].get_geometric_dpdu() == samples[1].get_geometric_dpdu() &&
              samples[0].get_geometric_dpdv() == samples[1].get_geometric_dpdv() &&
              samples[0].get_d2pduv() == samples[1].get_d2pduv()))
            return false;
    }
    return true;
}

}  // namespace

void compute_still_bounds(const CtxShader& shader, const GeometryObject& object, double time, PrimitiveBounds& bounds) {
    bounds.primitive_count = object.get_primitive_count();
    bounds.step_count = 1;
    bounds.boxes.resize(bounds.primitive_count);
    const bool is_animated = object.is_animated();
    for_each_chunk(bounds.primitive_count, [&](unsigned int begin, unsigned int end) {
        const CtxEval ctx(shader);
        if (!is_animated)
            return object.compute_primitive_bboxes(ctx, begin, end - begin, bounds.boxes.get_data() + begin);
        for (unsigned int i = begin; i < end; ++i) {
            object.compute_primitive_bbox_at(ctx, i, time, bounds.boxes[i]);
            if (is_valid_box(bounds.boxes[i])) pad_moving_box(bounds.boxes[i], bounds.boxes[i]);
        }
    });
}

void leave_out_repeated(const CtxShader& shader, const GeometryObject& object, PrimitiveBounds& bounds) {
    const CtxEval ctx(shader);
    CoreArray<Bbox3>& boxes = bounds.boxes;
    KnownPrimitives known(boxes.get_count());
    std::vector<unsigned int> repeated;
    for (unsigned int i = 0; i < boxes.get_count(); ++i)
        if (is_valid_box(boxes[i]) &&
            known.repeats(boxes, i, [&](unsigned int earlier) { return is_same_patch(ctx, object, earlier, i); }))
            repeated.push_back(i);
    for (const unsigned int i : repeated) boxes[i] = Bbox3::empty();
}

PrimitiveBounds compute_moving_bounds(const CtxShader& shader, const GeometryObject& object,
                                      const std::vector<double>& times) {
    return compute_box_bounds(object.get_primitive_count(), times, [&](unsigned int i, double time) {
        Bbox3 box;
        object.compute_primitive_bbox_at(CtxEval(shader), i, time, box);
        return box;
    });
}

PrimitiveBounds compute_box_bounds(unsigned int count, const std::vector<double>& times,
                                   const std::function<Bbox3(unsigned int, double)>& box_at) {
    PrimitiveBounds bounds;
    bounds.primitive_count = count;
    if (times.size() < 2) {
        for (unsigned int i = 0; i < count; ++i) bounds.boxes.add(box_at(i, times.front()));
        return bounds;
    }
    const MotionTimes motion(times);
    bounds.step_count = static_cast<unsigned int>(motion.steps.size());
    if (count > no_index / bounds.step_count) throw std::bad_alloc();
    bounds.boxes.resize(count * bounds.step_count);
    for_each_primitive(count, [&](unsigned int i) {
        std::vector<Bbox3> seen(motion.all.size());
        Bbox3 travelled = Bbox3::empty();
        bool is_valid = true;
        for (size_t t = 0; t < seen.size(); ++t) {
            seen[t] = box_at(i, motion.all[t]);
            is_valid = is_valid && is_valid_box(seen[t]);
            travelled.grow(seen[t]);
        }
        for (unsigned int step = 0; step < bounds.step_count; ++step) {
            Bbox3& box = bounds.boxes[size_t{step} * count + i];
            box = is_valid ? compute_step_box(motion, step, seen) : Bbox3::empty();
            if (is_valid) pad_moving_box(travelled, box);
        }
    });
    return bounds;
}

void append_sample_times(const GeometryObject& object, double open, double close, std::vector<double>& times) {
    if (!object.is_animated()) return;
    const GeometryPointCloud* cloud = object.get_point_cloud();
    if (cloud == nullptr || !cloud->has_sampling()) return;
    const GMathTimeSampling& sampling = cloud->get_sampling();
    const auto append = [&](double time) {
        if (time > open && time < close) times.push_back(time);
    };
    for (unsigned int i = 0; i < sampling.get_sample_count(); ++i) append(sampling.get_sample_time(i));
    // Where an object stands as it was built, which need not be on the way between its samples.
    append(0.0);
}

UnitSpace::UnitSpace(const Bbox3& box) {
    m_center = box.get_center();
    // A scene that is one point still gets a sphere that double precision can tell from the point.
    const double smallest = std::max(1e-12 * m_center.length(), 1e-60);
    m_radius = std::max(0.5 * box.get_diagonal(), smallest);
    m_inverse_radius = 1.0 / m_radius;
}

// Where a narrowed ray (SceneRay) is taken to be, in units of e = 2^-24 an axis:
//   its origin, whose coordinates are at most 4, is rounded by 2, and its direction by 1/2 over a way of at most 5;
//   the slab test forms bound * r - origin * r with r = 1 / direction to 2 or 3 ulp (user primitives get the fast test
//   even in a robust scene): 10 for the products and their difference, 15 for r over the way.
// 64 e hold that, the blend of two moving boxes, and the rounding of a ray's time. Kernels accept hits that lie a few
// 1e-6 of a primitive's size outside it: its box grows by 2^-17 of that size too.
void UnitSpace::narrow(const Bbox3& box, float lower[3], float upper[3]) const {
    if (!is_valid_box(box)) {
        std::fill_n(lower, 3, infinity);
        std::fill_n(upper, 3, -infinity);
        return;
    }
    const double pad = get_pad(box);
    for (unsigned int a = 0; a < 3; ++a) {
        lower[a] = round_down((box.get_min()[a] - m_center[a]) * m_inverse_radius - pad);
        upper[a] = round_up((box.get_max()[a] - m_center[a]) * m_inverse_radius + pad);
    }
}

double UnitSpace::get_pad(const Bbox3& box) const {
    const Vec3 extent = box.get_max() - box.get_min();
    const double size = std::max({extent[0], extent[1], extent[2]}) * m_inverse_radius;
    // Objects narrow a ray to single precision where they stand: far from the origin that moves it by a good part of
    // the coordinates' own rounding.
    double magnitude = 0.0;
    for (unsigned int a = 0; a < 3; ++a)
        magnitude = std::max({magnitude, std::fabs(box.get_min()[a]), std::fabs(box.get_max()[a])});
    const double narrowing = 2.0 * std::numeric_limits<float>::epsilon() * magnitude * m_inverse_radius;
    return 0x1p-18 + 0x1p-17 * size + narrowing;
}

Bbox3 UnitSpace::pad(const Bbox3& box) const {
    const double pad = get_pad(box) * m_radius;
    return {box.get_min() - Vec3{pad, pad, pad}, box.get_max() + Vec3{pad, pad, pad}};
}

bool SceneRay::init(const UnitSpace& space, const Vec3& ray_origin, const Vec3& ray_direction, double tnear,
                    double tfar) {
    // Nearly all rays: from nearby, where they begin, with unit directions up to rounding, of which the series' next
    // term is below 1e-16. The hierarchy finds out by itself whether they pass. NaN fails.
    constexpr double near = 4.0, unit_noise = 1e-8;
    const Vec3 from_center = (ray_origin - space.get_center()) * space.get_inverse_radius();
    const double excess = ray_direction.length_squared() - 1.0;
    if (std::fabs(excess) < unit_noise && tnear == 0.0 && from_center.length_squared() <= near * near) {
        begin = 0.0;
        scale = (1.0 + 0.5 * excess) * space.get_inverse_radius();
        for (unsigned int a = 0; a < 3; ++a) {
            origin[a] = static_cast<float>(from_center[a]);
            direction[a] = static_cast<float>(ray_direction[a] * (1.0 - 0.5 * excess));
        }
        constexpr double reach = near + 2.0;
        length = tfar * scale >= reach ? static_cast<float>(reach) : get_distance(tfar);
        return tfar >= 0.0;
    }
    const double speed = ray_direction.length(), inverse_speed = 1.0 / speed;
    if (!(speed > 0.0) || !std::isfinite(speed) || !ray_origin.is_finite()) return false;
    // A little more than the sphere, so that no rounding below can cut off a hit.
    constexpr double reach = 1.01;
    const Vec3 axis = ray_direction * inverse_speed;
    const Vec3 to_center = space.get_center() - ray_origin;
    const double nearest = to_center.dot(axis);
    const Vec3 miss = to_center - axis * nearest;
    const double radius = reach * space.get_radius();
    if (!(miss.length_squared() <= radius * radius)) return false;

    begin = std::max(tnear, (nearest - radius) * inverse_speed);
    const double last = (nearest + radius) * inverse_speed;
    if (!(begin <= last && begin <= tfar)) return false;
    scale = speed * space.get_inverse_radius();
    const Vec3 start = (axis * (begin * speed) - to_center) * space.get_inverse_radius();
    for (unsigned int a = 0; a < 3; ++a) {
        origin[a] = static_cast<float>(start[a]);
        direction[a] = static_cast<float>(axis[a]);
    }
    length = get_distance(std::min(tfar, last));
    return true;
}

float SceneRay::get_distance(double t) const {
    const float distance = round_up((t - begin) * scale);
    return distance > 0.0f ? distance : 0.0f;
}

}  // namespace sds_render
