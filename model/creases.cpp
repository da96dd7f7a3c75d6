#include "model/creases.h"

namespace sds_model {

namespace {

constexpr float infinite_sharpness = 10.0f;

enum State : std::uint8_t { smooth = 0, crease = 1, fractional_crease = 2 };

State state_of(float sharpness) {
    return sharpness >= infinite_sharpness ? crease : sharpness > 0.0f ? fractional_crease : smooth;
}

}  // namespace

std::vector<std::uint8_t> settle_creases(
    const PolyEdgeBuckets& edges, std::size_t corner_count, std::span<const CreaseEdge> creases,
    FractionalSharpness fractional, Findings& findings,
    const std::function<FirstCase(FindingCode code, std::size_t entry)>& describe) {
    std::vector<std::uint8_t> states(corner_count, smooth);
    std::size_t first_fractional = creases.size();
    for (std::size_t i = 0; i < creases.size(); ++i) {
        const auto sides = edges.find(creases[i].a, creases[i].b);
        if (sides.empty())
            findings.record(FindingCode::tag_without_edge, [&] { return describe(FindingCode::tag_without_edge, i); });
        const State state = state_of(creases[i].sharpness);
        if (state == fractional_crease) first_fractional = std::min(first_fractional, i);
        for (const PolyHalfEdge& side : sides) states[side.corner] = state;
    }
    if (first_fractional == creases.size()) return states;

    const bool harden = fractional == FractionalSharpness::harden;
    std::uint64_t edge_count = 0;
    edges.for_each_edge([&](unsigned int, std::span<const PolyHalfEdge> sides) {
        if (states[sides.front().corner] != fractional_crease) return;
        ++edge_count;
        for (const PolyHalfEdge& side : sides) states[side.corner] = harden ? crease : smooth;
    });
    const auto describe_first = [&] {
        FirstCase first = describe(FindingCode::fractional_sharpness, first_fractional);
        first.detail = "sharpness " + std::to_string(creases[first_fractional].sharpness);
        if (!harden) first.action = "left smooth";
        return first;
    };
    findings.record(FindingCode::fractional_sharpness, describe_first, edge_count);
    return states;
}

}  // namespace sds_model
