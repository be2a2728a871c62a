// Words for the codes of the library and for errno.
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
