// The limit surface of a cube for the examples: the same four calls as in arrays_in_hits_out.cpp, kept in one place.
#pragma once

#include "qn_ctx/ctx_eval.h"
#include "sds/mesh/sds_mesh.h"

struct CubeSurface {
    CoreArray<GMathVec3<float>> positions;  // vertex i at x, y, z = +-1 by the bits 0, 1, 2 of i
    CoreArray<unsigned int> counts;         // corners per polygon
    CoreArray<unsigned int> indices;        // vertices of all polygons, one polygon after the other

    // They refer to each other: the surface stays where it was made.
    SdsMeshBase base;
    SdsMeshGeometry geometry;
    SdsMeshMaps maps;
    SdsMesh mesh;

    explicit CubeSurface(const CoreArray<GeometryUvMap>& uv_maps = {}) : positions(8), counts(6, 4) {
        for (unsigned int i = 0; i < 8; ++i)
            positions[i] = {i & 1 ? 1.0f : -1.0f, i & 2 ? 1.0f : -1.0f, i & 4 ? 1.0f : -1.0f};
        for (const unsigned int vertex :
             {0u, 2u, 3u, 1u, 4u, 5u, 7u, 6u, 0u, 1u, 5u, 4u, 2u, 6u, 7u, 3u, 0u, 4u, 6u, 2u, 1u, 3u, 7u, 5u})
            indices.add(vertex);
        const CoreArray<unsigned int> groups(6, 0);
        base.set(8, indices, counts, groups, CoreArray<CoreString>(1, "cube"), nullptr);
        geometry.set(base, positions, {}, SdsMeshGeometry::InterpolationMode::corners_fixed, nullptr);
        maps.set(base, counts, uv_maps, {}, SdsMeshMaps::InterpolationMode::corners_fixed, nullptr);
        mesh.set(geometry, maps, 0, nullptr);
    }
    CubeSurface(const CubeSurface&) = delete;
    CubeSurface& operator=(const CubeSurface&) = delete;
};
