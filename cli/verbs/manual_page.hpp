// Manual pages of section 1 in roff, made of what the verbs have registered.
#ifndef VESK_CLI_VERBS_MANUAL_PAGE_HPP
#define VESK_CLI_VERBS_MANUAL_PAGE_HPP

#include <string>

namespace cli
{

// Of the command as a whole, with a list of its verbs, or of the verb @p name. Throws a usage
// failure when there is no such verb.
std::string manual_page(const std::string &name, const std::string &version);

} // namespace cli

#endif
