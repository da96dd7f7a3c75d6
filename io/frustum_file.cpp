#include "io/frustum_file.h"

#include "io/input_error.h"
#include "io/json.h"
#include "io/read_file.h"

#include <cmath>
#include <nlohmann/json.hpp>

namespace sds_io {

namespace {

using Json = nlohmann::json;

GeometryPlane to_plane(const Json& value, const std::string& name, const std::string& place) {
    if (!value.is_array() || value.size() != 4) throw InputError(name, place + " is not [nx, ny, nz, d]");
    double numbers[4];
    for (std::size_t i = 0; i < 4; ++i) {
        if (!value[i].is_number()) throw InputError(name, place + " holds what is no number");
        numbers[i] = value[i].get<double>();
        if (!std::isfinite(numbers[i])) throw InputError(name, place + " holds a number beyond double precision");
    }
    return {{numbers[0], numbers[1], numbers[2]}, numbers[3]};
}

void set_sides(const Json& value, const std::string& name, GeometryFrustum& frustum) {
    if (!value.is_array() || value.size() > GeometryFrustum::max_side_count)
        throw InputError(name, "sides is not a list of up to four planes");
    for (const Json& side : value) {
        const std::string place = "side " + std::to_string(frustum.side_count + 1);
        frustum.sides[frustum.side_count++] = to_plane(side, name, place);
    }
}

}  // namespace

GeometryFrustum read_frustum_text(std::string_view text, const std::string& name) {
    const Json json = parse_json(text, name);
    if (!json.is_object()) throw InputError(name, "not an object with sides, near and far");
    GeometryFrustum frustum;
    for (const auto& [key, value] : json.items()) {
        if (key == "sides")
            set_sides(value, name, frustum);
        else if (key == "near")
            frustum.near_plane = to_plane(value, name, key);
        else if (key == "far")
            frustum.far_plane = to_plane(value, name, key);
        else
            throw InputError(name, "unknown key '" + key + "'; known are sides, near and far");
    }
    return frustum;
}

GeometryFrustum read_frustum(const std::string& path) {
    std::string text;
    if (const std::string reason = read_file(path, text); !reason.empty()) throw InputError(path, reason);
    return read_frustum_text(text, path);
}

}  // namespace sds_io
