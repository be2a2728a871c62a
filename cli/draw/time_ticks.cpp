// The clock is followed through a change to or from summer time: an hour that it skips has no tick,
// one that it shows twice has two.
#include "draw/time_ticks.hpp"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <optional>
#include <string_view>

#include "text/civil_time.hpp"

namespace cli
{
namespace
{

enum class span_unit { second, day, month };

struct tick_step {
    span_unit unit;
    int64_t count;
    int64_t seconds; // roughly
    std::size_t label_width;
};

constexpr int64_t minute = 60;
constexpr int64_t hour = 3600;
constexpr int64_t month_seconds = 2629746; // of a mean year
constexpr int64_t year_seconds = 31556952;

constexpr tick_step seconds_step(int64_t count)
{
    return {span_unit::second, count, count, count < minute ? 8U : 6U};
}
constexpr tick_step days_step(int64_t count)
{
    return {span_unit::day, count, count * seconds_per_day, 6};
}
constexpr tick_step months_step(int64_t count)
{
    return {span_unit::month, count, count * month_seconds, 4};
}
constexpr tick_step years_step(int64_t count)
{
    return {span_unit::month, count * 12, count * year_seconds, 4};
}

constexpr std::array<tick_step, 32> steps = {{
    seconds_step(1),
    seconds_step(2),
    seconds_step(5),
    seconds_step(10),
    seconds_step(15),
    seconds_step(30),
    seconds_step(minute),
    seconds_step(2 * minute),
    seconds_step(5 * minute),
    seconds_step(10 * minute),
    seconds_step(15 * minute),
    seconds_step(30 * minute),
    seconds_step(hour),
    seconds_step(2 * hour),
    seconds_step(3 * hour),
    seconds_step(6 * hour),
    seconds_step(12 * hour),
    days_step(1),
    days_step(2),
    days_step(7),
    days_step(14),
    months_step(1),
    months_step(2),
    months_step(3),
    months_step(6),
    years_step(1),
    years_step(2),
    years_step(5),
    years_step(10),
    years_step(20),
    years_step(50),
    years_step(100),
}};

constexpr std::array<std::string_view, 12> month_names = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                          "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

std::string_view month_name(const civil_time &time)
{
    return month_names[static_cast<std::size_t>(time.month - 1)];
}

int64_t floor_to(int64_t number, int64_t step)
{
    const int64_t rest = number % step;
    return number - (rest < 0 ? rest + step : rest);
}

civil_time shown_at(int64_t time, zone where)
{
    return civil_of(time + (where == zone::local ? local_offset(time).value_or(0) : 0));
}

// Appends the moments at which the clock shows @p time: none, one or two.
void add_moments(const civil_time &time, zone where, std::vector<int64_t> &moments)
{
    if (where == zone::utc) {
        moments.push_back(as_if_utc(time));
        return;
    }
    for (const twin which : {twin::earlier, twin::later}) {
        if (const std::optional<int64_t> found = local_moment(time, which)) {
            moments.push_back(*found);
        }
    }
}

// Monday is the first day of a week; 1970 began on a Thursday.
constexpr int64_t first_monday = 4;

// The first time on the clock that is a multiple of the step, not after @p time.
civil_time first_of(const civil_time &time, const tick_step &step)
{
    if (step.unit == span_unit::month) {
        const int64_t months = floor_to(time.year * 12 + time.month - 1, step.count);
        const int64_t year = floor_to(months, 12) / 12;
        return {year, static_cast<int>(months - year * 12) + 1, 1, 0, 0, 0};
    }
    const int64_t offset =
        step.unit == span_unit::day && step.count % 7 == 0 ? first_monday * seconds_per_day : 0;
    return civil_of(floor_to(as_if_utc(time) - offset, step.seconds) + offset);
}

civil_time next_of(const civil_time &time, const tick_step &step)
{
    if (step.unit == span_unit::month) {
        const int64_t months = time.year * 12 + time.month - 1 + step.count;
        return {months / 12, static_cast<int>(months % 12) + 1, 1, 0, 0, 0};
    }
    return civil_of(as_if_utc(time) + step.seconds);
}

std::string label_of(const civil_time &time, const tick_step &step)
{
    if (step.unit == span_unit::month) {
        return time.month == 1 ? fmt::format("{}", time.year) : std::string(month_name(time));
    }
    const bool is_midnight = time.hour == 0 && time.minute == 0 && time.second == 0;
    if (step.unit == span_unit::day || is_midnight) {
        return fmt::format("{} {}", time.day, month_name(time));
    }
    if (step.seconds < minute) {
        return fmt::format("{:02}:{:02}:{:02}", time.hour, time.minute, time.second);
    }
    return fmt::format("{:02}:{:02}", time.hour, time.minute);
}

const tick_step &step_for(double seconds, std::size_t width)
{
    constexpr std::size_t space = 2;
    const auto *const found = std::find_if(steps.begin(), steps.end(), [&](const tick_step &one) {
        const double ticks = seconds / static_cast<double>(one.seconds) + 1;
        return ticks * static_cast<double>(one.label_width + space) <= static_cast<double>(width);
    });
    return found != steps.end() ? *found : steps.back();
}

} // namespace

std::vector<time_tick> time_ticks(const time_range &range, std::size_t width, zone where)
{
    const double length = static_cast<double>(range.to) - static_cast<double>(range.from);
    const tick_step &step = step_for(length, width);
    // Where the clock is put back within the range, it shows times from before its begin.
    const civil_time first = shown_at(range.from, where);
    const civil_time last = shown_at(range.to, where);
    const int64_t turned = as_if_utc(first) - range.from - (as_if_utc(last) - range.to);
    const int64_t margin = std::max<int64_t>(step.seconds >= hour ? 3 * hour : 0, turned);
    const int64_t end = as_if_utc(last) + margin;
    std::vector<int64_t> moments;
    for (civil_time time = first_of(civil_of(as_if_utc(first) - margin), step);
         as_if_utc(time) <= end; time = next_of(time, step)) {
        add_moments(time, where, moments);
    }
    std::sort(moments.begin(), moments.end());
    moments.erase(std::unique(moments.begin(), moments.end()), moments.end());
    std::vector<time_tick> ticks;
    for (const int64_t time : moments) {
        if (range.holds(time)) {
            ticks.push_back({time, label_of(shown_at(time, where), step)});
        }
    }
    return ticks;
}

} // namespace cli
