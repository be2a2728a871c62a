// Lets only one process at a time write to a box, by a lock on BASE.lock. The kernel releases the
// lock when the process ends in any way; the file may stay behind and means nothing without a lock
// on it. Somebody may remove the file, so the holder checks at every write that the name still
// refers to the file that it has locked.
#ifndef VESK_CLI_BOX_BOX_LOCK_HPP
#define VESK_CLI_BOX_BOX_LOCK_HPP

#include <optional>
#include <string>
#include <sys/types.h>

#include "process/failure.hpp"

namespace cli
{

// Another process writes to the box.
class box_in_use : public failure
{
public:
    explicit box_in_use(const std::string &message) : failure(exit_failed, message) {}
};

// Who has the lock of the box on @p base; the number is 0 when it cannot be told. Nothing when it
// is free. Needs no right on the lock file: without it the list of locks of the kernel is read.
std::optional<pid_t> lock_holder(const std::string &base);

// Holds the lock until it is destroyed.
class box_lock
{
public:
    // Throws box_in_use, which names the holder, when another process has the lock, and a failure
    // when BASE.lock is no lock file or cannot be opened. What another user's process left behind
    // is replaced.
    explicit box_lock(const std::string &base);
    box_lock(const box_lock &) = delete;
    box_lock &operator=(const box_lock &) = delete;
    ~box_lock();

    // False when the lock file was removed: another process may write by now.
    bool is_held() const;
    // Locks anew after the file was removed. Another process may have written meanwhile. Throws as
    // the constructor does.
    void retake();

private:
    void take_or_release();
    void take();
    bool try_to_take();
    void release();

    std::string base_;
    std::string path_;
    int fd_ = -1;
};

} // namespace cli

#endif
