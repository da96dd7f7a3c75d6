// Light on a hit: a soft key light, a cool fill, a rim light and the sky, all fixed to the camera so that every view is
// well lit, with shadows and ambient occlusion by rays. Or, fixed to the scene, a sun and an environment.
#pragma once

#include <functional>
#include <optional>

#include "render/camera.h"
#include "render/sampling.h"
#include "render/scene.h"
#include "render/surface_point.h"

namespace sds_render {

struct Sun {
    Vec3 direction{0, 1, 0};  // towards it, unit
    double strength = 1.0;    // times the key light
};

// Light from a direction, of unit length. Called from many threads at once.
using Environment = std::function<Color(const Vec3&)>;

struct ShadingOptions {
    // Either takes the place of all that is fixed to the camera; without an environment there is a plain sky.
    std::optional<Sun> sun;
    Environment environment;
    Vec3 up{0, 1, 0};  // of that sky
    SurfaceColor color = make_uniform_color(clay);
    // Shade with the smoothing normal, else with the geometric one.
    bool smoothing_normal = true;
    // A shadow ray towards a point of the key light per sample.
    bool shadow = true;
    // Occlusion rays per sample, 0 for none, and how far they reach in scene radii.
    unsigned int ambient_rays = 2;
    double ambient_reach = 0.6;
    // Lines on the edges that an object reports as visible.
    bool wire = false;
    double wire_width = 1.2;  // pixels
    Color wire_color{0.035f, 0.04f, 0.05f};
};

class Shader {
public:
    // Dimension pairs of a pixel's sampler that shading leaves alone, for the picture plane and the time.
    static constexpr unsigned int first_dimension_pair = 2;
    // One that is left to the camera's lens.
    static constexpr unsigned int lens_dimension_pair = 6;

    // Scene and camera outlive the shader.
    Shader(const Scene& scene, const Camera& camera, const ShadingOptions& options);

    // Light from the point towards the camera. `sample` is the sample's index in its pixel.
    Color shade(const SurfacePoint& point, const PixelSampler& sampler, unsigned int sample,
                RenderThread& thread) const;

    // Light beside the surface at a point of the picture, in pixels, along the ray there.
    Color get_background(double x, double y, const Vec3& direction) const;

private:
    struct Light {
        Vec3 direction{0, 0, 1};
        Color color{0, 0, 0};
    };
    // The surface turned towards the camera.
    struct Facing {
        Vec3 normal;  // to shade with
        Vec3 start;   // where rays leave, off the surface
    };

    Facing get_facing(const SurfacePoint& point) const;
    bool is_blocked(const Facing& facing, const Vec3& direction, double reach, double time, RenderThread& thread) const;
    double get_key_share(const Facing& facing, double time, const PixelSampler& sampler, unsigned int sample,
                         RenderThread& thread) const;
    double get_ambient_share(const Facing& facing, double time, const PixelSampler& sampler, unsigned int sample,
                             RenderThread& thread) const;

    Color get_environment_light(const Facing& facing, double time, const PixelSampler& sampler, unsigned int sample,
                                RenderThread& thread) const;

    const Scene* m_scene;
    const Camera* m_camera;
    ShadingOptions m_options;
    Vec3 m_up;  // of the sky
    double m_ray_offset;
    Light m_key, m_fill, m_rim;
};

}  // namespace sds_render
