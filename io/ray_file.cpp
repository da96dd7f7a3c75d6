#include "io/ray_file.h"

#include "io/input_error.h"
#include "io/npy.h"
#include "io/obj/obj_cursor.h"
#include "model/array_size.h"
#include "render/batch.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>

namespace sds_io {

namespace {

constexpr std::size_t bare_row = 6, still_row = 8, moving_row = 9;

bool is_row_size(std::size_t size) { return size == bare_row || size == still_row || size == moving_row; }

/// `size` numbers of a row.
GeometryRay make_ray(const double* row, std::size_t size) {
    GeometryRay ray;
    ray.origin = {row[0], row[1], row[2]};
    ray.direction = {row[3], row[4], row[5]};
    ray.tnear = size > bare_row ? row[6] : 0.0;
    ray.tfar = size > bare_row ? row[7] : std::numeric_limits<double>::infinity();
    if (size == moving_row) ray.time = row[8];
    return ray;
}

void add_ray(const GeometryRay& ray, RayFile& file) {
    if (!sds_render::is_traceable(ray) && file.idle_count++ == 0) file.first_idle = file.rays.size();
    file.rays.push_back(ray);
}

/// Numbers between blanks and commas, a ray a line; '#' begins a comment.
RayFile read_lines(const std::string& path, std::string& text) {
    for (char& c : text)
        if (c == ',' || c == ';') c = ' ';
    RayFile file;
    ObjCursor cursor(text);
    for (std::size_t size = 0; cursor.next_record();) {
        const std::string place = path + ":" + std::to_string(cursor.get_line());
        double row[moving_row];
        std::size_t count = 0;
        for (std::string_view token = cursor.next_token(); !token.empty(); token = cursor.next_token(), ++count) {
            const std::string_view number = token.substr(token.starts_with('+') ? 1 : 0);
            double value = 0.0;
            const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), value);
            if (end != number.data() + number.size() || error != std::errc{})
                throw InputError(place, quoted(token) + " is no number; rays are an .npy or lines of numbers");
            if (count < moving_row) row[count] = value;
        }
        if (!is_row_size(count) || (size != 0 && count != size))
            throw InputError(place, std::to_string(count) + " numbers; rays are lines of " +
                                        (size != 0 ? std::to_string(size) + ", as before" : "6, 8 or 9"));
        size = count;
        add_ray(make_ray(row, count), file);
    }
    if (file.rays.empty()) throw InputError(path, "no rays");
    return file;
}

RayFile to_rays(const std::string& path, const std::vector<std::size_t>& shape, const auto& values) {
    if (shape.size() != 2 || !is_row_size(shape[1]))
        throw InputError(path, "shape " + to_text(shape) + ", rays are rows of 6, 8 or 9 numbers");
    RayFile file;
    file.rays.reserve(shape[0]);
    for (std::size_t i = 0; i < shape[0]; ++i) {
        double row[moving_row];
        std::copy_n(values.data() + i * shape[1], shape[1], row);
        add_ray(make_ray(row, shape[1]), file);
    }
    return file;
}

}  // namespace

RayFile read_rays(const std::string& path, std::size_t limit) {
    std::ifstream in(path == "-" ? "/dev/stdin" : path, std::ios::binary);
    if (!in) throw InputError(path, std::strerror(errno));
    constexpr int first_of_npy = 0x93;
    if (in.peek() != first_of_npy) {
        std::string text{std::istreambuf_iterator<char>(in), {}};
        if (in.bad()) throw InputError(path, "read error");
        return read_lines(path, text);
    }
    const NpyArray array = read_npy(in, path, [&](std::size_t count, std::size_t element_size) {
        const std::size_t per_number = sizeof(GeometryRay) / still_row;
        check_memory_limit(path, get_array_size(count, element_size + per_number), limit);
    });
    if (const auto* doubles = std::get_if<std::vector<double>>(&array.values))
        return to_rays(path, array.shape, *doubles);
    if (const auto* floats = std::get_if<std::vector<float>>(&array.values)) return to_rays(path, array.shape, *floats);
    throw InputError(path, "rays are float64 or float32");
}

}  // namespace sds_io
