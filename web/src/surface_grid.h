#pragma once

#include "model/surface.h"

#include <cstdint>
#include <span>
#include <vector>

namespace sds_page {

/// Points of a surface to draw: (cells + 1) x (cells + 1) for every quad, quad after quad, v by v, then u by u.
///
///     v  2 6---7---8      Points of neighbours lie on each other but are each quad's own, so that a quad can be
///          |   |   |      evaluated anew by itself, and cells can have values: those of the point at their lower
///        1 3---4---5      corner, point (i, j) with i, j < cells.
///          |   |   |
///        0 0---1---2
///          0   1   2  u   (cells = 2)
class SurfaceGrid {
public:
    static constexpr unsigned int max_points = 4'000'000;

    /// The surface at `level`: its flat cells, or at level 0 the limit in as many cells as make it look smooth. Throws
    /// std::length_error, with the numbers, when there would be more than max_points.
    void evaluate(const sds_model::Surface& surface, unsigned int level);
    /// The same for some quads only, of a surface with the topology of the last evaluation.
    void evaluate(const sds_model::Surface& surface, std::span<const std::uint32_t> quads);

    unsigned int get_cells() const { return m_cells; }
    std::uint32_t get_points_per_quad() const { return (m_cells + 1) * (m_cells + 1); }

    // Per point; NaN positions where there is no surface.
    std::vector<float> positions;       ///< x y z
    std::vector<float> normals;         ///< x y z, unit, continuous where the surface is smooth
    std::vector<float> uvs;             ///< u v of the first UV map; (u, v) on the quad where it is not mapped
    std::vector<float> curvatures;      ///< mean and Gaussian curvature
    std::vector<std::uint8_t> patches;  ///< of a cell: class of the quad (PatchClass), level of the patch + 1

private:
    void evaluate_quad(const sds_model::Surface& surface, const SdsMesh& mesh, std::uint32_t quad);

    unsigned int m_cells = 0;
};

}  // namespace sds_page
