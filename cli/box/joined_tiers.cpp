// Looks over the times of all rows, chooses among them, and hands them out in the order of time:
// for each piece that comes from one place this place is read once. Pieces are few, because each
// kind of rows is older than the next finer one.
#include "box/joined_tiers.hpp"

#include <algorithm>
#include <fmt/format.h>
#include <limits>
#include <unordered_set>

#include "box/tier_rows.hpp"
#include "process/failure.hpp"
#include "process/terminal.hpp"

namespace cli
{
namespace
{

constexpr time_range all_time = {std::numeric_limits<int64_t>::min(),
                                 std::numeric_limits<int64_t>::max()};
constexpr std::size_t history_of_box = 0;

// Beyond these numbers, which no recording makes, a box is read without its tiers.
constexpr std::size_t most_rows = 1U << 20;
constexpr std::size_t most_runs = 4096;

// Collects the times of the rows of the box.
class times_of_box : public row_visitor
{
public:
    explicit times_of_box(int64_t usual_step) : usual_step_(usual_step) {}

    void on_interval(const interval_row &row) override
    {
        if (history_.rows.size() < most_rows) {
            history_.rows.push_back({std::min(row.start, row.end), std::max(row.start, row.end)});
        }
    }
    void on_sample(const sample_row &row) override
    {
        const bool goes_on = !runs_.empty() && row.time >= runs_.back().end &&
                             row.time - runs_.back().end <= 2 * usual_step_;
        if (goes_on || runs_.size() == most_runs) {
            runs_.back().end = std::max(runs_.back().end, row.time);
        } else {
            runs_.push_back({row.time, row.time});
        }
    }

    const std::vector<row_span> &runs() const { return runs_; }
    row_source take_history() { return std::move(history_); }

private:
    int64_t usual_step_;
    row_source history_ = {{}, true, true};
    std::vector<row_span> runs_;
};

// Passes on chosen intervals of the box, and nothing else.
class intervals_of_box : public row_visitor
{
public:
    intervals_of_box(const row_segment &part, const std::vector<bool> &chosen,
                     const time_range &range, row_visitor &out)
        : part_(part), chosen_(chosen), range_(range), out_(out)
    {
    }

    void on_interval(const interval_row &row) override
    {
        const std::size_t number = number_++;
        if (number >= part_.first && number <= part_.last && chosen_[number] &&
            range_.touches(row.start, row.end)) {
            out_.on_interval(row);
        }
    }

private:
    const row_segment &part_;
    const std::vector<bool> &chosen_;
    const time_range &range_;
    row_visitor &out_;
    std::size_t number_ = 0;
};

// Passes on raw samples that no chosen row holds, and events.
class raw_of_box : public row_visitor
{
public:
    raw_of_box(const std::vector<row_span> &hidden, row_visitor &out) : hidden_(hidden), out_(out)
    {
    }

    void on_sample(const sample_row &row) override
    {
        const bool is_hidden =
            std::any_of(hidden_.begin(), hidden_.end(), [&](const row_span &span) {
                return row.time >= span.start && row.time <= span.end;
            });
        if (!is_hidden) {
            out_.on_sample(row);
        }
    }
    void on_gap(const gap_row &row) override { out_.on_gap(row); }
    void on_event(const event_row &row) override { out_.on_event(row); }

private:
    const std::vector<row_span> &hidden_;
    row_visitor &out_;
};

} // namespace

joined_tiers::joined_tiers(const std::string &base, std::vector<std::string> sensors,
                           int64_t usual_step, box_reader read_box)
    : sensors_(std::move(sensors)), read_box_(std::move(read_box))
{
    for (const tier_kind &kind : all_tiers()) {
        open(base, kind);
    }
    if (!tiers_.empty()) {
        add_sensors();
        choose(usual_step);
    }
}

// What is wrong with a tier costs this tier only.
void joined_tiers::open(const std::string &base, const tier_kind &kind)
{
    const std::string name = tier_base(base, kind);
    try {
        if (!is_tier(name, kind).value_or(false)) {
            return;
        }
        auto box = std::make_unique<reading>(name, reading::tiers::none);
        take_code(box->code());
        if (box->samples() + box->intervals() > 0) {
            tiers_.push_back({kind, std::move(box)});
        }
    } catch (const failure &reason) {
        note(fmt::format("{}; this tier is left out", reason.what()));
        take_code(reason.code());
    }
}

void joined_tiers::take_code(exit_code code)
{
    if (code == exit_failed) {
        code_ = exit_failed;
    } else if (code != exit_done && code_ == exit_done) {
        code_ = exit_damaged;
    }
}

void joined_tiers::add_sensors()
{
    std::unordered_set<std::string> known(sensors_.begin(), sensors_.end());
    for (const tier &each : tiers_) {
        for (std::string &name : plain_sensors(each.kind, each.box->sensors())) {
            if (known.size() < most_named_sensors && known.insert(name).second) {
                sensors_.push_back(std::move(name));
            }
        }
    }
}

void joined_tiers::choose(int64_t usual_step)
{
    times_of_box times(usual_step);
    read_box_(all_time, {}, times);
    sources_.push_back(times.take_history());
    for (const tier &each : tiers_) {
        look_at(each);
    }
    choice_ = choose_rows(times.runs(), sources_);
    for (std::size_t i = 0; i < sources_.size(); ++i) {
        for (std::size_t row = 0; row < sources_[i].rows.size(); ++row) {
            if (choice_.chosen[i][row]) {
                const row_span &span = sources_[i].rows[row];
                extent_ = extent_.value_or(time_range{span.start, span.end});
                extent_ = {std::min(extent_->from, span.start), std::max(extent_->to, span.end)};
                ++rows_;
            }
        }
    }
}

void joined_tiers::look_at(const tier &what)
{
    row_source rows;
    row_source history;
    history.is_history = true;
    tier_rows times(what.kind, what.box->sensors(), what.box->how_summed(), {},
                    [&](std::size_t, bool is_history, const interval_row &row) {
                        row_source &source = is_history ? history : rows;
                        if (source.rows.size() < most_rows) {
                            source.rows.push_back({row.start, row.end});
                        }
                    });
    what.box->read(all_time, times.chosen(), times);
    sources_.push_back(std::move(rows));
    sources_.push_back(std::move(history));
}

void joined_tiers::read(const time_range &range, const std::vector<std::size_t> &chosen,
                        row_visitor &visitor) const
{
    for (const row_segment &part : choice_.segments) {
        if (touches(part, range)) {
            read_part(part, range, chosen, visitor);
        }
    }
    raw_of_box raw(choice_.hidden, visitor);
    read_box_(range, chosen, raw);
}

const reading *joined_tiers::find(const std::string &name) const
{
    const auto found = std::find_if(tiers_.begin(), tiers_.end(), [&](const tier &each) {
        return each.box->source().name == name;
    });
    return found != tiers_.end() ? found->box.get() : nullptr;
}

bool joined_tiers::touches(const row_segment &part, const time_range &range) const
{
    const std::vector<row_span> &rows = sources_[part.source].rows;
    return std::any_of(rows.begin() + static_cast<std::ptrdiff_t>(part.first),
                       rows.begin() + static_cast<std::ptrdiff_t>(part.last) + 1,
                       [&](const row_span &span) { return range.touches(span.start, span.end); });
}

void joined_tiers::read_part(const row_segment &part, const time_range &range,
                             const std::vector<std::size_t> &chosen, row_visitor &visitor) const
{
    const std::vector<bool> &rows = choice_.chosen[part.source];
    if (part.source == history_of_box) {
        intervals_of_box filter(part, rows, range, visitor);
        read_box_(all_time, chosen, filter);
        return;
    }
    const tier &from = tiers_[(part.source - 1) / 2];
    const bool wants_history = part.source % 2 == 0;
    std::vector<std::string> names;
    names.reserve(chosen.size());
    for (const std::size_t number : chosen) {
        names.push_back(sensors_[number]);
    }
    tier_rows filter(from.kind, from.box->sensors(), from.box->how_summed(), names,
                     [&](std::size_t row, bool is_history, const interval_row &found) {
                         if (is_history == wants_history && row >= part.first && row <= part.last &&
                             rows[row] && range.touches(found.start, found.end)) {
                             visitor.on_interval(found);
                         }
                     });
    from.box->read(all_time, filter.chosen(), filter);
}

} // namespace cli
