#include "cli/options/material_color.h"

#include "cli/options/common_options.h"
#include "cli/options/load_cage.h"
#include "io/input_error.h"
#include "io/obj/read_mtl.h"
#include "io/texture.h"
#include "model/array_size.h"

#include <filesystem>
#include <map>
#include <memory>
#include <utility>

namespace sds_cli {

namespace {

using sds_render::Color;

/// The color of a group, `is_given` by a material.
struct GroupColor {
    bool is_given = false;
    Color diffuse;
    std::shared_ptr<const Texture> texture;
};

class MaterialReader {
public:
    MaterialReader(const CommonOptions& options, std::size_t texture_limit, std::size_t held)
        : m_options(options), m_texture_limit(texture_limit), m_held(held) {}

    std::vector<GroupColor> read(const LoadedSurface& mesh, const std::string& path) {
        std::map<std::string, Material> materials;
        for (const std::string& library : mesh.mesh.material_libraries)
            try_to([&] { read_mtl((std::filesystem::path(path).parent_path() / library).string(), materials); },
                   "its materials are left out");
        std::vector<GroupColor> colors;
        for (const std::string& group : mesh.get_cage().group_names) {
            const auto found = materials.find(group);
            colors.emplace_back();
            if (found == materials.end()) continue;
            const auto& [red, green, blue] = found->second.diffuse;
            colors.back() = {true, {red, green, blue}, find_texture(found->second.texture)};
        }
        return colors;
    }

private:
    template <class Work>
    void try_to(const Work& work, const char* otherwise) {
        try {
            work();
        } catch (const InputError& error) {
            if (!m_options.quiet) print_line(std::string(error.what()) + ": warning: " + otherwise);
        }
    }

    /// Null without one, and when it cannot be read. Every file is read once.
    std::shared_ptr<const Texture> find_texture(const std::string& path) {
        if (path.empty()) return nullptr;
        const auto [entry, is_new] = m_textures.try_emplace(path);
        if (is_new) try_to([&] { entry->second = read_texture(path); }, "map_Kd takes PNG pictures, Kd is used");
        return entry->second;
    }

    std::shared_ptr<const Texture> read_texture(const std::string& path) {
        const std::size_t bytes = Texture::read_png_size(path);
        if (bytes <= m_texture_limit) check_memory_limit(path, m_held + bytes, m_options.memory_limit);
        auto texture = std::make_shared<const Texture>(Texture::read_png(path, m_texture_limit));
        m_held += bytes;
        return texture;
    }

    const CommonOptions& m_options;
    const std::size_t m_texture_limit;
    std::size_t m_held;
    std::map<std::string, std::shared_ptr<const Texture>> m_textures;
};

}  // namespace

sds_render::SurfaceColor make_material_color(std::span<const LoadedSurface> meshes,
                                             const std::vector<std::string>& paths, unsigned int uv_map,
                                             const sds_render::SurfaceColor& other, const CommonOptions& options,
                                             std::size_t texture_limit, std::size_t held) {
    MaterialReader reader(options, texture_limit, held);
    std::vector<std::vector<GroupColor>> groups;
    bool is_any_given = false;
    for (std::size_t i = 0; i < meshes.size(); ++i) {
        groups.push_back(reader.read(meshes[i], paths[i]));
        for (const GroupColor& color : groups.back()) is_any_given |= color.is_given;
    }
    if (!is_any_given) return nullptr;
    return [groups = std::move(groups), uv_map, other](const sds_render::SurfacePoint& point) {
        const unsigned int group = point.object->get_primitive_shading_group_index(point.fragment.primitive);
        if (point.object_index >= groups.size() || group >= groups[point.object_index].size()) return other(point);
        const GroupColor& color = groups[point.object_index][group];
        if (!color.is_given) return other(point);
        sds_render::Vec3 uvw;
        const bool is_textured = color.texture != nullptr && sds_render::get_uvw(point, uv_map, uvw);
        return is_textured ? color.texture->look_up(uvw[0], uvw[1]) : color.diffuse;
    };
}

}  // namespace sds_cli
