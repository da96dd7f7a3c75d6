// Per-vertex properties on refined surfaces.
#include <algorithm>

#include "sds/mesh_base/control_opposites.h"
#include "sds/mesh_property/refined_values.h"
#include "sds/mesh_property/sds_mesh_property.h"
#include "sds/refinement/refined_chart.h"

using Mode = SdsMeshGeometry::InterpolationMode;
using Vec3f = GMathVec3<float>;

namespace {

// Three numbers of every item as a point, for an error that decides the depth.
CoreArray<Vec3f> to_points(const ResourceProperty& values) {
    CoreArray<Vec3f> points(values.get_item_count(), Vec3f(0, 0, 0));
    const unsigned int extent = values.get_min_item_length();
    sds::with_element(values.get_type(), [&](auto element) {
        const sds::ComponentAccess<decltype(element)> access(values, 0, extent);
        for (unsigned int i = 0; i < points.get_count(); ++i) {
            const sds::Components item = access.get(i);
            points[i] = Vec3f(GMathVec3<double>(item.c[0], item.c[1], item.c[2]));
        }
    });
    return points;
}

}  // namespace

bool SdsMeshProperty::is_refined() const {
    return source->get_type() == PolyMeshProperty::Type::per_vertex && mesh->get_geometry()->is_refined() &&
           mesh->get_base()->get_control_cage()->refinement.refine_maps;
}

void SdsMeshProperty::init_levels(const ResourceProperty& values) {
    if (levels.topology) return;
    if (!source->has_indices()) {
        levels.topology = mesh->get_geometry()->get_refined_levels();
    } else {
        const SdsMeshBase& base = *mesh->get_base();
        const CoreArray<unsigned int> opposites =
            sds::control_opposites(indices, topology->edges, base.get_base_tessellation_level());
        unsigned int value_count = values.get_item_count();
        for (const unsigned int i : source->get_indices())
            if (i != sds::none) value_count = std::max(value_count, i + 1);
        const Mode mode = mesh->get_geometry()->get_interpolation_mode();
        auto refined = std::make_shared<sds::RefinedTopology>();
        sds::refine_chart({*base.get_control_cage(), value_count, source->get_indices(), opposites},
                          mode == Mode::corners_fixed   ? sds::BorderRule::edge_and_corner
                          : mode == Mode::borders_fixed ? sds::BorderRule::fixed
                                                        : sds::BorderRule::edge_only,
                          {}, to_points(values), *refined);
        levels.topology = std::move(refined);
    }
    levels.places = std::make_shared<const sds::PatchPlaces>(levels.topology->get_places());
}

void SdsMeshProperty::init_refined(Sample& entry, const ResourceProperty& values) {
    init_levels(values);
    sds::with_element(values.get_type(), [&](auto element) {
        auto refined = std::make_shared<sds::RefinedValues>();
        refined->build<decltype(element)>(*levels.topology, levels.places, values);
        entry.refined = std::move(refined);
    });
    const auto is_ready = [](const Sample& sample) { return sample.refined != nullptr; };
    if (std::all_of(samples.begin(), samples.end(), is_ready)) levels = {};
}
