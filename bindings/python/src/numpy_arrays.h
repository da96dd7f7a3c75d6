// Between numpy arrays and plain memory. The Python layer hands over contiguous arrays of the exact type; a wrong one
// is a TypeError here, never a silent conversion.
#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <memory>
#include <span>
#include <vector>

#include "qn_core/core_array.h"
#include "qn_gmath/gmath_vec.h"

namespace sds_python {

template <class T>
using Array = pybind11::array_t<T, pybind11::array::c_style>;

template <class T>
std::span<const T> span_of(const Array<T>& array) {
    return {array.data(), static_cast<std::size_t>(array.size())};
}

using Shape = std::vector<pybind11::ssize_t>;

template <class Size>
pybind11::ssize_t extent(Size size) {
    return static_cast<pybind11::ssize_t>(size);
}

/// An array that takes over the vector's memory.
template <class T>
pybind11::array to_numpy(std::vector<T>&& values, const Shape& shape) {
    auto* owned = new std::vector<T>(std::move(values));
    const pybind11::capsule owner(owned, [](void* p) { delete static_cast<std::vector<T>*>(p); });
    return pybind11::array_t<T>(shape, owned->data(), owner);
}

/// A read-only array on memory that `owner` keeps alive.
template <class T, class Owner>
pybind11::array to_view(const T* values, const Shape& shape, const std::shared_ptr<Owner>& owner) {
    auto* kept = new std::shared_ptr<const Owner>(owner);
    const pybind11::capsule capsule(kept, [](void* p) { delete static_cast<std::shared_ptr<const Owner>*>(p); });
    pybind11::array_t<T> array(shape, values, capsule);
    array.attr("flags").attr("writeable") = false;
    return array;
}

template <class T, class Owner>
pybind11::array to_view(const CoreBasicArray<T>& values, pybind11::ssize_t width, const std::shared_ptr<Owner>& owner) {
    return to_view(values.get_data(), {extent(values.get_count()) / width, width}, owner);
}

template <class Owner>
pybind11::array to_view(const CoreBasicArray<GMathVec3<float>>& values, pybind11::ssize_t,
                        const std::shared_ptr<Owner>& owner) {
    const float* data = values.is_empty() ? nullptr : values[0].get_data();
    return to_view(data, {extent(values.get_count()), 3}, owner);
}

}  // namespace sds_python
