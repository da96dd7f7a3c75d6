#include "io/usda/scene_source.h"

#include "io/usda/scene_places.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <tuple>
#include <unordered_map>

namespace sds_usda {

namespace {

using sds_render::Transform;

sds_render::Matrix4 to_matrix(const Matrix4& from) {
    sds_render::Matrix4 out;
    for (unsigned int r = 0; r < 4; ++r)
        for (unsigned int c = 0; c < 4; ++c) out[r][c] = from[4 * r + c];
    return out;
}

/// Matrices at the times that a piecewise linear way needs.
class WaySampler {
public:
    WaySampler(const UsdScene& scene, const UsdPlace& place, const UsdFrame& frame)
        : m_scene(scene), m_place(place), m_frame(frame) {}

    void add(double time) {
        const Matrix4 matrix = place_matrix(m_scene, m_place, m_frame, time);
        if (!m_times.empty()) bridge(m_times.back(), m_matrices.back(), time, matrix, max_depth);
        m_times.push_back(time);
        m_matrices.push_back(matrix);
    }

    Transform finish(double origin) {
        std::vector<sds_render::Matrix4> matrices;
        for (double& time : m_times) time -= origin;
        for (const Matrix4& matrix : m_matrices) matrices.push_back(to_matrix(matrix));
        return {std::move(m_times), std::move(matrices)};
    }

private:
    static constexpr int max_depth = 10;

    void bridge(double begin, const Matrix4& first, double end, const Matrix4& last, int depth) {
        const double middle = 0.5 * (begin + end);
        const Matrix4 real = place_matrix(m_scene, m_place, m_frame, middle);
        if (depth == 0 || !(middle > begin && middle < end) || is_straight(first, real, last)) return;
        bridge(begin, first, middle, real, depth - 1);
        m_times.push_back(middle);
        m_matrices.push_back(real);
        bridge(middle, real, end, last, depth - 1);
    }

    static bool is_straight(const Matrix4& first, const Matrix4& middle, const Matrix4& last) {
        constexpr double tolerance = 1e-5;
        double off = 0.0, size = 0.0;
        for (std::size_t i = 0; i < 12; ++i) {
            off = std::max(off, std::abs(0.5 * (first[i] + last[i]) - middle[i]));
            size = std::max(size, std::abs(middle[i]));
        }
        for (std::size_t i = 12; i < 15; ++i) {
            const double step = std::abs(last[i] - first[i]) + size;
            off = std::max(off, std::abs(0.5 * (first[i] + last[i]) - middle[i]) / std::max(step, 1e-300) * size);
        }
        return off <= tolerance * size;
    }

    const UsdScene& m_scene;
    const UsdPlace& m_place;
    const UsdFrame& m_frame;
    std::vector<double> m_times;
    std::vector<Matrix4> m_matrices;
};

/// Of what tells most meshes apart; equal meshes have equal keys.
std::uint64_t key_of(const UsdMesh& mesh) {
    std::uint64_t key = 14695981039346656037u;
    const auto add = [&key](std::uint64_t value) { key = (key ^ value) * 1099511628211u; };
    add(mesh.points.values.size());
    add(mesh.indices.size());
    const std::size_t stride = mesh.points.values.size() / 64 + 1;
    for (std::size_t i = 0; i < mesh.points.values.size(); i += stride) add(std::hash<float>()(mesh.points.values[i]));
    return key;
}

bool is_same(const UsdMesh& a, const UsdMesh& b) {
    const auto arrays = [](const UsdMesh& m) {
        return std::tie(m.points, m.velocities, m.accelerations, m.counts, m.indices, m.hole_indices, m.crease_indices,
                        m.crease_lengths, m.crease_sharpnesses, m.corner_indices, m.corner_sharpnesses, m.primvars,
                        m.subsets);
    };
    const auto words = [](const UsdMesh& m) {
        return std::tie(m.scheme, m.interpolate_boundary, m.face_varying_linear, m.triangle_rule, m.is_left_handed);
    };
    return words(a) == words(b) && arrays(a) == arrays(b);
}

Transform make_place_transform(const UsdScene& scene, const UsdPlace& place, const UsdFrame& frame) {
    if (frame.is_moment()) return Transform(to_matrix(place_matrix(scene, place, frame, frame.time)));
    const double begin = frame.time + frame.open, end = frame.time + frame.close;
    WaySampler way(scene, place, frame);
    way.add(begin);
    const std::vector<double> times = place_times(scene, place);
    for (const double time : times)
        if (time > begin && time < end) way.add(time);
    if (!times.empty()) way.add(end);
    return way.finish(frame.time);
}

/// Meshes made once, however often they are in the layer and wherever they stand.
class SourceMaker {
public:
    SourceMaker(const UsdScene& scene, const UsdFrame& frame, const UsdMeshOptions& options, const std::string& file,
                SceneSource& out)
        : m_scene(scene),
          m_frame(frame),
          m_options(options),
          m_file(file),
          m_out(out),
          m_made(scene.meshes.size(), none) {}

    std::uint32_t make(std::uint32_t m, const std::string& path) {
        if (m_made[m] == none) m_made[m] = find_or_make(m, path);
        return m_made[m];
    }

private:
    static constexpr std::uint32_t none = std::numeric_limits<std::uint32_t>::max();

    std::uint32_t find_or_make(std::uint32_t m, const std::string& path) {
        const UsdMesh& mesh = m_scene.meshes[m];
        const std::uint64_t key = key_of(mesh);
        const auto [first, last] = m_known.equal_range(key);
        const auto same =
            std::find_if(first, last, [&](const auto& entry) { return is_same(m_scene.meshes[entry.second], mesh); });
        if (same != last) return m_made[same->second];
        m_known.emplace(key, m);
        const std::string place = m_file + ":" + std::to_string(mesh.line) + ":" + std::to_string(mesh.column);
        m_out.meshes.push_back(make_mesh_source(mesh, path, place, m_frame, m_options, m_out.findings.emplace_back()));
        return static_cast<std::uint32_t>(m_out.meshes.size() - 1);
    }

    const UsdScene& m_scene;
    const UsdFrame& m_frame;
    const UsdMeshOptions& m_options;
    const std::string& m_file;
    SceneSource& m_out;
    std::vector<std::uint32_t> m_made;                              // of the scene's meshes
    std::unordered_multimap<std::uint64_t, std::uint32_t> m_known;  // indices of the scene's meshes
};

}  // namespace

double first_frame(const UsdScene& scene) {
    if (scene.start_time_code) return *scene.start_time_code;
    double first = std::numeric_limits<double>::infinity();
    const auto look = [&first](const std::vector<double>& times) {
        if (!times.empty()) first = std::min(first, times.front());
    };
    for (const UsdMesh& mesh : scene.meshes) {
        look(mesh.points.times);
        look(transform_times(scene, mesh.node));
    }
    for (const UsdInstancer& instancer : scene.instancers) {
        look(instancer.positions.times);
        look(transform_times(scene, instancer.node));
    }
    for (const UsdReference& reference : scene.references) look(transform_times(scene, reference.node));
    for (const UsdCamera& camera : scene.cameras) look(transform_times(scene, camera.node));
    return std::isfinite(first) ? first : 0.0;
}

Transform make_transform(const UsdScene& scene, std::uint32_t node, const UsdFrame& frame) {
    return make_place_transform(scene, {node, {}}, frame);
}

SceneSource make_scene_source(const UsdScene& scene, const UsdFrame& frame, const UsdMeshOptions& options,
                              const std::string& file) {
    SceneSource out;
    SourceMaker maker(scene, frame, options, file, out);
    const bool is_whole = visit_places(scene, frame, [&](std::uint32_t m, const UsdPlace& place) {
        if (!is_place_shown(scene, place, frame.time)) return;
        const std::string path = place_path(scene, place);
        const std::uint32_t mesh = maker.make(m, path);
        out.instances.push_back({path, mesh, make_place_transform(scene, place, frame)});
    });
    if (!is_whole && !out.findings.empty())
        out.findings.front().record(sds_model::FindingCode::too_many_instances, [&] {
            return sds_model::FirstCase{file, std::to_string(max_places) + " at most", {}};
        });
    return out;
}

}  // namespace sds_usda
