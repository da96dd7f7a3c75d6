// What the fuzzers feed with bytes. Each takes any bytes, ends in a result or a finding, and aborts when an answer is
// wrong: not finite, out of range, let through. The replay test runs them on the kept seeds without a fuzzer.
#pragma once

#include <cstddef>
#include <cstdint>

namespace sds_fuzz {

// An OBJ file with tags; a small cage is built.
void read_obj_bytes(const std::uint8_t* data, std::size_t size);
// A USD text layer, to its meshes and transforms.
void read_usda_bytes(const std::uint8_t* data, std::size_t size);
// JSON: properties on two quads.
void read_json_bytes(const std::uint8_t* data, std::size_t size);
// JSON: a frustum, which then selects from a sheet.
void read_frustum_bytes(const std::uint8_t* data, std::size_t size);
// An array of numbers.
void read_npy_bytes(const std::uint8_t* data, std::size_t size);
// Counts, indices, creases, groups, UVs and rays of a mesh, through the checker to the build and its queries.
void build_mesh_bytes(const std::uint8_t* data, std::size_t size);
// Sixteen control points, a level and rays for the three kernels.
void trace_patch_bytes(const std::uint8_t* data, std::size_t size);

}  // namespace sds_fuzz
