// What the page's worker calls: plain C over one session, for one thread. Texts and arrays that a call returns stand in
// the session's memory until the next call. Reports are JSON: {"error": ...} where a call could not be followed.
#include "model/tessellate.h"
#include "web/src/session.h"
#include "web/src/statistics.h"

#include <cstdlib>
#include <new>
#include <stdexcept>

#ifdef __EMSCRIPTEN__
#include <emscripten/emscripten.h>
#define PAGE_EXPORT extern "C" EMSCRIPTEN_KEEPALIVE
#else
#define PAGE_EXPORT extern "C" __attribute__((visibility("default")))
#endif

namespace {

using namespace sds_page;

Session& session() {
    static Session only;
    return only;
}

std::string& report() {
    static std::string text;
    return text;
}

sds_model::Tessellation& tessellation() {
    static sds_model::Tessellation last;
    return last;
}

/// Runs a call; what it throws becomes its report.
template <class Work>
const char* run(const Work& work) {
    JsonText json;
    std::string problem;
    try {
        work(json);
        return (report() = json.get_text()).c_str();
    } catch (const std::bad_alloc&) {
        problem = "there is not enough memory for this cage";
    } catch (const std::exception& error) {
        problem = error.what();
    }
    JsonText refusal;
    refusal.open('{');
    refusal.put("error", problem);
    refusal.close('}');
    return (report() = refusal.get_text()).c_str();
}

template <class T>
void put_array(std::string_view name, const std::vector<T>& values, JsonText& json) {
    json.name(name);
    json.open('[');
    json.put(reinterpret_cast<std::uintptr_t>(values.data()));
    json.put(values.size());
    json.close(']');
}

}  // namespace

/// Takes a cage: {"loaded": bool, "notes": [...]}. `text` comes from malloc and is freed here; format 0 is OBJ, 1 usda.
PAGE_EXPORT const char* page_load(char* text, unsigned int size, int format) {
    return run([&](JsonText& json) {
        std::string owned(text, size);
        std::free(text);
        std::vector<Note> notes;
        const bool is_loaded =
            session().load(std::move(owned), format == 1 ? CageFormat::usda : CageFormat::obj, notes);
        json.open('{');
        json.put("loaded", is_loaded);
        json.name("notes");
        put_notes(notes, json);
        json.close('}');
    });
}

/// Builds the surface: {"statistics": {...}, "notes": [...], "cells": n, and the arrays of the grid and the cage as
/// [address, count]}. `mode` is an interpolation mode or -1 for the file's rule; a negative sharpness is the file's.
PAGE_EXPORT const char* page_build(int mode, unsigned int depth, unsigned int level, float sharpness) {
    return run([&](JsonText& json) {
        Settings settings;
        settings.follows_file = mode < 0;
        if (mode >= 0) settings.positions = static_cast<SdsMeshGeometry::InterpolationMode>(mode);
        settings.depth = depth;
        settings.level = level;
        if (sharpness >= 0.0f) settings.sharpness = sharpness;
        session().build(settings);
        if (session().get_surface() == nullptr) throw std::runtime_error("there is no cage");
        const SurfaceGrid& grid = session().get_grid();
        json.open('{');
        json.name("statistics");
        put_statistics(session(), json);
        json.name("notes");
        put_notes(session().get_notes(), json);
        json.put("cells", grid.get_cells());
        put_array("positions", grid.positions, json);
        put_array("normals", grid.normals, json);
        put_array("uvs", grid.uvs, json);
        put_array("curvatures", grid.curvatures, json);
        put_array("patches", grid.patches, json);
        put_array("cage", session().get_positions(), json);
        put_array("edges", session().get_edges(), json);
        json.close('}');
    });
}

/// Moves a vertex: {"quads": [address, count]} of what changed in the grid's arrays, which stay where they are.
PAGE_EXPORT const char* page_move(unsigned int vertex, float x, float y, float z) {
    return run([&](JsonText& json) {
        const std::vector<std::uint32_t>& quads = session().move_vertex(vertex, {x, y, z});
        json.open('{');
        put_array("quads", quads, json);
        json.close('}');
    });
}

/// {"hit": null} or {"hit": {"quad", "u", "v", "t", "sample": fifteen numbers}}.
PAGE_EXPORT const char* page_intersect(double ox, double oy, double oz, double dx, double dy, double dz) {
    return run([&](JsonText& json) {
        const std::optional<Hit> hit = session().intersect({ox, oy, oz}, {dx, dy, dz});
        json.open('{');
        json.name("hit");
        if (!hit) {
            json.put_null();
        } else {
            json.open('{');
            json.put("quad", hit->quad);
            json.put("u", hit->u);
            json.put("v", hit->v);
            json.put("t", hit->t);
            json.name("sample");
            json.open('[');
            for (const double value : hit->sample) json.put(value);
            json.close(']');
            json.close('}');
        }
        json.close('}');
    });
}

/// The cells of a level from 1 on as polygons: {"positions", "indices", "uvs", "uv_indices"}, quads all of them.
PAGE_EXPORT const char* page_tessellate(unsigned int level) {
    return run([&](JsonText& json) {
        if (session().get_surface() == nullptr) throw std::runtime_error("there is no cage");
        tessellation() = sds_model::tessellate(*session().get_surface(), level, 0.0, 0);
        json.open('{');
        put_array("positions", tessellation().positions, json);
        put_array("indices", tessellation().polygon_indices, json);
        put_array("uvs", tessellation().uv_points, json);
        put_array("uv_indices", tessellation().uv_indices, json);
        json.close('}');
    });
}
