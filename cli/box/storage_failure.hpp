// Failures that do not end a recording: the sample at hand is lost, but the next one may be taken.
// Callers tell them from other failures by their type.
#ifndef VESK_CLI_BOX_STORAGE_FAILURE_HPP
#define VESK_CLI_BOX_STORAGE_FAILURE_HPP

#include <cerrno>
#include <string>

#include "process/failure.hpp"

namespace cli
{

// Something that may pass: a full disk, a clock out of range, no descriptors left.
class passing_failure : public failure
{
public:
    explicit passing_failure(const std::string &message) : failure(exit_failed, message) {}
};

// The disk did not take or give something. The box holds what it held before; writing may be tried
// again.
class storage_failure : public passing_failure
{
public:
    explicit storage_failure(const std::string &message, int error = 0)
        : passing_failure(message), error_(error)
    {
    }
    // What errno was, or 0 where nobody knows.
    int error() const { return error_; }

    // "what: why" with the words of @p error, if it says anything.
    static storage_failure because(const std::string &what, int error)
    {
        errno = error;
        return storage_failure(error != 0 ? with_errno(what) : what, error);
    }

private:
    int error_;
};

} // namespace cli

#endif
