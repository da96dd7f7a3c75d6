// The loader's entry point.
#include "qn_module/module_loader.h"
#include "sds/bezier_mesh/sds_bezier_mesh.h"
#include "sds/common/sds_export.h"
#include "sds/mesh/sds_mesh.h"
#include "sds/mesh_property/sds_mesh_property.h"

extern "C" SDS_EXPORT bool qn_module_register();

// Registers every class of the module. The name is the one that the loader looks up.
extern "C" bool qn_module_register() {
    SdsMeshBase::class_info();
    SdsBezierMesh::class_info();
    SdsMeshGeometry::class_info();
    SdsMeshMaps::class_info();
    SdsMesh::class_info();
    SdsMeshProperty::class_info();
    return true;
}
