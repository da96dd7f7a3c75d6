#include "cli/options/motion_options.h"

#include "cli/options/common_options.h"
#include "cli/options/load_cage.h"
#include "cli/options/usage_error.h"
#include "io/input_error.h"
#include "model/array_view.h"
#include "qn_poly/poly_check.h"

#include <CLI/CLI.hpp>
#include <algorithm>

namespace sds_cli {

namespace {

class CageSampleLoader : public SdsMeshGeometry::SampleLoader {
public:
    CageSampleLoader(std::vector<std::string> files, std::size_t vertices)
        : m_files(std::move(files)), m_vertices(vertices) {}

    void get_positions(const GMathTimeSampling&, const unsigned int& sample, GMathVec3<float>* out) override {
        const ReadObjResult read = read_obj(m_files[sample]);
        if (!read.cage || read.cage->get_vertex_count() != m_vertices)
            throw InputError(m_files[sample], "changed while it was in use");
        const std::vector<float>& p = read.cage->positions;
        for (std::size_t i = 0; i < m_vertices; ++i) out[i] = {p[3 * i], p[3 * i + 1], p[3 * i + 2]};
    }

private:
    std::vector<std::string> m_files;
    std::size_t m_vertices;
};

std::vector<double> settle_times(const MotionOptions& options) {
    const std::size_t count = options.files.size();
    if (options.times.empty()) {
        std::vector<double> times(count, 0.0);
        for (std::size_t i = 1; i < count; ++i) times[i] = static_cast<double>(i) / static_cast<double>(count - 1);
        return times;
    }
    if (options.times.size() != count)
        throw UsageError("--times: " + std::to_string(options.times.size()) + " times for " + std::to_string(count) +
                         " time samples");
    PolyFindings found;
    poly_check_times(view_of(options.times), found);
    found.for_each([&found](PolyFindingCode code) {
        throw UsageError("--times: time " + std::to_string(found.first(code).item + 1) + ": " +
                         poly_finding_text(code).message);
    });
    return options.times;
}

std::vector<float> difference(const ControlCage& cage, const ControlCage& next, const std::string& path) {
    std::vector<float> vectors(cage.positions.size());
    for (std::size_t i = 0; i < vectors.size(); ++i) vectors[i] = next.positions[i] - cage.positions[i];
    PolyFindings found;
    poly_check_vectors(points_view(vectors), static_cast<unsigned int>(cage.get_vertex_count()), PolyArray::motion,
                       found);
    found.for_each([&](PolyFindingCode code) {
        throw InputError(path, "motion of vertex " + std::to_string(found.first(code).item + 1) + ": " +
                                   poly_finding_text(code).message);
    });
    return vectors;
}

}  // namespace

void add_motion_options(CLI::App& command, MotionOptions& options) {
    CLI::Option* next =
        command.add_option("--motion", options.next, "The same cage one unit of time later: motion vectors")
            ->type_name("FILE");
    CLI::Option* files =
        command
            .add_option("--time-samples", options.files, "The same cage at several times; MESH is the rest position")
            ->type_name("FILE")
            ->excludes(next);
    command.add_option("--times", options.times, "Times of the samples, increasing; evenly over 0 to 1 by default")
        ->type_name("TIME")
        ->needs(files);
}

Motion load_motion(const MotionOptions& options, const CommonOptions& common, const ControlCage& cage) {
    Motion motion;
    motion.times = settle_times(options);
    motion.files = options.files;
    const auto load = [&](const std::string& path) {
        ReadObjResult read = load_cage(path, common, CageReport::errors);
        check_same_topology(cage, common.mesh, read, path);
        return std::move(*read.cage);
    };
    if (!options.next.empty()) motion.vectors = difference(cage, load(options.next), options.next);
    for (const std::string& path : options.files) load(path);
    return motion;
}

void install_time_samples(Surface& surface, const Motion& motion, std::size_t vertices) {
    if (motion.files.empty()) return;
    using Loader = CoreSharedPointer<SdsMeshGeometry::SampleLoader, CoreSharedCounter>;
    surface.get_geometry().set_positions_sampling(GMathTimeSampling(view_of(motion.times)),
                                                  Loader(new CageSampleLoader(motion.files, vertices)));
}

}  // namespace sds_cli
