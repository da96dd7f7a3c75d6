// The cages that are measured, by name:
//
//   car, bishop, cube             small ones, two with creases, read from ../shared/meshes (or the folder in QN_MESHES)
//   knot                          assets/knot.obj
//   figure                        a body with limbs and irregular vertices: figure_cage.h
//   10k, 28k, 100k, 1M, 10M       assets/body.obj with every quad cut into n x n on its limit surface: nearly flat
//                                 quads, closed, a few vertices of valence 3 and 5
#pragma once

#include <map>
#include <memory>
#include <string>

#include "bench/support/our_surface.h"

namespace sds_bench {

class CageStore {
public:
    // Null when there is no such cage here. Made on first use and kept.
    const HostCage* find(const std::string& name);
    // Frees a cage that is not needed any more.
    void drop(const std::string& name) { m_cages.erase(name); }

private:
    std::map<std::string, std::unique_ptr<HostCage>> m_cages;
};

// Cuts every quad of a cage of quads into n x n. New vertices lie on the limit surface; creases stay creases.
sds_model::ControlCage cut_quads(const HostCage& cage, unsigned int n);

}  // namespace sds_bench
