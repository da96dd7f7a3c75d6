#pragma once

#include "render/surface_point.h"

#include <span>
#include <string>
#include <vector>

namespace sds_cli {

struct CommonOptions;
struct LoadedSurface;

/// The colors that the material libraries of the meshes give their groups: the diffuse color, or its texture through
/// UV map `uv_map`; a texture may take `texture_limit` bytes. `paths` are the files of the meshes. Groups without a
/// material have `other`. What cannot be used is reported, a line each, and left out. Empty when no group has a
/// material. Throws MemoryLimitError before the textures and `held` bytes pass the options' limit.
sds_render::SurfaceColor make_material_color(std::span<const LoadedSurface> meshes,
                                             const std::vector<std::string>& paths, unsigned int uv_map,
                                             const sds_render::SurfaceColor& other, const CommonOptions& options,
                                             std::size_t texture_limit, std::size_t held);

}  // namespace sds_cli
