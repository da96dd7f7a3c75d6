// A control mesh as plain arrays, and what is wrong with it.
#pragma once

#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "model/creases.h"
#include "model/finding.h"
#include "model/property_source.h"
#include "model/surface.h"

namespace sds_python {

/// The mesh cannot be built; carries every cause.
class MeshError : public std::runtime_error {
public:
    MeshError(const std::string& what, sds_model::Findings findings)
        : std::runtime_error(what), m_findings(std::move(findings)) {}
    const sds_model::Findings& findings() const { return m_findings; }

private:
    sds_model::Findings m_findings;
};

/// Throws MeshError with one line per error of the findings when there is any.
void throw_errors(const sds_model::Findings& findings);

struct CreaseArrays {
    std::span<const std::uint32_t> vertices;  ///< two per edge
    std::span<const float> sharpness;         ///< one per edge
    sds_model::FractionalSharpness fractional{};
};

struct CornerArrays {
    std::span<const std::uint32_t> vertices;
    std::span<const float> sharpness;  ///< one per vertex
};

/// What the caller hands over, shapes already right: 3 floats per point, as many indices as the counts add up to, one
/// group per face, three floats per UV point and one UV index per face-corner. Contents are not trusted.
struct MeshArrays {
    std::span<const float> points;
    std::span<const std::uint32_t> face_counts, face_indices;
    CreaseArrays creases;
    CornerArrays corners;
    std::span<const std::uint32_t> holes;  ///< faces
    bool is_refined = false;               ///< whether the surface can follow all of it
    std::span<const std::uint32_t> groups;
    std::vector<std::string> group_names;
    std::vector<sds_model::UvSource> uvs;
    std::span<const std::uint8_t> colors;          ///< rgba per point, or per color; or empty
    std::span<const std::uint32_t> color_indices;  ///< color of every face-corner, or empty
    std::span<const float> motion;                 ///< like points or empty
    std::vector<sds_model::PropertySource> properties = {};
};

/// Checks the contents; records errors, warnings and notes in `findings`. Places read "face 3, corner 1", "point 7".
/// UV maps are settled: a face that is mapped at some corners only becomes unmapped. Linear in the sizes.
void check_arrays(MeshArrays& mesh, sds_model::Findings& findings);

/// Checks that every number is finite and within the range of coordinates; `what` names an item of three.
void check_finite(std::span<const float> values, const std::string& what, sds_model::Findings& findings);

/// As ControlCage has it.
struct Sharpness {
    sds_model::SettledCreases creases;
    std::vector<float> vertices;
    std::vector<std::uint8_t> holes;
};

/// Only for meshes without errors. What a surface that is not refined cannot follow is recorded.
Sharpness settle_sharpness(const MeshArrays& mesh, sds_model::Findings& findings);

}  // namespace sds_python
