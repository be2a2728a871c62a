// Cuts what a text_input reads into lines and counts them. A line is returned as soon as its end
// has arrived. A line that is far longer than a sample of 10000 sensors is refused, so that a file
// without line ends cannot fill the memory.
#include "text/line_source.hpp"

#include <cstring>

#include "process/failure.hpp"

namespace cli
{
namespace
{

constexpr std::size_t buffer_size = 128 * 1024;
// Far above what 10000 sensors need: a file without line ends must not fill the memory.
constexpr std::size_t longest_line = 16 * 1024 * 1024;

} // namespace

line_source::line_source(const std::string &path, const stop_request *stop)
    : input_(path, stop), buffer_(buffer_size)
{
}

void line_source::fail(const std::string &reason) const
{
    throw bad_input(input_.name(), line_number_ + 1, reason);
}

bool line_source::fill()
{
    std::string problem;
    position_ = 0;
    filled_ = input_.read(buffer_, problem);
    // The bytes before the problem are good and are returned first; the next call meets the problem
    // again.
    if (filled_ == 0 && !problem.empty()) {
        fail(problem);
    }
    return filled_ > 0;
}

bool line_source::next(std::string_view &line)
{
    joined_.clear();
    for (;;) {
        if (position_ == filled_ && !fill()) {
            if (joined_.empty()) {
                return false;
            }
            ended_inside_line_ = true;
            line = joined_;
            break;
        }
        const char *begin = buffer_.data() + position_;
        const std::size_t rest = filled_ - position_;
        const auto *end = static_cast<const char *>(memchr(begin, '\n', rest));
        const std::size_t length = end != nullptr ? static_cast<std::size_t>(end - begin) : rest;
        position_ += length + (end != nullptr ? 1 : 0);
        if (joined_.size() + length > longest_line) {
            fail("the line is longer than 16 MiB");
        }
        if (end != nullptr && joined_.empty()) {
            line = {begin, length};
            break;
        }
        joined_.append(begin, length);
        if (end != nullptr) {
            line = joined_;
            break;
        }
    }
    ++line_number_;
    if (line.ends_with('\r')) {
        line.remove_suffix(1);
    }
    return true;
}

} // namespace cli
