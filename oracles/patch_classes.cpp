#include "oracles/patch_classes.h"

#include <algorithm>

namespace sds_test {

PatchClasses classify_patches(const SdsMeshBase::TopologyContext& context,
                              const std::vector<unsigned char>& exceptions) {
    const auto& indices = *context.quad_indices;
    const auto& infos = *context.vertex_infos;
    const unsigned int quad_count = indices.get_count() / 4;
    PatchClasses classes;
    classes.regular.assign(quad_count, 0);
    classes.interior.assign(quad_count, 0);
    classes.near_dart.assign(infos.get_count(), 0);

    const auto any_corner = [&](unsigned int q, const auto& test) {
        return test(4 * q) || test(4 * q + 1) || test(4 * q + 2) || test(4 * q + 3);
    };
    const auto is_mapped = [&](unsigned int e) { return indices[e] != sds::none; };
    const auto is_dart = [&](unsigned int e) {
        if (!is_mapped(e)) return false;
        const unsigned int v = indices[e];
        return infos[v].get_sharp_edge_count() == 1 || (v < exceptions.size() && exceptions[v] != 0);
    };
    for (unsigned int q = 0; q < quad_count; ++q)
        if (any_corner(q, is_dart))
            for (unsigned int k = 0; k < 4; ++k)
                if (is_mapped(4 * q + k)) classes.near_dart[indices[4 * q + k]] = 1;

    const auto is_closed = [&](unsigned int e) {
        const SdsMeshBase::VertexLocalTopology& fan = context.local_topologies[e];
        return fan.closed && fan.valence == 4 && infos[indices[e]].get_sharp_edge_count() == 0 &&
               !infos[indices[e]].is_kept();
    };
    const auto is_regular = [&](unsigned int e) {
        const SdsMeshBase::VertexLocalTopology& fan = context.local_topologies[e];
        const SdsMeshBase::VertexInfo info = infos[indices[e]];
        if (fan.closed) return is_closed(e);
        if (fan.valence == 2) return info.get_sharp_edge_count() == 2 && !info.is_kept();
        return fan.valence == 1 && (info.is_kept() || info.get_sharp_edge_count() == 3);
    };
    for (unsigned int q = 0; q < quad_count; ++q) {
        if (any_corner(q, [&](unsigned int e) { return !is_mapped(e) || classes.near_dart[indices[e]] != 0; }))
            continue;
        classes.regular[q] = any_corner(q, [&](unsigned int e) { return !is_regular(e); }) ? 0 : 1;
        classes.interior[q] = any_corner(q, [&](unsigned int e) { return !is_closed(e); }) ? 0 : 1;
    }
    return classes;
}

}  // namespace sds_test
