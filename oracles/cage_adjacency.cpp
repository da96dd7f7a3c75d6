#include <algorithm>
#include <limits>
#include <map>

#include "oracles/mesh_zoo.h"

namespace sds_test {

CageAdjacency::CageAdjacency(const ZooMesh& mesh) {
    const auto corner_count = static_cast<unsigned int>(mesh.indices.size());
    start = mesh.indices;
    end.resize(corner_count);
    next.resize(corner_count);
    previous.resize(corner_count);
    polygon.resize(corner_count);
    unsigned int first = 0;
    for (unsigned int p = 0; p < mesh.counts.size(); ++p) {
        for (unsigned int i = 0; i < mesh.counts[p]; ++i) {
            const unsigned int c = first + i;
            next[c] = first + (i + 1) % mesh.counts[p];
            previous[next[c]] = c;
            end[c] = start[next[c]];
            polygon[c] = p;
        }
        first += mesh.counts[p];
    }

    std::map<std::pair<unsigned int, unsigned int>, std::vector<unsigned int>> by_edge;
    const auto key = [this](unsigned int c) { return std::minmax({start[c], end[c]}); };
    for (unsigned int c = 0; c < corner_count; ++c) by_edge[key(c)].push_back(c);
    sides.resize(corner_count);
    is_crease.assign(corner_count, 0);
    for (const auto& [edge, corners] : by_edge) {
        const bool sharp =
            !mesh.corner_creases.empty() &&
            std::any_of(corners.begin(), corners.end(), [&](unsigned int c) { return mesh.corner_creases[c] != 0; });
        for (const unsigned int c : corners) {
            sides[c] = corners;
            is_crease[c] = sharp ? 1 : 0;
        }
    }
}

std::vector<unsigned int> count_fans(const CageAdjacency& cage, size_t vertex_count) {
    // Union of the face-corners at each vertex across shared edges: one set per fan. A polygon with the vertex twice in
    // a row counts once.
    const auto corner_count = static_cast<unsigned int>(cage.start.size());
    std::vector<unsigned int> fan(corner_count);
    for (unsigned int c = 0; c < corner_count; ++c) fan[c] = c;
    const auto root = [&fan](unsigned int c) {
        while (fan[c] != c) c = fan[c] = fan[fan[c]];
        return c;
    };
    for (unsigned int c = 0; c < corner_count; ++c) {
        if (cage.start[c] == cage.end[c]) fan[root(c)] = root(cage.next[c]);
        const unsigned int o = cage.start[c] == cage.end[c] ? CageAdjacency::none : cage.opposite(c);
        if (o == CageAdjacency::none) continue;
        const bool same_winding = cage.start[o] == cage.end[c];
        fan[root(c)] = root(same_winding ? cage.next[o] : o);
        fan[root(cage.next[c])] = root(same_winding ? o : cage.next[o]);
    }
    std::vector<unsigned int> fans(vertex_count, 0);
    for (unsigned int c = 0; c < corner_count; ++c)
        if (root(c) == c) ++fans[cage.start[c]];
    return fans;
}

std::vector<unsigned char> find_exceptions(const ZooMesh& mesh) {
    const CageAdjacency cage(mesh);
    const std::vector<unsigned int> fans = count_fans(cage, mesh.positions.size());
    std::vector<unsigned int> valence(mesh.positions.size(), 0);
    std::vector<unsigned char> on_border(mesh.positions.size(), 0);
    for (unsigned int c = 0; c < cage.start.size(); ++c) {
        ++valence[cage.start[c]];
        if (cage.is_border(c)) on_border[cage.start[c]] = on_border[cage.end[c]] = 1;
    }
    std::vector<unsigned char> exceptions(mesh.positions.size(), 0);
    for (unsigned int v = 0; v < exceptions.size(); ++v)
        exceptions[v] = fans[v] > 1 || (!mesh.is_all_quads() && valence[v] == 2 && on_border[v] == 0) ? 1 : 0;
    return exceptions;
}

unsigned int find_groups(const ZooMesh& mesh) {
    const CageAdjacency cage(mesh);
    const auto corner_count = static_cast<unsigned int>(mesh.indices.size());
    unsigned int groups = mesh.uv_indices.empty() ? 0u : static_cast<unsigned int>(uvs);
    for (const unsigned int count : mesh.counts)
        if (count != 4) groups |= ngon;

    std::vector<unsigned int> sharp_count(mesh.positions.size(), 0);
    std::vector<unsigned char> on_border(mesh.positions.size(), 0);
    for (unsigned int c = 0; c < corner_count; ++c) {
        const auto& sides = cage.sides[c];
        if (sides.size() == 1) groups |= border;
        if (sides.size() > 2) groups |= nonmanifold_edge;
        if (cage.is_border(c)) on_border[cage.start[c]] = on_border[cage.end[c]] = 1;
        if (sides.size() != 2) continue;
        if (cage.is_crease[c] != 0) groups |= crease;
        const unsigned int o = cage.opposite(c);
        const bool same_winding = cage.start[o] == cage.end[c];
        if (!same_winding) groups |= opposite_winding;
        if (cage.is_crease[c] != 0 && c < o) {
            ++sharp_count[cage.start[c]];
            ++sharp_count[cage.end[c]];
        }
    }
    const std::vector<unsigned int> fans = count_fans(cage, mesh.positions.size());
    std::vector<unsigned int> valence(mesh.positions.size(), 0);
    for (const unsigned int v : cage.start) ++valence[v];
    for (unsigned int v = 0; v < mesh.positions.size(); ++v) {
        if (fans[v] > 1) groups |= nonmanifold_vertex;
        if (valence[v] >= 48) groups |= huge_valence;
        if (on_border[v] == 0 && sharp_count[v] == 1) groups |= dart;
    }
    if ((groups & (border | nonmanifold_edge)) == 0) groups |= closed;
    return groups;
}

std::vector<unsigned int> ZooMesh::get_polygon_offsets() const {
    std::vector<unsigned int> offsets{0};
    for (const unsigned int count : counts) offsets.push_back(offsets.back() + count);
    return offsets;
}

double ZooMesh::get_diagonal() const {
    GMathVec3<double> low(1e300, 1e300, 1e300);
    GMathVec3<double> high(-1e300, -1e300, -1e300);
    for (const GMathVec3<float>& p : positions)
        for (unsigned int i = 0; i < 3; ++i) {
            low[i] = std::min(low[i], static_cast<double>(p[i]));
            high[i] = std::max(high[i], static_cast<double>(p[i]));
        }
    return positions.empty() ? 0.0 : (high - low).length();
}

}  // namespace sds_test
