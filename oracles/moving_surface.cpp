#include "oracles/moving_surface.h"

#include <cmath>

namespace sds_test {

namespace {

std::vector<double> sample_times(CageMotion motion) {
    if (motion == CageMotion::even_samples) return {0.0, 1.0 / 3.0, 2.0 / 3.0, 1.0};
    if (motion == CageMotion::uneven_samples) return {0.0, 0.31, 0.33, 0.8, 1.0};
    return {};
}

class PoseLoader : public SdsMeshGeometry::SampleLoader {
public:
    explicit PoseLoader(const ZooMesh& cage) : m_cage(cage) {}
    void get_positions(const GMathTimeSampling& sampling, const unsigned int& sample, Vec3f* out) override {
        const std::vector<Vec3f> pose = pose_at(m_cage, sampling.get_sample_time(sample));
        std::copy(pose.begin(), pose.end(), out);
    }

private:
    const ZooMesh& m_cage;
};

BuiltSurface::Options make_options(const ZooMesh& cage, CageMotion motion, unsigned int level, unsigned int depth) {
    BuiltSurface::Options options;
    options.level = level;
    options.refinement.depth = depth;
    if (motion != CageMotion::vectors) return options;
    options.motion_vectors = pose_at(cage, 1.0);
    for (size_t i = 0; i < cage.positions.size(); ++i) options.motion_vectors[i] -= cage.positions[i];
    return options;
}

}  // namespace

const char* name_of(CageMotion motion) {
    switch (motion) {
        case CageMotion::vectors:
            return "vectors";
        case CageMotion::even_samples:
            return "4 even samples";
        case CageMotion::uneven_samples:
            return "5 uneven samples";
    }
    return "unknown";
}

std::vector<Vec3f> pose_at(const ZooMesh& cage, double share) {
    if (share == 0.0) return cage.positions;
    Vec3d low(cage.positions.front()), high = low;
    for (const Vec3f& p : cage.positions)
        for (unsigned int a = 0; a < 3; ++a) {
            low[a] = std::min<double>(low[a], p[a]);
            high[a] = std::max<double>(high[a], p[a]);
        }
    const Vec3d center = (low + high) * 0.5;
    const double size = (high - low).length();
    const double angle = 1.1 * share, c = std::cos(angle), s = std::sin(angle);
    std::vector<Vec3f> pose;
    for (const Vec3f& p : cage.positions) {
        const Vec3d arm = Vec3d(p) - center;
        const double bend = 0.12 * size * share * std::sin(5.0 * arm[1] / size + 4.0 * share);
        const Vec3d turned{c * arm[0] + s * arm[2] + bend, arm[1] * (1.0 + 0.2 * share), c * arm[2] - s * arm[0]};
        pose.push_back(Vec3f(turned + center));
    }
    return pose;
}

MovingSurface::MovingSurface(const ZooMesh& cage, CageMotion motion, unsigned int level, unsigned int depth)
    : m_surface(cage, make_options(cage, motion, level, depth)) {
    using LoaderPointer = CoreSharedPointer<SdsMeshGeometry::SampleLoader, CoreSharedCounter>;
    std::vector<double> times = sample_times(motion);
    if (times.empty()) return;
    const CoreBasicArray<double> view(static_cast<unsigned int>(times.size()), times.data());
    m_surface.geometry.set_positions_sampling(GMathTimeSampling(view), LoaderPointer(new PoseLoader(cage)));
}

}  // namespace sds_test
