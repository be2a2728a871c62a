// Keeps names apart that a format makes equal: the second "a?" becomes "a?_2", the next one "a?_3".
// A name that the format does not change has precedence over one that it does.
#ifndef VESK_CLI_TEXT_DISTINCT_NAMES_HPP
#define VESK_CLI_TEXT_DISTINCT_NAMES_HPP

#include <functional>
#include <span>
#include <string>
#include <vector>

namespace cli
{

// The names in the order of @p names, each as @p changed makes it. Equal names stay equal where
// @p changed leaves them as they are. Many names that become the same one cost no more than others.
std::vector<std::string>
distinct_names(std::span<const std::string> names,
               const std::function<std::string(const std::string &)> &changed);

} // namespace cli

#endif
