// Meshes with their ray-tracing hierarchies, made when first asked for.
#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "model/surface.h"
#include "render/batch.h"

namespace sds_python {

struct TracedMesh {
    TracedMesh(const sds_model::Surface& surface, unsigned int level, const sds_render::Shutter& shutter);

    unsigned int level;
    sds_render::Shutter shutter;
    SdsMesh mesh;
    sds_render::Scene scene;
};

/// Keeps the latest few of one surface, which outlives it. Any number of threads.
class TracedMeshes {
public:
    explicit TracedMeshes(const sds_model::Surface& surface) : m_surface(surface) {}

    /// At a level, 0 for the limit, for rays within a shutter. Throws what building a scene throws.
    std::shared_ptr<const TracedMesh> get(unsigned int level, sds_render::Shutter shutter);

private:
    static constexpr std::size_t max_kept = 4;

    const sds_model::Surface& m_surface;
    std::mutex m_mutex;
    std::vector<std::shared_ptr<const TracedMesh>> m_kept;  // the latest last
};

}  // namespace sds_python
