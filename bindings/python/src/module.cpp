// The extension module qn_sds._native. Its signatures take exact types; qn_sds/_surface.py makes them out of what users
// hand over.
#include <pybind11/stl.h>

#include <optional>

#include "io/input_error.h"
#include "layer_scene.h"
#include "lock_release.h"
#include "scene_object.h"

namespace py = pybind11;

namespace {

using sds_io::PictureOptions;
using sds_python::LayerWords;
using sds_python::MeshWords;
using sds_python::ModeWords;
using sds_python::PlaceWords;
using sds_python::PropertyArrays;
using sds_python::SceneObject;
using sds_python::SurfaceObject;
using sds_python::UvArrays;
using sds_python::ViewWords;

// pybind11 gives the signature.
void translate(std::exception_ptr pointer) {  // NOLINT(performance-unnecessary-value-param)
    const auto raise = [](const py::list& findings) {
        const py::object type = py::module_::import("qn_sds._errors").attr("MeshError");
        const py::object value = type(py::none(), findings);
        PyErr_SetObject(type.ptr(), value.ptr());
    };
    try {
        if (pointer) std::rethrow_exception(pointer);
    } catch (const sds_python::MeshError& error) {
        raise(sds_python::to_list(error.findings()));
    } catch (const sds_python::LayerError& error) {
        raise(sds_python::to_list(error.findings(), error.file()));
    } catch (const sds_io::InputError& error) {
        PyErr_SetObject(PyExc_ValueError, sds_python::to_path_text(error.what()).ptr());
    } catch (const std::bad_alloc&) {
        PyErr_SetString(PyExc_MemoryError, "there is no memory left for it");
    }
}

}  // namespace

PYBIND11_MODULE(_native, module) {
    py::register_exception_translator(&translate);
    sds_python::watch_process_exit();
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
                         std::vector<UvArrays> uvs, const Array<std::uint8_t>& colors,
                         const Array<std::uint32_t>& color_indices, const Array<float>& motion,
                         const Array<double>& times, const Array<float>& samples,
                         std::vector<PropertyArrays> properties) {
                 return MeshWords{points,
                                  face_counts,
                                  face_indices,
                                  crease_vertices,
                                  crease_sharpness,
                                  corner_vertices,
                                  corner_sharpness,
                                  holes,
                                  groups,
                                  std::move(group_names),
                                  std::move(uvs),
                                  colors,
                                  color_indices,
                                  motion,
                                  times,
                                  samples,
                                  std::move(properties)};
             }),
             py::arg("points").noconvert(), py::arg("face_counts").noconvert(), py::arg("face_indices").noconvert(),
             py::arg("crease_vertices").noconvert(), py::arg("crease_sharpness").noconvert(),
             py::arg("corner_vertices").noconvert(), py::arg("corner_sharpness").noconvert(),
             py::arg("holes").noconvert(), py::arg("groups").noconvert(), py::arg("group_names"), py::arg("uvs"),
             py::arg("colors").noconvert(), py::arg("color_indices").noconvert(), py::arg("motion").noconvert(),
             py::arg("times").noconvert(), py::arg("samples").noconvert(), py::arg("properties"));

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

    py::class_<LayerWords>(module, "Layer")
        .def(py::init([](std::string path, std::optional<double> frame,
                         std::optional<std::pair<double, double>> shutter, std::string camera, const ModeWords& modes) {
            return LayerWords{std::move(path), frame, shutter, std::move(camera), modes};
        }));
    module.def("load_layer", &sds_python::load_layer);

    py::class_<ViewWords>(module, "View")
        .def(py::init([](const Array<double>& camera_times, const Array<double>& camera_rows,
                         const Array<double>& position, const Array<double>& target, const Array<double>& up_vector,
                         double azimuth, double elevation, double field_of_view, unsigned int up) {
                 return ViewWords{camera_times, camera_rows, position,      target, up_vector,
                                  azimuth,      elevation,   field_of_view, up};
             }),
             py::arg("camera_times"), py::arg("camera_rows"), py::arg("position"), py::arg("target"),
             py::arg("up_vector"), py::arg("azimuth"), py::arg("elevation"), py::arg("field_of_view"), py::arg("up"));
    py::class_<PictureOptions>(module, "Picture")
        .def(py::init())
        .def_readwrite("samples", &PictureOptions::samples)
        .def_readwrite("wire", &PictureOptions::wire)
        .def_readwrite("background", &PictureOptions::background)
        .def_readwrite("layers", &PictureOptions::layers)
        .def_readwrite("sun", &PictureOptions::sun)
        .def_readwrite("sun_strength", &PictureOptions::sun_strength)
        .def_readwrite("environment", &PictureOptions::environment)
        .def_readwrite("color_by", &PictureOptions::color_by)
        .def_readwrite("color_map", &PictureOptions::color_map)
        .def_readwrite("color_range", &PictureOptions::color_range)
        .def_readwrite("texture", &PictureOptions::texture)
        .def_readwrite("checker", &PictureOptions::checker)
        .def_readwrite("uv_map", &PictureOptions::uv_map);
    py::class_<PlaceWords>(module, "Place")
        .def(py::init([](std::string name, const Array<double>& times, const Array<double>& matrices) {
            return PlaceWords{std::move(name), times, matrices};
        }));
    py::class_<SceneObject>(module, "Scene")
        .def(py::init<const std::vector<const SurfaceObject*>&, const std::vector<PlaceWords>&, unsigned int>())
        .def("intersect", &SceneObject::intersect)
        .def("occluded", &SceneObject::occluded)
        .def("render", &SceneObject::render)
        .def("bbox", &SceneObject::bbox)
        .def("size", &SceneObject::size);
}
