// Tables of the program as arrays of NumPy. Each array has its numbers to itself: nothing of a model or run
// has to stay for it.
#pragma once

#include <pybind11/numpy.h>

#include <cstdint>
#include <memory>
#include <span>
#include <utility>
#include <vector>

namespace kestralum::python {

namespace py = pybind11;

using Shape = std::vector<py::ssize_t>;

// The numbers of `values`, whose count is the product of the shape's.
template <typename T>
py::array_t<T> array_of(std::vector<T> values, Shape shape) {
    auto kept = std::make_unique<std::vector<T>>(std::move(values));
    T* const data = kept->data();
    const py::capsule owner(kept.get(), [](void* p) { delete static_cast<std::vector<T>*>(p); });
    kept.release();
    return py::array_t<T>(std::move(shape), data, owner);
}

template <typename T>
py::array_t<T> array_of(std::vector<T> values) {
    const auto count = static_cast<py::ssize_t>(values.size());
    return array_of(std::move(values), {count});
}

// Rows of `components` numbers.
template <typename T>
py::array_t<T> rows_array(std::vector<T> values, int components) {
    const auto rows = static_cast<py::ssize_t>(values.size()) / components;
    return array_of(std::move(values), {rows, components});
}

template <typename T>
std::vector<T> copy_of(std::span<const T> values) {
    return {values.begin(), values.end()};
}

// 1-based numbers as 0-based indices.
inline std::vector<std::int32_t> indices_of(std::span<const std::int32_t> numbers) {
    std::vector<std::int32_t> out(numbers.begin(), numbers.end());
    for (std::int32_t& number : out) --number;
    return out;
}

}  // namespace kestralum::python
