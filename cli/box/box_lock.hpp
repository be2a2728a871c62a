// One process at a time writes to a box.
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
// is free.
std::optional<pid_t> lock_holder(const std::string &base);

// Holds BASE.lock until it is destroyed. The kernel lets go of the lock with the process, however
// that ends; what stays behind after a kill is the file, which means nothing by itself.
class box_lock
{
public:
    // Throws box_in_use, which names the holder, when another process has the lock.
    explicit box_lock(const std::string &base);
    box_lock(const box_lock &) = delete;
    box_lock &operator=(const box_lock &) = delete;
    ~box_lock();

private:
    std::string path_;
    int fd_ = -1;
};

} // namespace cli

#endif
