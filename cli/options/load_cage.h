#pragma once

#include "cli/options/motion_options.h"
#include "io/obj/read_obj.h"
#include "io/property_file.h"
#include "model/surface.h"

#include <memory>
#include <span>
#include <string>

namespace sds_cli {

struct CommonOptions;

enum class CageReport { everything, errors };

/// Reads a cage and prints its findings, one line each: errors always, warnings and notes when `report` and the options
/// let them. Throws CageError when the file gives no cage.
ReadObjResult load_cage(const std::string& path, const CommonOptions& common, CageReport report);

/// Throws InputError when the polygons of `other`, which is the file `path`, are not those of `cage`.
void check_same_topology(const ControlCage& cage, const std::string& cage_path, const ReadObjResult& other,
                         const std::string& path);

/// The further UV maps that the options name, on the polygons of `cage`, joined as they are there. Throws InputError.
std::vector<UvSource> load_uvs(const CommonOptions& common, const ControlCage& cage);

/// A surface with what was read for it.
struct LoadedSurface {
    std::string name;  ///< the file, or the path of the prim
    ReadObjResult mesh;
    Motion motion;
    std::vector<PropertySource> properties;
    std::vector<UvSource> further_uvs;
    std::vector<UvJoinCounts> uv_joins;  ///< per UV map of the surface
    std::unique_ptr<Surface> surface;

    const ControlCage& get_cage() const { return *mesh.cage; }

    std::size_t get_input_size() const;   ///< bytes of what was read beside the cage: UV maps, motion, properties
    std::size_t get_memory_size() const;  ///< that and the surface
};

/// Reads the mesh, its further UV maps, its motion and its properties, checks everything, then builds. Throws
/// InputError and UsageError, and std::runtime_error when the build would pass the memory limit. `progress` may be
/// null.
LoadedSurface load_surface(const CommonOptions& common, const MotionOptions& motion, AppProgressBar* progress);

/// Prints quads, seconds and rate of the surfaces together to the standard error stream.
void print_build_rate(std::span<const LoadedSurface> surfaces);

}  // namespace sds_cli
