#include "web/src/statistics.h"

#include "model/surface_statistics.h"
#include "qn_ctx/ctx_eval.h"

#include <algorithm>

namespace sds_page {

namespace {

using namespace sds_model;

void put_point(std::string_view name, const GMathVec3<double>& p, JsonText& json) {
    json.name(name);
    json.open('[');
    for (unsigned int c = 0; c < 3; ++c) json.put(p[c]);
    json.close(']');
}

template <class Map>
void put_counts(std::string_view name, const Map& counts, JsonText& json) {
    json.name(name);
    json.open('{');
    for (const auto& [key, count] : counts) json.put(std::to_string(key), count);
    json.close('}');
}

void put_classes(const Surface& surface, JsonText& json) {
    const VertexClasses vertices = classify_vertices(surface);
    json.name("vertices");
    json.open('{');
    json.put("smooth", vertices.smooth);
    json.put("dart", vertices.dart);
    json.put("crease", vertices.crease);
    json.put("corner", vertices.corner);
    json.put("border", vertices.border);
    json.close('}');
    const PatchClasses patches = classify_patches(surface);
    json.name("patches");
    json.open('{');
    json.put("regular", patches.regular);
    json.put("boundary", patches.boundary);
    json.put("irregular", patches.irregular);
    json.close('}');
    const RefinementStatistics refined = refinement_statistics(surface);
    json.name("isolation");
    json.open('{');
    json.put("depth", refined.depth);
    json.put("patches", refined.patches);
    json.put("leaves", refined.leaves);
    put_counts("levels", refined.patch_levels, json);
    json.close('}');
    put_counts("valences", valence_histogram(surface.get_base()), json);
}

void put_time(const Surface& surface, JsonText& json) {
    json.put("build_seconds", surface.get_build_seconds());
    json.name("stages");
    json.open('{');
    for (const Stage& stage : surface.get_stages())
        if (stage.depth == 0) json.put(stage.label, stage.seconds);
    json.close('}');
}

}  // namespace

void put_statistics(const Session& session, JsonText& json) {
    const Surface& surface = *session.get_surface();
    const ControlCage& cage = *session.get_cage();
    const SdsMesh mesh = surface.make_mesh(0);
    const CtxShader shader;
    json.open('{');
    json.put("polygons", cage.get_polygon_count());
    json.put("control_vertices", cage.get_vertex_count());
    json.put("quads", surface.get_base().get_primitive_count());
    json.put("subdivision_step", surface.get_base().get_base_tessellation_level());
    put_classes(surface, json);
    json.name("bbox");
    json.open('{');
    put_point("min", mesh.get_bbox().get_min(), json);
    put_point("max", mesh.get_bbox().get_max(), json);
    json.close('}');
    json.put("area", mesh.estimate_area(CtxEval(shader), {}));
    json.put("uv_maps", surface.get_maps().get_uv_map_count());
    const auto is_sharp = [](const CageEdge& edge) { return edge.sharpness > 0.0f; };
    json.put("crease_edges", std::count_if(session.get_edges().begin(), session.get_edges().end(), is_sharp));
    json.put("bytes", surface.get_base().get_memory_size() + surface.get_geometry().get_memory_size() +
                          surface.get_maps().get_memory_size() + mesh.get_memory_size());
    put_time(surface, json);
    json.close('}');
}

void put_notes(const std::vector<Note>& notes, JsonText& json) {
    json.open('[');
    for (const Note& note : notes) {
        json.open('{');
        json.put("severity", to_name(note.severity));
        json.put("place", note.place);
        json.put("sentence", note.sentence);
        json.close('}');
    }
    json.close(']');
}

}  // namespace sds_page
