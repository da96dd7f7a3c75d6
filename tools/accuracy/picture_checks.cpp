#include "tools/accuracy/picture_checks.h"

#include <algorithm>
#include <cmath>

#include "render/framing.h"
#include "render/renderer.h"

namespace sds_test {

namespace {

using sds_render::Camera;
using sds_render::Image;
using sds_render::Scene;
using sds_render::Shutter;

constexpr const char* colors[] = {"R", "G", "B"};

// Occlusion reaches as far as in a scene of the given radius: a still's box is smaller than the box of its motion.
Image render_scene(const Scene& scene, const Camera& camera, unsigned int samples, double radius) {
    sds_render::RenderOptions options;
    options.samples = samples;
    options.shading.ambient_reach *= radius / scene.get_radius();
    return sds_render::render(scene, camera, options, nullptr).image;
}

}  // namespace

PictureDifference compare_pictures(const Image& a, const Image& b) {
    constexpr unsigned int block = 16;
    const sds_render::Pixels8 one = sds_render::make_preview(a, ""), two = sds_render::make_preview(b, "");
    const unsigned int width = a.get_width(), columns = (width + block - 1) / block;
    std::vector<double> sums(size_t{columns} * ((a.get_height() + block - 1) / block), 0.0);
    std::vector<unsigned int> counts(sums.size(), 0);
    PictureDifference difference;
    difference.pixels = a.get_pixel_count();
    for (size_t p = 0; p < difference.pixels; ++p) {
        const size_t cell = p / width / block * columns + p % width / block;
        int worst = 0;
        for (size_t c = 0; c < 3; ++c) {
            const int d = int{one[4 * p + c]} - int{two[4 * p + c]};
            worst = std::max(worst, std::abs(d));
            difference.mean += std::abs(d);
            difference.root_mean_square += d * d;
            sums[cell] += d;
        }
        counts[cell] += 3;
        difference.max = std::max<double>(difference.max, worst);
        difference.beyond += worst > 8 ? 1 : 0;
    }
    const double values = 3.0 * static_cast<double>(difference.pixels);
    difference.mean /= values;
    difference.root_mean_square = std::sqrt(difference.root_mean_square / values);
    for (size_t i = 0; i < sums.size(); ++i)
        difference.worst_block = std::max(difference.worst_block, std::fabs(sums[i]) / counts[i]);
    return difference;
}

Image make_difference_picture(const Image& a, const Image& b) {
    const sds_render::Pixels8 one = sds_render::make_preview(a, ""), two = sds_render::make_preview(b, "");
    Image out(a.get_width(), a.get_height());
    for (size_t c = 0; c < 3; ++c) {
        std::vector<float>& values =
            out.add_channel("difference." + std::string(colors[c]), sds_render::ChannelKind::color).values;
        for (size_t p = 0; p < values.size(); ++p)
            values[p] = static_cast<float>(8 * std::abs(int{one[4 * p + c]} - int{two[4 * p + c]})) / 255.0f;
    }
    return out;
}

Image render_level(const ZooMesh& cage, unsigned int level, sds_render::UpAxis up, const PictureSize& size) {
    BuiltSurface::Options options;
    const BuiltSurface smooth(cage, options);
    options.level = level;
    const BuiltSurface surface(cage, options);
    Scene framed, scene;
    framed.add(smooth.mesh);
    framed.commit();
    scene.add(surface.mesh);
    scene.commit();
    sds_render::CameraView view;
    view.up = up;
    return render_scene(scene, sds_render::frame_scene(framed, view, size.width, size.height), size.samples,
                        framed.get_radius());
}

BlurredFrame::BlurredFrame(const MovingSurface& surface) : m_surface(&surface), m_scene(Shutter{0.0, 1.0}) {
    m_scene.add(surface.get_mesh());
    m_scene.commit();
}

Image BlurredFrame::render(const PictureSize& size) const {
    return render_scene(m_scene, make_camera(size), size.samples, m_scene.get_radius());
}

Camera BlurredFrame::make_camera(const PictureSize& size) const {
    return sds_render::frame_scene(m_scene, {}, size.width, size.height);
}

Image BlurredFrame::render_mean_of_stills(unsigned int count, const PictureSize& size) const {
    const Camera camera = make_camera(size);
    Image mean(size.width, size.height);
    for (const char* name : colors) mean.add_channel(name, sds_render::ChannelKind::color);
    for (unsigned int i = 0; i < count; ++i) {
        const double time = (i + 0.5) / count;
        Scene scene(Shutter{time, time});
        scene.add(m_surface->get_mesh());
        scene.commit();
        const Image still = render_scene(scene, camera, size.samples, m_scene.get_radius());
        for (const char* name : colors) {
            const std::vector<float>& from = still.find_channel(name)->values;
            std::vector<float>& to = mean.find_channel(name)->values;
            for (size_t p = 0; p < to.size(); ++p) to[p] += from[p] / static_cast<float>(count);
        }
    }
    return mean;
}

}  // namespace sds_test
