#pragma once

#include "model/surface.h"
#include "web/src/cage_file.h"
#include "web/src/surface_grid.h"

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace sds_page {

struct Settings {
    SdsMeshGeometry::InterpolationMode positions = SdsMeshGeometry::InterpolationMode::corners_fixed;
    bool follows_file = true;        ///< the file's border rule, where it has one, goes before `positions`
    unsigned int depth = 2;          ///< levels of refinement
    unsigned int level = 0;          ///< 0: the limit surface; n: flat cells
    std::optional<float> sharpness;  ///< of every crease of the cage, instead of the file's
};

/// Where a ray meets the surface, as the module says it.
struct Hit {
    std::uint32_t quad = 0;
    double u = 0.0, v = 0.0, t = 0.0;
    std::array<double, 15> sample{};  ///< position, dP/du, dP/dv, normal, smoothing normal
};

/// An edge of the cage's polygons: its vertices, and its sharpness, 10 and above for creases.
struct CageEdge {
    std::uint32_t a, b;
    float sharpness;
};

/// One cage, its surface, and what is drawn of it. For one thread.
class Session {
public:
    /// Takes another cage. False when the text gives none; then the former one stays and `notes` say why.
    bool load(std::string text, CageFormat format, std::vector<Note>& notes);
    /// Builds the surface of the cage, with its vertices where they were moved to. Throws std::length_error for what
    /// the page cannot draw, std::runtime_error for what does not fit into memory; the former surface then stays.
    void build(const Settings& settings);
    /// Puts a vertex of the cage elsewhere and updates the surface, on the topology that is there. Returns the quads
    /// whose points changed, increasing. Indices out of range and numbers that are not finite change nothing.
    const std::vector<std::uint32_t>& move_vertex(std::uint32_t vertex, const std::array<float, 3>& position);
    /// The nearest hit of a ray from the surface at its level; nothing where it misses.
    std::optional<Hit> intersect(const std::array<double, 3>& origin, const std::array<double, 3>& direction) const;

    /// Of the cage, as it was read for the last build.
    const std::vector<Note>& get_notes() const { return m_notes; }
    /// Null before the first load and the first build.
    const sds_model::ControlCage* get_cage() const { return m_cage ? &*m_cage : nullptr; }
    const sds_model::Surface* get_surface() const { return m_surface.get(); }
    /// The cage as it was built, and its vertices where they are now.
    const std::vector<float>& get_positions() const { return m_positions; }
    const std::vector<CageEdge>& get_edges() const { return m_edges; }
    const SurfaceGrid& get_grid() const { return m_grid; }
    const Settings& get_settings() const { return m_settings; }

private:
    void find_edges();
    std::vector<float> get_controls() const;

    std::string m_text;
    CageFormat m_format = CageFormat::obj;
    bool m_is_read_refined = false;  // how the cage was read
    std::vector<Note> m_notes;
    std::optional<sds_model::ControlCage> m_cage;
    std::vector<float> m_positions;
    std::vector<CageEdge> m_edges;
    Settings m_settings;
    std::unique_ptr<sds_model::Surface> m_surface;
    SurfaceGrid m_grid;
    std::vector<float> m_controls;  // of all patches, x y z: what tells which of them a move changes
    std::vector<std::uint32_t> m_changed;
};

}  // namespace sds_page
