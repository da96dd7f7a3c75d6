#include "model/creases.h"

#include <algorithm>

namespace sds_model {

namespace {

constexpr float infinite_sharpness = 10.0f;

enum State : std::uint8_t { smooth = 0, crease = 1, fractional_crease = 2 };

State state_of(float sharpness) {
    return sharpness >= infinite_sharpness ? crease : sharpness > 0.0f ? fractional_crease : smooth;
}

FirstCase describe_sharpness(const DescribeEntry& describe, FindingCode code, std::size_t entry, float sharpness) {
    FirstCase first = describe(code, entry);
    first.detail = "sharpness " + std::to_string(sharpness);
    return first;
}

FirstCase describe_fractional(const DescribeEntry& describe, FindingCode code, std::size_t entry, float sharpness,
                              bool harden) {
    FirstCase first = describe_sharpness(describe, code, entry, sharpness);
    if (!harden) first.action = "left smooth";
    return first;
}

}  // namespace

SettledCreases settle_creases(const PolyEdgeBuckets& edges, std::size_t corner_count,
                              std::span<const CreaseEdge> creases, FractionalSharpness fractional, Findings& findings,
                              const DescribeEntry& describe) {
    const bool is_exact = fractional == FractionalSharpness::exact;
    SettledCreases settled{std::vector<std::uint8_t>(corner_count, smooth), {}};
    std::vector<std::uint8_t>& states = settled.flags;
    std::size_t first_fractional = creases.size();
    for (std::size_t i = 0; i < creases.size(); ++i) {
        const auto sides = edges.find(creases[i].a, creases[i].b);
        if (sides.empty())
            findings.record(FindingCode::tag_without_edge, [&] { return describe(FindingCode::tag_without_edge, i); });
        if (creases[i].sharpness < 0.0f)
            findings.record(FindingCode::negative_sharpness, [&] {
                return describe_sharpness(describe, FindingCode::negative_sharpness, i, creases[i].sharpness);
            });
        const State state = state_of(creases[i].sharpness);
        if (state == fractional_crease) {
            first_fractional = std::min(first_fractional, i);
            if (is_exact && settled.sharpness.empty()) settled.sharpness.assign(corner_count, 0.0f);
        }
        for (const PolyHalfEdge& side : sides) {
            states[side.corner] = is_exact && state == fractional_crease ? smooth : state;
            if (!settled.sharpness.empty())
                settled.sharpness[side.corner] = state == fractional_crease ? creases[i].sharpness : 0.0f;
        }
    }
    if (is_exact || first_fractional == creases.size()) return settled;

    const bool harden = fractional == FractionalSharpness::harden;
    std::uint64_t edge_count = 0;
    edges.for_each_edge([&](unsigned int, std::span<const PolyHalfEdge> sides) {
        if (states[sides.front().corner] != fractional_crease) return;
        ++edge_count;
        for (const PolyHalfEdge& side : sides) states[side.corner] = harden ? crease : smooth;
    });
    const auto describe_first = [&] {
        return describe_fractional(describe, FindingCode::fractional_sharpness, first_fractional,
                                   creases[first_fractional].sharpness, harden);
    };
    findings.record(FindingCode::fractional_sharpness, describe_first, edge_count);
    return settled;
}

std::vector<float> settle_corners(std::size_t vertex_count, std::span<const SharpCorner> corners,
                                  FractionalSharpness fractional, Findings& findings, const DescribeEntry& describe) {
    std::vector<float> sharpness;
    for (std::size_t i = 0; i < corners.size(); ++i) {
        if (corners[i].sharpness < 0.0f)
            findings.record(FindingCode::negative_sharpness, [&] {
                return describe_sharpness(describe, FindingCode::negative_sharpness, i, corners[i].sharpness);
            });
        float kept = std::max(corners[i].sharpness, 0.0f);
        if (state_of(kept) == fractional_crease && fractional != FractionalSharpness::exact) {
            const bool harden = fractional == FractionalSharpness::harden;
            findings.record(FindingCode::fractional_corner, [&] {
                return describe_fractional(describe, FindingCode::fractional_corner, i, kept, harden);
            });
            kept = harden ? infinite_sharpness : 0.0f;
        }
        if (sharpness.empty() && kept > 0.0f) sharpness.assign(vertex_count, 0.0f);
        if (!sharpness.empty()) sharpness[corners[i].vertex] = std::min(kept, infinite_sharpness);
    }
    return sharpness;
}

}  // namespace sds_model
