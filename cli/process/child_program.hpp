// A program that a verb starts and reads from. It gets no descriptors of this process but standard
// error, and does not outlive it.
#ifndef VESK_CLI_PROCESS_CHILD_PROGRAM_HPP
#define VESK_CLI_PROCESS_CHILD_PROGRAM_HPP

#include <optional>
#include <string>
#include <sys/types.h>

namespace cli
{

// For a process that was just forked: what its parent has open must not outlive that in it.
void close_descriptors_from(int first);

class child_program
{
public:
    // Runs @p command in a shell, as the leader of a process group of its own. Throws a failure
    // when no process can be made.
    explicit child_program(const std::string &command);
    child_program(const child_program &) = delete;
    child_program &operator=(const child_program &) = delete;
    // Asks the group to end, and after a second makes it.
    ~child_program();

    pid_t pid() const { return pid_; }
    // What it prints; reading never waits.
    int output() const { return output_; }
    // Ends the group at once. Does not wait for that.
    void kill_group() const;
    // How it ended, in words ("exit 1", "signal 9"), when it has. Then the rest of its group is
    // ended, too.
    std::optional<std::string> ending();

private:
    pid_t pid_ = -1;
    int output_ = -1;
    bool is_reaped_ = false;
};

} // namespace cli

#endif
