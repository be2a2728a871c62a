// Runs a program and keeps the latest line of values that it has printed. Bytes are read without
// waiting, so many at most between two samples; a line that is too long is passed over. A program
// that ends is started again after pauses that double up to five minutes.
#include "machine/program_source.hpp"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <fmt/format.h>
#include <limits>
#include <unistd.h>
#include <unordered_set>

#include "process/failure.hpp"
#include "text/value_text.hpp"

namespace cli
{
namespace
{

constexpr uint64_t longest_pause = 300;
// A program that ran so long and gave values is started again soon.
constexpr double long_life = 60;
constexpr double between_refusals = 60;
// While a program is being killed.
constexpr double between_looks = 0.1;
constexpr double for_long = 3600;
constexpr std::size_t longest_reason = 200;

} // namespace

int program_source::fd() const
{
    return child_ && !has_closed_ && bytes_ < most_bytes ? child_->output() : -1;
}

double program_source::seconds_to_look(double monotonic) const
{
    if (!child_) {
        return std::max(next_start_ - monotonic, 0.0);
    }
    return has_closed_ ? between_looks : for_long;
}

void program_source::look(double monotonic)
{
    if (!child_ && monotonic >= next_start_) {
        start(monotonic);
    }
    if (child_) {
        read_output(monotonic);
        look_at_end(monotonic);
    }
}

void program_source::start(double monotonic)
{
    started_ = monotonic;
    has_closed_ = false;
    is_useful_ = false;
    skips_ = false;
    line_.clear();
    parser_.emplace();
    try {
        child_.emplace(command_);
        notices_.push_back({program_notice::kind::started, std::to_string(child_->pid()), 0});
    } catch (const failure &reason) {
        pause(monotonic, program_notice::kind::not_started, reason.what());
    }
}

void program_source::pause(double monotonic, program_notice::kind what, const std::string &how)
{
    const bool was_good = is_useful_ && monotonic - started_ >= long_life;
    pause_ = was_good || pause_ == 0 ? 1 : std::min(2 * pause_, longest_pause);
    next_start_ = monotonic + static_cast<double>(pause_);
    notices_.push_back({what, how, pause_});
}

void program_source::read_output(double monotonic)
{
    // What is left makes the descriptor readable: the clock is looked at before it is read.
    constexpr int reads_at_once = 4;
    char buffer[16384];
    for (int i = 0; i < reads_at_once && fd() >= 0; ++i) {
        const ssize_t got = read(fd(), buffer, sizeof buffer);
        if (got < 0 && (errno == EAGAIN || errno == EINTR)) {
            return;
        }
        if (got <= 0) {
            has_closed_ = true;
            return;
        }
        bytes_ += static_cast<std::size_t>(got);
        take_text({buffer, static_cast<std::size_t>(got)}, monotonic);
    }
}

void program_source::take_text(std::string_view text, double monotonic)
{
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        const std::string_view part = text.substr(0, end);
        if (!skips_ && line_.size() + part.size() > longest_line) {
            refuse("a line is longer than 256 KiB");
            skips_ = true;
            line_ = {};
        }
        if (!skips_) {
            line_ += part;
        }
        if (end == std::string_view::npos) {
            return;
        }
        if (!skips_) {
            take_line(line_, monotonic);
        }
        skips_ = false;
        line_.clear();
        text.remove_prefix(end + 1);
    }
}

void program_source::take_line(std::string_view line, double monotonic)
{
    try {
        const telemetry_parser::line_kind kind = parser_->parse(line);
        if (kind == telemetry_parser::line_kind::header) {
            names_fit_ = parser_->sensors().size() <= most_names;
            if (!names_fit_) {
                refuse(fmt::format("more than {} names", most_names));
            }
        }
        if (kind != telemetry_parser::line_kind::values || !names_fit_) {
            return;
        }
    } catch (const bad_text &reason) {
        refuse(reason.what());
        return;
    }
    names_ = parser_->sensors();
    values_.assign(parser_->values().begin(), parser_->values().end());
    between_values_ = is_useful_ ? monotonic - value_time_ : 0;
    value_time_ = monotonic;
    is_useful_ = true;
}

void program_source::refuse(const std::string &reason)
{
    if (refused_++ == 0) {
        first_refusal_ = reason.substr(0, longest_reason);
    }
}

// A program that has closed its output is of no use any more, whether it runs or not.
void program_source::look_at_end(double monotonic)
{
    if (!has_closed_) {
        return;
    }
    const std::optional<std::string> how = child_->ending();
    if (how) {
        child_.reset();
        pause(monotonic, program_notice::kind::ended, *how);
    } else {
        child_->kill_group();
    }
}

void program_source::add_to(readings &sample, double monotonic, int64_t interval)
{
    bytes_ = 0;
    const double patience = 2 * std::max(static_cast<double>(interval), between_values_);
    const bool is_current = monotonic - value_time_ <= patience;
    const std::unordered_set<std::string_view> known(sample.names.begin(), sample.names.end());
    std::vector<std::string> names;
    for (std::size_t i = 0; i < names_.size(); ++i) {
        if (!known.contains(names_[i])) {
            names.push_back(names_[i]);
            sample.values.push_back(is_current ? values_[i]
                                               : std::numeric_limits<float>::quiet_NaN());
        }
    }
    sample.names.insert(sample.names.end(), names.begin(), names.end());
}

std::vector<program_notice> program_source::take_notices(double monotonic)
{
    const bool is_early = refusal_told_ && monotonic - *refusal_told_ < between_refusals;
    if (refused_ > 0 && !is_early) {
        refusal_told_ = monotonic;
        notices_.push_back({program_notice::kind::refused, first_refusal_, refused_});
        refused_ = 0;
    }
    return std::exchange(notices_, {});
}

} // namespace cli
