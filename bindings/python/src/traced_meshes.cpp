#include "traced_meshes.h"

#include <algorithm>

namespace sds_python {

TracedMesh::TracedMesh(const sds_model::Surface& surface, unsigned int at_level, const sds_render::Shutter& open)
    : level(at_level), shutter(open), mesh(surface.make_mesh(at_level)), scene(open) {
    scene.add(mesh);
    scene.commit();
}

std::shared_ptr<const TracedMesh> TracedMeshes::get(unsigned int level, sds_render::Shutter shutter) {
    if (!m_surface.get_geometry().is_animated()) shutter = {};
    const std::scoped_lock lock(m_mutex);
    const auto is_same = [&](const std::shared_ptr<const TracedMesh>& traced) {
        return traced->level == level && traced->shutter.open == shutter.open && traced->shutter.close == shutter.close;
    };
    if (const auto found = std::find_if(m_kept.begin(), m_kept.end(), is_same); found != m_kept.end()) {
        std::rotate(found, found + 1, m_kept.end());
        return m_kept.back();
    }
    if (m_kept.size() == max_kept) m_kept.erase(m_kept.begin());
    m_kept.push_back(std::make_shared<const TracedMesh>(m_surface, level, shutter));
    return m_kept.back();
}

}  // namespace sds_python
