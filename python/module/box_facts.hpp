// What is known of a box as dictionaries of Python, with the keys of the command's --json.
#ifndef VESK_PYTHON_BOX_FACTS_HPP
#define VESK_PYTHON_BOX_FACTS_HPP

#include <cstdint>
#include <pybind11/pybind11.h>
#include <string>

#include "library_call.hpp"

namespace vesk_python
{

// Each returns a dictionary or a list and the messages that were told. They throw a failure when
// there is no such box.
pybind11::tuple info_of(const std::string &name);
pybind11::tuple check_of(const std::string &name);
// The sensors in the order in which they were unusual at the end of the box. @p last is the length
// in seconds that is compared with what was before, 0 to let the box decide.
pybind11::tuple suspects_of(const std::string &name, const std::vector<std::string> &patterns,
                            int64_t last);

} // namespace vesk_python

#endif
