// Makes tables of what the scanner of the library finds in the files of a box. It follows the rules
// of the command: values without names are left out, so are fillers and intervals whose extremes
// contradict each other, and without a state file the intervals that repeat raw samples.
#include "box_tables.hpp"

#include <cstring>
#include <fmt/format.h>
#include <functional>
#include <limits>
#include <optional>
#include <unordered_set>

#include <vesk/vesk_scan.h>

#include "box/box.hpp"
#include "box/losses.hpp"
#include "box/moments.hpp"
#include "box/reading.hpp"
#include "box/sensor_statistics.hpp"
#include "box/waiting_events.hpp"
#include "process/failure.hpp"
#include "process/terminal.hpp"
#include "row_store.hpp"
#include "stored_streams.hpp"
#include "text/sensor_choice.hpp"
#include "text/time_text.hpp"

namespace vesk_python
{
namespace
{

using item_visitor = std::function<void(const vesk_scan_item &)>;
using file_list = std::vector<const cli::stored_file *>;

bool has_names(const vesk_scan_item &item, uint32_t values)
{
    return item.names != nullptr && item.names->sensors != nullptr &&
           sensor_array_get_size(item.names->sensors) == values;
}

bool is_sample(const vesk_scan_item &item)
{
    return item.kind == VESK_SCAN_SENSOR_VALUES && has_names(item, item.values->n_sensors);
}

bool is_interval(const vesk_scan_item &item)
{
    return item.kind == VESK_SCAN_INTERVAL && has_names(item, item.interval->n_sensors) &&
           !cli::is_filler(*item.interval);
}

bool is_names(const vesk_scan_item &item)
{
    return item.kind == VESK_SCAN_SENSOR_NAMES && item.names->sensors != nullptr;
}

int64_t seconds_of(const timestamp &time)
{
    return time.tv.tv_sec;
}

// As cli::scan_file() does, in less time where the file is whole.
void scan_quickly(const cli::stored_file &file, const item_visitor &visit)
{
    if (file.bytes && file.bytes->is_open()) {
        const std::vector<unsigned char> bytes = file.bytes->read();
        if (const auto stored = stored_streams::of(bytes)) {
            cli::scan_bytes(file.path, stored->bytes(),
                            [&](const vesk_scan_item &item) { visit(stored->in_file(item)); });
            return;
        }
    }
    cli::scan_file(file, visit);
}

// A box that is held open, and what was told about it.
class open_box
{
public:
    explicit open_box(const std::string &name) : box_(cli::find_box(name))
    {
        if (!box_.is_file && box_.state.error != 0) {
            losses_.add_state(box_.state);
        }
        for (const cli::stored_file &file : box_.files) {
            if (file.missing) {
                losses_.add_missing(file);
            }
        }
    }

    const cli::box &content() const { return box_; }
    file_list raw() const { return box_.current_buffers(); }
    file_list history() const { return box_.history_buffers(); }
    bool has_state() const { return box_.is_file || box_.state.error == 0; }
    cli::summing how_summed() const { return cli::how_summed(box_); }

    // Shows every item of the files and tells what is damaged.
    void scan(const file_list &files, const item_visitor &visit)
    {
        for (const cli::stored_file *file : files) {
            try {
                scan_quickly(*file, [&](const vesk_scan_item &item) {
                    losses_.add(file->path, item);
                    visit(item);
                });
            } catch (const cli::read_failure &reason) {
                losses_.add_unread(reason);
            }
            losses_.end_file(file->path);
        }
    }

    cli::time_range range_of(const selection &wanted)
    {
        const bool relative = wanted.start.from_end || wanted.end.from_end;
        const int64_t end = relative ? last_time() : 0;
        const auto moment = [&](const bound &one) {
            return one.from_end ? end + one.seconds : one.seconds;
        };
        return {moment(wanted.start), moment(wanted.end)};
    }

private:
    // Of the latest raw sample, or without any of the latest interval. Tells nothing: the same
    // files are read again.
    int64_t last_time() const
    {
        std::optional<int64_t> last;
        for (const file_list &files : {raw(), history()}) {
            for (const cli::stored_file *file : files) {
                try {
                    cli::scan_file(*file, [&](const vesk_scan_item &item) {
                        if (is_sample(item)) {
                            last = seconds_of(item.values->timestamp);
                        } else if (is_interval(item)) {
                            last = seconds_of(item.interval->end);
                        }
                    });
                } catch (const cli::read_failure &) {
                    continue;
                }
            }
            if (last) {
                break;
            }
        }
        return last.value_or(0);
    }

    cli::box box_;
    cli::losses losses_;
};

void tell_exceeded(const sensor_columns &columns)
{
    if (columns.is_exceeded()) {
        cli::note(
            fmt::format("more than {} sensors: the others are left out", cli::most_named_sensors));
    }
}

summary summary_of(const hist_value &value, const cli::summing &how)
{
    constexpr float nothing = std::numeric_limits<float>::quiet_NaN();
    const cli::moments numbers(value, how);
    if (value.count == 0 || !cli::moments::is_possible(value)) {
        return {0, nothing, nothing, nothing, nothing, nothing, nothing, nothing, nothing};
    }
    return {value.count,
            value.min_value,
            static_cast<float>(numbers.mean()),
            value.max_value,
            static_cast<float>(numbers.deviation().reliable()),
            static_cast<float>(numbers.skewness()),
            static_cast<float>(numbers.kurtosis()),
            value.first_value,
            value.last_value};
}

// Collects the intervals of a box.
class history_reader
{
public:
    history_reader(open_box &source, const selection &wanted)
        : source_(source), wanted_(wanted), range_(source.range_of(wanted)),
          how_(source.how_summed())
    {
    }

    history_table read()
    {
        // The raw samples have the order in which the machine names its sensors; the sums of
        // history stand in an order of their own.
        std::optional<int64_t> raw_begin;
        source_.scan(source_.raw(), [&](const vesk_scan_item &item) {
            if (is_names(item)) {
                columns_.columns(*item.names);
            } else if (is_sample(item) && !raw_begin) {
                raw_begin = seconds_of(item.values->timestamp);
            }
        });
        // Without a state file nobody knows which raw samples the history holds already.
        repeated_from_ = source_.has_state() ? std::nullopt : raw_begin;
        source_.scan(source_.history(), [&](const vesk_scan_item &item) { take(item); });
        tell_exceeded(columns_);
        if (impossible_ > 0) {
            cli::note(fmt::format("{} of history left out: the extremes contradict each other",
                                  cli::counted(impossible_, "value")));
        }
        finish();
        return std::move(table_);
    }

private:
    void take(const vesk_scan_item &item)
    {
        if (is_names(item)) {
            for (const std::size_t column : columns_.columns(*item.names)) {
                summed_.insert(column);
            }
        } else if (is_interval(item)) {
            take_interval(*item.names, *item.interval);
        }
    }

    void take_interval(const vesk_cb_record_sensor_names &names,
                       const vesk_hb_record_sensor_values &interval)
    {
        const int64_t start = seconds_of(interval.start);
        const int64_t end = seconds_of(interval.end);
        if (!range_.touches(start, end) || (repeated_from_ && end >= *repeated_from_)) {
            return;
        }
        table_.starts.add(start);
        table_.ends.add(end);
        const vesk_hb_record_events &events = interval.events;
        for (const uint32_t count :
             {events.n_type1_events, events.n_type2_events, events.n_type3_events,
              events.n_type4_events, events.n_type5_events}) {
            table_.events.add(count);
        }
        summary *row = rows_.add_row(columns_.columns(names));
        for (uint32_t i = 0; i < interval.n_sensors; ++i) {
            impossible_ += cli::moments::is_possible(interval.hvalues[i]) ? 0U : 1U;
            row[i] = summary_of(interval.hvalues[i], how_);
        }
    }

    void finish()
    {
        column_list summed;
        for (std::size_t i = 0; i < columns_.names().size(); ++i) {
            if (summed_.count(i) != 0) {
                summed.push_back(i);
            }
        }
        const std::vector<std::string> names = cli::names_of(columns_.names(), summed);
        column_list chosen = choose_columns(names, wanted_.patterns);
        table_.sensors = cli::names_of(names, chosen);
        for (std::size_t &column : chosen) {
            column = summed[column];
        }
        table_.values = rows_.table(chosen, summary_of({}, how_));
    }

    open_box &source_;
    const selection &wanted_;
    cli::time_range range_;
    cli::summing how_;
    sensor_columns columns_;
    std::unordered_set<std::size_t> summed_; // columns of sensors that the history names
    row_store<summary> rows_;
    history_table table_;
    std::optional<int64_t> repeated_from_;
    uint64_t impossible_ = 0;
};

// Events that wait are told apart from a box that cannot be read without them.
std::vector<cli::event> waiting_in(const cli::box &content)
{
    try {
        return content.is_file ? std::vector<cli::event>() : cli::waiting_events_of(content);
    } catch (const cli::failure &reason) {
        cli::complain(reason.what());
        return {};
    }
}

} // namespace

sample_table read_samples(const std::string &name, const selection &wanted)
{
    open_box source(name);
    const cli::time_range range = source.range_of(wanted);
    sensor_columns columns;
    row_store<float> rows;
    sample_table table;
    source.scan(source.raw(), [&](const vesk_scan_item &item) {
        if (is_names(item)) {
            columns.columns(*item.names);
        } else if (is_sample(item) && range.holds(seconds_of(item.values->timestamp))) {
            table.times.add(seconds_of(item.values->timestamp));
            float *row = rows.add_row(columns.columns(*item.names));
            std::memcpy(row, item.values->values, item.values->n_sensors * sizeof(float));
        }
    });
    tell_exceeded(columns);
    const column_list chosen = choose_columns(columns.names(), wanted.patterns);
    table.sensors = cli::names_of(columns.names(), chosen);
    table.values = rows.table(chosen, std::numeric_limits<float>::quiet_NaN());
    return table;
}

history_table read_history(const std::string &name, const selection &wanted)
{
    open_box source(name);
    return history_reader(source, wanted).read();
}

std::vector<box_event> read_events(const std::string &name, const selection &wanted)
{
    open_box source(name);
    const cli::time_range range = source.range_of(wanted);
    std::vector<box_event> events;
    const auto add = [&](int64_t time, uint32_t type, const char *text, bool waits) {
        if (range.holds(time)) {
            events.push_back({time, type, text != nullptr ? text : "", waits});
        }
    };
    source.scan(source.raw(), [&](const vesk_scan_item &item) {
        if (item.event != nullptr) {
            add(seconds_of(item.event->timestamp), item.event->type, item.event->text, false);
        }
    });
    for (const cli::event &what : waiting_in(source.content())) {
        add(what.time, what.type, what.text.c_str(), true);
    }
    return events;
}

} // namespace vesk_python
