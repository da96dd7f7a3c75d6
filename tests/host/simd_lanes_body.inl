// Included once per instruction set. Nothing of the standard library: the linker could hand one set's copy to another's
// caller.
#include "qn_simd/simd_double4.h"
#include "qn_simd/simd_float4.h"
#include "qn_simd/simd_float8.h"
#include "simd_lanes.h"

namespace {

using QN_SIMD_NAMESPACE::SimdDouble4;
using QN_SIMD_NAMESPACE::SimdFloat8;

class Results {
public:
    explicit Results(unsigned int* out) : m_out(out) {}

    void put(unsigned int bits) { *m_out++ = bits; }
    void put_moved(float x) {
        unsigned int bits = 0;
        __builtin_memcpy(&bits, &x, sizeof bits);
        put(bits);
    }
    void put(float x) { x == x ? put_moved(x) : put(0x7FC00000u); }
    void put(double x) {
        unsigned int bits[2] = {0, 0x7FF80000u};
        if (x == x) __builtin_memcpy(bits, &x, sizeof bits);
        put(bits[0]);
        put(bits[1]);
    }
    void put(SimdFloat8 v) {
        float lanes[8];
        v.store(lanes);
        for (const float x : lanes) put(x);
    }
    void put_moved(SimdFloat8 v) {
        float lanes[8];
        v.store(lanes, lanes + 4);
        for (const float x : lanes) put_moved(x);
    }
    void put_moved(SimdFloat4 v) {
        float lanes[4];
        v.store_unaligned(lanes);
        for (const float x : lanes) put_moved(x);
    }

private:
    unsigned int* m_out;
};

void run_eight(const float* in, Results& r) {
    SimdFloat8 a(in, in + 4), b(in + 8, in + 12), c(in + 16, in + 20), d(in + 24, in + 28);
    r.put(a + b);
    r.put(a - b);
    r.put(a * b);
    r.put(a / b);
    r.put(sum_of_four(a, b, c, d));
    r.put_moved(min(a, b));
    r.put_moved(max(a, b));
    r.put_moved(select_positive(a, b, c));
    r.put(static_cast<unsigned int>(less_equal_mask(a, b)));
    r.put_moved(group_min(a));
    r.put_moved(group_max(a));
    r.put_moved(min_of_four(a, b, c, d));
    r.put_moved(max_of_four(a, b, c, d));
    r.put_moved(next_lanes(a));
    r.put_moved(first_lanes(a));
    r.put_moved(swap_last(a));
    r.put_moved(rotate_axes(a));
    r.put_moved(broadcast_lane<2>(a));
    r.put_moved(swap_groups(a));
    r.put_moved(SimdFloat8(in[3], in[4]));
    r.put_moved(SimdFloat8::load3(in + 1, in + 6));
    r.put_moved(SimdFloat8::load8(in + 3));
    r.put_moved(SimdFloat8::load8(reinterpret_cast<const unsigned char*>(in) + 5));
    transpose(a, b, c, d);
    r.put_moved(a);
    r.put_moved(b);
    r.put_moved(c);
    r.put_moved(d);
    float three[8] = {};
    d.store3(three, three + 4);
    for (const float x : three) r.put_moved(x);
}

void run_four(const float* in, Results& r) {
    SimdFloat4 a = SimdFloat4::load_unaligned(in + 1), b = SimdFloat4::load_unaligned(in + 5), c(in[9]),
               d = SimdFloat4::load3(in + 13);
    alignas(16) float lanes[4];
    (a * b - c + d).store(lanes);
    for (const float x : lanes) r.put(x);
    r.put_moved(min(a, b));
    r.put_moved(max(a, b));
    r.put_moved(select_positive(a, b, c));
    r.put(static_cast<unsigned int>(less_equal_mask(a, b)));
    r.put_moved(previous_lanes(a));
    r.put_moved(horizontal_min(a));
    r.put_moved(horizontal_max(a));
    transpose(a, b, c, d);
    r.put_moved(a);
    r.put_moved(b);
    r.put_moved(c);
    r.put_moved(d);
    lanes[3] = in[0];
    b.store3(lanes);
    for (const float x : lanes) r.put_moved(x);
}

void run_doubles(const float* in, Results& r) {
    const SimdDouble4 a(in + 1), b(in + 5), c(in + 9);
    r.put((a * b - c).sum());
    r.put(abs(a + b).sum());
    r.put(sqrt(a * a + b * b).sum());
    r.put(sqrt(a).sum());
    r.put((a - b).sum3());
    double lanes[4];
    (a * b).store4(lanes);
    float rounded[4];
    SimdDouble4::load4(lanes).store_rounded4(rounded);
    for (const float x : rounded) r.put(x);
    r.put((a / b).sum());
    r.put(SimdDouble4::widen3(in + 3).sum3());
    sum_of_four(a, b, c, a * b).store4(lanes);
    for (const double x : lanes) r.put(x);
}

void run_all(const float* in, unsigned int* out) {
    Results results(out);
    run_eight(in, results);
    run_four(in, results);
    run_doubles(in, results);
}

}  // namespace
