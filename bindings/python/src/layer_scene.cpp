#include "layer_scene.h"

#include <pybind11/stl.h>

#include <memory>
#include <vector>

#include "io/read_file.h"
#include "io/usda/scene_camera.h"
#include "io/usda/scene_source.h"
#include "lock_release.h"
#include "scene_object.h"

namespace py = pybind11;

namespace sds_python {

namespace {

using sds_usda::UsdCamera;
using sds_usda::UsdScene;

struct NamedCamera {
    std::string path;
    sds_usda::CameraWay way;
    sds_render::Shutter shutter;
};

struct LoadedLayer {
    UsdScene scene;
    sds_usda::UsdFindings findings;
    sds_usda::UsdFrame frame;
    std::vector<sds_model::MeshInstance> instances;
    std::vector<std::unique_ptr<SurfaceObject>> surfaces;
    std::vector<NamedCamera> cameras;
};

UsdScene read_layer(const std::string& path, sds_usda::UsdFindings& findings) {
    std::string text;
    if (const std::string reason = sds_io::read_file(path, text); !reason.empty())
        throw std::runtime_error(path + ": " + reason);
    sds_usda::UsdSceneResult read = sds_usda::read_usd_scene(std::move(text));
    if (!read.scene) throw LayerError(path, std::move(read.findings));
    findings = std::move(read.findings);
    return std::move(*read.scene);
}

sds_usda::UsdFrame choose_frame(const LayerWords& words, const UsdScene& scene) {
    sds_usda::UsdFrame frame;
    frame.time = words.frame.value_or(first_frame(scene));
    frame.codes_per_second = scene.time_codes_per_second;
    sds_render::Shutter shutter;
    if (!words.camera.empty()) shutter = camera_shutter(find_camera(scene, words.camera), frame.time);
    frame.open = words.shutter ? words.shutter->first : shutter.open;
    frame.close = words.shutter ? words.shutter->second : shutter.close;
    return frame;
}

/// Those that see nothing are left out, unless one is `wanted`.
std::vector<NamedCamera> make_cameras(const UsdScene& scene, const sds_usda::UsdFrame& frame,
                                      const std::string& wanted) {
    std::vector<NamedCamera> cameras;
    for (const UsdCamera& camera : scene.cameras) {
        const std::string path = prim_path(scene, camera.node);
        try {
            cameras.push_back({path, make_camera_way(scene, camera, frame), camera_shutter(camera, frame.time)});
        } catch (const std::invalid_argument&) {
            if (path == wanted) throw;
        }
    }
    return cameras;
}

LoadedLayer load(const LayerWords& words) {
    LoadedLayer loaded;
    loaded.scene = read_layer(words.path, loaded.findings);
    loaded.frame = choose_frame(words, loaded.scene);
    loaded.cameras = make_cameras(loaded.scene, loaded.frame, words.camera);
    sds_usda::SceneSource source = make_scene_source(loaded.scene, loaded.frame,
                                                     {.fractional = words.modes.get_fractional(),
                                                      .is_refined = words.modes.get_modes().is_refined(),
                                                      .joins_uvs = false},
                                                     words.path);
    loaded.scene.meshes.clear();
    loaded.instances = std::move(source.instances);
    for (std::size_t m = 0; m < source.meshes.size(); ++m)
        loaded.surfaces.push_back(
            std::make_unique<SurfaceObject>(std::move(source.meshes[m]), std::move(source.findings[m]), words.modes));
    return loaded;
}

/// Times, and matrices at them or the one that holds.
py::tuple to_arrays(const sds_render::Transform& transform) {
    const std::vector<double>& times = transform.get_times();
    std::vector<double> matrices;
    const auto append = [&](double time) {
        const sds_render::Matrix4 matrix = transform.at(time);
        for (unsigned int row = 0; row < 4; ++row) matrices.insert(matrices.end(), matrix[row], matrix[row] + 4);
    };
    for (const double time : times) append(time);
    if (times.empty()) append(0.0);
    const Shape shape{extent(matrices.size() / 16), 4, 4};
    return py::make_tuple(to_numpy(std::vector(times), {extent(times.size())}), to_numpy(std::move(matrices), shape));
}

py::tuple to_arrays(const sds_usda::CameraWay& way) {
    std::vector<double> rows(camera_row_size * way.poses.size());
    for (std::size_t i = 0; i < way.poses.size(); ++i) write_pose(way.poses[i], &rows[camera_row_size * i]);
    const Shape shape{extent(way.poses.size()), extent(camera_row_size)};
    return py::make_tuple(to_numpy(std::vector(way.times), {extent(way.times.size())}),
                          to_numpy(std::move(rows), shape));
}

}  // namespace

py::list to_list(const sds_usda::UsdFindings& findings, const std::string& file) {
    py::list list;
    for (const sds_usda::UsdFinding& finding : findings.get_entries()) {
        std::string place = file;
        if (finding.line != 0) place += ":" + std::to_string(finding.line) + ":" + std::to_string(finding.column);
        py::dict entry;
        entry["code"] = to_name(finding.code);
        entry["severity"] = to_name(severity_of(finding.code));
        entry["message"] = message_of(finding.code);
        entry["detail"] = to_path_text(finding.detail);
        entry["action"] = action_of(finding.code);
        entry["place"] = to_path_text(place);
        entry["cases"] = finding.count;
        list.append(entry);
    }
    return list;
}

py::dict load_layer(const LayerWords& words) {
    LoadedLayer loaded;
    {
        const LockRelease release;
        loaded = load(words);
    }
    py::dict out;
    py::list surfaces, places;
    py::list findings = to_list(loaded.findings, words.path);
    for (std::unique_ptr<SurfaceObject>& surface : loaded.surfaces) surfaces.append(py::cast(std::move(surface)));
    for (const sds_model::MeshInstance& instance : loaded.instances)
        places.append(py::make_tuple(to_path_text(instance.name), instance.mesh) + to_arrays(instance.transform));
    py::dict cameras;
    for (const NamedCamera& camera : loaded.cameras)
        cameras[to_path_text(camera.path)] =
            to_arrays(camera.way) + py::make_tuple(camera.shutter.open, camera.shutter.close);
    out["surfaces"] = surfaces;
    out["places"] = places;
    out["cameras"] = cameras;
    out["findings"] = findings;
    out["frame"] = loaded.frame.time;
    out["frames"] = py::none();
    if (loaded.scene.start_time_code && loaded.scene.end_time_code)
        out["frames"] = py::make_tuple(*loaded.scene.start_time_code, *loaded.scene.end_time_code);
    out["codes_per_second"] = loaded.scene.time_codes_per_second;
    out["meters_per_unit"] = loaded.scene.meters_per_unit;
    out["up"] = loaded.scene.up_axis == sds_usda::UpAxis::z ? "z" : "y";
    out["shutter"] = py::make_tuple(loaded.frame.open, loaded.frame.close);
    return out;
}

}  // namespace sds_python
