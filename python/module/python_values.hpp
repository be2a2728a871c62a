// Values of Python made from those of a box.
#ifndef VESK_PYTHON_PYTHON_VALUES_HPP
#define VESK_PYTHON_PYTHON_VALUES_HPP

#include <cstdint>
#include <optional>
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>
#include <string>
#include <vector>

#include "growing_array.hpp"

namespace vesk_python
{

// Texts of unknown origin, with what is no UTF-8 made readable.
pybind11::str python_text(const std::string &text);
pybind11::list python_texts(const std::vector<std::string> &texts);

template <typename Value>
pybind11::object python_or_none(const std::optional<Value> &value)
{
    return value ? pybind11::cast(*value) : pybind11::none();
}

// An array of numpy that owns what @p values held. Nothing is copied.
template <typename Value>
pybind11::array_t<Value> numpy_array(growing_array<Value> values,
                                     const std::vector<pybind11::ssize_t> &shape)
{
    if (values.size() == 0) {
        return pybind11::array_t<Value>(shape);
    }
    Value *const block = values.release();
    const pybind11::capsule owner(block, [](void *memory) { std::free(memory); }); // NOLINT
    return pybind11::array_t<Value>(shape, block, owner);
}

} // namespace vesk_python

#endif
