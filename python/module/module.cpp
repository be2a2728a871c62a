// The compiled half of the Python package vesk: tables and facts of boxes, and a recorder. The
// other half, which users see, is written in Python and checks types; see python/vesk.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <vesk/error.h>
#include <vesk/vesk_version.h>

#include "box/box.hpp"
#include "box/box_lock.hpp"
#include "box/event_record.hpp"
#include "box/storage_failure.hpp"
#include "box_facts.hpp"
#include "box_tables.hpp"
#include "library_call.hpp"
#include "process/terminal.hpp"
#include "python_values.hpp"
#include "recording.hpp"
#include "text/duration.hpp"
#include "text/time_text.hpp"

namespace py = pybind11;

namespace vesk_python
{
namespace
{

using float_array = py::array_t<float, py::array::c_style>;
using time_array = py::array_t<int64_t, py::array::c_style>;

// Names and paths come as bytes, so that no text of Python is refused on the way.
using byte_texts = std::vector<py::bytes>;

std::vector<std::string> texts_of(const byte_texts &texts)
{
    return {texts.begin(), texts.end()};
}

selection select(const byte_texts &patterns, int64_t start, bool start_from_end, int64_t end,
                 bool end_from_end)
{
    return {texts_of(patterns), {start, start_from_end}, {end, end_from_end}};
}

py::ssize_t length_of(std::size_t size)
{
    return static_cast<py::ssize_t>(size);
}

py::tuple samples(const py::bytes &name, const byte_texts &patterns, int64_t start,
                  bool start_from_end, int64_t end, bool end_from_end)
{
    const std::string path = name;
    const selection wanted = select(patterns, start, start_from_end, end, end_from_end);
    auto [table, told] = call_library([&] { return read_samples(path, wanted); });
    const py::ssize_t rows = length_of(table.times.size());
    return py::make_tuple(
        python_texts(table.sensors), numpy_array(std::move(table.times), {rows}),
        numpy_array(std::move(table.values), {rows, length_of(table.sensors.size())}),
        python_texts(told));
}

py::tuple history(const py::bytes &name, const byte_texts &patterns, int64_t start,
                  bool start_from_end, int64_t end, bool end_from_end)
{
    const std::string path = name;
    const selection wanted = select(patterns, start, start_from_end, end, end_from_end);
    auto [table, told] = call_library([&] { return read_history(path, wanted); });
    const py::ssize_t rows = length_of(table.starts.size());
    return py::make_tuple(
        python_texts(table.sensors), numpy_array(std::move(table.starts), {rows}),
        numpy_array(std::move(table.ends), {rows}), numpy_array(std::move(table.events), {rows, 5}),
        numpy_array(std::move(table.values), {rows, length_of(table.sensors.size())}),
        python_texts(told));
}

py::tuple events(const py::bytes &name, int64_t start, bool start_from_end, int64_t end,
                 bool end_from_end)
{
    const std::string path = name;
    const selection wanted = select({}, start, start_from_end, end, end_from_end);
    const auto [found, told] = call_library([&] { return read_events(path, wanted); });
    py::list result;
    for (const box_event &one : found) {
        result.append(py::make_tuple(one.time, one.type, python_text(one.text), one.waits));
    }
    return py::make_tuple(result, python_texts(told));
}

// The recorder with the lock of the library around each call. Each call returns the messages that
// were told.
class locked_recording
{
public:
    locked_recording(const py::bytes &base, std::optional<uint32_t> samples,
                     std::optional<uint32_t> intervals, const std::string &sync, bool create)
    {
        const std::string path = base;
        told_ = call_library([&] {
                    recording_ = std::make_unique<recording>(
                        path, cli::box_shape{samples, intervals}, sync, create);
                    return 0;
                }).second;
    }
    locked_recording(const locked_recording &) = delete;
    locked_recording &operator=(const locked_recording &) = delete;
    ~locked_recording()
    {
        const library_call call;
        recording_.reset();
    }

    py::list told_at_start() const { return python_texts(told_); }

    py::list set_sensors(const byte_texts &names)
    {
        const std::vector<std::string> texts = texts_of(names);
        return told([&] { recording_->set_sensors(texts); });
    }

    py::list write(int64_t time, const float_array &values)
    {
        const std::span<const float> row = span_of(values);
        return told([&] { recording_->write(time, row); });
    }

    // Ends with the first row that fails; written() tells how many came before it.
    py::list write_many(const time_array &times, const float_array &values)
    {
        if (times.ndim() != 1 || values.ndim() != 2 || values.shape(0) != times.shape(0)) {
            throw bad_value("times and values do not have the same number of rows");
        }
        const auto rows = static_cast<std::size_t>(times.shape(0));
        const auto width = static_cast<std::size_t>(values.shape(1));
        const int64_t *const time = times.data();
        const float *const all = values.data();
        return told([&] {
            for (std::size_t row = 0; row < rows; ++row) {
                recording_->write(time[row], {all + row * width, width});
            }
        });
    }

    py::tuple write_event(uint32_t type, int64_t time, const py::bytes &text)
    {
        const std::string words = text;
        const auto [recorded, messages] =
            call_library([&] { return recording_->write_event(type, time, words); });
        return py::make_tuple(recorded, python_texts(messages));
    }

    py::list sync()
    {
        return told([&] { recording_->sync(); });
    }
    py::list close()
    {
        return told([&] { recording_->close(); });
    }
    bool is_open() const { return recording_->is_open(); }
    std::size_t written() const { return recording_->written(); }
    std::size_t waiting() const { return recording_->waiting(); }

private:
    template <typename Work>
    py::list told(Work work)
    {
        return python_texts(call_library([&] {
                                work();
                                return 0;
                            }).second);
    }

    static std::span<const float> span_of(const float_array &values)
    {
        if (values.ndim() != 1) {
            throw bad_value("the values of a sample are one row");
        }
        return {values.data(), static_cast<std::size_t>(values.shape(0))};
    }

    std::unique_ptr<recording> recording_;
    messages told_;
};

// "-1h30m" is this far from the end of a box.
int64_t seconds_from_end(const std::string &text)
{
    const cli::moment found = cli::parse_moment(text, "time", cli::twin::earlier);
    if (!found.from_end) {
        throw bad_value("time " + cli::printable(text) + ": is no distance from the end of a box");
    }
    return found.seconds;
}

// The words of the command about its options, for users who have arguments instead.
std::string without_option(std::string text)
{
    constexpr std::string_view option = "--sensor";
    if (text.starts_with(option)) {
        text.replace(0, option.size(), "sensors");
    }
    for (const std::string_view name : {"--samples", "--intervals", "--sync"}) {
        for (auto at = text.find(name); at != std::string::npos; at = text.find(name)) {
            text.erase(at, 2);
        }
    }
    return text;
}

void raise(const char *type, const std::string &text)
{
    // The exceptions are defined in Python, where users look for their description.
    const py::object errors = py::module_::import("vesk._errors");
    const py::object words = python_text(cli::printable(text));
    PyErr_SetObject(errors.attr(type).ptr(), words.ptr());
}

// pybind11 prescribes the parameter.
void translate(std::exception_ptr thrown) // NOLINT(performance-unnecessary-value-param)
{
    try {
        if (thrown) {
            std::rethrow_exception(thrown);
        }
    } catch (const bad_value &reason) {
        PyErr_SetObject(PyExc_ValueError, python_text(reason.what()).ptr());
    } catch (const cli::unrecordable_event &reason) {
        PyErr_SetObject(
            PyExc_ValueError,
            python_text(std::string("the event cannot be recorded: ") + reason.what()).ptr());
    } catch (const cli::box_in_use &reason) {
        raise("BoxInUseError", reason.what());
    } catch (const cli::passing_failure &reason) {
        raise("StorageError", reason.what());
    } catch (const cli::failure &reason) {
        if (reason.code() == cli::exit_usage) {
            const std::string text = without_option(cli::printable(reason.what()));
            PyErr_SetObject(PyExc_ValueError, python_text(text).ptr());
        } else {
            raise(reason.code() == cli::exit_unreadable ? "UnreadableError" : "Error",
                  reason.what());
        }
    }
}

void define_recorder(py::module_ &module)
{
    py::class_<locked_recording>(module, "Recording")
        .def(py::init<const py::bytes &, std::optional<uint32_t>, std::optional<uint32_t>,
                      const std::string &, bool>(),
             py::arg("base"), py::arg("samples"), py::arg("intervals"), py::arg("sync"),
             py::arg("create"))
        .def("told_at_start", &locked_recording::told_at_start)
        .def("set_sensors", &locked_recording::set_sensors, py::arg("names"))
        .def("write", &locked_recording::write, py::arg("time"), py::arg("values").noconvert())
        .def("write_many", &locked_recording::write_many, py::arg("times").noconvert(),
             py::arg("values").noconvert())
        .def("write_event", &locked_recording::write_event, py::arg("type"), py::arg("time"),
             py::arg("text"))
        .def("sync", &locked_recording::sync)
        .def("close", &locked_recording::close)
        .def_property_readonly("is_open", &locked_recording::is_open)
        .def_property_readonly("written", &locked_recording::written)
        .def_property_readonly("waiting", &locked_recording::waiting);
}

} // namespace
} // namespace vesk_python

PYBIND11_MODULE(_vesk, module)
{
    using namespace vesk_python;
    prepare_library();
    py::register_exception_translator(translate);
    PYBIND11_NUMPY_DTYPE(summary, count, min, mean, max, stddev, skewness, kurtosis, first, last);
    module.doc() = "The compiled half of vesk; use the package vesk.";
    const auto define_table = [&](const char *name, auto function) {
        module.def(name, function, py::arg("name"), py::arg("patterns"), py::arg("start"),
                   py::arg("start_from_end"), py::arg("end"), py::arg("end_from_end"));
    };
    define_table("samples", samples);
    define_table("history", history);
    module.def("events", events, py::arg("name"), py::arg("start"), py::arg("start_from_end"),
               py::arg("end"), py::arg("end_from_end"));
    module.def(
        "find",
        [](const py::bytes &name) {
            const std::string path = name;
            call_library([&] { return cli::find_box(path); });
        },
        py::arg("name"));
    module.def(
        "info", [](const py::bytes &name) { return info_of(name); }, py::arg("name"));
    module.def(
        "check", [](const py::bytes &name) { return check_of(name); }, py::arg("name"));
    module.def(
        "suspects",
        [](const py::bytes &name, const byte_texts &patterns, int64_t last) {
            return suspects_of(name, texts_of(patterns), last);
        },
        py::arg("name"), py::arg("patterns"), py::arg("last"));
    module.def("seconds_from_end", seconds_from_end, py::arg("text"));
    module.def(
        "seconds_of", [](const std::string &text) { return cli::parse_duration(text, "last"); },
        py::arg("text"));
    module.def(
        "error_text", [](int code) { return std::string(qe_error_text(code)); }, py::arg("code"));
    module.def("version", [] { return std::string(vesk_version()); });
    define_recorder(module);
}
