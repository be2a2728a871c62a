// What a finding says in one sentence. It tells what the numbers show and never why.
#ifndef VESK_CLI_ANALYSIS_UNUSUAL_TEXT_HPP
#define VESK_CLI_ANALYSIS_UNUSUAL_TEXT_HPP

#include <string>
#include <string_view>

#include "analysis/unusual_score.hpp"

namespace cli
{

// How a sentence tells values: as plain numbers, or with the unit that the name of the sensor ends
// with and a prefix that keeps them short.
enum class amounts { plain, with_units };

// @p newest is the number of samples that were compared with the past. The name is taken as it is:
// who shows the sentence makes it printable.
std::string sentence_of(const finding &found, std::string_view sensor, uint64_t newest,
                        amounts how = amounts::plain);

// "unusual", "perhaps", "nothing unusual", or why there is no score.
std::string_view level_of(const finding &found);

} // namespace cli

#endif
