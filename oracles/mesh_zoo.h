// The mesh zoo: small control cages, one per way in which a surface can go wrong, that tests loop over by group.
//
// The procedural cages are made on first use and never change; any thread may read them. Cages on disk join them where
// the files are there, so a test over them must hold for none at all.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "qn_gmath/gmath_vec.h"

namespace sds_test {

// What a cage has in it, found from its polygons.
enum ZooGroup : unsigned int {
    closed = 1,               // no border
    border = 2,               // an edge with one polygon
    crease = 4,               // a crease between two polygons
    dart = 8,                 // a vertex inside the surface with one sharp edge
    ngon = 16,                // a polygon that is not a quad
    nonmanifold_edge = 32,    // an edge with three polygons or more
    nonmanifold_vertex = 64,  // a vertex whose polygons form more than one fan
    opposite_winding = 128,   // two neighbors that run along their edge the same way
    huge_valence = 256,       // a vertex of 48 polygons or more
    uvs = 512,                // a UV map
    corner_tags = 1024,       // the file asks for sharp vertices, which a cage here cannot say
};

struct ZooMesh {
    std::string name;
    unsigned int groups = 0;
    std::vector<GMathVec3<float>> positions;
    std::vector<unsigned int> counts;           // corners per polygon
    std::vector<unsigned int> indices;          // vertex per face-corner
    std::vector<unsigned char> corner_creases;  // per face-corner: 1 when the edge leaving it is a crease
    std::vector<GMathVec3<float>> uv_points;    // empty without UVs
    std::vector<unsigned int> uv_indices;       // UV point per face-corner, 0xFFFFFFFF where there is none

    bool is_in(unsigned int group) const { return (groups & group) != 0; }
    bool is_all_quads() const { return !is_in(ngon); }
    // First face-corner of each polygon, and the number of face-corners as last entry.
    std::vector<unsigned int> get_polygon_offsets() const;
    // Length of the diagonal of the control points' box.
    double get_diagonal() const;
};

// How a polygon mesh hangs together, by brute force and apart from the code under test. Face-corner c stands for the
// edge that leaves it.
struct CageAdjacency {
    static constexpr unsigned int none = 0xFFFFFFFF;

    explicit CageAdjacency(const ZooMesh& mesh);

    std::vector<unsigned int> start, end;          // vertices of each face-corner's edge
    std::vector<unsigned int> next, previous;      // face-corners of the same polygon
    std::vector<unsigned int> polygon;             // of each face-corner
    std::vector<std::vector<unsigned int>> sides;  // all face-corners on the same edge, itself included
    std::vector<unsigned char> is_crease;          // either side is flagged

    // The other side of an edge with exactly two.
    unsigned int opposite(unsigned int c) const {
        if (sides[c].size() != 2) return none;
        return sides[c][0] == c ? sides[c][1] : sides[c][0];
    }
    bool is_border(unsigned int c) const { return sides[c].size() != 2; }
    bool is_sharp(unsigned int c) const { return is_crease[c] != 0 || is_border(c); }
};

unsigned int find_groups(const ZooMesh& mesh);

// Number of fans that the polygons at each vertex form: 0 where there are none, above 1 at bow-ties.
std::vector<unsigned int> count_fans(const CageAdjacency& cage, size_t vertex_count);

// 1 for the control vertices where the surface follows another rule than the Catmull-Clark limit of a manifold cage:
// bow-ties, which take one fan's limit point, and vertices inside a cage with n-gons that have two polygons.
std::vector<unsigned char> find_exceptions(const ZooMesh& mesh);

// The procedural cages.
const std::vector<ZooMesh>& mesh_zoo();
// A procedural cage by name; throws std::out_of_range for a name that is not in the zoo.
const ZooMesh& zoo_mesh(const std::string& name);
// The cages of ../shared/meshes (or the folder in the environment variable QN_MESHES) and of assets/, in the order of
// their names; those that cannot be read are left out.
const std::vector<ZooMesh>& cages_on_disk();
// Procedural and on disk.
std::vector<const ZooMesh*> all_cages();
// Those of all_cages() that are in every group of `with` and in none of `without`.
std::vector<const ZooMesh*> cages_in(unsigned int with, unsigned int without = 0);

// Vertices per polygon; no name, no creases and no groups yet.
ZooMesh make_mesh(std::vector<GMathVec3<float>> positions, const std::vector<std::vector<unsigned int>>& polygons);
// n x m quads around a torus, u around the axis. Not in the zoo, for tests that need a size.
ZooMesh make_torus(unsigned int n, unsigned int m);
// n x n quads with borders, bulging.
ZooMesh make_sheet(unsigned int n);
// A vertex with n triangles around it, closed below by one n-gon.
ZooMesh make_pole(unsigned int n);

// Prints the name in test output and case names.
inline void PrintTo(const ZooMesh* mesh, std::ostream* out) { *out << mesh->name; }
std::string case_name(const std::string& mesh_name);

}  // namespace sds_test
