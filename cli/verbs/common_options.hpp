// Options that several verbs share, with their help. Each function adds one group of them to a verb
// and says where the values go.
#ifndef VESK_CLI_VERBS_COMMON_OPTIONS_HPP
#define VESK_CLI_VERBS_COMMON_OPTIONS_HPP

#include <string>

#include "box/box_writer.hpp"
#include "verbs/verb.hpp"

namespace cli
{

// The shape of a box that may have to be made.
void add_shape(option_list &options, box_shape &shape);
// The shape of a box whose files may not state it any more.
void add_known_shape(option_list &options, box_shape &shape);
// @p later tells when the policy of a time acts.
void add_sync(option_list &options, std::string &when, const char *later);
void add_utc_output(option_list &options, bool &utc);

} // namespace cli

#endif
