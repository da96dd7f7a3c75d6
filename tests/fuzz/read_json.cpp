#include "fuzz/byte_source.h"
#include "fuzz/targets.h"
#include "io/input_error.h"
#include "io/property_file.h"

namespace {

sds_model::ControlCage two_quads() {
    sds_model::ControlCage cage;
    cage.positions.assign(18, 0.5f);
    cage.polygon_counts = {4, 4};
    cage.polygon_indices = {0, 1, 4, 3, 1, 2, 5, 4};
    return cage;
}

}  // namespace

void sds_fuzz::read_json_bytes(const std::uint8_t* data, std::size_t size) {
    using namespace sds_io;
    using namespace sds_model;
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    // Other files are not the text's to name here.
    if (text.find("npy") != std::string_view::npos) return;
    static const ControlCage cage = two_quads();
    try {
        for (const PropertySource& source : read_properties_text(text, "fuzz.json", cage)) {
            require(source.samples.size() == std::max<std::size_t>(source.times.size(), 1));
            for (const std::uint32_t index : source.indices) require(index < source.get_item_count());
        }
    } catch (const InputError&) {
    }
}
