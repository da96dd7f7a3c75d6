// How sharp edges and vertices are, and what that makes of the masks of a subdivision step: pure functions of numbers.
//
// Sharpness s says for how many steps an edge keeps the rules of a crease (DeRose, Kass, Truong 1998, section 3): 0 is
// smooth, 10 and above infinitely sharp, a fraction is a blend in its last step. The rules themselves are those of
// Catmull and Clark 1978, with darts, creases and corners after Hoppe et al. 1994. Sharpness and what is averaged of it
// is in single precision, as other implementations of the same surface have it: a blend weight that differed in its
// last bits would be a different surface.
#pragma once

#include <algorithm>

namespace sds {

inline constexpr float infinite_sharpness = 10.0f;

constexpr bool is_infinitely_sharp(float s) { return s >= infinite_sharpness; }
constexpr bool is_fractional(float s) { return s > 0.0f && s < infinite_sharpness; }

// After one step, for a vertex, and for both halves of an edge under the uniform rule.
constexpr float child_sharpness(float s) {
    if (is_infinitely_sharp(s)) return infinite_sharpness;
    return s > 1.0f ? s - 1.0f : 0.0f;
}

// Fractional edges around a vertex.
struct FractionalEdges {
    unsigned int count = 0;
    float sum = 0.0f;
};

// Chaikin's rule: the half of an edge at a vertex is drawn to the sharpness of the other fractional edges there.
constexpr float chaikin_child_sharpness(float s, const FractionalEdges& at_vertex) {
    if (!is_fractional(s) || at_vertex.count < 2) return child_sharpness(s);
    const float others = (at_vertex.sum - s) / static_cast<float>(at_vertex.count - 1);
    return std::max(0.0f, 0.75f * s + 0.25f * others - 1.0f);
}

// Share of the middle of the edge in its edge point; the rest is the smooth edge point. `half0` and `half1` are what
// the edge becomes.
constexpr float edge_crease_weight(float s, float half0, float half1) {
    return half0 > 0.0f && half1 > 0.0f ? 1.0f : std::min(s, 1.0f);
}

// In the order of the number of sharp edges.
enum class VertexRule : unsigned char { smooth, dart, crease, corner };

// From the vertex's own sharpness and the number of its edges that are sharp at all.
constexpr VertexRule vertex_rule(float sharpness, unsigned int sharp_edge_count) {
    return sharpness > 0.0f ? VertexRule::corner : static_cast<VertexRule>(std::min(sharp_edge_count, 3u));
}

// What is sharp around a vertex before a step and after it.
struct SharpnessStep {
    float sharpness = 0.0f;
    float child_sharpness = 0.0f;
    unsigned int edge_count = 0;  // sharp before the step
    unsigned int child_edge_count = 0;
    float decayed_sum = 0.0f;  // of the edges that are sharp before the step and smooth after it
    unsigned int decayed_count = 0;

    constexpr void add_edge(float s, float child) {
        if (!(s > 0.0f)) return;
        ++edge_count;
        if (child > 0.0f)
            ++child_edge_count;
        else
            decayed_sum += s, ++decayed_count;
    }
};

// Shares of the rules in a vertex point. The two creases run along the edges that are sharp before and after the step.
struct VertexMask {
    double smooth = 0.0, crease = 0.0, child_crease = 0.0, corner = 0.0;

    constexpr void add(VertexRule rule, bool is_child, double weight) {
        if (rule == VertexRule::corner)
            corner += weight;
        else if (rule == VertexRule::crease)
            (is_child ? child_crease : crease) += weight;
        else
            smooth += weight;
    }
};

// All of one rule, without a branch: creases and corners take turns.
constexpr VertexMask rule_mask(VertexRule rule) {
    constexpr VertexMask masks[4] = {
        {1.0, 0.0, 0.0, 0.0}, {1.0, 0.0, 0.0, 0.0}, {0.0, 1.0, 0.0, 0.0}, {0.0, 0.0, 0.0, 1.0}};
    return masks[static_cast<unsigned int>(rule)];
}

// The mask of the rule before the step, or, when sharpness decays to another rule within the step, a blend of both
// (DeRose, Kass, Truong 1998, appendix B).
constexpr VertexMask vertex_mask(const SharpnessStep& step) {
    const VertexRule rule = vertex_rule(step.sharpness, step.edge_count);
    const VertexRule child_rule = vertex_rule(step.child_sharpness, step.child_edge_count);
    if (rule == child_rule || rule == VertexRule::smooth || rule == VertexRule::dart) return rule_mask(rule);
    VertexMask mask;
    float sum = step.decayed_sum;
    unsigned int count = step.decayed_count;
    if (step.sharpness > 0.0f && !(step.child_sharpness > 0.0f)) sum += step.sharpness, ++count;
    const auto weight = static_cast<double>(count == 0 ? 1.0f : std::min(1.0f, sum / static_cast<float>(count)));
    mask.add(rule, false, weight);
    mask.add(child_rule, true, 1.0 - weight);
    return mask;
}

}  // namespace sds
