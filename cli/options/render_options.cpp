#include "cli/options/render_options.h"

#include "model/color_map.h"

#include <CLI/CLI.hpp>

namespace sds_cli {

namespace {

constexpr unsigned int max_picture_side = 16384;
constexpr unsigned int max_samples = 1u << 16;
constexpr unsigned int max_views = 256;

void add_size_options(CLI::App& command, RenderCommandOptions& options) {
    command.add_option("-o,--output", options.output, "Picture, .png, .jpg or .exr; - writes a PNG to standard output")
        ->type_name("FILE")
        ->required();
    command.add_option("--width", options.width, "Pixels")
        ->check(CLI::Range(1u, max_picture_side))
        ->capture_default_str();
    command.add_option("--height", options.height, "Pixels")
        ->check(CLI::Range(1u, max_picture_side))
        ->capture_default_str();
    command.add_option("--samples", options.samples, "Samples per pixel; powers of two spread best")
        ->check(CLI::Range(1u, max_samples))
        ->capture_default_str();
    command
        .add_option("--turntable", options.turntable,
                    "A contact sheet: N views from all sides, the first as --view says, in one picture")
        ->type_name("N")
        ->check(CLI::Range(1u, max_views));
}

void add_light_options(CLI::App& command, RenderCommandOptions& options) {
    CLI::Option* sun =
        command
            .add_option("--sun", options.sun,
                        "Where the sun stands, azimuth and elevation in degrees as --view counts them; it stays there "
                        "and replaces the lights that go with the camera")
            ->expected(2)
            ->type_name("AZIMUTH ELEVATION");
    command.add_option("--sun-strength", options.sun_strength, "How bright the sun is")
        ->check(CLI::Range(0.0, 1e6))
        ->capture_default_str()
        ->needs(sun);
    command
        .add_option("--environment", options.environment,
                    "Light from all around, an .exr twice as wide as high: the middle is behind a scene that is seen "
                    "from azimuth 0")
        ->type_name("FILE");
}

void add_color_options(CLI::App& command, RenderCommandOptions& options, CLI::Option* texture) {
    CLI::Option* by =
        command
            .add_option("--color-by", options.color_by, "Colors by a property: its number, or the length of several")
            ->type_name("PROPERTY")
            ->excludes(texture);
    command.add_option("--color-map", options.color_map, "Colors of --color-by")
        ->check(CLI::IsMember(color_map_names()))
        ->capture_default_str()
        ->needs(by);
    command
        .add_option("--color-range", options.color_range,
                    "Values at both ends of the colors; the property's own by default")
        ->expected(2)
        ->type_name("LOW HIGH")
        ->needs(by);
}

}  // namespace

void add_render_options(CLI::App& command, RenderCommandOptions& options) {
    add_common_options(command, options);
    command.add_option("MORE", options.further_meshes, "Further cages of the same scene")->type_name("MESH");
    add_level_option(command, options.level);
    add_size_options(command, options);
    add_camera_options(command, options.camera);
    add_light_options(command, options);
    add_property_option(command, options);
    command.add_flag("--wire", options.wire, "Draw the edges of the cage on the surface");
    command
        .add_option(
            "--aov", options.aovs,
            "Layers, separated by commas: N Ng P Z st uv id object group color checker lines, and prop:NAME for a "
            "property. In an .exr they are channels (P, N, uv, id, Z by default), beside a .png pictures "
            "FILE.LAYER.png")
        ->type_name("NAMES")
        ->allow_extra_args(false);
    CLI::Option* texture =
        command
            .add_option(
                "--texture", options.texture,
                "PNG on the surface, through its UVs, before vertex colors and the Kd and map_Kd of mtllib files")
            ->type_name("FILE");
    add_size_option(command, "--texture-limit", options.texture_limit,
                    "Refuse a texture that takes more, 1G by default");
    command.add_flag("--checker", options.checker, "Squares on the surface, through its UVs")->excludes(texture);
    command.add_option("--map", options.uv_map, "UV map of --texture and --checker, 0 the mesh's own")
        ->capture_default_str();
    add_color_options(command, options, texture);
    add_motion_options(command, options.motion);
    command
        .add_option("--shutter", options.shutter,
                    "Times at which the shutter opens and closes; by default the whole motion is blurred. Of a scene, "
                    "from the frame; by default what its camera says")
        ->expected(2)
        ->type_name("OPEN CLOSE");
}

}  // namespace sds_cli
