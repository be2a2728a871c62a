// Calls into the library from Python. The library belongs to one thread at a time, so a call holds
// a lock, and it gives up the interpreter's lock, so other Python threads go on meanwhile. What the
// call has to tell people is collected and becomes warnings of Python.
#ifndef VESK_PYTHON_LIBRARY_CALL_HPP
#define VESK_PYTHON_LIBRARY_CALL_HPP

#include <mutex>
#include <pybind11/pybind11.h>
#include <string>
#include <utility>
#include <vector>

namespace vesk_python
{

using messages = std::vector<std::string>;

// To be called once, when the module is loaded.
void prepare_library();

class library_call
{
public:
    library_call();
    library_call(const library_call &) = delete;
    library_call &operator=(const library_call &) = delete;
    ~library_call() = default;

    // What there was to tell since the call began.
    static messages take_messages();

private:
    // The order matters: whoever waits for the library must not keep the interpreter.
    pybind11::gil_scoped_release interpreter_;
    std::lock_guard<std::mutex> library_;
};

// Does @p work, which must not touch Python, and hands out what it returns and what it told.
template <typename Work>
auto call_library(Work work)
{
    const library_call call;
    auto result = work();
    return std::pair(std::move(result), library_call::take_messages());
}

} // namespace vesk_python

#endif
