// Dates are calculated with the proleptic Gregorian calendar. What the local clock showed is asked
// from localtime_r(), because mktime() quietly moves times that do not exist and chooses one of two
// where a clock shows an hour twice.
#include "text/civil_time.hpp"

#include <array>
#include <cstddef>
#include <ctime>

namespace cli
{
namespace
{

bool is_leap(int64_t year)
{
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

int64_t floor_div(int64_t number, int64_t by)
{
    return number / by - (number % by < 0 ? 1 : 0);
}

// Days since 1970-01-01. The year is counted from March, so that the leap day is its last one.
int64_t days_since_epoch(int64_t year, int month, int day)
{
    const int64_t y = month <= 2 ? year - 1 : year;
    const int64_t era = floor_div(y, 400);
    const int64_t year_of_era = y - era * 400;
    const int64_t day_of_year = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
    const int64_t day_of_era =
        year_of_era * 365 + year_of_era / 4 - year_of_era / 100 + day_of_year;
    return era * 146097 + day_of_era - 719468;
}

} // namespace

int days_in(int64_t year, int month)
{
    constexpr std::array days = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && is_leap(year) ? 29 : days[static_cast<std::size_t>(month - 1)];
}

int64_t as_if_utc(const civil_time &time)
{
    return days_since_epoch(time.year, time.month, time.day) * seconds_per_day + time.hour * 3600 +
           time.minute * 60 + time.second;
}

civil_time civil_of(int64_t seconds)
{
    const int64_t days = floor_div(seconds, seconds_per_day);
    const auto rest = static_cast<int>(seconds - days * seconds_per_day);
    const int64_t z = days + 719468;
    const int64_t era = floor_div(z, 146097);
    const int64_t day_of_era = z - era * 146097;
    const int64_t year_of_era =
        (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
    const int64_t day_of_year =
        day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
    const int64_t shifted = (5 * day_of_year + 2) / 153;
    const auto month = static_cast<int>(shifted < 10 ? shifted + 3 : shifted - 9);
    const auto day = static_cast<int>(day_of_year - (153 * shifted + 2) / 5 + 1);
    const int64_t year = year_of_era + era * 400 + (month <= 2 ? 1 : 0);
    return {year, month, day, rest / 3600, rest / 60 % 60, rest % 60};
}

std::optional<int64_t> local_offset(int64_t seconds)
{
    const auto time = static_cast<time_t>(seconds);
    tm local = {};
    if (localtime_r(&time, &local) == nullptr) {
        return std::nullopt;
    }
    return local.tm_gmtoff;
}

// The moments at which the local clock shows @p time, which are two where it is put back and none
// where it is put forward.
std::optional<int64_t> local_moment(const civil_time &time, twin which)
{
    const int64_t shown = as_if_utc(time);
    std::optional<int64_t> found;
    // No zone changes twice within two days.
    for (const int64_t near : {shown - seconds_per_day, shown + seconds_per_day}) {
        const int64_t candidate = shown - local_offset(near).value_or(0);
        if (local_offset(candidate).value_or(0) != shown - candidate) {
            continue;
        }
        if (!found || (which == twin::earlier ? candidate < *found : candidate > *found)) {
            found = candidate;
        }
    }
    return found;
}

} // namespace cli
