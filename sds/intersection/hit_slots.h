// Candidate hits of one ray on a limit patch: a slot per quarter of the parameter square, in it one entry for hits on
// the front and one for hits on the back. A crossing is found again in the leaves around it; the nearest stands for
// all.
#pragma once

#include <limits>

namespace sds {

// Two hits of one patch nearer to each other than this are one.
inline constexpr double duplicate_separation = 0.0001;
inline constexpr unsigned int no_sub_element = 0xFFFFFFFF;

struct HitSlots {
    static constexpr unsigned int slot_count = 4;

    struct Entry {
        bool valid;
        unsigned char node;  // pool index of the leaf
        float t;             // from the moved origin
        float u;
        float v;
    };

    Entry entries[slot_count][2];

    void clear() {
        for (auto& slot : entries)
            for (Entry& entry : slot) entry = {false, 0, std::numeric_limits<float>::max(), 0.0f, 0.0f};
    }

    void add(unsigned int side, float t, float u, float v, unsigned int node) {
        Entry& entry = entries[(u > 0.5f ? 1u : 0u) + (v > 0.5f ? 2u : 0u)][side];
        if (entry.t > t) entry = {true, static_cast<unsigned char>(node), t, u, v};
    }

    // Calls report(entry) for what the slots hold, in slot order, the nearer side first; the farther side only when it
    // is more than `separation` behind.
    template <class Report>
    void flush(float separation, Report&& report) const {
        for (const auto& slot : entries) {
            const bool first_is_near = slot[1].t > slot[0].t;
            const Entry& near = slot[first_is_near ? 0 : 1];
            const Entry& far = slot[first_is_near ? 1 : 0];
            if (near.valid) {
                report(near);
                if (far.valid && far.t > near.t + separation) report(far);
            } else if (far.valid) {
                report(far);
            }
        }
    }
};

}  // namespace sds
