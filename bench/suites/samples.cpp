// Reading a surface at places in no order: controls, samples with normals, UVs, properties; and selection by a frustum.
#include <algorithm>
#include <random>

#include "bench/support/session.h"
#include "qn_ctx/ctx_eval.h"
#include "qn_geometry/geometry_frustum_ctx.h"
#include "sds/mesh_property/sds_mesh_property.h"

namespace sds_bench {

namespace {

std::vector<GeometryFragment> make_fragments(unsigned int quad_count, unsigned int count) {
    std::mt19937 random(11);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    std::vector<GeometryFragment> fragments(count);
    for (GeometryFragment& fragment : fragments) {
        fragment.primitive = static_cast<unsigned int>(random()) % quad_count;
        fragment.u = unit(random);
        fragment.v = unit(random);
    }
    return fragments;
}

// One cage with everything that can be read on it.
struct Subject {
    const HostCage& cage;
    OurSurface surface;
    SdsMesh limit;
    CtxShader shader;
    CtxThread thread;
    CtxEval ctx{shader, &thread};
    std::vector<GeometryFragment> fragments;

    Subject(const HostCage& source, unsigned int count) : cage(source) {
        surface.build(cage);
        surface.build_maps(cage.make_mapped());
        limit = surface.make_mesh(0);
        fragments = make_fragments(surface.base.get_primitive_count(), count);
    }
    double get_amount() const { return 1e-6 * static_cast<double>(fragments.size()); }
};

void bench_samples_of(Session& session, Subject& subject) {
    const OpenSubdivCage their_cage = make_opensubdiv_cage(subject.cage);
    TheirSurface theirs(their_cage);
    theirs.make_map();
    const auto count = static_cast<unsigned int>(subject.fragments.size());
    std::vector<SdsMeshGeometry::LimitPlace> places;
    for (const GeometryFragment& fragment : subject.fragments)
        places.push_back({fragment.primitive, static_cast<float>(fragment.u), static_cast<float>(fragment.v)});
    const auto times = run_interleaved(
        {{[&] {
             Vec3f sum(0, 0, 0);
             constexpr unsigned int block = 512;
             SdsMeshGeometry::LimitPoint points[block];
             for (unsigned int first = 0; first < count; first += block) {
                 const unsigned int size = std::min(block, count - first);
                 subject.surface.geometry.compute_limit_points(&places[first], size, points);
                 for (unsigned int i = 0; i < size; ++i)
                     sum += points[i].position + points[i].du + points[i].dv + points[i].normal;
             }
             keep(sum[0] + sum[1] + sum[2]);
         }},
         {[&] {
             Vec3d sum(0, 0, 0);
             GeometrySample sample;
             for (const GeometryFragment& fragment : subject.fragments) {
                 subject.limit.compute_fragment_sample(subject.ctx, fragment, sample);
                 sum += sample.get_geometric_position() + sample.get_geometric_dpdu() + sample.get_geometric_dpdv() +
                        sample.get_geometric_normal();
             }
             keep(sum[0] + sum[1] + sum[2]);
         }},
         {[&] {
             Vec3f sum(0, 0, 0);
             for (const GeometryFragment& fragment : subject.fragments) {
                 const TheirSurface::Sample sample = theirs.evaluate(fragment.primitive, static_cast<float>(fragment.u),
                                                                     static_cast<float>(fragment.v));
                 sum += sample.position + sample.du + sample.dv;
             }
             keep(sum[0] + sum[1] + sum[2]);
         }}},
        session.get_budget(1.0), Clock::thread_cpu);
    Row row = make_rate_row("samples", "P, Du, Dv; ours with normal", subject.cage.name, "M/s", subject.get_amount(),
                            times[0], "OpenSubdiv", times[2]);
    // A place and a point; a quad, its record and its tangents' one, and its own and its neighbors' points.
    constexpr double bytes = 12 + 48 + 16 + 68 + 8 + 12 * (4 + 4 + 8);
    row.bytes = bytes;
    row.floor = Floor{subject.cage.name == "car" ? 3.5 : 3.0};
    session.report.add(row);
    row = make_rate_row("samples", "one by one, with curvature, double", subject.cage.name, "M/s", subject.get_amount(),
                        times[1], "OpenSubdiv", times[2]);
    row.bytes = bytes + sizeof(GeometrySample) - 48;
    row.floor = Floor{1.0};
    session.report.add(row);
}

void bench_lookups_of(Session& session, Subject& subject) {
    PolyMesh polygons;
    polygons.set_polygons(subject.cage.counts, subject.cage.indices, subject.cage.creases);
    PolyMeshProperty source(polygons, "position", PolyMeshProperty::Type::per_vertex, ResourceProperty::Type::float32,
                            3);
    ResourceProperty values;
    values.init(ResourceProperty::Type::float32, 3, subject.cage.get_vertex_count());
    for (unsigned int i = 0; i < subject.cage.get_vertex_count(); ++i)
        values.set_item_values(i, &subject.cage.positions[i][0], 3);
    source.set_values(GMathTimeSampling(), CoreArray<ResourceProperty>(1, values));
    SdsMeshProperty property(subject.limit, source);
    property.init(0, &values);

    const auto for_each = [&](auto&& body) {
        double sum = 0.0;
        for (const GeometryFragment& fragment : subject.fragments) sum += body(fragment);
        keep(sum);
    };
    const auto times =
        run_interleaved({{[&] {
                             for_each([&](const GeometryFragment& fragment) {
                                 Vec3f controls[16];
                                 subject.surface.geometry.get_bezier_controls(fragment.primitive, controls);
                                 return static_cast<double>(controls[5][0]);
                             });
                         }},
                         {[&] {
                             for_each([&](const GeometryFragment& fragment) {
                                 Vec3d uvw, du, dv;
                                 subject.limit.compute_fragment_uvw(subject.ctx, fragment, 0, uvw, du, dv);
                                 return uvw[0] + du[0] + dv[0];
                             });
                         }},
                         {[&] {
                             for_each([&](const GeometryFragment& fragment) {
                                 double p[3] = {}, du[3] = {}, dv[3] = {}, dw[3] = {};
                                 property.evaluate(subject.ctx, fragment, 0, p, du, dv, dw, 3);
                                 return p[0] + du[0] + dv[0];
                             });
                         }}},
                        session.get_budget(1.0), Clock::thread_cpu);
    const char* works[] = {"sixteen controls", "UV with derivatives", "vertex property, float32 x 3, derivatives"};
    for (size_t i = 0; i < times.size(); ++i)
        session.report.add(
            make_rate_row("samples", works[i], subject.cage.name, "M/s", subject.get_amount(), times[i]));
}

// A half-space through the middle: half the patches are plainly in or out, those along it are split.
void bench_frustum_of(Session& session, Subject& subject) {
    const GMathBbox3<double> box(subject.limit.get_bbox());
    GeometryFrustum frustum;
    frustum.side_count = 1;
    frustum.sides[0].normal = Vec3d(0.48, 0.6, 0.64);
    frustum.sides[0].offset = -frustum.sides[0].normal.dot(box.get_center());
    const SdsMesh mesh = subject.surface.make_mesh(3);
    const unsigned int quads = mesh.get_primitive_count();
    std::vector<Job> jobs;
    const int modes[] = {0, 1};
    unsigned int selected[] = {0, 0};
    for (const int& mode : modes)
        jobs.push_back({[&] {
            GeometryFrustumCtx ctx(&mode, &frustum);
            for (unsigned int q = 0; q < quads; ++q) mesh.intersect_primitive(subject.ctx, q, ctx);
            selected[mode] = ctx.selected_count;
        }});
    const auto times = run_interleaved(jobs, session.get_budget(0.6), Clock::thread_cpu);
    const char* works[] = {"frustum, touch, level 3", "frustum, inside, level 3"};
    for (size_t i = 0; i < times.size(); ++i)
        session.report.add(make_rate_row("samples", works[i], subject.cage.name, "Mpatches/s", 1e-6 * quads, times[i]));
    session.report.add(Check{"frustum on " + subject.cage.name, selected[1] <= selected[0] && selected[0] < quads,
                             std::to_string(selected[0]) + " touch, " + std::to_string(selected[1]) + " inside, of " +
                                 std::to_string(quads)});
}

}  // namespace

void bench_samples(Session& session) {
    std::vector<std::string> names{"car", "28k", "figure"};
    if (session.is_full) names.insert(names.end(), {"bishop", "1M"});
    for (const std::string& name : names)
        session.for_cage("samples", name, [&](const HostCage& cage) {
            run_alone([&] {
                Subject subject(cage, session.is_full ? 400000 : 100000);
                bench_samples_of(session, subject);
                bench_lookups_of(session, subject);
                bench_frustum_of(session, subject);
            });
        });
}

}  // namespace sds_bench
