#include <algorithm>
#include <cstring>
#include <functional>
#include <numeric>

#include "fuzz/byte_source.h"
#include "fuzz/targets.h"
#include "io/usda/scene.h"
#include "io/usda/scene_camera.h"
#include "io/usda/scene_source.h"
#include "io/usda/write_layer.h"

namespace {

using namespace sds_usda;
using sds_fuzz::require;

bool are_below(const std::vector<std::uint32_t>& indices, std::size_t limit) {
    return std::all_of(indices.begin(), indices.end(), [limit](std::uint32_t i) { return i < limit; });
}

template <class T>
void check_samples(const Timed<T>& timed) {
    require(timed.times.empty() ? timed.ends.size() <= 1 : timed.ends.size() == timed.times.size());
    require(std::is_sorted(timed.ends.begin(), timed.ends.end()));
    require(timed.ends.empty() ? timed.values.empty() : timed.ends.back() == timed.values.size());
    require(std::adjacent_find(timed.times.begin(), timed.times.end(), std::greater_equal<>()) == timed.times.end());
}

void check_mesh(const UsdMesh& mesh) {
    check_samples(mesh.points);
    for (std::size_t s = 0; s < mesh.points.get_sample_count(); ++s)
        require(mesh.points.sample(s).size() == 3 * mesh.get_point_count());
    require(std::accumulate(mesh.counts.begin(), mesh.counts.end(), std::size_t{0}) == mesh.indices.size());
    require(are_below(mesh.indices, mesh.get_point_count()) && are_below(mesh.hole_indices, mesh.counts.size()));
    require(are_below(mesh.crease_indices, mesh.get_point_count()) &&
            are_below(mesh.corner_indices, mesh.get_point_count()));
    require(mesh.corner_indices.size() == mesh.corner_sharpnesses.size());
    for (const UsdSubset& subset : mesh.subsets) require(are_below(subset.faces, mesh.counts.size()));
    for (const UsdPrimvar& primvar : mesh.primvars) {
        check_samples(primvar.indices);
        std::visit([](const auto& values) { check_samples(values); }, primvar.values);
    }
}

/// What is read must be written and read again with the same bits.
void check_round_trip(const UsdMesh& mesh) {
    const std::span<const float> points = mesh.points.sample(0);
    UsdaMesh out{"mesh", points, mesh.counts, mesh.indices};
    out.crease_indices = mesh.crease_indices;
    out.crease_lengths = mesh.crease_lengths;
    out.crease_sharpnesses = mesh.crease_sharpnesses;
    std::string text;
    write_usda({&out, 1}, {}, [&text](std::string_view bytes) { text += bytes; });
    const UsdSceneResult read = read_usd_scene(text);
    require(read.scene && read.scene->meshes.size() == 1);
    const UsdMesh& again = read.scene->meshes[0];
    require(again.counts == mesh.counts && again.indices == mesh.indices);
    require(again.points.values.size() == points.size());
    require(points.empty() || std::memcmp(again.points.values.data(), points.data(), points.size_bytes()) == 0);
    require(again.crease_sharpnesses == mesh.crease_sharpnesses);
}

/// What becomes of a layer is ready to be built.
void check_source(const UsdScene& scene) {
    const UsdFrame frame{first_frame(scene), -1.0, 1.0, 24.0};
    const SceneSource source =
        make_scene_source(scene, frame, {sds_model::FractionalSharpness::exact, true}, "fuzz.usda");
    for (const sds_model::MeshInstance& instance : source.instances) require(instance.mesh < source.meshes.size());
    for (std::size_t m = 0; m < source.meshes.size(); ++m) {
        if (source.findings[m].has_errors()) continue;
        const sds_model::ControlCage& cage = source.meshes[m].cage;
        const std::size_t corners = cage.get_corner_count(), vertices = cage.get_vertex_count();
        require(std::accumulate(cage.polygon_counts.begin(), cage.polygon_counts.end(), std::size_t{0}) == corners);
        require(are_below(cage.polygon_indices, vertices) && cage.corner_creases.size() == corners);
        require(cage.polygon_groups.size() == cage.get_polygon_count());
        require(are_below(cage.polygon_groups, cage.group_names.size()));
        require(cage.color_indices.empty() || cage.color_indices.size() == corners);
        require(are_below(cage.color_indices, cage.vertex_colors.size() / 4));
        for (const sds_model::UvSource& uvs : source.meshes[m].further_uvs)
            require(uvs.indices.size() == corners && are_below(uvs.indices, uvs.points.size() / 3));
        for (const std::vector<float>& sample : source.meshes[m].motion.samples)
            require(sample.size() == cage.positions.size());
        for (const sds_model::PropertySource& property : source.meshes[m].properties)
            require(are_below(property.indices, property.get_item_count()) &&
                    property.samples.size() == std::max<std::size_t>(property.times.size(), 1));
    }
    for (const UsdCamera& camera : scene.cameras) try {
            const CameraWay way = make_camera_way(scene, camera, frame);
            require(way.poses.size() == std::max<std::size_t>(way.times.size(), 1));
        } catch (const std::invalid_argument&) {  // it sees nothing
        }
}

}  // namespace

void sds_fuzz::read_usda_bytes(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const UsdSceneResult read = read_usd_scene(text);
    require(read.scene.has_value() != read.findings.has_errors());
    for (const UsdFinding& finding : read.findings.get_entries()) {
        require(finding.count > 0 && !to_text(finding, "fuzz.usda").empty());
        require((finding.line == 0) == (finding.offset == whole_file) && finding.line <= size + 1);
    }
    if (!read.scene) return;
    check_source(*read.scene);
    for (const UsdMesh& mesh : read.scene->meshes) {
        check_mesh(mesh);
        check_round_trip(mesh);
        require(!prim_path(*read.scene, mesh.node).empty());
        const std::vector<double> times = transform_times(*read.scene, mesh.node);
        world_matrix(*read.scene, mesh.node, times.empty() ? 0.0 : (times.front() + times.back()) / 2);
        is_visible(*read.scene, mesh.node, 1.0);
    }
}
