#pragma once

#include <cmath>

#include "qn_gmath/gmath_vec.h"
#include "sds/common/cubic_basis.h"
#include "sds_process.h"

namespace sds_cli {

using Vec3 = GMathVec3<double>;

// Exported patches and their places, evaluated by quad in double precision.
class ExportedPatches {
public:
    struct Jet : sds::PatchJet<Vec3> {
        int level = 0;
    };

    ExportedPatches(const ScratchFolder& folder, const std::string& mesh, const std::vector<std::string>& more) {
        EXPECT_SUCCESS(run_sds(
            folder,
            {"export", mesh, "--quiet", "--patches", folder.path("p.npy"), "--patch-places", folder.path("w.npy")},
            more));
        m_controls = std::get<std::vector<float>>(read_npy(folder.path("p.npy")).values);
        m_places = std::get<std::vector<std::int32_t>>(read_npy(folder.path("w.npy")).values);
        EXPECT_EQ(m_controls.size() / 48, count());
    }

    std::size_t count() const { return m_places.size() / 4; }
    const float* controls(std::size_t patch) const { return &m_controls[48 * patch]; }
    int level(std::size_t patch) const { return m_places[4 * patch + 1]; }

    // False where no patch covers the place.
    bool evaluate(std::size_t quad, double u, double v, Jet& jet) const {
        for (std::size_t p = 0; p < count(); ++p) {
            const auto first = static_cast<std::size_t>(m_places[4 * p]);
            const bool is_polygon = level(p) < 0;
            if (quad < first || quad > first + (is_polygon ? 3 : 0)) continue;
            if (is_polygon) {
                jet = evaluate_quarter(p, quad - first, u, v);
                return true;
            }
            const double side = std::ldexp(1.0, level(p));
            const double s = u * side - m_places[4 * p + 2], t = v * side - m_places[4 * p + 3];
            if (s < 0.0 || s > 1.0 || t < 0.0 || t > 1.0) continue;
            jet = evaluate_patch(p, s, t);
            jet.du = jet.du * side;
            jet.dv = jet.dv * side;
            jet.level = level(p);
            return true;
        }
        return false;
    }

    // Position and derivatives of a row of samples are the patches'; NaN where there is no patch.
    void expect_sample(std::size_t quad, double u, double v, const double* row, int depth) const {
        SCOPED_TRACE(testing::Message() << "quad " << quad << " at " << u << ", " << v);
        Jet jet;
        if (!evaluate(quad, u, v, jet)) {
            for (unsigned int i = 0; i < 15; ++i) EXPECT_TRUE(std::isnan(row[i]));
            return;
        }
        const auto error = [row](unsigned int i, const Vec3& x) {
            return (Vec3(row[i], row[i + 1], row[i + 2]) - x).length();
        };
        EXPECT_LT(error(0, jet.value), 2e-6);
        // Patches that are refined no further have the limit's tangents at their corners, not the net's.
        const double share = jet.level < depth ? 2e-5 : depth == 0 ? 1.0 : 0.35;
        const double bound = share * (jet.du.length() + jet.dv.length());
        EXPECT_LT(error(3, jet.du), bound);
        EXPECT_LT(error(6, jet.dv), bound);
        for (const unsigned int normal : {9u, 12u}) EXPECT_NEAR(error(normal, {0, 0, 0}), 1.0, 1e-9);
    }

private:
    Jet evaluate_patch(std::size_t patch, double u, double v) const {
        Vec3 wide[16];
        for (unsigned int i = 0; i < 48; ++i) wide[i / 3][i % 3] = static_cast<double>(controls(patch)[i]);
        return {sds::evaluate_jet(wide, u, v)};
    }

    // The quarter at a corner of a patch, its u running along the patch's edge from there.
    Jet evaluate_quarter(std::size_t patch, std::size_t corner, double u, double v) const {
        const double s = 0.5 * u, t = 0.5 * v;
        const double places[4][2] = {{s, t}, {1.0 - t, s}, {1.0 - s, 1.0 - t}, {t, 1.0 - s}};
        Jet jet = evaluate_patch(patch, places[corner][0], places[corner][1]);
        const Vec3 su = jet.du * 0.5, sv = jet.dv * 0.5;
        const Vec3 us[4] = {su, sv, su * -1.0, sv * -1.0}, vs[4] = {sv, su * -1.0, sv * -1.0, su};
        jet.du = us[corner];
        jet.dv = vs[corner];
        return jet;
    }

    std::vector<float> m_controls;
    std::vector<std::int32_t> m_places;
};

}  // namespace sds_cli
