// Reads a box twice: the first pass collects sensors, times and damage, the second hands the rows
// to a receiver in the order of time. Rows whose names are damaged or do not match their values are
// left out, since nobody could tell what the values mean. Both passes use the same open files, so
// they see the same content.
#include "box/reading.hpp"

#include <algorithm>
#include <fmt/format.h>
#include <limits>
#include <unordered_map>
#include <unordered_set>

#include <vesk/sensor_array.h>

#include "box/column_map.hpp"
#include "box/joined_tiers.hpp"
#include "box/waiting_events.hpp"
#include "process/terminal.hpp"

namespace cli
{
namespace
{

// Values without matching names are left out, because nobody could tell what they mean.
bool has_names(const vesk_scan_item &item, uint32_t values)
{
    return item.names != nullptr && item.names->sensors != nullptr &&
           sensor_array_get_size(item.names->sensors) == values;
}

bool is_interval(const vesk_scan_item &item)
{
    return item.kind == VESK_SCAN_INTERVAL && has_names(item, item.interval->n_sensors) &&
           !is_filler(*item.interval);
}

int64_t seconds_of(const timestamp &time)
{
    return time.tv.tv_sec;
}

// Finds the step that most samples have.
class step_count
{
public:
    void add(int64_t time)
    {
        if (any_ && time > last_ &&
            (steps_.size() < most_steps || steps_.count(time - last_) > 0)) {
            ++steps_[time - last_];
        }
        any_ = true;
        last_ = time;
    }
    // Of two steps that are equally frequent, the shorter one is taken.
    int64_t usual() const
    {
        int64_t best = 0;
        uint64_t count = 0;
        for (const auto &[step, times] : steps_) {
            if (times > count || (times == count && step < best)) {
                best = step;
                count = times;
            }
        }
        return best;
    }

private:
    static constexpr std::size_t most_steps = 4096;
    std::unordered_map<int64_t, uint64_t> steps_;
    int64_t last_ = 0;
    bool any_ = false;
};

} // namespace

bool is_filler(const vesk_hb_record_sensor_values &interval)
{
    const vesk_hb_record_events &events = interval.events;
    const bool has_events = (events.n_type1_events | events.n_type2_events | events.n_type3_events |
                             events.n_type4_events | events.n_type5_events) != 0;
    const std::span<const hist_value> values(interval.hvalues, interval.n_sensors);
    return !has_events && std::all_of(values.begin(), values.end(),
                                      [](const hist_value &value) { return value.count == 0; });
}

// The first pass: collects sensors, times and damage.
class reading::survey
{
public:
    explicit survey(reading &found) : found_(found) {}

    void look_over()
    {
        const auto raw = found_.box_.current_buffers();
        const auto history = found_.box_.history_buffers();
        // The raw samples have the order in which the machine names its sensors; the sums of
        // history stand in an order of their own.
        for (const stored_file *file : raw) {
            look_at(*file);
        }
        const std::optional<int64_t> raw_begin = found_.begin_;
        const std::optional<int64_t> raw_end = found_.end_;
        if (!found_.box_.is_file && found_.box_.state.error != 0) {
            found_.history_ends_before_ = raw_begin;
        }
        found_.begin_.reset();
        for (const stored_file *file : history) {
            look_at(*file);
        }
        found_.begin_ = found_.begin_ ? found_.begin_ : raw_begin;
        found_.end_ = raw_end ? raw_end : found_.end_;
        found_.usual_step_ = steps_.usual();
        found_.nothing_ = unreadable_ == raw.size() + history.size();
        if (too_many_) {
            note(fmt::format("more than {} sensors: the others are left out", most_named_sensors));
        }
        if (impossible_ > 0) {
            note(fmt::format("{} of history left out: the extremes contradict each other",
                             counted(impossible_, "value")));
        }
    }

private:
    void look_at(const stored_file &file)
    {
        bool any = false;
        kept_checks::scan check(file);
        try {
            scan_file(file, [&](const vesk_scan_item &item) {
                check.look_at(item);
                any = any || item.kind != VESK_SCAN_DAMAGE;
                found_.losses_.add(file.path, item);
                look_at(item);
            });
            found_.checks_.keep(std::move(check));
        } catch (const read_failure &reason) {
            found_.losses_.add_unread(reason);
        }
        found_.losses_.end_file(file.path);
        unreadable_ += any || file.size == 0 ? 0 : 1;
    }

    void look_at(const vesk_scan_item &item)
    {
        if (item.kind == VESK_SCAN_SENSOR_NAMES) {
            add_names(*item.names);
        } else if (is_sample(item)) {
            ++found_.samples_;
            const int64_t time = seconds_of(item.values->timestamp);
            steps_.add(time);
            extend(time, time);
        } else if (is_interval(item)) {
            look_at_interval(*item.interval);
        }
    }

    void look_at_interval(const vesk_hb_record_sensor_values &interval)
    {
        const std::span<const hist_value> values(interval.hvalues, interval.n_sensors);
        impossible_ += static_cast<uint64_t>(
            std::count_if(values.begin(), values.end(),
                          [](const hist_value &value) { return !moments::is_possible(value); }));
        if (!found_.is_left_out(interval)) {
            ++found_.intervals_;
            extend(seconds_of(interval.start), seconds_of(interval.end));
        }
    }

    void extend(int64_t first, int64_t last)
    {
        found_.begin_ = found_.begin_ ? found_.begin_ : first;
        found_.end_ = last;
        if (!found_.extent_) {
            found_.extent_ = {first, last};
        }
        found_.extent_->from = std::min({found_.extent_->from, first, last});
        found_.extent_->to = std::max({found_.extent_->to, first, last});
    }

    void add_names(const vesk_cb_record_sensor_names &names)
    {
        for (std::string &name : sensor_names(names)) {
            if (known_.size() == most_named_sensors) {
                too_many_ = too_many_ || known_.count(name) == 0;
            } else if (known_.insert(name).second) {
                found_.sensors_.push_back(std::move(name));
            }
        }
    }

    reading &found_;
    std::unordered_set<std::string> known_;
    step_count steps_;
    std::size_t unreadable_ = 0;
    uint64_t impossible_ = 0;
    bool too_many_ = false;
};

// The second pass: hands out the rows.
class reading::walk
{
public:
    walk(reading &source, const time_range &range, const std::vector<std::size_t> &chosen,
         row_visitor &visitor)
        : source_(source), range_(range), visitor_(visitor), columns_(source.sensors_, chosen),
          values_(chosen.size()), summaries_(chosen.size()), pointers_(chosen.size())
    {
    }

    void go()
    {
        for (const stored_file *file : source_.box_.history_buffers()) {
            go_over(*file);
        }
        position_ = {};
        for (const stored_file *file : source_.box_.current_buffers()) {
            position_ = {number_of_file(*file), 0};
            go_over(*file);
        }
        if (source_.box_.is_file) {
            return;
        }
        for (const event &what : waiting_events_of(source_.box_)) {
            hand_out(what.time, what.type, what.text, true);
        }
    }

    // Behind the last raw record that was looked at.
    const raw_position &position() const { return position_; }

private:
    void go_over(const stored_file &file)
    {
        try {
            scan_file(file, [&](const vesk_scan_item &item) { go_over(item); });
        } catch (const read_failure &reason) {
            // What the first pass could not read, either, it has reported.
            if (source_.losses_.code(false) != exit_failed) {
                source_.losses_.add_unread(reason);
            }
        }
    }

    void go_over(const vesk_scan_item &item)
    {
        position_.records += is_raw_record(item) ? 1U : 0U;
        if (item.event != nullptr) {
            hand_out(seconds_of(item.event->timestamp), item.event->type,
                     item.event->text != nullptr ? item.event->text : "", false);
        } else if (is_sample(item)) {
            hand_out_sample(*item.names, *item.values);
        } else if (is_interval(item) && !source_.is_left_out(*item.interval)) {
            hand_out_interval(*item.names, *item.interval);
        }
    }

    void hand_out(int64_t time, uint32_t type, const std::string &text, bool waits)
    {
        if (range_.holds(time)) {
            visitor_.on_event({time, type, text, waits});
        }
    }

    void hand_out_sample(const vesk_cb_record_sensor_names &names,
                         const vesk_cb_record_sensor_values &record)
    {
        const int64_t time = seconds_of(record.timestamp);
        if (!range_.holds(time)) {
            return;
        }
        if (last_time_ && source_.usual_step_ > 0 && time - *last_time_ > 2 * source_.usual_step_) {
            visitor_.on_gap({*last_time_, time});
        }
        last_time_ = time;
        std::fill(values_.begin(), values_.end(), std::numeric_limits<float>::quiet_NaN());
        for (const auto &[column, place] : columns_.columns(names)) {
            values_[place] = record.values[column];
        }
        visitor_.on_sample({time, values_});
    }

    void hand_out_interval(const vesk_cb_record_sensor_names &names,
                           const vesk_hb_record_sensor_values &interval)
    {
        const int64_t start = seconds_of(interval.start);
        const int64_t end = seconds_of(interval.end);
        if (!range_.touches(start, end)) {
            return;
        }
        std::fill(pointers_.begin(), pointers_.end(), nullptr);
        for (const auto &[column, place] : columns_.columns(names)) {
            if (moments::is_possible(interval.hvalues[column])) {
                summaries_[place] = {interval.hvalues[column]};
                pointers_[place] = &summaries_[place];
            }
        }
        visitor_.on_interval({start, end, pointers_, &interval.events});
    }

    reading &source_;
    time_range range_;
    row_visitor &visitor_;
    column_map columns_;
    std::vector<float> values_;
    std::vector<interval_summary> summaries_;
    std::vector<const interval_summary *> pointers_;
    std::optional<int64_t> last_time_;
    raw_position position_;
};

reading::reading(const std::string &name, tiers with) : box_(find_box(name))
{
    if (!box_.is_file && box_.state.error != 0) {
        losses_.add_state(box_.state);
    }
    for (const stored_file &file : box_.files) {
        if (file.missing) {
            losses_.add_missing(file);
        }
    }
    survey(*this).look_over();
    if (with == tiers::joined && !box_.is_file && name == box_.name) {
        join_tiers();
    }
}

reading::~reading() = default;

void reading::join_tiers()
{
    auto joined = std::make_unique<joined_tiers>(
        box_.name, sensors_, usual_step_,
        [this](const time_range &range, const std::vector<std::size_t> &chosen,
               row_visitor &visitor) { read_box(range, chosen, visitor); });
    tiers_code_ = joined->code();
    if (joined->empty()) {
        return;
    }
    joined_ = std::move(joined);
    sensors_ = joined_->sensors();
    intervals_ = joined_->rows();
    if (const std::optional<time_range> &rows = joined_->extent()) {
        begin_ = std::min(begin_.value_or(rows->from), rows->from);
        end_ = end_.value_or(rows->to);
        extent_ = extent_.value_or(*rows);
        extent_ = {std::min(extent_->from, rows->from), std::max(extent_->to, rows->to)};
    }
}

void reading::read(const time_range &range, const std::vector<std::size_t> &chosen,
                   row_visitor &visitor)
{
    if (joined_) {
        joined_->read(range, chosen, visitor);
    } else {
        read_box(range, chosen, visitor);
    }
}

void reading::read_box(const time_range &range, const std::vector<std::size_t> &chosen,
                       row_visitor &visitor)
{
    walk rows(*this, range, chosen, visitor);
    rows.go();
    position_ = rows.position();
}

std::vector<row_span> reading::left_out() const
{
    return joined_ ? joined_->left_out() : std::vector<row_span>();
}

const kept_checks &reading::checks_of_tier(const std::string &name) const
{
    static const kept_checks none;
    const reading *tier = joined_ ? joined_->find(name) : nullptr;
    return tier != nullptr ? tier->checks() : none;
}

exit_code reading::code() const
{
    const exit_code own = losses_.code(nothing_);
    // Where the machine failed, another attempt may find more.
    return own == exit_done || tiers_code_ == exit_failed ? tiers_code_ : own;
}

bool reading::is_left_out(const vesk_hb_record_sensor_values &interval) const
{
    return history_ends_before_ && seconds_of(interval.end) >= *history_ends_before_;
}

} // namespace cli
