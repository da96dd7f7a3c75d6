#include "traced_meshes.h"

#include <algorithm>

namespace sds_python {

TracedMesh::TracedMesh(const sds_model::Surface& surface, unsigned int at_level, const sds_render::Shutter& open)
    : level(at_level), shutter(open), mesh(surface.mesh(at_level)), scene(open) {
    scene.add(mesh);
    scene.commit();
}

std::shared_ptr<const TracedMesh> TracedMeshes::get(unsigned int level, sds_render::Shutter shutter) {
    if (!surface_.geometry().is_animated()) shutter = {};
    const std::scoped_lock lock(mutex_);
    const auto is_same = [&](const std::shared_ptr<const TracedMesh>& traced) {
        return traced->level == level && traced->shutter.open == shutter.open && traced->shutter.close == shutter.close;
    };
    if (const auto found = std::find_if(kept_.begin(), kept_.end(), is_same); found != kept_.end()) {
        std::rotate(found, found + 1, kept_.end());
        return kept_.back();
    }
    if (kept_.size() == max_kept) kept_.erase(kept_.begin());
    kept_.push_back(std::make_shared<const TracedMesh>(surface_, level, shutter));
    return kept_.back();
}

}  // namespace sds_python
