// The parts of the host that are not a line in a header.
#include <bit>
#include <map>
#include <thread>

#include "host/poly.h"

namespace {

constexpr unsigned int none = 0xFFFFFFFF;

CoreLogHandler main_log;

std::deque<CoreClassInfo>& classes() {
    static std::deque<CoreClassInfo> all;
    return all;
}

template <class T>
const CoreClassInfo& abstract_class(const char* name, const CoreClassInfo* base) {
    static const CoreClassInfo& info = CoreClassInfo::new_class(name, nullptr, base, nullptr);
    return info;
}

std::vector<float> half_values() {
    std::vector<float> values(65536);
    for (unsigned int half = 0; half < values.size(); ++half) {
        const int exponent = int(half >> 10 & 31);
        const auto mantissa = static_cast<float>(half & 1023);
        float value = exponent == 0 ? std::ldexp(mantissa, -24) : std::ldexp(mantissa + 1024.0f, exponent - 25);
        if (exponent == 31) value = mantissa == 0.0f ? std::numeric_limits<float>::infinity() : std::nanf("");
        values[half] = half & 0x8000 ? -value : value;
    }
    return values;
}

}  // namespace

const CoreClassInfo& CoreClassInfo::new_class(const CoreString& name, ClassDestructor destructor,
                                              const CoreClassInfo* base, ClassFactory factory) {
    return classes().emplace_back(CoreClassInfo{name, destructor, base, factory});
}
const std::deque<CoreClassInfo>& CoreClassInfo::get_all() { return classes(); }

const CoreClassInfo& CoreBaseType::class_info() { return abstract_class<CoreBaseType>("CoreBaseType", nullptr); }
const CoreClassInfo& ResourceData::class_info() {
    return abstract_class<ResourceData>("ResourceData", &CoreBaseType::class_info());
}
const CoreClassInfo& GeometryProperty::class_info() {
    return abstract_class<GeometryProperty>("GeometryProperty", &ResourceData::class_info());
}
const CoreClassInfo& GeometryObject::class_info() {
    return abstract_class<GeometryObject>("GeometryObject", &ResourceData::class_info());
}

CoreLogHandler* CoreLogHandler::s_main_log_handler = &main_log;
void CoreLogHandler::log(const unsigned int& level, const CoreLogStream& stream) {
    if (level <= get_level()) lines.push_back(stream.get_text());
}

const float* const GMathHalfFloatConverter::s_conv_htof = [] {
    static const std::vector<float> values = half_values();
    return values.data();
}();
unsigned short GMathHalfFloatConverter::from_float(const float& value) {
    // The pattern whose value is nearest; even patterns win ties.
    unsigned int best = 0;
    for (unsigned int half = 0; half < 65536; ++half) {
        const float distance = std::fabs(s_conv_htof[half] - value), least = std::fabs(s_conv_htof[best] - value);
        if (distance < least || (distance == least && half % 2 == 0)) best = half;
    }
    return static_cast<unsigned short>(best);
}

void SysThreadTaskManager::add_task(SysThreadTask& task, const bool& owned, const bool& enabled) {
    if (owned) m_owned.emplace_back(&task);
    if (enabled) m_tasks.push_back(&task);
}
void SysThreadTaskManager::wait_until_completed() {
    std::atomic<size_t> next{0};
    const auto work = [&](unsigned int worker) {
        for (size_t i; (i = next.fetch_add(1)) < m_tasks.size();) m_tasks[i]->run(worker);
    };
    {
        const std::jthread second(work, 1u);
        work(0u);
    }
    m_tasks.clear();
    m_owned.clear();
}

double GeometryRaytraceCtx::get_reference_shift(unsigned int) const {
    const double shift = (m_reference - m_ray->origin).dot(m_ray->direction) / m_ray->direction.length_squared();
    return std::isfinite(shift) ? shift : 0.0;
}
const GeometryRaySpace& GeometryRaytraceCtx::get_ray_space(unsigned int) {
    const GMathVec3<double>& d = m_ray->direction;
    GeometryRaySpace& space = m_ray->space;
    space.shift = get_reference_shift(0);
    const GMathVec3<float> origin(m_ray->origin + d * space.shift), along(d * (1.0 / d.length_squared()));
    // Across: to the side of the axis that the direction is farthest from.
    GMathVec3<double> axis(0, 0, 0);
    unsigned int least = 0;
    for (unsigned int i = 1; i < 3; ++i)
        if (std::fabs(d[i]) < std::fabs(d[least])) least = i;
    axis[least] = 1.0;
    GMathVec3<double> across = axis.cross(d);
    across *= 1.0 / across.length();
    const GMathVec3<float> sideways[2] = {GMathVec3<float>(across),
                                          GMathVec3<float>(d.cross(across) * (1.0 / d.length()))};
    for (unsigned int i = 0; i < 3; ++i) {
        space.origin[i] = origin[i];
        space.along[i] = along[i];
        for (unsigned int k = 0; k < 2; ++k) space.across[k][i] = sideways[k][i];
    }
    return space;
}
bool GeometryRaytraceCtx::push_intersection(const CtxEval&, unsigned int, unsigned int primitive, double u, double v,
                                            double, unsigned int, double, double, double, double t, double,
                                            const GeometryMediumDescriptor&, const void*) {
    if (!(t >= m_ray->tnear && t < m_ray->tfar)) return false;
    m_ray->tfar = t;
    m_ray->primitive = primitive;
    m_ray->u = u;
    m_ray->v = v;
    return true;
}

void ResourceProperty::init(const Type& type, const unsigned int& extent, const unsigned int& item_count) {
    m_type = type;
    m_extent = extent;
    m_item_count = item_count;
    m_numbers.assign(size_t{extent} * item_count, 0);  // eight bytes are enough for any type
}

PolyMesh::PolyMesh(const CoreArray<unsigned int>& counts, const CoreArray<unsigned int>& indices)
    : m_counts(counts), m_indices(indices) {
    unsigned int offset = 0;
    for (const unsigned int count : counts) {
        m_offsets.add(offset);
        offset += count;
    }
}

std::vector<std::pair<unsigned int, unsigned int>> second_host_creases;
std::map<unsigned int, unsigned int> second_host_welds;

void compute_polygons_neighbourhood(CoreArray<unsigned int>& neighbour_polygons,
                                    CoreArray<unsigned int>& neighbour_edges,
                                    CoreArray<unsigned char>& edge_smooth_flags,
                                    const CoreBasicArray<unsigned int>& polygon_indices,
                                    const CoreBasicArray<unsigned int>& polygon_counts,
                                    const CoreBasicArray<unsigned int>& polygon_offsets, const unsigned int&,
                                    AppProgressBar*) {
    struct Side {
        unsigned int polygon, slot;
    };
    const auto weld = [](unsigned int v) {
        const auto found = second_host_welds.find(v);
        return found == second_host_welds.end() ? v : found->second;
    };
    std::map<std::pair<unsigned int, unsigned int>, std::vector<Side>> edges;
    for (unsigned int p = 0; p < polygon_counts.get_count(); ++p)
        for (unsigned int k = 0; k < polygon_counts[p]; ++k) {
            const unsigned int a = weld(polygon_indices[polygon_offsets[p] + k]);
            const unsigned int b = weld(polygon_indices[polygon_offsets[p] + (k + 1) % polygon_counts[p]]);
            edges[std::minmax(a, b)].push_back({p, k});
        }
    neighbour_polygons.assign(polygon_indices.get_count(), none);
    neighbour_edges.assign(polygon_indices.get_count(), none);
    edge_smooth_flags.assign(polygon_indices.get_count(), 1);
    for (const auto& [edge, sides] : edges) {
        if (sides.size() == 2)
            for (const auto& [own, other] : {std::pair(sides[0], sides[1]), std::pair(sides[1], sides[0])}) {
                neighbour_polygons[polygon_offsets[own.polygon] + own.slot] = other.polygon;
                neighbour_edges[polygon_offsets[own.polygon] + own.slot] = other.slot;
            }
        for (const auto& [a, b] : second_host_creases)
            if (edge == std::pair<unsigned int, unsigned int>(std::minmax(a, b)))
                for (const Side& side : sides) edge_smooth_flags[polygon_offsets[side.polygon] + side.slot] = 0;
    }
}
