#include <algorithm>

#include "fuzz/byte_source.h"
#include "fuzz/targets.h"
#include "io/frustum_file.h"
#include "io/input_error.h"
#include "io/obj/read_obj.h"
#include "model/quad_places.h"
#include "model/surface.h"

namespace {

using namespace sds_model;

/// A bent sheet of two quads.
const Surface& get_sheet() {
    static const Surface sheet(
        *sds_io::read_obj_text("v 0 0 0\nv 1 0 0\nv 2 0 1\nv 0 1 0\nv 1 1 1\nv 2 1 0\nf 1 2 5 4\nf 2 3 6 5\n", "", {})
             .cage,
        {}, {}, {}, nullptr);
    return sheet;
}

}  // namespace

void sds_fuzz::read_frustum_bytes(const std::uint8_t* data, std::size_t size) {
    using namespace sds_io;
    try {
        const GeometryFrustum frustum = read_frustum_text({reinterpret_cast<const char*>(data), size}, "fuzz.json");
        require(frustum.side_count <= GeometryFrustum::max_side_count);
        const SdsMesh mesh = get_sheet().make_mesh(0);
        const auto touched = select_quads(mesh, frustum, sds_render::SelectMode::touch);
        const auto inside = select_quads(mesh, frustum, sds_render::SelectMode::inside);
        require(std::is_sorted(touched.begin(), touched.end()) && (touched.empty() || touched.back() < 2));
        require(std::includes(touched.begin(), touched.end(), inside.begin(), inside.end()));
    } catch (const InputError&) {
    }
}
