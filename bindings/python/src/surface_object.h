// The Python object behind `Surface`: arrays in, arrays out, the GIL released in between.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "model/mesh_scene.h"
#include "numpy_arrays.h"
#include "surface_state.h"

namespace sds_python {

/// What the Python layer calls a UV map: name, points [n, 3], point of every face-corner.
struct UvArrays {
    std::string name;
    Array<float> points;
    Array<std::uint32_t> indices;
};

/// Of a property: name, kind and element type by their words, numbers of an item, and the bytes of the values
/// [time][item][number]. `indices` and `times` may be empty.
struct PropertyArrays {
    std::string name, kind, type;
    unsigned int extent;
    Array<std::uint8_t> bytes;
    Array<std::uint32_t> indices;
    Array<double> times;
};

/// Numbers of a surface that do not change with its positions, and everything that was said about its mesh.
struct SurfaceFacts {
    std::size_t point_count = 0, face_count = 0;
    sds_model::Findings findings;
    std::vector<sds_model::UvJoinCounts> uv_joins;  ///< per UV map
};

/// A mesh that Python hands over; the arrays stay numpy's.
struct MeshWords {
    Array<float> points;
    Array<std::uint32_t> face_counts, face_indices;
    Array<std::uint32_t> crease_vertices;
    Array<float> crease_sharpness;
    Array<std::uint32_t> corner_vertices;
    Array<float> corner_sharpness;
    Array<std::uint32_t> holes;
    Array<std::uint32_t> groups;
    std::vector<std::string> group_names;
    std::vector<UvArrays> uvs;
    Array<std::uint8_t> colors;
    Array<std::uint32_t> color_indices;
    Array<float> motion;
    Array<double> times;
    Array<float> samples;
    std::vector<PropertyArrays> properties;
};

/// How the surface is made, in the numbers of qn_sds/_words.py.
struct ModeWords {
    unsigned int interpolation, uv_interpolation, fractional, isolation;
    float isolation_error;
    bool chaikin, smooth_triangles;

    static constexpr unsigned int open_borders = 4;      ///< of `interpolation`
    static constexpr unsigned int as_file_says = 5;      ///< of `interpolation`
    static constexpr unsigned int uvs_as_file_says = 9;  ///< of `uv_interpolation`

    sds_model::FractionalSharpness get_fractional() const {
        return static_cast<sds_model::FractionalSharpness>(fractional);
    }
    /// Throws std::invalid_argument for what does not go together.
    sds_model::SurfaceModes get_modes() const;
    /// The same with what a file says where the words leave it open.
    sds_model::SurfaceModes get_modes(const sds_model::CageRules& rules) const;
};

/// Members are used with the GIL held; those that take long give it back and work on a snapshot, so that an update
/// from another thread is seen by the next call and disturbs none.
class SurfaceObject {
public:
    SurfaceObject(MeshWords words, const ModeWords& modes);

    /// Of a mesh from a file, its UV maps not yet joined. Throws MeshError when there are errors among the findings. To
    /// be called without the GIL.
    SurfaceObject(sds_model::MeshSource source, sds_model::Findings findings, const ModeWords& modes);

    static std::unique_ptr<SurfaceObject> load_obj(const std::string& path, const ModeWords& modes);

    void update(const Array<float>& points, const Array<float>& motion, const Array<double>& times,
                const Array<float>& samples);

    pybind11::tuple intersect(const Array<double>& origins, const Array<double>& directions, const Array<double>& tnear,
                              const Array<double>& tfar, const Array<double>& times, unsigned int level) const;
    pybind11::array occluded(const Array<double>& origins, const Array<double>& directions, const Array<double>& tnear,
                             const Array<double>& tfar, const Array<double>& times, unsigned int level) const;
    pybind11::array sample(const Array<std::int32_t>& primitives, const Array<double>& uv, const Array<double>& times,
                           unsigned int level) const;
    pybind11::array limit_points(const Array<std::int32_t>& primitives, const Array<double>& uv) const;
    pybind11::array limit_grid(unsigned int cells, double time) const;
    pybind11::array patches(double time) const;
    pybind11::array patch_places() const;
    pybind11::array look_up_uvs(const Array<std::int32_t>& primitives, const Array<double>& uv, unsigned int map) const;
    pybind11::array look_up_colors(const Array<std::int32_t>& primitives, const Array<double>& uv,
                                   unsigned int map) const;
    /// Rows nx ny nz d; near and far may have no row.
    pybind11::array select(const Array<double>& sides, const Array<double>& near_plane, const Array<double>& far_plane,
                           bool inside, unsigned int level) const;

    /// Value, d/du and d/dv: [n, 3, extent].
    pybind11::array look_up_property(const Array<std::int32_t>& primitives, const Array<double>& uv,
                                     const Array<double>& times, unsigned int property) const;
    std::vector<std::string> property_names() const;

    /// What a file held of the mesh, in the words of Surface's arguments, with numbers for the modes. Of surfaces from
    /// files only.
    pybind11::dict cage() const;

    /// As it is now; later updates do not change it.
    std::shared_ptr<const SurfaceState> state() const { return m_state; }

    pybind11::array bbox() const;
    double area() const;
    pybind11::dict info() const;
    pybind11::list findings() const;
    std::size_t point_count() const { return m_facts.point_count; }
    unsigned int quad_count() const { return m_state->surface().get_base().get_primitive_count(); }
    std::vector<std::string> uv_names() const;
    unsigned int color_map_count() const { return m_state->surface().get_maps().get_color_map_count(); }
    std::vector<std::string> group_names() const;

    pybind11::array quads() const;
    pybind11::array quad_groups() const;
    pybind11::array quad_faces() const;
    pybind11::array neighbours() const;
    pybind11::array vertices() const;

private:
    /// trace(state, shutter, first, last), without the GIL, for a range of rays after the other; signals are looked at
    /// in between.
    template <class Trace>
    void trace_chunks(const RayArrays& rays, unsigned int level, const Trace& trace) const;

    std::shared_ptr<const SurfaceState> m_state;
    SurfaceFacts m_facts;
    std::shared_ptr<const sds_model::MeshSource> m_source;  ///< as read, of files only
    sds_model::SurfaceModes m_modes;
};

/// Text that may hold the name of a file, in any bytes, as the interpreter spells such names.
pybind11::str to_path_text(const std::string& text);

/// The findings as dictionaries with the keys code, severity, cases, place, message, detail and action.
pybind11::list to_list(const sds_model::Findings& findings);

}  // namespace sds_python
