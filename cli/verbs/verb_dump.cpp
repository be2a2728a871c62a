// vesk dump BASE|FILE: prints the content of a box or of one buffer, oldest first, as text
// telemetry that `vesk import` reads back; with options also the history or the events. Damaged
// places are reported on standard error and skipped, and the exit code tells of them.
#include <cmath>
#include <cstdio>
#include <fmt/format.h>
#include <memory>
#include <span>

#include <vesk/error.h>
#include <vesk/sensor_array.h>
#include <vesk/vesk_buffer.h>

#include "box/box.hpp"
#include "box/losses.hpp"
#include "box/waiting_events.hpp"
#include "process/failure.hpp"
#include "process/output.hpp"
#include "process/terminal.hpp"
#include "text/machine_text.hpp"
#include "text/telemetry_text.hpp"
#include "text/value_text.hpp"
#include "verbs/common_options.hpp"
#include "verbs/verb.hpp"

namespace cli
{
namespace
{

struct dump_options {
    std::string name;
    bool history = false;
    bool events = false;
    bool utc = false;
};

struct array_release {
    void operator()(sensor_array *array) const { sensor_array_destroy(&array); }
};

// Remembers the sensors of the latest header.
class current_sensors
{
public:
    // True when @p names has other sensors than the last time.
    bool changed(const vesk_cb_record_sensor_names &names)
    {
        if (array_ && sensor_array_is_equal(array_.get(), names.sensors) != 0) {
            return false;
        }
        array_.reset(sensor_array_copy(names.sensors));
        texts_ = sensor_names(names);
        return true;
    }
    const std::vector<std::string> &names() const { return texts_; }

private:
    std::unique_ptr<sensor_array, array_release> array_;
    std::vector<std::string> texts_;
};

class sample_dump
{
public:
    void show(const vesk_scan_item &item)
    {
        if (item.kind != VESK_SCAN_SENSOR_VALUES) {
            return;
        }
        const std::span<const float> values(item.values->values, item.values->n_sensors);
        const int64_t time = item.values->timestamp.tv.tv_sec;
        // Values without matching names are left out, because nobody could tell what they mean.
        if (item.names == nullptr || item.names->sensors == nullptr ||
            sensor_array_get_size(item.names->sensors) != values.size()) {
            return;
        }
        if (sensors_.changed(*item.names)) {
            const std::string header = header_line(time, sensors_.names());
            warn_about(header);
            put(header);
        }
        put(values_line(time, values));
    }

private:
    void warn_about(std::string_view header)
    {
        const std::vector<std::string> written = representable_names(sensors_.names());
        for (std::size_t i = 0; i < written.size(); ++i) {
            const std::string &name = sensors_.names()[i];
            if (written[i] != name) {
                note(fmt::format("the sensor '{}' is written as '{}'", name, written[i]));
            }
        }
        header.remove_suffix(1);
        if (!is_header_line(header)) {
            note(fmt::format("readers will not recognise the header line that begins with '{}': no "
                             "name in it begins with '::' or holds a word of the format",
                             printable(header.substr(0, 60))));
        }
    }

    current_sensors sensors_;
};

class history_dump
{
public:
    explicit history_dump(const summing &how) : how_(how)
    {
        put("start,end,sensor,count,min,max,mean,first,last,stddev\n");
    }

    void show(const vesk_scan_item &item)
    {
        if (item.kind != VESK_SCAN_INTERVAL || item.names == nullptr ||
            item.names->sensors == nullptr ||
            sensor_array_get_size(item.names->sensors) != item.interval->n_sensors) {
            return;
        }
        if (sensors_.changed(*item.names)) {
            names_.clear();
            for (const std::string &name : sensors_.names()) {
                names_.push_back(csv_field(name));
            }
        }
        const std::string span = format_time(item.interval->start.tv.tv_sec) + "," +
                                 format_time(item.interval->end.tv.tv_sec) + ",";
        for (uint32_t i = 0; i < item.interval->n_sensors; ++i) {
            put(line(span, names_[i], item.interval->hvalues[i]));
        }
    }

private:
    std::string line(const std::string &span, const std::string &name,
                     const hist_value &value) const
    {
        std::string text = fmt::format("{}{},{}", span, name, value.count);
        const moments numbers(value, how_);
        const float missing = std::nanf("");
        const bool any = value.count > 0;
        for (const float number :
             {any ? value.min_value : missing, any ? value.max_value : missing,
              static_cast<float>(numbers.mean()), any ? value.first_value : missing,
              any ? value.last_value : missing,
              static_cast<float>(numbers.deviation().reliable())}) {
            text += ',';
            append_value(text, number);
        }
        return text + '\n';
    }

    summing how_;
    current_sensors sensors_;
    std::vector<std::string> names_;
};

// Prints events, also as CSV.
class event_dump
{
public:
    event_dump() { put("time,type,text\n"); }

    static void show(const vesk_scan_item &item)
    {
        if (item.event == nullptr) {
            return;
        }
        const char *text = item.event->text != nullptr ? item.event->text : "";
        put(fmt::format("{},{},{}\n", format_time(item.event->timestamp.tv.tv_sec),
                        item.event->type, csv_field(text)));
    }
};

template <typename Dump>
exit_code show_files(const std::vector<const stored_file *> &files, losses &lost, Dump output)
{
    std::size_t unreadable = 0;
    for (const stored_file *file : files) {
        bool any = false;
        try {
            scan_file(*file, [&](const vesk_scan_item &item) {
                any = any || item.kind != VESK_SCAN_DAMAGE;
                lost.add(file->path, item);
                output.show(item);
            });
        } catch (const read_failure &reason) {
            lost.add_unread(reason);
        }
        lost.end_file(file->path);
        unreadable += any || file->size == 0 ? 0 : 1;
    }
    flush_output();
    return lost.code(unreadable == files.size());
}

exit_code dump(const dump_options &options)
{
    if (options.history && options.events) {
        throw failure(exit_usage, "--history and --events: one of them at a time");
    }
    if (options.utc) {
        use_utc();
    }
    const box found = find_box(options.name);
    losses lost;
    if (!found.is_file && found.state.error != 0) {
        lost.add_state(found.state);
    }
    for (const stored_file &file : found.files) {
        if (file.missing && file.is_history() == options.history) {
            lost.add_missing(file);
        }
    }
    if (found.is_file && found.files.front().is_history() != options.history) {
        throw failure(exit_usage,
                      fmt::format("{} is a {}", options.name,
                                  options.history ? "current buffer: it holds no history"
                                                  : "history buffer: use --history"));
    }
    if (options.events) {
        const exit_code result = show_files(found.current_buffers(), lost, event_dump());
        for (const event &what : waiting_events_of(found)) {
            put(fmt::format("{},{},{}\n", format_time(what.time), what.type, csv_field(what.text)));
        }
        flush_output();
        return result;
    }
    return options.history
               ? show_files(found.history_buffers(), lost, history_dump(how_summed(found)))
               : show_files(found.current_buffers(), lost, sample_dump());
}

action prepare(option_list &options)
{
    const auto chosen = std::make_shared<dump_options>();
    options.required_word("BASE|FILE", chosen->name, "Name of a box, or one of its buffer files");
    options.flag("--history", chosen->history,
                 "Print the summarised intervals as CSV instead of the raw samples");
    options.flag("--events", chosen->events, "Print the events as CSV instead of the samples");
    add_utc_output(options, chosen->utc);
    return [chosen] { return dump(*chosen); };
}

constexpr const char *more = "Raw samples are printed as text telemetry. Values are the shortest "
                             "decimals that read back exactly;\n"
                             "nan is a missing value. Files are only read.\n"
                             "\n"
                             "Examples:\n"
                             "  vesk dump box > box.kelt\n"
                             "  vesk dump --history box | grep ,::cpu.total.busy_percent,\n"
                             "  vesk dump box.3.cbuf.z\n";

const registration registered({40, "dump", "Print what a box holds, oldest first", more, prepare});

} // namespace
} // namespace cli
