// A cage that turns and bends while time goes from 0 to 1, taken through the whole build.
#pragma once

#include "oracles/built_surface.h"

namespace sds_test {

enum class CageMotion {
    vectors,         // straight from the first pose to the last
    even_samples,    // four poses
    uneven_samples,  // five poses, two of them close together
};
inline constexpr CageMotion all_cage_motions[] = {CageMotion::vectors, CageMotion::even_samples,
                                                  CageMotion::uneven_samples};
const char* name_of(CageMotion motion);

// The cage's positions at a share of the way; 0 is the cage itself.
std::vector<Vec3f> pose_at(const ZooMesh& cage, double share);

class MovingSurface {
public:
    // The cage outlives this.
    MovingSurface(const ZooMesh& cage, CageMotion motion, unsigned int level, unsigned int depth = 0);

    const SdsMesh& get_mesh() const { return m_surface.mesh; }
    // Patches of the surface.
    unsigned int get_quad_count() const { return m_surface.geometry.get_patch_count(); }

private:
    BuiltSurface m_surface;
};

}  // namespace sds_test
