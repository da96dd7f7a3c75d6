#include "cli/options/load_cage.h"

#include "cli/options/common_options.h"
#include "io/input_error.h"
#include "model/array_size.h"
#include "model/build_estimate.h"
#include "model/uv_join.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>

namespace sds_cli {

namespace {

[[noreturn]] void fail_counts(const std::string& path, std::size_t count, const char* what,
                              const std::string& cage_path, std::size_t cage_count) {
    throw InputError(path,
                     std::to_string(count) + " " + what + " where " + cage_path + " has " + std::to_string(cage_count));
}

}  // namespace

std::vector<UvSource> load_uvs(const CommonOptions& common, const ControlCage& cage) {
    std::vector<UvSource> maps;
    for (const std::string& path : common.uv_files) {
        ReadObjResult read = load_cage(path, common, CageReport::errors);
        check_same_topology(cage, common.mesh, read, path);
        if (!read.cage->has_uvs()) throw InputError(path, "no polygon has UVs (vt records)");
        maps.push_back({std::filesystem::path(path).stem().string(), std::move(read.cage->uv_points),
                        std::move(read.cage->uv_indices)});
        join_uvs(cage.view(), maps.back());
    }
    return maps;
}

ReadObjResult load_cage(const std::string& path, const CommonOptions& common, CageReport report) {
    ReadObjResult read = read_obj(path, {.fractional = common.fractional, .is_refined = common.modes.is_refined()});
    const bool errors_only = common.quiet || report == CageReport::errors;
    for (const Finding& finding : read.findings.get_entries())
        if (!errors_only || severity_of(finding.code) == Severity::error) print_line(to_text(finding));
    if (!read.cage) throw CageError(path, std::move(read.findings));
    if (common.is_left_handed) turn_over(*read.cage);
    return read;
}

void check_same_topology(const ControlCage& cage, const std::string& cage_path, const ReadObjResult& other,
                         const std::string& path) {
    const ControlCage& found = *other.cage;
    if (found.get_vertex_count() != cage.get_vertex_count())
        fail_counts(path, found.get_vertex_count(), "vertices", cage_path, cage.get_vertex_count());
    if (found.get_polygon_count() != cage.get_polygon_count())
        fail_counts(path, found.get_polygon_count(), "polygons", cage_path, cage.get_polygon_count());
    std::size_t corner = 0;
    for (std::size_t p = 0; p < cage.get_polygon_count(); ++p) {
        const std::uint32_t count = cage.polygon_counts[p];
        const auto first = static_cast<std::ptrdiff_t>(corner);
        const bool is_same =
            found.polygon_counts[p] == count &&
            std::equal(cage.polygon_indices.begin() + first, cage.polygon_indices.begin() + first + count,
                       found.polygon_indices.begin() + first);
        if (!is_same)
            throw InputError(path + ":" + std::to_string(other.polygon_lines[p]),
                             "polygon " + std::to_string(p + 1) + " differs from that of " + cage_path);
        corner += count;
    }
}

std::size_t LoadedSurface::get_input_size() const {
    std::size_t bytes = motion.vectors.size() * sizeof(float);
    for (const UvSource& map : further_uvs)
        bytes += map.points.size() * sizeof(float) + map.indices.size() * sizeof(std::uint32_t);
    for (const PropertySource& property : properties) bytes += property.get_memory_size();
    return bytes;
}

std::size_t LoadedSurface::get_memory_size() const { return get_input_size() + surface->get_memory_size(); }

LoadedSurface load_surface(const CommonOptions& common, const MotionOptions& motion, AppProgressBar* progress) {
    LoadedSurface loaded;
    loaded.name = common.mesh;
    loaded.mesh = load_cage(common.mesh, common, CageReport::everything);
    join_uvs(*loaded.mesh.cage);
    loaded.further_uvs = load_uvs(common, loaded.get_cage());
    const std::vector<UvSource>& uvs = loaded.further_uvs;
    if (loaded.get_cage().has_uvs()) loaded.uv_joins.push_back(loaded.get_cage().uv_join);
    for (const UvSource& map : uvs) loaded.uv_joins.push_back(map.join);
    loaded.motion = load_motion(motion, common, loaded.get_cage());
    if (!common.property_file.empty())
        loaded.properties = read_properties(common.property_file, loaded.get_cage(), common.memory_limit);
    if (common.is_left_handed)
        for (PropertySource& property : loaded.properties)
            turn_corners_over(loaded.get_cage().polygon_counts, false, property.indices);
    const SurfaceModes modes = get_modes(common, loaded.get_cage().rules);
    if (common.memory_limit != 0) {
        const bool has_motion = !loaded.motion.vectors.empty();
        const BuildEstimate estimate = estimate_build(loaded.get_cage(), uvs, has_motion, modes);
        check_memory_limit("the surface", estimate.get_peak() + loaded.get_input_size(), common.memory_limit);
    }
    loaded.surface = std::make_unique<Surface>(loaded.get_cage(), uvs, loaded.motion.vectors, modes, progress);
    install_time_samples(*loaded.surface, loaded.motion, loaded.get_cage().get_vertex_count());
    return loaded;
}

void print_build_rate(std::span<const LoadedSurface> surfaces) {
    double seconds = 0.0;
    unsigned int quads = 0;
    for (const LoadedSurface& loaded : surfaces) {
        seconds += loaded.surface->get_build_seconds();
        quads += loaded.surface->get_base().get_primitive_count();
    }
    std::fprintf(stderr, "build      %u quads, %.3f s, %.3g quads/s\n", quads, seconds,
                 quads / std::max(seconds, 1e-9));
}

}  // namespace sds_cli
