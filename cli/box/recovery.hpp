// Plans what a recovery would change in a box, and puts its steps, its outcome and its failures
// into words. Nothing here changes a file. The verbs check and repair share it, so that one
// announces what the other does.
#ifndef VESK_CLI_BOX_RECOVERY_HPP
#define VESK_CLI_BOX_RECOVERY_HPP

#include <cstdint>
#include <string>
#include <vector>

#include <vesk/vesk_recover.h>

#include "process/exit_codes.hpp"

namespace cli
{

// The sizes that a box was made with, as far as the user says them; 0 where not.
struct told_sizes {
    uint32_t samples = 0;
    uint32_t intervals = 0;
};

struct recovery_step {
    vesk_recover_action action;
    std::string path;
    uint64_t offset;
    uint64_t length;
    uint32_t count;
    int error;
    uint64_t more = 0; // of the same action on the same file, which are not listed

    // False for steps that only delete or keep files which nothing needs.
    bool is_needed() const { return action != VESK_RECOVER_DELETE && action != VESK_RECOVER_KEEP; }
    // Something else has the name of a file of the box, and it is left alone.
    bool is_foreign() const;
};

struct recovery_plan {
    int result = 0;       // of vesk_recover_plan()
    int system_error = 0; // what the system said to that
    std::string obstacle; // what lies where the recovery has to write, and why it cannot stay
    std::vector<recovery_step> steps; // at most most_told_of_a_kind of one action on one file
    vesk_recover_report report = {};

    bool is_empty() const { return report.steps == 0; }
    // True when more than files that nobody needs would change.
    bool is_needed() const;
};

// Of the box and of the events that wait for it. Only looks. Throws a failure when the file of
// those events cannot be read.
recovery_plan plan_recovery(const std::string &base, const told_sizes &sizes);

// A word for programs: "cut", "pad".
const char *action_name(vesk_recover_action action);
// A line for people: "21 bytes at 46: the data ends inside a record: taken out, kept in FILE.torn".
std::string step_text(const recovery_step &step);
// What was kept, added and set aside, in one line.
std::string report_text(const vesk_recover_report &report);
// Why a box cannot be recovered, in words.
std::string recovery_failure(int result);
std::string recovery_failure(const recovery_plan &plan);
// What that means for the process: it has failed where the machine did not do something that it may
// do later, and the box is unreadable where nothing but other files or words of the user help.
exit_code code_for(const recovery_plan &plan);

} // namespace cli

#endif
