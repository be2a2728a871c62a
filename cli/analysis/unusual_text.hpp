// What a finding says in one sentence. It tells what the numbers show and never why.
#ifndef VESK_CLI_ANALYSIS_UNUSUAL_TEXT_HPP
#define VESK_CLI_ANALYSIS_UNUSUAL_TEXT_HPP

#include <string>
#include <string_view>

#include "analysis/unusual_score.hpp"

namespace cli
{

// @p newest is the number of samples that were compared with the past. The name is taken as it is:
// who shows the sentence makes it printable.
std::string sentence_of(const finding &found, std::string_view sensor, uint64_t newest);

// "unusual", "perhaps", "nothing unusual", or why there is no score.
std::string_view level_of(const finding &found);

} // namespace cli

#endif
