// The options of `vesk record` that have the box pushed beside the recording: what `vesk push` is
// asked for, as far as it makes sense there.
#ifndef VESK_CLI_VERBS_RECORD_PUSH_OPTIONS_HPP
#define VESK_CLI_VERBS_RECORD_PUSH_OPTIONS_HPP

#include <cstdint>
#include <string>

#include "push/push_request.hpp"
#include "verbs/verb.hpp"

namespace cli
{

struct record_push_options {
    std::string every = "10m";
    push_request what; // the URL is empty where nothing is pushed

    bool are_wanted() const { return !what.url.empty(); }
    // Seconds between two pushes. Throws a failure (usage) where the options make no sense, and for
    // credentials or certificates that a push could not use.
    int64_t checked_period() const;
    // What is asked of each push of the box @p base.
    push_request request(const std::string &base) const;
};

void add_record_push_options(option_list &options, record_push_options &push);

} // namespace cli

#endif
