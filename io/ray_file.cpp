#include "io/ray_file.h"

#include "io/input_error.h"
#include "io/npy.h"
#include "render/batch.h"

namespace sds_io {

namespace {

constexpr std::size_t still_row = 8, moving_row = 9;

}  // namespace

RayFile read_rays(const std::string& path) {
    const NpyArray array = read_npy(path);
    const auto* values = std::get_if<std::vector<double>>(&array.values);
    if (values == nullptr) throw InputError(path, "rays are float64");
    if (array.shape.size() != 2 || (array.shape[1] != still_row && array.shape[1] != moving_row))
        throw InputError(path, "shape " + to_text(array.shape) + ", rays are rows of 8 or 9 numbers");
    RayFile file;
    const std::size_t row_size = array.shape[1];
    file.rays.resize(array.shape[0]);
    for (std::size_t i = 0; i < file.rays.size(); ++i) {
        const double* row = values->data() + i * row_size;
        GeometryRay& ray = file.rays[i];
        ray.origin = {row[0], row[1], row[2]};
        ray.direction = {row[3], row[4], row[5]};
        ray.tnear = row[6];
        ray.tfar = row[7];
        if (row_size == moving_row) ray.time = row[8];
        if (!sds_render::is_traceable(ray) && file.idle_count++ == 0) file.first_idle = i;
    }
    return file;
}

}  // namespace sds_io
