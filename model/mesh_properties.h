#pragma once

#include "model/control_cage.h"
#include "model/property_source.h"
#include "render/surface_point.h"
#include "sds/mesh_property/sds_mesh_property.h"

#include <deque>
#include <string>
#include <vector>

namespace sds_model {

/// A property of a cage, read on its surface. Stays at its address; evaluation is safe from any number of threads.
class SurfaceProperty {
public:
    /// Binds and prepares every sample. Both meshes outlive the property; the caller binds the cage's creases.
    SurfaceProperty(const PolyMesh& polygons, const SdsMesh& mesh, const PropertySource& source);
    SurfaceProperty(const SurfaceProperty&) = delete;
    SurfaceProperty& operator=(const SurfaceProperty&) = delete;

    const std::string& get_name() const { return m_name; }
    unsigned int get_extent() const { return m_property.get_value_extent(); }
    const SdsMeshProperty& get_property() const { return m_property; }
    /// On the cage.
    const PolyMeshProperty& get_source() const { return m_source; }

    /// get_extent() numbers each: the value at the fragment and its time, blended between samples, and its derivatives
    /// per patch parameter, which may be null.
    void evaluate(const CtxEval& ctx, const GeometryFragment& fragment, double* value, double* du, double* dv) const;

private:
    std::string m_name;
    PolyMeshProperty m_source;
    SdsMeshProperty m_property;
};

/// The properties of a cage on a mesh of its surface, which outlives them.
class MeshProperties {
public:
    MeshProperties(const std::vector<PropertySource>& sources, const ControlCage& cage, const SdsMesh& mesh);

    const std::deque<SurfaceProperty>& get_all() const { return m_properties; }
    /// Throws std::invalid_argument, with the known names, when there is none of that name.
    const SurfaceProperty& find(const std::string& name) const;

private:
    PolyMesh m_polygons;
    std::deque<SurfaceProperty> m_properties;
};

/// A layer with the property's name, up to four numbers of which the layer shows all; 0 beside the surface. Throws
/// std::invalid_argument for a longer extent. The property outlives the layer.
sds_render::Layer make_property_layer(const SurfaceProperty& property);

}  // namespace sds_model
