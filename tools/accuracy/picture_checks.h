// Pictures of a surface against each other: levels, and blur against stills.
#pragma once

#include "oracles/moving_surface.h"
#include "render/camera.h"
#include "render/image.h"
#include "render/scene.h"

namespace sds_test {

// In steps of the 8 bits that are shown, over pixels and their three colors.
struct PictureDifference {
    double max = 0.0;
    double mean = 0.0;  // of the magnitude
    double root_mean_square = 0.0;
    double worst_block = 0.0;  // magnitude of the mean with its sign over 16 x 16 pixels: streaks and holes, not noise
    size_t beyond = 0;         // pixels off by more than 8 steps
    size_t pixels = 0;         // of the picture
};
PictureDifference compare_pictures(const sds_render::Image& a, const sds_render::Image& b);

// The magnitudes as a picture, 8 times as bright.
sds_render::Image make_difference_picture(const sds_render::Image& a, const sds_render::Image& b);

struct PictureSize {
    unsigned int width = 320, height = 240, samples = 16;
};

// One frame of the cage's surface at a level; the camera is that of level 0.
sds_render::Image render_level(const ZooMesh& cage, unsigned int level, sds_render::UpAxis up, const PictureSize& size);

// The surface while the shutter is open from 0 to 1, which outlives this.
class BlurredFrame {
public:
    explicit BlurredFrame(const MovingSurface& surface);

    sds_render::Image render(const PictureSize& size) const;
    // The mean, in linear light, of `count` stills at the middles of as many equal parts of that time, under the same
    // camera and light.
    sds_render::Image render_mean_of_stills(unsigned int count, const PictureSize& size) const;

private:
    sds_render::Camera make_camera(const PictureSize& size) const;

    const MovingSurface* m_surface;
    sds_render::Scene m_scene;
};

}  // namespace sds_test
