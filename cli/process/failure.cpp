// Turns error codes into words. The texts of the library and of errno are used as they are; the
// number is added only where the library has no text of its own for the code.
#include "process/failure.hpp"

#include <cerrno>
#include <system_error>

#include <vesk/error.h>

namespace cli
{

std::string words_for(int code)
{
    const std::string text = qe_error_text(code);
    return text == qe_error_text(1) ? text + " " + std::to_string(code) : text;
}

std::string with_errno(const std::string &what)
{
    return what + ": " + std::generic_category().message(errno);
}

} // namespace cli
