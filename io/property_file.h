#pragma once

#include "model/control_cage.h"
#include "model/property_source.h"

#include <string>
#include <string_view>
#include <vector>

namespace sds_io {

using namespace sds_model;

/// Reads the properties of a cage from a JSON file, a list of objects
///
///     {"name": "heat", "kind": "vertex", "type": "float32", "extent": 3, "values": VALUES,
///      "indices": [0, 1, ...], "times": [0, 0.5, 1]}
///
/// `kind` is vertex (one item per vertex, smooth over the surface), uniform (one item per polygon) or constant (one
/// item). `type` is int8 to int64, uint8 to uint64, float16, float32 or float64. `extent` (1 when left out) counts the
/// numbers of an item. VALUES is a list of numbers, a list of items, or the path of an .npy file of shape (items,
/// extent), seen from the JSON file's folder. `indices`, for vertex properties only, has the item of every face-corner,
/// as a list or an .npy file; there are then as many items as values. With `times` the values get a leading axis of
/// time, or are a list of one VALUES per time.
///
/// Throws InputError: wrong types, shapes or keys, numbers that are not finite, beyond the type or beyond 1e300, and
/// what the host's checker finds in lengths, indices and times. It names the property, what was expected and what was
/// found. Throws MemoryLimitError before the arrays of .npy files and what is made of them take more than `limit`
/// bytes; 0 is no limit.
std::vector<PropertySource> read_properties(const std::string& path, const ControlCage& cage, std::size_t limit = 0);

/// The same for text in memory; `path` stands for the file in messages, and its folder is where .npy files are seen
/// from.
std::vector<PropertySource> read_properties_text(std::string_view text, const std::string& path,
                                                 const ControlCage& cage, std::size_t limit = 0);

}  // namespace sds_io
