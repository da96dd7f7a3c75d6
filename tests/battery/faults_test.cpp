// Every allocation of a build refused in turn, and builds cancelled at every point of progress.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

#include "battery/examine.h"
#include "battery/failing_allocator.h"
#include "qn_core/core_memory.h"
#include "qn_ctx/ctx_eval.h"
#include "qn_poly/poly_mesh_property.h"
#include "qn_sys/sys_thread.h"
#include "sds/mesh_property/sds_mesh_property.h"

namespace sds_test {
namespace {

// A mesh with motion, a UV map and a property, checked, built and ready to be read.
struct Everything {
    PolyMesh polygons;
    std::unique_ptr<BuiltSurface> surface;
    std::unique_ptr<PolyMeshProperty> source;
    std::unique_ptr<SdsMeshProperty> property;
    ResourceProperty values{CoreString("heat")};
    CtxShader shader;
    CtxThread thread;

    explicit Everything(const ZooMesh& cage, unsigned int depth = 0) {
        if (check_cage(cage).has_errors()) throw std::logic_error("a good mesh");
        BuiltSurface::Options options;
        options.refinement.depth = depth;
        options.motion_vectors.assign(cage.positions.size(), {0.1f, 0, 0});
        surface = std::make_unique<BuiltSurface>(cage, options);
        polygons.set_polygons(to_core_array(cage.counts), to_core_array(cage.indices),
                              to_core_array(cage.corner_creases));
        source = std::make_unique<PolyMeshProperty>(polygons, "heat", PolyMeshProperty::Type::per_vertex,
                                                    ResourceProperty::Type::float32, 1);
        values.init(ResourceProperty::Type::float32, 1, static_cast<unsigned int>(cage.positions.size()));
        source->set_values({}, CoreBasicArray<ResourceProperty>(1, &values));
        property = std::make_unique<SdsMeshProperty>(surface->mesh, *source);
        property->init(0, &values);
    }
    void read() {
        const CtxEval ctx(shader, &thread);
        GeometrySample sample;
        double heat;
        for (unsigned int q = 0; q < surface->get_quad_count(); ++q) {
            surface->mesh.compute_fragment_sample(ctx, {q, 0.5, 0.5, 0.5, 0}, sample);
            property->evaluate(ctx, {q, 0.5, 0.5, 0, 0}, 0, &heat, nullptr, nullptr, nullptr, 1);
        }
    }
};

// Live bytes without those that wait for their next use.
std::size_t bytes_in_use() {
    CoreMemory::release_kept();
    return live_bytes();
}

template <unsigned int depth>
void build_everything(const ZooMesh& cage) {
    Everything(cage, depth).read();
}

// A worker lets go of the exception that it handed on a moment after the caller has caught it.
bool settles_at(std::size_t bytes) {
    for (unsigned int i = 0; i < 10000 && bytes_in_use() > bytes; ++i) std::this_thread::yield();
    return bytes_in_use() <= bytes;
}

// Builds with the k-th allocation refused; returns whether it came to that. `is_clean` tells whether no more bytes
// live afterwards than before: what a thread keeps for its next build may go with a build that fails.
template <unsigned int depth>
bool refuse_allocation(const ZooMesh& cage, std::size_t k, bool& is_clean) {
    const std::size_t before = bytes_in_use();
    bool threw = false;
    fail_allocation(k);
    try {
        build_everything<depth>(cage);
    } catch (const std::bad_alloc&) {
        threw = true;
    }
    const bool was_refused = has_failed();
    fail_allocation(0);
    EXPECT_EQ(threw, was_refused) << "allocation " << k;
    is_clean = settles_at(before);
    return was_refused;
}

// Injects a failure at every allocation of one run; returns how many there were. What a thread allocates for itself on
// its first task may stay: a leak comes back each time, that does not.
template <unsigned int depth>
std::size_t refuse_each_allocation(const ZooMesh& cage) {
    build_everything<depth>(cage);  // what lives as long as the process
    for (std::size_t k = 1;; ++k) {
        bool is_clean = false;
        for (unsigned int attempt = 0; attempt < 8 && !is_clean; ++attempt)
            if (!refuse_allocation<depth>(cage, k, is_clean)) return k - 1;
        EXPECT_TRUE(is_clean) << "left by the failure of allocation " << k;
        if (::testing::Test::HasFailure()) return k;
    }
}

ZooMesh mapped(ZooMesh cage) {
    cage.groups |= uvs;
    cage.uv_points = cage.positions;
    cage.uv_indices = cage.indices;
    return cage;
}

// Brings the arena's threads to work, so that what they allocate to begin with is none of the build's: a refusal there
// ends the process.
void wake_threads(unsigned int count) {
    std::atomic<unsigned int> arrived{0};
    sys_parallel_for(count, [&](unsigned int, unsigned int) {
        ++arrived;
        for (unsigned int i = 0; i < 1000000 && arrived < count; ++i) std::this_thread::yield();
    });
}

// Runs `count` on small cages with one thread and on one of several chunks with four, which must count enough.
void count_everywhere(std::size_t (*count)(const ZooMesh&)) {
    std::size_t small = 0, threaded = 0;
    for (const char* name : {"prism7_uvs", "cube_uv_islands", "pole64"}) {
        SCOPED_TRACE(name);
        SysThreadArena(1).execute([&] { small += count(mapped(zoo_mesh(name))); });
    }
    SysThreadArena(4).execute([&] {
        wake_threads(4);
        threaded = count(mapped(make_torus(16, 12)));
    });
    EXPECT_GT(small, 100u);
    EXPECT_GT(threaded, 100u);
}

TEST(BatteryFaults, EveryAllocationOnOneThreadAndFour) {
    count_everywhere(refuse_each_allocation<0>);
    count_everywhere(refuse_each_allocation<2>);
}

TEST(BatteryFaults, ReadingAllocatesNothing) {
    Everything everything(mapped(zoo_mesh("prism7_uvs")));
    fail_allocation(1);
    everything.read();
    EXPECT_FALSE(has_failed());
    fail_allocation(0);
}

// Cancels for good when it is asked for the k-th time.
class CancellingBar : public AppProgressBar {
public:
    explicit CancellingBar(unsigned int k) : m_k(k) {}
    unsigned int get_point_count() const { return m_points; }

protected:
    bool is_cancelled() override { return ++m_points >= m_k; }

private:
    unsigned int m_k;
    std::atomic<unsigned int> m_points{0};
};

using Mode = SdsMeshGeometry::InterpolationMode;

// Cancels a new build, a second build of a surface, and one in another mode on the base that it has, at the k-th point;
// what is built afterwards is what a new surface of the mode is. Returns whether there are as many points.
template <unsigned int depth>
bool cancel_at(unsigned int k, const ZooMesh& cage, BuiltSurface& surface) {
    BuiltSurface::Options options;
    options.refinement.depth = depth;
    const auto is_cancelled = [&](BuiltSurface& target) {
        CancellingBar bar(k);
        options.progress = &bar;
        bool threw = false;
        try {
            target.build(cage, options);
        } catch (const AppCancelled&) {
            threw = true;
        }
        options.progress = nullptr;
        EXPECT_EQ(threw, bar.get_point_count() >= k);
        return threw;
    };
    const std::size_t before = bytes_in_use();
    {
        BuiltSurface fresh;
        if (!is_cancelled(fresh)) return false;
    }
    EXPECT_TRUE(settles_at(before)) << "point " << k << ": " << bytes_in_use() - before << " bytes left";
    for (const bool keeps_base : {false, true}) {
        options.keeps_base = keeps_base;
        options.mode = keeps_base ? Mode::all_smoothed : Mode::corners_fixed;
        const bool is_within = is_cancelled(surface);
        EXPECT_TRUE(is_within || keeps_base);
        surface.build(cage, options);
        EXPECT_EQ(hash_of(surface), hash_of(BuiltSurface(cage, options))) << "point " << k;
    }
    return true;
}

template <unsigned int depth>
std::size_t cancel_at_each_point(const ZooMesh& cage) {
    BuiltSurface surface(cage);
    for (unsigned int k = 1;; ++k)
        if (!cancel_at<depth>(k, cage, surface) || ::testing::Test::HasFailure()) return k - 1;
}

TEST(BatteryFaults, CancelledAtEveryPointOnOneThreadAndFour) {
    count_everywhere(cancel_at_each_point<0>);
    count_everywhere(cancel_at_each_point<1>);
}

}  // namespace
}  // namespace sds_test
