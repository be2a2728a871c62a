// Prints what `info` shows of the recordings in a box: the machine, who writes now, how the last
// recording ended, and the gaps. A box that was imported has none of this.
#ifndef VESK_CLI_VERBS_RECORDING_REPORT_HPP
#define VESK_CLI_VERBS_RECORDING_REPORT_HPP

#include <nlohmann/json.hpp>
#include <optional>
#include <sys/types.h>

#include "box/recording_log.hpp"

namespace cli
{

// Prints lines for people, or nothing. @p writer is the process that has the lock of the box.
void print_recordings(const recording_log &log, std::optional<pid_t> writer);

// Adds "machine", "writer", "last_end", "gaps" and "number_of_gaps" to @p report.
void add_recordings(const recording_log &log, std::optional<pid_t> writer,
                    nlohmann::ordered_json &report);

} // namespace cli

#endif
