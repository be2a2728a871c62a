// Reports on standard error what a reading verb could not read, and chooses its exit code. At most
// a fixed number of damaged places of one file is listed, the rest as a count. A failing machine
// gives exit code 1, damage gives 3, and damage that leaves nothing readable gives 4.
#include "box/losses.hpp"

#include <fmt/format.h>

#include "process/terminal.hpp"

namespace cli
{

void losses::add(const std::string &path, const vesk_scan_item &item)
{
    if (is_damage(item)) {
        ++damage_;
        if (++in_file_ <= most_told_of_a_kind) {
            complain(fmt::format("{}: {}", path, damage_text(item)));
        }
    }
}

void losses::end_file(const std::string &path)
{
    if (in_file_ > most_told_of_a_kind) {
        complain(
            fmt::format("{}: and {} more places or records", path, in_file_ - most_told_of_a_kind));
    }
    in_file_ = 0;
}

void losses::add_missing(const stored_file &file)
{
    complain(file.path + ": " + file.problem);
    ++damage_;
}

void losses::add_state(const box_state &state)
{
    complain(
        fmt::format("{}: {}; reading the buffers that are there", state.path, state_words(state)));
    ++damage_;
}

void losses::add_unread(const read_failure &reason)
{
    complain(reason.what());
    (reason.code() == exit_failed ? failures_ : refusals_) += 1;
}

exit_code losses::code(bool nothing) const
{
    if (failures_ > 0) {
        return exit_failed;
    }
    if (nothing && damage_ + refusals_ > 0) {
        return exit_unreadable;
    }
    return refusals_ > 0 ? exit_failed : damage_ > 0 ? exit_damaged : exit_done;
}

} // namespace cli
