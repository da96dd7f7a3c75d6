// Candidate hits of one ray with one patch in the adaptive routine: a slot per quadrant of the patch, in it an entry
// per facing side. Many neighbouring leaves straddle one crossing of the surface; of those only the nearest is kept.
#pragma once

#include <limits>

namespace sds {

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
