// Cosines from a process-wide table with linear interpolation.
#pragma once

namespace sds {

inline constexpr unsigned int cosine_table_size = 513;

// Makes cosine_table() give the table. Safe from any thread.
void build_cosine_table();
// The 513 floats cos(k pi / 512), the same bits on every processor; null before build_cosine_table().
const float* cosine_table();

// Cosine of x in radians, accurate to about 5e-6 between entries.
float lookup_cosine(float x);
inline float lookup_sine(float x) { return lookup_cosine(x - 1.5707964f); }

}  // namespace sds
