#pragma once

#include "model/control_cage.h"
#include "model/creases.h"
#include "model/finding.h"
#include "qn_poly/poly_check.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sds_io {

using namespace sds_model;

struct ReadObjOptions {
    /// `exact` hardens where the surface is not to be refined.
    FractionalSharpness fractional = FractionalSharpness::harden;
    /// Whether the cage keeps what only refined surfaces follow: sharp vertices, holes, open borders and the like.
    bool is_refined = false;
    /// Most face-corners, vertices and UV points accepted.
    std::uint32_t max_corners = poly_max_elements;
};

struct ReadObjResult {
    std::optional<ControlCage> cage;  ///< empty exactly when findings.has_errors()
    Findings findings;
    std::vector<std::uint32_t> polygon_lines;     ///< line of every polygon of the cage, for later messages
    std::vector<std::string> material_libraries;  ///< `mtllib` files as the cage names them, relative to its folder
};

/// Reads a polygon mesh from an OBJ file. Never throws on bad input: what is wrong is in the findings, each with its
/// first line.
///
/// Read are `v` (x y z, weight ignored, or x y z r g b with colors in 0..1), `vt` (u [v [w]]), `f` (n-gons; v, v/t,
/// v//n, v/t/n; relative indices), `usemtl` and `g`, `mtllib` by name, and the subdivision tags `t NAME
/// INTS/FLOATS/STRINGS ...`. Normals, smoothing groups and objects have no bearing on a control mesh; a note names what
/// was skipped. What is odd in a record and leaves its meaning sound costs a warning, not the file.
///
/// Shading groups are the materials when the file names any, else the `g` groups (a list of names is one group), else
/// "default". Names are UTF-8; others are read as Latin-1.
///
/// `t crease N/M/0 V0 .. V(N-1) S ..` marks the chain of edges V0-V1-.. (0-based, in the order of the `v` records) with
/// one sharpness for all or one each. A sharpness of 10 and above, or inf, is a crease; 0 and below none; between, see
/// ReadObjOptions. The last tag on an edge counts. `t corner N/M/0 V .. S ..` makes vertices sharp, likewise, and `t
/// hole N/0/0 F ..` polygons holes (0-based, in the order of the `f` records). `t interpolateboundary 1/0/0 B` is the
/// border rule: 0 none, 1 edges and corners, 2 edges only; `t creasemethod 0/0/1 chaikin` and `t smoothtriangles 0/0/1
/// smooth` name the rules of fractional sharpness and of triangles.
///
/// The tokenizer is our own: a general loader accepts indices out of range, two-corner polygons and NaN, and forgets
/// line numbers, which every finding here needs. Time and memory are linear in the file, a pole of any valence
/// included. The file may be gzipped.
ReadObjResult read_obj(const std::string& path, const ReadObjOptions& options = {});

/// The same for text in memory; `name` stands for the file in messages.
ReadObjResult read_obj_text(std::string_view text, const std::string& name, const ReadObjOptions& options = {});

}  // namespace sds_io
