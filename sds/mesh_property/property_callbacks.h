// The evaluate callbacks of a kind of property and a type of element.
#pragma once

#include "qn_geometry/geometry_property.h"
#include "qn_poly/poly_mesh_property.h"

namespace sds {

struct PropertyCallbacks {
    GeometryProperty::IntegerCallback integer = nullptr;
    GeometryProperty::RealCallback real = nullptr;
};

// Null callbacks for an unknown kind or type.
PropertyCallbacks find_property_callbacks(PolyMeshProperty::Type kind, ResourceProperty::Type type);

}  // namespace sds
