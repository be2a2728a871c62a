// Counts what a reading verb could not read, reports it on standard error when it is met, and gives
// the exit code in the end.
#ifndef VESK_CLI_BOX_LOSSES_HPP
#define VESK_CLI_BOX_LOSSES_HPP

#include <string>

#include "box/box.hpp"

namespace cli
{

class losses
{
public:
    // Counts and reports the item if it is damage. At most most_told_of_a_kind items of one file
    // are reported one by one.
    void add(const std::string &path, const vesk_scan_item &item);
    // To be called after the last item of a file.
    void end_file(const std::string &path);
    // Missing, or something else than a file.
    void add_missing(const stored_file &file);
    void add_state(const box_state &state);
    void add_unread(const read_failure &reason);

    // @p nothing is true when nothing of what was asked for could be read.
    exit_code code(bool nothing) const;

private:
    uint64_t in_file_ = 0;
    unsigned damage_ = 0;
    unsigned failures_ = 0; // of the machine
    unsigned refusals_ = 0; // for want of rights
};

} // namespace cli

#endif
