#include "model/property_source.h"

#include "model/array_view.h"

namespace sds_model {

const char* to_name(PolyMeshProperty::Type kind) {
    switch (kind) {
        case PolyMeshProperty::Type::per_vertex:
            return "vertex";
        case PolyMeshProperty::Type::per_polygon:
            return "uniform";
        case PolyMeshProperty::Type::constant:
            return "constant";
        case PolyMeshProperty::Type::varying:
            return "varying";
    }
    return "unknown";
}

std::size_t PropertySource::get_memory_size() const {
    const std::size_t item_size = std::size_t{extent} * ResourceProperty::get_type_size(type);
    std::size_t bytes = indices.size() * sizeof(indices[0]) + times.size() * sizeof(times[0]);
    for (const ResourceProperty& sample : samples) bytes += sample.get_item_count() * item_size;
    return bytes;
}

PolyMeshProperty make_host_property(const PolyMesh& polygons, const PropertySource& source) {
    PolyMeshProperty property(polygons, CoreString(source.name), source.kind, source.type, source.extent);
    property.set_indices(view_of(source.indices));
    property.set_values(GMathTimeSampling(view_of(source.times)), view_of(source.samples));
    return property;
}

}  // namespace sds_model
