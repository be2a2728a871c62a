// Finds out which sensors of a box the user means by the patterns of --sensor. A pattern that fits
// none is a failure with a suggestion, so that a slip is noticed.
#ifndef VESK_CLI_TEXT_SENSOR_CHOICE_HPP
#define VESK_CLI_TEXT_SENSOR_CHOICE_HPP

#include <cstddef>
#include <string>
#include <vector>

namespace cli
{

// The numbers, ascending, of those of @p sensors that the patterns choose (see matches_glob(), with
// or without the "::" that names begin with). Patterns act in their order; "!PATTERN" takes away,
// from all sensors if it is the first. Without patterns all are chosen.
//
// A pattern that fits no sensor is a usage failure that names the nearest one, and so is a choice
// of none. A box without sensors has nothing to choose from, whatever the patterns.
std::vector<std::size_t> choose_sensors(const std::vector<std::string> &sensors,
                                        const std::vector<std::string> &patterns);

// The names of the sensors with these numbers.
std::vector<std::string> names_of(const std::vector<std::string> &sensors,
                                  const std::vector<std::size_t> &numbers);

} // namespace cli

#endif
