// Walks through the files of a box that the reading holds open.
#include "push/pushed_box.hpp"

#include <charconv>
#include <memory>
#include <numeric>
#include <string_view>
#include <unordered_map>

#include <vesk/sensor_array.h>

#include "text/event_text.hpp"
#include "text/own_events.hpp"

namespace cli
{
namespace
{

uint32_t number_of_history(const stored_file &file)
{
    constexpr std::string_view kind = ".hbuf.z";
    std::string_view name = file.path;
    if (!name.ends_with(kind)) {
        return 0;
    }
    name.remove_suffix(kind.size());
    const std::size_t dot = name.rfind('.');
    name.remove_prefix(dot == std::string_view::npos ? 0 : dot + 1);
    uint32_t number = 0;
    std::from_chars(name.data(), name.data() + name.size(), number);
    return number;
}

class interval_walk : public row_visitor
{
public:
    interval_walk(uint32_t file, std::function<void(const pushed_interval &)> visit)
        : file_(file), visit_(std::move(visit))
    {
    }
    void on_interval(const interval_row &row) override
    {
        visit_({file_, ordinal_++, row.start, row.end, row.values});
    }

private:
    uint32_t file_;
    uint32_t ordinal_ = 0;
    std::function<void(const pushed_interval &)> visit_;
};

// The names of the sensors of a record, kept as long as they stay.
class current_names
{
public:
    const std::vector<std::string> &of(const vesk_cb_record_sensor_names &names)
    {
        if (!array_ || sensor_array_is_equal(array_.get(), names.sensors) == 0) {
            array_.reset(sensor_array_copy(names.sensors));
            texts_ = sensor_names(names);
        }
        return texts_;
    }

private:
    struct release {
        void operator()(sensor_array *array) const { sensor_array_destroy(&array); }
    };
    std::unique_ptr<sensor_array, release> array_;
    std::vector<std::string> texts_;
};

// How many records of a kind came at each time of a file before. Nearly all times are new and
// behind all others, which costs one comparison.
class same_times
{
public:
    uint32_t before(int64_t time) { return seen_[time]++; }

private:
    std::unordered_map<int64_t, uint32_t> seen_;
};

class raw_walk
{
public:
    explicit raw_walk(std::function<void(const raw_record &)> visit) : visit_(std::move(visit)) {}

    void go_over(const stored_file &file)
    {
        place_ = {number_of_file(file), 0};
        samples_ = {};
        events_ = {};
        try {
            scan_file(file, [this](const vesk_scan_item &item) { take(item); });
        } catch (const read_failure &) {
            // The look over the box has told it.
        }
    }

private:
    void take(const vesk_scan_item &item)
    {
        if (!is_raw_record(item)) {
            return;
        }
        ++place_.records;
        if (item.event != nullptr) {
            const int64_t time = item.event->timestamp.tv.tv_sec;
            const char *text = item.event->text != nullptr ? item.event->text : "";
            visit_({place_,
                    events_.before(time),
                    time,
                    nullptr,
                    {},
                    static_cast<uint8_t>(item.event->type),
                    text});
        } else {
            const int64_t time = item.values->timestamp.tv.tv_sec;
            visit_({place_,
                    samples_.before(time),
                    time,
                    &names_.of(*item.names),
                    {item.values->values, item.values->n_sensors},
                    0,
                    {}});
        }
    }

    std::function<void(const raw_record &)> visit_;
    raw_position place_;
    current_names names_;
    same_times samples_;
    same_times events_;
};

// The newest host that a recording has left among the events, and the events that wait.
class event_survey : public row_visitor
{
public:
    event_survey(std::string &host, uint64_t &waiting) : host_(host), waiting_(waiting) {}
    void on_event(const event_row &row) override
    {
        waiting_ += row.waits ? 1 : 0;
        const std::optional<parsed_event> event = parse_event_text(row.text);
        if (event) {
            const machine_identity found = identity_in(*event);
            host_ = found.host.empty() ? host_ : found.host;
        }
    }

private:
    std::string &host_;
    uint64_t &waiting_;
};

} // namespace

pushed_box::pushed_box(const std::string &name) : source_(name, reading::tiers::none)
{
    if (source_.source().is_file) {
        throw failure(exit_usage, name + ": is one file; a box is pushed by its base name");
    }
    for (const stored_file *file : source_.source().history_buffers()) {
        history_file_ = std::max(history_file_, number_of_history(*file));
    }
    event_survey survey(host_, waiting_);
    source_.read({}, {}, survey);
}

std::optional<uint32_t> pushed_box::oldest_raw_file() const
{
    const auto files = source_.source().current_buffers();
    return files.empty() ? std::nullopt : std::optional(number_of_file(*files.front()));
}

void pushed_box::for_each_interval(const std::function<void(const pushed_interval &)> &visit)
{
    std::vector<std::size_t> all(source_.sensors().size());
    std::iota(all.begin(), all.end(), 0);
    interval_walk walk(history_file_, visit);
    source_.read({}, all, walk);
}

void pushed_box::for_each_raw(const std::function<void(const raw_record &)> &visit)
{
    raw_walk walk(visit);
    for (const stored_file *file : source_.source().current_buffers()) {
        walk.go_over(*file);
    }
}

std::optional<int64_t> pushed_box::time_before(const raw_position &place)
{
    std::optional<int64_t> found;
    for (const stored_file *file : source_.source().current_buffers()) {
        if (number_of_file(*file) != place.file) {
            continue;
        }
        raw_walk walk([&](const raw_record &record) {
            if (record.behind == place) {
                found = record.time;
            }
        });
        walk.go_over(*file);
    }
    return found;
}

} // namespace cli
