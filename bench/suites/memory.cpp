// Bytes per quad, array by array.
#include "bench/support/figure_cage.h"
#include "bench/support/session.h"
#include "qn_ctx/ctx_eval.h"

namespace sds_bench {

namespace {

template <class T>
double bytes_of(const CoreBasicArray<T>& array) {
    return static_cast<double>(sizeof(T)) * array.get_count();
}

void bench_memory_of(Session& session, const HostCage& cage) {
    OurSurface surface;
    surface.build(cage);
    const SdsMeshBase& base = surface.base;
    const SdsMeshGeometry& geometry = surface.geometry;
    std::vector<std::pair<std::string, double>> arrays{
        {"base: quad indices", bytes_of(base.get_quad_indices())},
        {"base: shading groups", 4.0 * base.get_primitive_count()},
        {"base: vertex infos", bytes_of(base.get_vertex_infos())},
        {"base: opposite edges", bytes_of(base.get_edges().opposite_edges)},
        {"base: edge flags", bytes_of(base.get_edges().quad_edge_flags)},
        {"geometry: positions", bytes_of(geometry.get_vertices())},
        {"geometry: vertex infos", bytes_of(geometry.get_vertex_infos())},
        {"geometry: fans", bytes_of(geometry.get_local_topologies())},
        {"geometry: tangent infos", bytes_of(geometry.get_tangent_infos())},
        {"geometry: patches", bytes_of(geometry.get_bezier_patches())},
        {"geometry: limit corners", bytes_of(geometry.get_bezier_corners())},
        {"geometry: tangents", bytes_of(geometry.get_bezier_tangents_array())}};
    if (const SdsMeshBase::SubdivisionTopology* step = base.get_subdivision(); step != nullptr)
        arrays.emplace_back("base: subdivision step",
                            bytes_of(step->vertex_rings) + bytes_of(step->ring_edges) + bytes_of(step->quad_parents));
    const double scale = 1.0 / base.get_primitive_count();
    double total = 0.0;
    Table table{"Memory of " + cage.name + ", bytes per quad", {"array", "bytes"}, {}};
    for (const auto& [label, bytes] : arrays) {
        table.rows.push_back({label, to_text(scale * bytes)});
        total += bytes;
    }
    table.rows.push_back({"together", to_text(scale * total)});
    session.report.add(table);

    Row row{"memory", "all arrays, no maps; ratio is the bytes", cage.name, "B/quad", scale * total};
    row.ratio = row.ours;
    row.floor = Floor{400.0, true};
    session.report.add(row);
    const SdsMesh mesh = surface.make_mesh(3);
    CoreArray<GMathBbox3<double>> boxes(mesh.get_primitive_count());
    const CtxShader shader;
    for (unsigned int i = 0; i < boxes.get_count(); ++i) mesh.compute_primitive_bbox(CtxEval(shader), i, boxes[i]);
    if (const auto index = mesh.make_ray_index(boxes)) {
        Row traced{"memory", "the same and the mesh's own hierarchy, level 3; ratio is the bytes", cage.name, "B/quad",
                   scale * (total + static_cast<double>(index->get_memory_size()))};
        traced.ratio = traced.ours;
        traced.floor = Floor{2500.0, true};
        session.report.add(traced);
    }
    const double reported = static_cast<double>(base.get_memory_size() + geometry.get_memory_size());
    session.report.add(Check{"memory of " + cage.name + " as base and geometry report it",
                             reported > 0.95 * total && reported < 1.05 * total + 4096.0,
                             to_text(scale * reported) + " B per quad"});
}

// What the figure is like, which its rows rest on.
void check_figure(Session& session) {
    const CageFigures figures = measure_quads(make_figure_cage());
    session.report.add(Check{"the figure is a closed body with irregular vertices and quads of all sizes",
                             figures.is_closed && figures.quad_count > 5500 && figures.quad_count < 6500 &&
                                 figures.irregular_share > 0.17 && figures.irregular_share < 0.19 &&
                                 figures.edge_ratio > 35.0 && figures.edge_ratio < 45.0,
                             std::to_string(figures.quad_count) + " quads, " + to_text(100 * figures.irregular_share) +
                                 " % irregular, edges 1 to " + to_text(figures.edge_ratio)});
}

}  // namespace

void bench_memory(Session& session) {
    if (session.wants("memory/figure")) session.run_apart([&] { check_figure(session); });
    for (const char* name : {"car", "bishop", "28k", "figure"})
        session.for_cage("memory", name, [&](const HostCage& cage) { bench_memory_of(session, cage); });
}

}  // namespace sds_bench
