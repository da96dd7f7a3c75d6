#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "io/obj/read_obj.h"
#include "oracles/mesh_zoo.h"

namespace sds_test {

namespace {

namespace fs = std::filesystem;

bool has_corner_tags(const fs::path& path) {
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);)
        if (line.starts_with("t corner ")) return true;
    return false;
}

ZooMesh from_cage(const sds_model::ControlCage& cage, const std::string& name) {
    const auto points = [](const std::vector<float>& flat) {
        std::vector<GMathVec3<float>> out;
        for (size_t i = 0; i + 2 < flat.size(); i += 3) out.emplace_back(flat[i], flat[i + 1], flat[i + 2]);
        return out;
    };
    ZooMesh mesh;
    mesh.name = name;
    mesh.positions = points(cage.positions);
    mesh.counts = cage.polygon_counts;
    mesh.indices = cage.polygon_indices;
    mesh.corner_creases = cage.corner_creases;
    mesh.uv_points = points(cage.uv_points);
    mesh.uv_indices = cage.uv_indices;
    return mesh;
}

std::vector<ZooMesh> read_folder(const fs::path& folder) {
    std::vector<ZooMesh> meshes;
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder, error)) {
        if (entry.path().extension() != ".obj") continue;
        const sds_io::ReadObjResult result = sds_io::read_obj(entry.path().string());
        if (!result.cage) continue;
        ZooMesh mesh = from_cage(*result.cage, folder.filename().string() + "/" + entry.path().stem().string());
        mesh.groups = find_groups(mesh) | (has_corner_tags(entry.path()) ? corner_tags : 0u);
        meshes.push_back(std::move(mesh));
    }
    std::sort(meshes.begin(), meshes.end(), [](const ZooMesh& a, const ZooMesh& b) { return a.name < b.name; });
    return meshes;
}

std::vector<ZooMesh> read_all() {
    const fs::path source(QN_SOURCE_DIR);
    const char* folder = std::getenv("QN_MESHES");
    std::vector<ZooMesh> meshes =
        read_folder(folder != nullptr ? fs::path(folder) : source.parent_path() / "shared" / "meshes");
    for (ZooMesh& mesh : read_folder(source / "assets")) meshes.push_back(std::move(mesh));
    return meshes;
}

}  // namespace

const std::vector<ZooMesh>& cages_on_disk() {
    static const std::vector<ZooMesh> meshes = read_all();
    return meshes;
}

}  // namespace sds_test
