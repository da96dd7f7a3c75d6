// UV maps, colors and properties from primvars.
#include "io/usda/mesh_source.h"

#include "model/array_view.h"
#include "model/uv_join.h"
#include "qn_poly/poly_check.h"

#include <algorithm>
#include <cmath>
#include <type_traits>

namespace sds_usda {

namespace {

using sds_model::FindingCode;
using sds_model::Findings;
using sds_model::FirstCase;
using Kind = PolyMeshProperty::Type;

/// The values of a frame: numbers that are no whole ones are blended between samples, others hold until the next.
template <class T>
std::vector<T> values_at(const Timed<T>& timed, double time) {
    const auto [sample, share] = find_sample(timed.times, time);
    const std::span<const T> from = timed.sample(sample);
    std::vector<T> out(from.begin(), from.end());
    if constexpr (std::is_floating_point_v<T>) {
        if (!(share > 0.0) || timed.sample(sample + 1).size() != from.size()) return out;
        const std::span<const T> to = timed.sample(sample + 1);
        for (std::size_t i = 0; i < out.size(); ++i)
            out[i] = static_cast<T>((1.0 - share) * static_cast<double>(from[i]) + share * static_cast<double>(to[i]));
    }
    return out;
}

template <class T>
constexpr ResourceProperty::Type type_of() {
    using Type = ResourceProperty::Type;
    if constexpr (std::is_same_v<T, std::int32_t>) return Type::int32;
    if constexpr (std::is_same_v<T, std::uint32_t>) return Type::uint32;
    if constexpr (std::is_same_v<T, std::int64_t>) return Type::int64;
    if constexpr (std::is_same_v<T, std::uint64_t>) return Type::uint64;
    if constexpr (std::is_same_v<T, double>) return Type::float64;
    return Type::float32;
}

class PrimvarTaker {
public:
    PrimvarTaker(const FaceMap& map, const UsdFrame& frame, const UsdMeshOptions& options, const std::string& place,
                 sds_model::MeshSource& out, Findings& findings)
        : m_map(map), m_frame(frame), m_options(options), m_place(place), m_out(out), m_findings(findings) {}

    void take(const UsdPrimvar& primvar);
    void settle_uv_rule(const std::vector<UsdPrimvar>& primvars);

private:
    FirstCase at(const std::string& detail) const { return {m_place, detail + " of '" + m_out.name + "'", {}}; }
    FirstCase at(const UsdPrimvar& primvar) const { return at("primvars:" + primvar.name); }
    std::size_t element_of(std::size_t place) const { return m_elements.empty() ? place : m_elements[place]; }
    std::vector<std::uint32_t> corner_elements(Interpolation interpolation) const;
    template <class T>
    void take_uvs(const UsdPrimvar& primvar, const std::vector<T>& values);
    template <class T>
    void take_colors(const UsdPrimvar& primvar, const std::vector<T>& values);
    template <class T>
    std::vector<double> property_times(const Timed<T>& timed) const;
    template <class T>
    void take_property(const UsdPrimvar& primvar, const Timed<T>& timed);

    const FaceMap& m_map;
    const UsdFrame& m_frame;
    const UsdMeshOptions& m_options;
    const std::string& m_place;
    sds_model::MeshSource& m_out;
    Findings& m_findings;
    std::vector<std::uint32_t> m_elements;  // of the primvar at hand, per place; empty: their own
};

/// Element of every face-corner of the cage.
std::vector<std::uint32_t> PrimvarTaker::corner_elements(Interpolation interpolation) const {
    const sds_model::ControlCage& cage = m_out.cage;
    std::vector<std::uint32_t> out;
    out.reserve(m_map.corners.size());
    std::size_t corner = 0;
    for (std::size_t p = 0; p < cage.polygon_counts.size(); ++p)
        for (std::uint32_t k = 0; k < cage.polygon_counts[p]; ++k, ++corner) {
            std::size_t place = 0;
            if (interpolation == Interpolation::uniform) place = m_map.faces[p];
            if (interpolation == Interpolation::face_varying) place = m_map.corners[corner];
            if (interpolation == Interpolation::vertex || interpolation == Interpolation::varying)
                place = cage.polygon_indices[corner];
            out.push_back(static_cast<std::uint32_t>(element_of(place)));
        }
    return out;
}

template <class T>
void PrimvarTaker::take_uvs(const UsdPrimvar& primvar, const std::vector<T>& values) {
    const std::size_t stride = primvar.components;
    sds_model::UvSource uvs;
    uvs.name = primvar.name;
    for (std::size_t i = 0; i + stride <= values.size(); i += stride)
        for (std::size_t c = 0; c < 3; ++c) uvs.points.push_back(c < stride ? static_cast<float>(values[i + c]) : 0.0f);
    uvs.indices = corner_elements(primvar.interpolation);
    PolyFindings found;
    poly_check_uvs(sds_model::points_view(uvs.points), sds_model::view_of(uvs.indices),
                   sds_model::view_of(m_out.cage.polygon_counts), found);
    sds_model::add_mesh_findings(found, m_findings, [&](PolyFindingCode, const PolyPlace&) { return at(primvar); });
    if (found.has_errors()) return;
    if (m_options.joins_uvs) sds_model::join_uvs(m_out.cage.view(), uvs);
    // the usual map first
    const bool is_first = primvar.name == "st";
    m_out.further_uvs.insert(is_first ? m_out.further_uvs.begin() : m_out.further_uvs.end(), std::move(uvs));
}

template <class T>
void PrimvarTaker::take_colors(const UsdPrimvar& primvar, const std::vector<T>& values) {
    bool is_clamped = false;
    const auto to_byte = [&](T value) {
        is_clamped |= !(value >= 0 && value <= 1);
        return static_cast<std::uint8_t>(std::lround(255.0 * std::clamp(static_cast<double>(value), 0.0, 1.0)));
    };
    const bool is_per_vertex =
        primvar.interpolation == Interpolation::vertex || primvar.interpolation == Interpolation::varying;
    sds_model::ControlCage& cage = m_out.cage;
    const std::size_t count = is_per_vertex ? cage.get_vertex_count() : values.size() / 3;
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t element = is_per_vertex ? element_of(i) : i;
        for (std::size_t c = 0; c < 3; ++c) {
            const T value = values[3 * element + c];
            cage.vertex_colors.push_back(std::isnan(value) ? std::uint8_t{255} : to_byte(value));
        }
        cage.vertex_colors.push_back(255);
    }
    if (!is_per_vertex) cage.color_indices = corner_elements(primvar.interpolation);
    if (is_clamped) m_findings.record(FindingCode::color_out_of_range, [&] { return at(primvar); });
}

/// Times at which a primvar is followed, from the frame; none where it holds.
template <class T>
std::vector<double> PrimvarTaker::property_times(const Timed<T>& timed) const {
    const bool is_followed = std::is_floating_point_v<T> && !m_frame.is_moment() && timed.get_sample_count() > 1;
    if (!is_followed || !has_even_samples(timed)) return {};
    return span_times(m_frame, timed.times);
}

template <class T>
void PrimvarTaker::take_property(const UsdPrimvar& primvar, const Timed<T>& timed) {
    sds_model::PropertySource source;
    source.times = property_times(timed);
    std::vector<std::vector<T>> samples;
    for (const double time : source.times) samples.push_back(values_at(timed, m_frame.time + time));
    if (samples.empty()) samples.push_back(values_at(timed, m_frame.time));
    const std::vector<T>& values = samples.front();
    if constexpr (std::is_floating_point_v<T>) {
        const auto is_kept = [](const std::vector<T>& sample) {
            return std::all_of(sample.begin(), sample.end(),
                               [](T v) { return std::fabs(v) <= sds_model::greatest_property_value<T>; });
        };
        if (!std::all_of(samples.begin(), samples.end(), is_kept))
            return m_findings.record(FindingCode::unkept_property, [&] { return at(primvar); });
    }
    std::size_t extent = std::size_t{primvar.components} * primvar.element_size;
    source.name = primvar.name;
    source.type = type_of<T>();
    std::vector<std::size_t> items;
    const auto add_all = [&](std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) items.push_back(i);
    };
    switch (primvar.interpolation) {
        case Interpolation::constant:
            source.kind = Kind::constant;
            items = {m_elements.empty() ? 0 : m_elements[0]};
            if (m_elements.empty()) extent = values.size();  // an array is one item
            break;
        case Interpolation::uniform:
            source.kind = Kind::per_polygon;
            for (const std::uint32_t face : m_map.faces) items.push_back(element_of(face));
            break;
        case Interpolation::varying:
        case Interpolation::vertex:
            source.kind = primvar.interpolation == Interpolation::varying ? Kind::varying : Kind::per_vertex;
            for (std::size_t v = 0; v < m_out.cage.get_vertex_count(); ++v) items.push_back(element_of(v));
            break;
        case Interpolation::face_varying:
            source.kind = Kind::per_vertex;
            add_all(values.size() / extent);
            source.indices = corner_elements(primvar.interpolation);
            break;
    }
    if (extent == 0) return;
    if (extent > sds_model::max_property_extent)
        return m_findings.record(FindingCode::unkept_property, [&] { return at(primvar); });
    source.extent = static_cast<unsigned int>(extent);
    for (const std::vector<T>& from : samples) {
        ResourceProperty& sample = source.samples.emplace_back(CoreString(source.name));
        sample.init(source.type, source.extent, static_cast<unsigned int>(items.size()));
        for (std::size_t i = 0; i < items.size(); ++i)
            sample.set_item_values(static_cast<unsigned int>(i), from.data() + items[i] * extent, source.extent);
    }
    m_out.properties.push_back(std::move(source));
}

void PrimvarTaker::take(const UsdPrimvar& primvar) {
    m_elements = primvar.indices.is_empty() ? std::vector<std::uint32_t>{} : values_at(primvar.indices, m_frame.time);
    std::visit(
        [&]<class T>(const Timed<T>& timed) {
            if constexpr (!std::is_same_v<T, std::string>) {
                const std::vector<T> values = values_at(timed, m_frame.time);
                if (values.empty()) return;
                if constexpr (std::is_floating_point_v<T>) {
                    if (is_uv_map(primvar)) return take_uvs(primvar, values);
                    if (is_display_color(primvar)) return take_colors(primvar, values);
                }
                take_property(primvar, timed);
            }
        },
        primvar.values);
}

/// Varying UVs are linear over the faces; a surface has one rule for all of its maps.
void PrimvarTaker::settle_uv_rule(const std::vector<UsdPrimvar>& primvars) {
    const UsdPrimvar* varying = nullptr;
    bool are_all = true;
    for (const UsdPrimvar& primvar : primvars) {
        if (!is_uv_map(primvar)) continue;
        const bool is_varying = primvar.interpolation == Interpolation::varying;
        if (is_varying && varying == nullptr) varying = &primvar;
        are_all &= is_varying;
    }
    if (varying == nullptr) return;
    if (are_all)
        m_out.cage.rules.face_varying = sds_model::CageRules::FaceVarying::all;
    else
        m_findings.record(FindingCode::unkept_rule, [&] {
            FirstCase first = at("interpolation varying of primvars:" + varying->name);
            first.action = "taken as vertex, as another map is not varying";
            return first;
        });
}

}  // namespace

void add_primvars(const UsdMesh& mesh, const FaceMap& map, const UsdFrame& frame, const UsdMeshOptions& options,
                  const std::string& place, sds_model::MeshSource& out, Findings& findings) {
    PrimvarTaker taker(map, frame, options, place, out, findings);
    for (const UsdPrimvar& primvar : mesh.primvars) taker.take(primvar);
    taker.settle_uv_rule(mesh.primvars);
}

}  // namespace sds_usda
