// The statistics of a sensor by name, as they are chosen with --stat and head the columns of
// machine formats.
#ifndef VESK_CLI_VERBS_STATISTIC_HPP
#define VESK_CLI_VERBS_STATISTIC_HPP

#include <string>
#include <string_view>
#include <vector>

#include "box/sensor_statistics.hpp"

namespace cli
{

enum class statistic { count, min, mean, max, stddev, skewness, kurtosis, first, last };

std::string_view name_of(statistic what);

// "mean,max" in the order in which they are named. Names that do not exist or come twice are a
// usage failure.
std::vector<statistic> parse_statistics(std::string_view text);

// The number; NaN where there is none.
double value_of(const sensor_statistics &sensor, statistic what);

// Whether the value is of the kind that the sensor measures, so that its unit belongs to it.
bool has_unit(statistic what);

// For people: "~1.2 %" where the number is rough, "-" where there is none.
std::string shown(const sensor_statistics &sensor, statistic what, std::string_view name);

// What is done with a number that is rough: it stands beside a mark that says so, or is missing.
enum class rough_numbers { marked, left_out };

// For programs. All but counts have single precision, as what they are made of.
std::string field_of(const sensor_statistics &sensor, statistic what, rough_numbers rough);
std::string json_of(const sensor_statistics &sensor, statistic what, rough_numbers rough);

} // namespace cli

#endif
