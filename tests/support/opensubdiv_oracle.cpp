#include "support/opensubdiv_oracle.h"

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wshadow"
#pragma GCC diagnostic ignored "-Wextra"
#include <opensubdiv/far/patchMap.h>
#include <opensubdiv/far/patchTableFactory.h>
#include <opensubdiv/far/primvarRefiner.h>
#include <opensubdiv/far/ptexIndices.h>
#include <opensubdiv/far/stencilTable.h>
#include <opensubdiv/far/topologyDescriptor.h>
#pragma GCC diagnostic pop

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace sds_test {

namespace {

namespace Far = OpenSubdiv::Far;
namespace Sdc = OpenSubdiv::Sdc;

constexpr unsigned int isolation_level = 8;
constexpr float infinitely_sharp = 10.0f;

// What the library's refiner asks of a value.
struct Value {
    Vec3d v{0, 0, 0};
    void Clear() { v = {0, 0, 0}; }
    void AddWithWeight(const Value& other, double weight) { v += other.v * weight; }
};

// Place of a quad on a parametric face: the face and the affine map from the quad's (u, v).
struct Place {
    int face;
    int quadrant;  // -1: the whole face
};

}  // namespace

struct OpenSubdivOracle::Impl {
    std::unique_ptr<Far::TopologyRefiner> refiner;
    std::unique_ptr<Far::PatchTable> table;
    std::unique_ptr<Far::PatchMap> map;
    std::vector<Place> places;
    std::vector<Value> points;
    std::vector<Value> uv_points;

    void create_table(const ZooMesh& cage, int isolation);
    void locate_quads(const ZooMesh& cage);
    std::vector<Value> refine(const std::vector<Vec3f>& controls, bool face_varying) const;
    SurfacePoint evaluate(unsigned int quad, double u, double v, bool face_varying) const;
};

static std::unique_ptr<Far::TopologyRefiner> make_refiner(const TaggedCage& tagged,
                                                          OpenSubdivOracle::FaceVarying rule) {
    const ZooMesh& cage = tagged.mesh;
    Sdc::Options options;
    static constexpr Sdc::Options::VtxBoundaryInterpolation boundaries[] = {Sdc::Options::VTX_BOUNDARY_NONE,
                                                                            Sdc::Options::VTX_BOUNDARY_EDGE_ONLY,
                                                                            Sdc::Options::VTX_BOUNDARY_EDGE_AND_CORNER};
    options.SetVtxBoundaryInterpolation(boundaries[static_cast<unsigned int>(tagged.boundary)]);
    options.SetFVarLinearInterpolation(static_cast<Sdc::Options::FVarLinearInterpolation>(rule));
    if (tagged.chaikin) options.SetCreasingMethod(Sdc::Options::CREASE_CHAIKIN);
    if (tagged.smooth_triangles) options.SetTriangleSubdivision(Sdc::Options::TRI_SUB_SMOOTH);

    const std::vector<int> counts(cage.counts.begin(), cage.counts.end());
    const std::vector<int> indices(cage.indices.begin(), cage.indices.end());
    const std::vector<int> uv_indices(cage.uv_indices.begin(), cage.uv_indices.end());
    std::vector<int> crease_pairs;
    std::vector<float> sharpness;
    const CageAdjacency adjacency(cage);
    for (unsigned int c = 0; c < indices.size(); ++c) {
        if (adjacency.sides[c].empty() || adjacency.sides[c][0] != c) continue;
        float largest = 0.0f;
        for (const unsigned int side : adjacency.sides[c]) largest = std::max(largest, tagged.edge_sharpness[side]);
        if (largest == 0.0f) continue;
        crease_pairs.push_back(static_cast<int>(adjacency.start[c]));
        crease_pairs.push_back(static_cast<int>(adjacency.end[c]));
        sharpness.push_back(largest);
    }
    std::vector<int> corners;
    std::vector<float> corner_sharpness;
    for (unsigned int v = 0; v < tagged.vertex_sharpness.size(); ++v) {
        if (tagged.vertex_sharpness[v] == 0.0f) continue;
        corners.push_back(static_cast<int>(v));
        corner_sharpness.push_back(tagged.vertex_sharpness[v]);
    }
    std::vector<int> holes;
    for (unsigned int f = 0; f < tagged.holes.size(); ++f)
        if (tagged.holes[f] != 0) holes.push_back(static_cast<int>(f));

    Far::TopologyDescriptor descriptor;
    descriptor.numVertices = static_cast<int>(cage.positions.size());
    descriptor.numFaces = static_cast<int>(counts.size());
    descriptor.numVertsPerFace = counts.data();
    descriptor.vertIndicesPerFace = indices.data();
    descriptor.numCreases = static_cast<int>(sharpness.size());
    descriptor.creaseVertexIndexPairs = crease_pairs.data();
    descriptor.creaseWeights = sharpness.data();
    descriptor.numCorners = static_cast<int>(corners.size());
    descriptor.cornerVertexIndices = corners.data();
    descriptor.cornerWeights = corner_sharpness.data();
    descriptor.numHoles = static_cast<int>(holes.size());
    descriptor.holeIndices = holes.data();
    Far::TopologyDescriptor::FVarChannel channel;
    channel.numValues = static_cast<int>(cage.uv_points.size());
    channel.valueIndices = uv_indices.data();
    if (!uv_indices.empty()) {
        descriptor.numFVarChannels = 1;
        descriptor.fvarChannels = &channel;
    }
    using Factory = Far::TopologyRefinerFactory<Far::TopologyDescriptor>;
    std::unique_ptr<Far::TopologyRefiner> refiner(
        Factory::Create(descriptor, Factory::Options(Sdc::SCHEME_CATMARK, options)));
    if (!refiner) throw std::runtime_error("OpenSubdiv refuses the cage " + cage.name);
    return refiner;
}

void OpenSubdivOracle::Impl::locate_quads(const ZooMesh& cage) {
    const Far::PtexIndices faces(*refiner);
    for (unsigned int p = 0; p < cage.counts.size(); ++p) {
        const int face = faces.GetFaceId(static_cast<int>(p));
        if (cage.is_all_quads()) {
            places.push_back({face, -1});
            continue;
        }
        for (int c = 0; c < static_cast<int>(cage.counts[p]); ++c)
            places.push_back(cage.counts[p] == 4 ? Place{face, c} : Place{face + c, -1});
    }
}

// The controls, the values of every level after them, and the local points of the patches.
std::vector<Value> OpenSubdivOracle::Impl::refine(const std::vector<Vec3f>& controls, bool face_varying) const {
    const Far::PrimvarRefinerReal<double> primvars(*refiner);
    const int refined = face_varying ? refiner->GetNumFVarValuesTotal(0) : refiner->GetNumVerticesTotal();
    const int local = face_varying ? table->GetNumLocalPointsFaceVarying(0) : table->GetNumLocalPoints();
    std::vector<Value> values(static_cast<size_t>(refined + local));
    for (size_t i = 0; i < controls.size(); ++i) values[i].v = Vec3d(controls[i]);
    Value* source = values.data();
    for (int level = 1; level <= refiner->GetMaxLevel(); ++level) {
        const Far::TopologyLevel& coarse = refiner->GetLevel(level - 1);
        Value* target = source + (face_varying ? coarse.GetNumFVarValues(0) : coarse.GetNumVertices());
        if (face_varying)
            primvars.InterpolateFaceVarying(level, source, target, 0);
        else
            primvars.Interpolate(level, source, target);
        source = target;
    }
    const auto* stencils = face_varying ? table->GetLocalPointFaceVaryingStencilTable<double>(0)
                                        : table->GetLocalPointStencilTable<double>();
    if (local > 0) stencils->UpdateValues(values.data(), values.data() + refined);
    return values;
}

void OpenSubdivOracle::Impl::create_table(const ZooMesh& cage, int isolation) {
    locate_quads(cage);
    Far::PatchTableFactory::Options patches(static_cast<unsigned int>(isolation));
    patches.SetPatchPrecision<double>();
    patches.SetFVarPatchPrecision<double>();
    patches.useInfSharpPatch = true;
    patches.generateLegacySharpCornerPatches = false;
    patches.generateFVarTables = cage.is_in(uvs);
    patches.generateFVarLegacyLinearPatches = false;
    refiner->RefineAdaptive(patches.GetRefineAdaptiveOptions());
    table.reset(Far::PatchTableFactory::Create(*refiner, patches));
    map = std::make_unique<Far::PatchMap>(*table);
    points = refine(cage.positions, false);
    if (cage.is_in(uvs)) uv_points = refine(cage.uv_points, true);
}

OpenSubdivOracle::OpenSubdivOracle(const ZooMesh& cage, Boundary boundary, FaceVarying rule)
    : m_impl(std::make_unique<Impl>()) {
    TaggedCage tagged{cage, {}, {}, {}, boundary, false, false};
    const CageAdjacency adjacency(cage);
    for (const unsigned char crease : adjacency.is_crease)
        tagged.edge_sharpness.push_back(crease != 0 ? infinitely_sharp : 0.0f);
    m_impl->refiner = make_refiner(tagged, rule);
    m_impl->create_table(cage, isolation_level);
}

OpenSubdivOracle::OpenSubdivOracle(const TaggedCage& cage, int isolation) : m_impl(std::make_unique<Impl>()) {
    m_impl->refiner = make_refiner(cage, FaceVarying::corners_only);
    m_impl->create_table(cage.mesh, isolation);
}

OpenSubdivOracle::OpenSubdivOracle(OpenSubdivOracle&&) noexcept = default;
OpenSubdivOracle::~OpenSubdivOracle() = default;

struct OpenSubdivLevels::Impl {
    std::unique_ptr<Far::TopologyRefiner> refiner;
    std::vector<std::vector<Value>> levels;
};

OpenSubdivLevels::OpenSubdivLevels(const TaggedCage& cage, int depth) : m_impl(std::make_unique<Impl>()) {
    m_impl->refiner = make_refiner(cage, OpenSubdivOracle::FaceVarying::corners_only);
    Far::TopologyRefiner::UniformOptions options(depth);
    options.fullTopologyInLastLevel = true;
    m_impl->refiner->RefineUniform(options);
    const Far::PrimvarRefinerReal<double> primvars(*m_impl->refiner);
    m_impl->levels.resize(static_cast<size_t>(depth) + 1);
    for (const Vec3f& p : cage.mesh.positions) m_impl->levels[0].push_back({Vec3d(p)});
    for (size_t level = 1; level < m_impl->levels.size(); ++level) {
        const auto count = m_impl->refiner->GetLevel(static_cast<int>(level)).GetNumVertices();
        m_impl->levels[level].resize(static_cast<size_t>(count));
        primvars.Interpolate(static_cast<int>(level), m_impl->levels[level - 1], m_impl->levels[level]);
    }
}

OpenSubdivLevels::OpenSubdivLevels(OpenSubdivLevels&&) noexcept = default;
OpenSubdivLevels::~OpenSubdivLevels() = default;

int OpenSubdivLevels::vertex(int level, int face, int corner) const {
    return m_impl->refiner->GetLevel(level).GetFaceVertices(face)[corner];
}

int OpenSubdivLevels::child_face(int level, int face, int corner) const {
    return m_impl->refiner->GetLevel(level).GetFaceChildFaces(face)[corner];
}

const Vec3d& OpenSubdivLevels::position(int level, int vertex) const {
    return m_impl->levels[static_cast<size_t>(level)][static_cast<size_t>(vertex)].v;
}

// The four quarters of a quad polygon that took a step: each has its origin at its corner and runs around the polygon.
//
//        3 ---------- 2        quarter c: u towards corner c + 1, v towards corner c - 1
//        |  u^ | v^   |
//        |   v<+ u<.  |        (sketch of the origins only)
//        0 ---------- 1
SurfacePoint OpenSubdivOracle::Impl::evaluate(unsigned int quad, double u, double v, bool face_varying) const {
    const Place& place = places[quad];
    const bool is_quarter = place.quadrant >= 0;
    double s = is_quarter ? u / 2 : u, t = is_quarter ? v / 2 : v;
    for (int turn = 0; turn < place.quadrant; ++turn) s = 1 - std::exchange(t, s);

    const Far::PatchTable::PatchHandle* handle = map->FindPatch(place.face, s, t);
    if (handle == nullptr) throw std::logic_error("OpenSubdiv has no patch there");
    double weights[20], s_weights[20], t_weights[20];
    Far::ConstIndexArray cvs;
    if (face_varying) {
        table->EvaluateBasisFaceVarying(*handle, s, t, weights, s_weights, t_weights);
        cvs = table->GetPatchFVarValues(*handle);
    } else {
        table->EvaluateBasis(*handle, s, t, weights, s_weights, t_weights);
        cvs = table->GetPatchVertices(*handle);
    }
    const std::vector<Value>& values = face_varying ? uv_points : points;
    SurfacePoint out{{0, 0, 0}, {0, 0, 0}, {0, 0, 0}};
    Vec3d ds(0, 0, 0), dt(0, 0, 0);
    for (int i = 0; i < cvs.size(); ++i) {
        const Vec3d& value = values[static_cast<size_t>(cvs[i])].v;
        out.position += value * weights[i];
        ds += value * s_weights[i];
        dt += value * t_weights[i];
    }
    out.du = is_quarter ? ds * 0.5 : ds;
    out.dv = is_quarter ? dt * 0.5 : dt;
    for (int turn = 0; turn < place.quadrant; ++turn) out.dv = std::exchange(out.du, out.dv) * -1.0;
    return out;
}

SurfacePoint OpenSubdivOracle::evaluate(unsigned int quad, double u, double v) const {
    return m_impl->evaluate(quad, u, v, false);
}

SurfacePoint OpenSubdivOracle::evaluate_uv(unsigned int quad, double u, double v) const {
    return m_impl->evaluate(quad, u, v, true);
}

const char* OpenSubdivOracle::name_of(FaceVarying rule) {
    static constexpr const char* names[] = {"FVAR_LINEAR_NONE",          "FVAR_LINEAR_CORNERS_ONLY",
                                            "FVAR_LINEAR_CORNERS_PLUS1", "FVAR_LINEAR_CORNERS_PLUS2",
                                            "FVAR_LINEAR_BOUNDARIES",    "FVAR_LINEAR_ALL"};
    return names[static_cast<unsigned int>(rule)];
}

}  // namespace sds_test
