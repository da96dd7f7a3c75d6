// The extension module qn_sds._native. Its signatures take exact types; qn_sds/_surface.py makes them out of what users
// hand over.
#include <pybind11/stl.h>

#include "scene_object.h"

namespace py = pybind11;

namespace {

using sds_python::MeshWords;
using sds_python::ModeWords;
using sds_python::PictureWords;
using sds_python::PropertyArrays;
using sds_python::SceneObject;
using sds_python::SurfaceObject;
using sds_python::UvArrays;

// pybind11 gives the signature.
void translate(std::exception_ptr pointer) {  // NOLINT(performance-unnecessary-value-param)
    try {
        if (pointer) std::rethrow_exception(pointer);
    } catch (const sds_python::MeshError& error) {
        const py::object type = py::module_::import("qn_sds._errors").attr("MeshError");
        const py::object value = type(py::none(), sds_python::to_list(error.findings()));
        PyErr_SetObject(type.ptr(), value.ptr());
    } catch (const std::bad_alloc&) {
        PyErr_SetString(PyExc_MemoryError, "there is no memory left for it");
    }
}

}  // namespace

PYBIND11_MODULE(_native, module) {
    py::register_exception_translator(&translate);
    module.attr("version") = QN_SDS_VERSION;

    py::class_<UvArrays>(module, "UvArrays")
        .def(py::init([](std::string name, const sds_python::Array<float>& points,
                         const sds_python::Array<std::uint32_t>& indices) {
                 return UvArrays{std::move(name), points, indices};
             }),
             py::arg("name"), py::arg("points").noconvert(), py::arg("indices").noconvert());

    using sds_python::Array;
    py::class_<PropertyArrays>(module, "PropertyArrays")
        .def(py::init([](std::string name, std::string kind, std::string type, unsigned int extent,
                         const Array<std::uint8_t>& bytes, const Array<std::uint32_t>& indices,
                         const Array<double>& times) {
                 return PropertyArrays{
                     std::move(name), std::move(kind), std::move(type), extent, bytes, indices, times};
             }),
             py::arg("name"), py::arg("kind"), py::arg("type"), py::arg("extent"), py::arg("bytes").noconvert(),
             py::arg("indices").noconvert(), py::arg("times").noconvert());
    py::class_<MeshWords>(module, "Mesh")
        .def(py::init([](const Array<float>& points, const Array<std::uint32_t>& face_counts,
                         const Array<std::uint32_t>& face_indices, const Array<std::uint32_t>& crease_vertices,
                         const Array<float>& crease_sharpness, const Array<std::uint32_t>& corner_vertices,
                         const Array<float>& corner_sharpness, const Array<std::uint32_t>& holes,
                         const Array<std::uint32_t>& groups, std::vector<std::string> group_names,
                         std::vector<UvArrays> uvs, const Array<std::uint8_t>& colors, const Array<float>& motion,
                         const Array<double>& times, const Array<float>& samples,
                         std::vector<PropertyArrays> properties) {
                 return MeshWords{points,           face_counts,
                                  face_indices,     crease_vertices,
                                  crease_sharpness, corner_vertices,
                                  corner_sharpness, holes,
                                  groups,           std::move(group_names),
                                  std::move(uvs),   colors,
                                  motion,           times,
                                  samples,          std::move(properties)};
             }),
             py::arg("points").noconvert(), py::arg("face_counts").noconvert(), py::arg("face_indices").noconvert(),
             py::arg("crease_vertices").noconvert(), py::arg("crease_sharpness").noconvert(),
             py::arg("corner_vertices").noconvert(), py::arg("corner_sharpness").noconvert(),
             py::arg("holes").noconvert(), py::arg("groups").noconvert(), py::arg("group_names"), py::arg("uvs"),
             py::arg("colors").noconvert(), py::arg("motion").noconvert(), py::arg("times").noconvert(),
             py::arg("samples").noconvert(), py::arg("properties"));

    py::class_<ModeWords>(module, "Modes")
        .def(py::init([](unsigned int interpolation, unsigned int uv_interpolation, unsigned int fractional,
                         unsigned int isolation, float isolation_error, bool chaikin, bool smooth_triangles) {
                 return ModeWords{interpolation,   uv_interpolation, fractional,      isolation,
                                  isolation_error, chaikin,          smooth_triangles};
             }),
             py::arg("interpolation"), py::arg("uv_interpolation"), py::arg("fractional"), py::arg("isolation"),
             py::arg("isolation_error"), py::arg("chaikin"), py::arg("smooth_triangles"));

    py::class_<SurfaceObject>(module, "Surface")
        .def(py::init<MeshWords, const ModeWords&>())
        .def_static("load_obj", &SurfaceObject::load_obj)
        .def("update", &SurfaceObject::update, py::arg("points").noconvert(), py::arg("motion").noconvert(),
             py::arg("times").noconvert(), py::arg("samples").noconvert())
        .def("intersect", &SurfaceObject::intersect, py::arg("origins").noconvert(), py::arg("directions").noconvert(),
             py::arg("tnear").noconvert(), py::arg("tfar").noconvert(), py::arg("times").noconvert(), py::arg("level"))
        .def("occluded", &SurfaceObject::occluded, py::arg("origins").noconvert(), py::arg("directions").noconvert(),
             py::arg("tnear").noconvert(), py::arg("tfar").noconvert(), py::arg("times").noconvert(), py::arg("level"))
        .def("sample", &SurfaceObject::sample, py::arg("primitives").noconvert(), py::arg("uv").noconvert(),
             py::arg("times").noconvert(), py::arg("level"))
        .def("limit_points", &SurfaceObject::limit_points, py::arg("primitives").noconvert(), py::arg("uv").noconvert())
        .def("limit_grid", &SurfaceObject::limit_grid)
        .def("patches", &SurfaceObject::patches)
        .def("patch_places", &SurfaceObject::patch_places)
        .def("look_up_uvs", &SurfaceObject::look_up_uvs, py::arg("primitives").noconvert(), py::arg("uv").noconvert(),
             py::arg("map"))
        .def("look_up_colors", &SurfaceObject::look_up_colors, py::arg("primitives").noconvert(),
             py::arg("uv").noconvert(), py::arg("map"))
        .def("look_up_property", &SurfaceObject::look_up_property, py::arg("primitives").noconvert(),
             py::arg("uv").noconvert(), py::arg("times").noconvert(), py::arg("property"))
        .def("property_names", &SurfaceObject::property_names)
        .def("cage", &SurfaceObject::cage)
        .def("select", &SurfaceObject::select, py::arg("sides").noconvert(), py::arg("near").noconvert(),
             py::arg("far").noconvert(), py::arg("inside"), py::arg("level"))
        .def("bbox", &SurfaceObject::bbox)
        .def("area", &SurfaceObject::area)
        .def("info", &SurfaceObject::info)
        .def("findings", &SurfaceObject::findings)
        .def("point_count", &SurfaceObject::point_count)
        .def("quad_count", &SurfaceObject::quad_count)
        .def("uv_names", &SurfaceObject::uv_names)
        .def("color_map_count", &SurfaceObject::color_map_count)
        .def("quads", &SurfaceObject::quads)
        .def("quad_groups", &SurfaceObject::quad_groups)
        .def("quad_faces", &SurfaceObject::quad_faces)
        .def("neighbours", &SurfaceObject::neighbours)
        .def("vertices", &SurfaceObject::vertices);

    py::class_<PictureWords>(module, "Picture")
        .def(py::init([](unsigned int width, unsigned int height, unsigned int samples, const Array<double>& position,
                         const Array<double>& target, const Array<double>& up, double azimuth, double elevation,
                         double field_of_view, bool background, std::vector<std::string> layers) {
            return PictureWords{width,   height,    samples,       position,   target,           up,
                                azimuth, elevation, field_of_view, background, std::move(layers)};
        }));
    py::class_<SceneObject>(module, "Scene")
        .def(py::init<const std::vector<const SurfaceObject*>&, const Array<double>&, unsigned int>())
        .def("intersect", &SceneObject::intersect)
        .def("occluded", &SceneObject::occluded)
        .def("render", &SceneObject::render)
        .def("bbox", &SceneObject::bbox)
        .def("size", &SceneObject::size);
}
