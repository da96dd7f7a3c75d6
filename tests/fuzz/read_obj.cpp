#include "io/obj/read_obj.h"

#include <cmath>

#include "fuzz/byte_source.h"
#include "fuzz/targets.h"
#include "model/surface.h"

void sds_fuzz::read_obj_bytes(const std::uint8_t* data, std::size_t size) {
    using namespace sds_io;
    using namespace sds_model;
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const ReadObjResult read = read_obj_text(text, "fuzz.obj", {.max_corners = 4000});
    require(read.cage.has_value() != read.findings.has_errors());
    for (const Finding& finding : read.findings.get_entries()) require(!to_text(finding).empty());
    if (!read.cage) return;
    const ControlCage& cage = *read.cage;
    require(cage.get_polygon_offsets().back() == cage.get_corner_count());
    const Surface surface(cage, {}, {}, {}, nullptr);
    for (const GMathVec3<float>& p : surface.get_geometry().get_bezier_corners()) require(p.is_finite());
    for (const GMathVec3<float>& p : surface.get_geometry().get_bezier_tangents_array()) require(p.is_finite());
}
