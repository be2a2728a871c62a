// Days and times of day: what the calendar and the clock of a time zone show at a moment, and the
// moments at which they show something.
#ifndef VESK_CLI_TEXT_CIVIL_TIME_HPP
#define VESK_CLI_TEXT_CIVIL_TIME_HPP

#include <cstdint>
#include <optional>

namespace cli
{

constexpr int64_t seconds_per_day = 86400;

struct civil_time {
    int64_t year = 0;
    int month = 1;
    int day = 1;
    int hour = 0;
    int minute = 0;
    int second = 0;
};

// @p month is 1 to 12.
int days_in(int64_t year, int month);

// The seconds since the epoch at which a clock that shows UTC shows @p time, and back.
int64_t as_if_utc(const civil_time &time);
civil_time civil_of(int64_t seconds);

// How far the local clock is ahead of UTC at that moment, in seconds.
std::optional<int64_t> local_offset(int64_t seconds);

// In autumn an hour is shown twice by the clock: which of the two a local time means.
enum class twin { earlier, later };

// The moment at which the local clock shows @p time, one of two where it is put back; nothing in an
// hour that it skips.
std::optional<int64_t> local_moment(const civil_time &time, twin which);

} // namespace cli

#endif
