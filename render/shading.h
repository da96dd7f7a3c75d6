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
    // Shadow rays towards points of the key light per sample: 1 or 2, 0 for none.
    unsigned int key_rays = 1;
    // Occlusion rays per sample, 0 for none, and how far they reach in scene radii.
    unsigned int ambient_rays = 2;
    double ambient_reach = 0.6;
    // Lines on the edges that an object reports as visible.
    bool wire = false;
    double wire_width = 1.2;  // pixels
    Color wire_color{0.035f, 0.04f, 0.05f};
};

// What the occlusion rays of a pixel's samples have met so far.
struct PixelOcclusion {
    unsigned int ray_count = 0;
    bool is_free = true;  // they met nothing
};

class Shader {
public:
    // Points that are lit together.
    static constexpr unsigned int packet_size = 8;

    // Dimension pairs of a pixel's sampler that shading leaves alone, for the picture plane and the time.
    static constexpr unsigned int first_dimension_pair = 2;
    // One that is left to the camera's lens.
    static constexpr unsigned int lens_dimension_pair = 6;

    // Scene and camera outlive the shader.
    Shader(const Scene& scene, const Camera& camera, const ShadingOptions& options);

    // A hit, seen by one of its pixel's samples.
    struct Hit {
        SurfacePoint point;
        PixelSampler sampler{0, 0, 1};
        unsigned int sample = 0;

    private:
        friend class Shader;
        // The surface turned towards the camera.
        Vec3 normal;       // to shade with
        Vec3 start;        // where rays leave, off the surface
        double key = 0.0;  // share of the key light
    };

    // Finds which of `count` hits, at most packet_size, the key light reaches.
    void light(Hit* const* hits, unsigned int count, RenderThread& thread) const;

    // Light from a lit hit towards the camera. A pixel's samples come in order, with its own `occlusion`.
    Color shade(const Hit& hit, PixelOcclusion& occlusion, RenderThread& thread) const;

    // Light beside the surface at a point of the picture, in pixels, along the ray there.
    Color get_background(double x, double y, const Vec3& direction) const;

private:
    struct Light {
        Vec3 direction{0, 0, 1};
        Color color{0, 0, 0};
    };
    void face(Hit& hit) const;
    GeometryRay make_key_ray(const Hit& hit, unsigned int index) const;
    GeometryRay make_ambient_ray(const Hit& hit, unsigned int index, unsigned int share) const;
    double get_ambient_share(const Hit& hit, PixelOcclusion& occlusion, RenderThread& thread) const;
    Color get_environment_light(const Hit& hit, RenderThread& thread) const;

    const Scene* m_scene;
    const Camera* m_camera;
    ShadingOptions m_options;
    Vec3 m_up;  // of the sky
    double m_ray_offset;
    Light m_key, m_fill, m_rim;
};

}  // namespace sds_render
