#include "render/turntable.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace sds_render {

namespace {

// The scene's outline while it turns: the greatest distance from the axis within each slice of its height.
constexpr unsigned int slice_count = 64;
constexpr unsigned int ring_count = 48;

class TurnedOutline {
public:
    TurnedOutline(const Bbox3& box, unsigned int up)
        : m_up(up), m_center(box.get_center()), m_low(box.get_min()[up]), m_height(box.get_max()[up] - m_low) {}

    void add(const Bbox3& box) {
        if (box.is_empty()) return;
        double square = 0.0;
        for (unsigned int axis = 0; axis < 3; ++axis) {
            if (axis == m_up) continue;
            const double far = std::max(m_center[axis] - box.get_min()[axis], box.get_max()[axis] - m_center[axis]);
            square += far * far;
        }
        for (unsigned int s = slice_of(box.get_min()[m_up]); s <= slice_of(box.get_max()[m_up]); ++s)
            m_radius[s] = std::max(m_radius[s], std::sqrt(square));
    }

    // Rings around the slices, the same after a turn by 1 / count.
    std::vector<Vec3> get_points(unsigned int count) const {
        const unsigned int steps = count * ((ring_count + count - 1) / count);
        std::vector<Vec3> points;
        for (unsigned int s = 0; s < slice_count; ++s) {
            if (m_radius[s] < 0.0) continue;
            for (unsigned int k = 0; k < 2 * steps; ++k) {
                const unsigned int step = k / 2;  // the two ends of a slice at each
                const double angle = 2.0 * std::numbers::pi * step / steps;
                Vec3 point = m_center;
                point[m_up] = m_low + m_height * (s + k % 2) / slice_count;
                point[(m_up + 1) % 3] += m_radius[s] * std::cos(angle);
                point[(m_up + 2) % 3] += m_radius[s] * std::sin(angle);
                points.push_back(point);
            }
        }
        return points;
    }

private:
    unsigned int slice_of(double height) const {
        const double share = m_height > 0.0 ? (height - m_low) / m_height : 0.0;
        return std::min(static_cast<unsigned int>(clamp_unit(share) * slice_count), slice_count - 1);
    }

    unsigned int m_up;
    Vec3 m_center;
    double m_low, m_height;
    std::vector<double> m_radius = std::vector<double>(slice_count, -1.0);
};

std::vector<Vec3> get_turned_points(const Scene& scene, UpAxis up, unsigned int count) {
    TurnedOutline outline(scene.get_bbox(), static_cast<unsigned int>(up));
    const CtxEval ctx(scene.get_shader_ctx());
    const Shutter& shutter = scene.get_shutter();
    for (unsigned int i = 0; i < scene.get_object_count(); ++i) {
        const GeometryObject& object = scene.get_object(i);
        const Transform& transform = scene.get_transform(i);
        for (unsigned int p = 0; p < object.get_primitive_count(); ++p)
            for (const double time : {shutter.open, shutter.close}) {
                Bbox3 box = Bbox3::empty();
                object.compute_primitive_bbox_at(ctx, p, time, box);
                if (!transform.is_identity()) box = transform_box(transform.at(time), box);
                if (box.get_min().is_finite() && box.get_max().is_finite()) outline.add(box);
            }
    }
    return outline.get_points(count);
}

void paste(const Image& picture, const ImageArea& area, Image& sheet) {
    for (const Channel& from : picture.get_channels()) {
        Channel* known = sheet.find_channel(from.name);
        Channel& to = known != nullptr ? *known : sheet.add_channel(from.name, from.kind);
        const auto copy = [&](const auto& source, auto& target) {
            const std::size_t width = picture.get_width();
            for (std::size_t y = 0; y < picture.get_height(); ++y)
                std::copy_n(
                    source.begin() + static_cast<std::ptrdiff_t>(y * width), width,
                    target.begin() + static_cast<std::ptrdiff_t>((area.top + y) * sheet.get_width() + area.left));
        };
        if (from.kind == ChannelKind::id)
            copy(from.ids, to.ids);
        else
            copy(from.values, to.values);
    }
}

}  // namespace

std::vector<Camera> surround_scene(const Scene& scene, const CameraView& view, unsigned int count, unsigned int width,
                                   unsigned int height) {
    const std::vector<Vec3> points = get_turned_points(scene, view.up, count);
    std::vector<Camera> cameras;
    for (unsigned int i = 0; i < count; ++i) {
        CameraView turned = view;
        turned.azimuth += 360.0 * i / count;
        const bool has_outline = scene.get_bbox().get_diagonal() > 0.0 && !points.empty();
        cameras.push_back(has_outline ? Camera(points, turned, width, height)
                                      : Camera(scene.get_bbox(), turned, width, height));
    }
    return cameras;
}

SheetGrid::SheetGrid(unsigned int count, unsigned int width, unsigned int height)
    : columns(1), rows(count), cell_width(width), cell_height(height / count) {
    for (unsigned int c = 2; c <= count; ++c) {
        const unsigned int r = (count + c - 1) / c;
        if (std::min(width / c, height / r) <= std::min(cell_width, cell_height)) continue;
        columns = c;
        rows = r;
        cell_width = width / c;
        cell_height = height / r;
    }
}

Rendering render_turntable(const Scene& scene, const std::vector<Camera>& cameras, unsigned int width,
                           unsigned int height, const RenderOptions& options, AppProgressBar* progress) {
    const auto count = static_cast<unsigned int>(cameras.size());
    const SheetGrid grid(count, width, height);
    Rendering sheet{Image(width, height), {}};
    for (unsigned int i = 0; i < count; ++i) {
        if (progress != nullptr) progress->begin_task("view", 1.0f / static_cast<float>(count), true);
        const Rendering picture = render(scene, cameras[i], options, progress);
        if (progress != nullptr) progress->end_task();
        paste(picture.image, grid.get_area(i), sheet.image);
        sheet.statistics.camera_rays += picture.statistics.camera_rays;
        sheet.statistics.rays += picture.statistics.rays;
        sheet.statistics.hits += picture.statistics.hits;
        sheet.statistics.seconds += picture.statistics.seconds;
    }
    return sheet;
}

}  // namespace sds_render
