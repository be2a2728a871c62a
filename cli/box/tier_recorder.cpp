// Gives the samples of a recording to the tiers of its box. A tier is opened like any box, so a
// crash that damaged it is recovered here; a box of another origin that has the name of a tier is
// not written to.
#include "box/tier_recorder.hpp"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <functional>
#include <iterator>
#include <numeric>
#include <utility>

#include "box/box.hpp"
#include "box/reading.hpp"
#include "box/storage_failure.hpp"
#include "process/failure.hpp"
#include "process/terminal.hpp"

namespace cli
{
namespace
{

// Finds the raw samples that a tier has missed: those behind its last row, and before the first
// sample of the recording under way. The order of samples counts and not their times: the clock may
// have been set back.
class missed_samples : public row_visitor
{
public:
    missed_samples(std::optional<int64_t> last_row, std::optional<int64_t> first_sample)
        : last_row_(last_row), first_sample_(first_sample)
    {
    }

    void on_sample(const sample_row &row) override
    {
        if (first_sample_ && row.time == *first_sample_ && !recording_) {
            recording_ = samples_;
        }
        ++samples_;
        if (last_row_ && row.time == *last_row_) {
            exact_ = samples_;
            recording_.reset();
        } else if (last_row_ && row.time < *last_row_ && exact_ == 0) {
            older_ = samples_;
            recording_.reset();
        }
    }
    // The number of the first of them, from 0.
    uint64_t begin() const { return exact_ > 0 ? exact_ : older_; }
    // Behind the last of them. A box that has not even the beginning of the recording any more has
    // nothing of what was before.
    uint64_t end() const { return first_sample_ ? recording_.value_or(0) : samples_; }

private:
    std::optional<int64_t> last_row_;
    std::optional<int64_t> first_sample_;
    uint64_t samples_ = 0;
    uint64_t exact_ = 0;
    uint64_t older_ = 0;
    std::optional<uint64_t> recording_;
};

// Hands on the raw samples of a box of these numbers.
class numbered_samples : public row_visitor
{
public:
    using sink = std::function<void(const sample_row &)>;

    numbered_samples(uint64_t begin, uint64_t end, sink take)
        : begin_(begin), end_(end), take_(std::move(take))
    {
    }

    void on_sample(const sample_row &row) override
    {
        if (number_ >= begin_ && number_ < end_) {
            take_(row);
        }
        ++number_;
    }

private:
    uint64_t number_ = 0;
    uint64_t begin_;
    uint64_t end_;
    sink take_;
};

} // namespace

tier_recorder::tier_recorder(const std::string &base, const wanted_tier &wanted,
                             const sync_policy &sync)
    : box_base_(base), base_(tier_base(base, wanted.kind)), wanted_(wanted), sync_(sync),
      period_(wanted.kind)
{
    try {
        open();
    } catch (const failure &reason) {
        tell(reason.what());
    }
}

void tier_recorder::open()
{
    const std::optional<bool> own = is_tier(base_, wanted_.kind);
    if (own && !*own) {
        throw failure(exit_failed, base_ + ": there is a box of this name that is no tier");
    }
    // A tier that is there keeps its shape. Where its state file does not tell that, it may be that
    // nothing else does.
    const bool is_known = own && read_state(base_).error == 0;
    const box_shape shape =
        is_known ? box_shape{} : box_shape{wanted_.shape.samples, wanted_.shape.intervals};
    box_ = std::make_unique<box_writer>(base_, shape, sync_);
    sensors_.clear();
    if (!last_time_) {
        last_time_ = box_->last_time_before();
    }
}

void tier_recorder::catch_up(reading &source)
{
    const std::optional<time_range> extent = source.extent();
    if (!box_ || has_caught_up_ || !extent) {
        return;
    }
    has_caught_up_ = true;
    std::vector<std::size_t> all(source.sensors().size());
    std::iota(all.begin(), all.end(), std::size_t{0});
    missed_samples missed(last_time_, first_time_);
    source.read(*extent, {}, missed);
    numbered_samples samples(missed.begin(), missed.end(), [&](const sample_row &row) {
        absorb(row.time, source.sensors(), row.values);
    });
    source.read(*extent, all, samples);
}

// As though the recording had been interrupted until now: the period under way and the rows that
// wait come behind what is caught up with.
void tier_recorder::catch_up_late()
{
    tier_period period = std::exchange(period_, tier_period(wanted_.kind));
    std::deque<tier_row> later = std::exchange(waiting_, {});
    try {
        reading source(box_base_, reading::tiers::none);
        catch_up(source);
    } catch (const failure &reason) {
        note(fmt::format("{}: begins with this recording: {}", base_, reason.what()));
    }
    has_caught_up_ = true;
    if (std::optional<tier_row> row = period_.end()) {
        take(std::move(*row));
    }
    period_ = std::move(period);
    std::move(later.begin(), later.end(), std::back_inserter(waiting_));
}

void tier_recorder::add(int64_t time, std::span<const std::string> names,
                        std::span<const float> values)
{
    if (!first_time_) {
        first_time_ = time;
        // What an open tier has not been given by now would come behind newer rows.
        has_caught_up_ = has_caught_up_ || box_ != nullptr;
    }
    absorb(time, names, values);
}

void tier_recorder::absorb(int64_t time, std::span<const std::string> names,
                           std::span<const float> values)
{
    for (tier_row &row : period_.add(time, names, values)) {
        take(std::move(row));
    }
}

void tier_recorder::work_ahead(double seconds)
{
    if (box_) {
        box_->work_ahead(seconds);
    }
}

void tier_recorder::finish()
{
    if (std::optional<tier_row> row = period_.end()) {
        take(std::move(*row));
    }
    if (!waiting_.empty()) {
        // No row follows with which it would be tried again.
        try_to_write();
    }
    if (box_) {
        box_->finish();
    }
    if (!waiting_.empty() || lost_ > 0) {
        complain(fmt::format("{}: the last {} not recorded", base_,
                             counted(waiting_.size() + lost_, "row")));
    }
}

void tier_recorder::take(tier_row row)
{
    waiting_.push_back(std::move(row));
    try_to_write();
    if (waiting_.size() > most_waiting) {
        waiting_.pop_front();
        ++lost_;
    }
}

void tier_recorder::try_to_write()
{
    try {
        write_waiting();
    } catch (const failure &reason) {
        tell(reason.what());
    }
}

void tier_recorder::write_waiting()
{
    if (!box_) {
        open();
        if (!has_caught_up_) {
            catch_up_late();
        }
        settle_row_in_doubt();
    }
    while (!waiting_.empty()) {
        write(waiting_.front());
        waiting_.pop_front();
    }
    if (is_told_) {
        note(fmt::format("{}: recording again; {} missing", base_, counted(lost_, "row")));
        is_told_ = false;
        lost_ = 0;
    }
}

void tier_recorder::settle_row_in_doubt()
{
    if (is_row_in_doubt_ && !waiting_.empty() &&
        waiting_.front().time == box_->last_time_before()) {
        waiting_.pop_front();
    }
    is_row_in_doubt_ = false;
}

void tier_recorder::write(const tier_row &row)
{
    tier_row rest = row;
    drop_what_has_no_room(rest);
    if (rest.names != sensors_) {
        box_->set_sensors(rest.names);
        sensors_ = rest.names;
    }
    try {
        box_->write(rest.time, rest.values);
    } catch (const failure &) {
        // The row may be in the tier in spite of that. It is opened again to see, and because
        // another process may write to it by now.
        box_.reset();
        is_row_in_doubt_ = true;
        throw;
    }
}

// The means come first in a row, so extremes are dropped first.
void tier_recorder::drop_what_has_no_room(tier_row &row)
{
    std::size_t kept = 0;
    for (std::size_t i = 0; i < row.names.size(); ++i) {
        if (box_->admit(row.names[i])) {
            std::swap(row.names[kept], row.names[i]);
            row.values[kept] = row.values[i];
            ++kept;
        }
    }
    if (kept < row.names.size() && !told_names_) {
        note(fmt::format("{}: holds 10000 different sensors already; '{}' and all other new ones "
                         "are not recorded",
                         base_, row.names[kept]));
        told_names_ = true;
    }
    row.names.resize(kept);
    row.values.resize(kept);
}

void tier_recorder::tell(const std::string &reason)
{
    if (!is_told_) {
        complain(fmt::format("{}; this tier waits, the recording goes on", reason));
        is_told_ = true;
    }
}

tier_recorders::tier_recorders(const std::string &base, const std::vector<wanted_tier> &wanted,
                               const sync_policy &sync)
{
    for (const wanted_tier &each : wanted) {
        tiers_.emplace_back(base, each, sync);
    }
    if (!tiers_.empty()) {
        catch_up(base);
    }
}

void tier_recorders::catch_up(const std::string &base)
{
    try {
        reading source(base, reading::tiers::none);
        for (tier_recorder &tier : tiers_) {
            tier.catch_up(source);
        }
    } catch (const failure &reason) {
        note(fmt::format("{}: its tiers begin with the next sample: {}", base, reason.what()));
    }
}

void tier_recorders::add(int64_t time, std::span<const std::string> names,
                         std::span<const float> values)
{
    for (tier_recorder &tier : tiers_) {
        tier.add(time, names, values);
    }
}

void tier_recorders::work_ahead(double seconds)
{
    for (tier_recorder &tier : tiers_) {
        tier.work_ahead(seconds);
    }
}

void tier_recorders::finish()
{
    for (tier_recorder &tier : tiers_) {
        try {
            tier.finish();
        } catch (const failure &reason) {
            complain(reason.what());
        }
    }
}

} // namespace cli
