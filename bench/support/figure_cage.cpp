#include "bench/support/figure_cage.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <map>

namespace sds_bench {

namespace {

using Place = std::array<int, 3>;
using Point = std::array<double, 3>;

// Blocks on a lattice: x from hand to hand, y up, z to the front.
class Blocks {
public:
    bool has(const Place& p) const {
        for (int a = 0; a < 3; ++a)
            if (p[a] < 0 || p[a] >= size[a]) return false;
        return m_filled[index(p)];
    }
    void fill(const Place& first, const Place& end) {
        for (int x = first[0]; x < end[0]; ++x)
            for (int y = first[1]; y < end[1]; ++y)
                for (int z = first[2]; z < end[2]; ++z) m_filled[index({x, y, z})] = true;
    }
    // The same on both sides of the body.
    void fill_both(const Place& first, const Place& end) {
        fill(first, end);
        fill({size[0] - end[0], first[1], first[2]}, {size[0] - first[0], end[1], end[2]});
    }

    static constexpr Place size{84, 72, 20};

private:
    static size_t index(const Place& p) {
        return (static_cast<size_t>(p[0]) * size[1] + static_cast<size_t>(p[1])) * size[2] + static_cast<size_t>(p[2]);
    }
    std::vector<bool> m_filled = std::vector<bool>(size_t{size[0]} * size[1] * size[2]);
};

Place step(Place p, int axis, int by) {
    p[static_cast<size_t>(axis)] += by;
    return p;
}

constexpr int middle = Blocks::size[0] / 2;
constexpr int shoulder = 10;        // from the middle
constexpr int hip = 30, neck = 54;  // heights
constexpr double arm_height = 47, depth = 10;

Blocks make_blocks() {
    Blocks blocks;
    blocks.fill({middle - 9, hip, 5}, {middle + 9, neck, 15});            // torso
    blocks.fill({middle - 3, neck, 7}, {middle + 3, neck + 3, 13});       // neck
    blocks.fill({middle - 6, neck + 3, 4}, {middle + 6, neck + 15, 16});  // head
    blocks.fill_both({middle - 8, 4, 7}, {middle - 2, hip, 13});          // legs
    blocks.fill_both({middle - 8, 2, 7}, {middle - 2, 4, 18});            // feet
    blocks.fill_both({10, 44, 7}, {middle - 9, 50, 13});                  // arms
    for (const int y : {44, 48})
        for (const int z : {7, 11}) blocks.fill_both({1, y, z}, {10, y + 2, z + 2});  // fingers
    return blocks;
}

// Where a corner of the lattice stands: limbs grow thin towards their ends, and their blocks short.
Point place_corner(const Place& corner) {
    Point p{static_cast<double>(corner[0] - middle), static_cast<double>(corner[1]), static_cast<double>(corner[2])};
    const auto taper = [&p](int axis, double from, double way, double ratio, double center0, int axis0, double center1,
                            int axis1) {
        // Each block is `ratio` times as long and as thick as the one before.
        const double scale = std::pow(ratio, way);
        p[static_cast<size_t>(axis)] =
            from + (p[static_cast<size_t>(axis)] < from ? -1.0 : 1.0) * (1.0 - scale) / (1.0 - ratio);
        p[static_cast<size_t>(axis0)] = center0 + (p[static_cast<size_t>(axis0)] - center0) * scale;
        p[static_cast<size_t>(axis1)] = center1 + (p[static_cast<size_t>(axis1)] - center1) * scale;
    };
    if (std::fabs(p[0]) > shoulder)
        taper(0, p[0] < 0 ? -shoulder : shoulder, std::fabs(p[0]) - shoulder, 0.898, arm_height, 1, depth, 2);
    else if (p[1] < hip - 2)
        taper(1, hip - 2, hip - 2 - p[1], 0.97, p[0] < 0 ? -5.0 : 5.0, 0, depth, 2);
    else if (p[1] > neck + 3)
        taper(1, neck + 3, p[1] - (neck + 3), 0.94, 0.0, 0, depth, 2);
    return p;
}

// The quads between blocks and nothing, seen from outside counterclockwise.
struct Hull {
    std::vector<std::array<unsigned int, 4>> quads;
    std::vector<Place> corners;

    explicit Hull(const Blocks& blocks) {
        std::map<Place, unsigned int> known;
        const auto number = [&](const Place& corner) {
            const auto [found, is_new] = known.emplace(corner, static_cast<unsigned int>(corners.size()));
            if (is_new) corners.push_back(corner);
            return found->second;
        };
        for (int x = 0; x < Blocks::size[0]; ++x)
            for (int y = 0; y < Blocks::size[1]; ++y)
                for (int z = 0; z < Blocks::size[2]; ++z)
                    for (int axis = 0; axis < 3; ++axis)
                        for (const int side : {0, 1}) {
                            const Place p{x, y, z};
                            if (!blocks.has(p) || blocks.has(step(p, axis, side == 0 ? -1 : 1))) continue;
                            const int u = (axis + 1) % 3, v = (axis + 2) % 3;
                            const Place c = step(p, axis, side);
                            std::array<unsigned int, 4> quad{number(c), number(step(c, u, 1)),
                                                             number(step(step(c, u, 1), v, 1)), number(step(c, v, 1))};
                            if (side == 0) std::swap(quad[1], quad[3]);
                            quads.push_back(quad);
                        }
    }

    double get_irregular_share() const {
        std::vector<unsigned int> valence(corners.size());
        for (const auto& quad : quads)
            for (const unsigned int v : quad) ++valence[v];
        const auto is_irregular = [&](const auto& quad) {
            return std::any_of(quad.begin(), quad.end(), [&](unsigned int v) { return valence[v] != 4; });
        };
        return static_cast<double>(std::count_if(quads.begin(), quads.end(), is_irregular)) /
               static_cast<double>(quads.size());
    }
};

// Puts a knob of one block on a flat place, the next one that a fixed sequence of numbers finds.
void add_knob(Blocks& blocks, std::uint32_t& seed) {
    const auto draw = [&seed](int count) {
        seed = seed * 1664525u + 1013904223u;
        return static_cast<int>((seed >> 8) % static_cast<unsigned int>(count));
    };
    for (;;) {
        const Place p{draw(Blocks::size[0]), draw(Blocks::size[1]), draw(Blocks::size[2])};
        const int axis = draw(3), out = draw(2) == 0 ? -1 : 1;
        bool is_flat = !blocks.has(p);
        for (int i = -2; i <= 2 && is_flat; ++i)
            for (int j = -2; j <= 2 && is_flat; ++j) {
                const Place beside = step(step(p, (axis + 1) % 3, i), (axis + 2) % 3, j);
                is_flat =
                    blocks.has(step(beside, axis, -out)) && !blocks.has(beside) && !blocks.has(step(beside, axis, out));
            }
        if (!is_flat) continue;
        blocks.fill(p, step(step(step(p, 0, 1), 1, 1), 2, 1));
        return;
    }
}

// Every point goes half the way to the mean of its neighbors along edges.
void smooth(const Hull& hull, std::vector<Point>& points) {
    std::vector<Point> sums(points.size(), Point{});
    std::vector<unsigned int> counts(points.size());
    for (const auto& quad : hull.quads)
        for (size_t k = 0; k < 4; ++k) {
            const Point& next = points[quad[(k + 1) % 4]];
            for (size_t a = 0; a < 3; ++a) sums[quad[k]][a] += next[a];
            ++counts[quad[k]];
        }
    for (size_t i = 0; i < points.size(); ++i)
        for (size_t a = 0; a < 3; ++a) points[i][a] = 0.5 * (points[i][a] + sums[i][a] / counts[i]);
}

}  // namespace

sds_model::ControlCage make_figure_cage() {
    Blocks blocks = make_blocks();
    std::uint32_t seed = 1;
    while (Hull(blocks).get_irregular_share() < 0.18) add_knob(blocks, seed);
    const Hull hull(blocks);
    std::vector<Point> points;
    for (const Place& corner : hull.corners) points.push_back(place_corner(corner));
    for (unsigned int round = 0; round < 2; ++round) smooth(hull, points);

    sds_model::ControlCage cage;
    cage.group_names = {"default"};
    for (const Point& p : points)
        for (const double x : p) cage.positions.push_back(static_cast<float>(x));
    for (const auto& quad : hull.quads)
        cage.polygon_indices.insert(cage.polygon_indices.end(), quad.begin(), quad.end());
    cage.polygon_counts.assign(hull.quads.size(), 4);
    cage.polygon_groups.assign(hull.quads.size(), 0);
    cage.corner_creases.assign(4 * hull.quads.size(), 0);
    return cage;
}

CageFigures measure_quads(const sds_model::ControlCage& cage) {
    CageFigures figures;
    figures.quad_count = static_cast<unsigned int>(cage.polygon_counts.size());
    std::map<std::pair<unsigned int, unsigned int>, unsigned int> sides;
    std::vector<unsigned int> valence(cage.get_vertex_count());
    double longest = 0.0, shortest = 1e30;
    for (size_t c = 0; c < cage.polygon_indices.size(); ++c) {
        const unsigned int a = cage.polygon_indices[c], b = cage.polygon_indices[(c & ~size_t{3}) | ((c + 1) & 3u)];
        ++sides[std::minmax(a, b)];
        ++valence[a];
        double square = 0.0;
        for (size_t axis = 0; axis < 3; ++axis) {
            const double d = static_cast<double>(cage.positions[3 * a + axis] - cage.positions[3 * b + axis]);
            square += d * d;
        }
        longest = std::max(longest, std::sqrt(square));
        shortest = std::min(shortest, std::sqrt(square));
    }
    figures.is_closed = std::all_of(sides.begin(), sides.end(), [](const auto& side) { return side.second == 2; });
    unsigned int irregular = 0;
    for (size_t q = 0; q < figures.quad_count; ++q) {
        bool is_irregular = false;
        for (size_t k = 0; k < 4; ++k) is_irregular = is_irregular || valence[cage.polygon_indices[4 * q + k]] != 4;
        irregular += is_irregular ? 1 : 0;
    }
    figures.irregular_share = static_cast<double>(irregular) / figures.quad_count;
    figures.edge_ratio = longest / shortest;
    return figures;
}

}  // namespace sds_bench
