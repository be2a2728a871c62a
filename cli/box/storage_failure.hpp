// The failure that a recording outlives: the disk did not take or give something.
#ifndef VESK_CLI_BOX_STORAGE_FAILURE_HPP
#define VESK_CLI_BOX_STORAGE_FAILURE_HPP

#include <cerrno>
#include <string>

#include "process/failure.hpp"

namespace cli
{

// The box holds what it held before; writing may be tried again.
class storage_failure : public failure
{
public:
    explicit storage_failure(const std::string &message, int error = 0)
        : failure(exit_failed, message), error_(error)
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
