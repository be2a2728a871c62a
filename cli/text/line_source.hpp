// The lines of a text file, of a gzip file (recognised by its content) or of standard input. A line
// is handed out as soon as all of it has come, compressed or not: a program that feeds a pipe may
// wait for the result of a line before it sends the next one.
#ifndef VESK_CLI_TEXT_LINE_SOURCE_HPP
#define VESK_CLI_TEXT_LINE_SOURCE_HPP

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "text/text_input.hpp"

namespace cli
{

class line_source
{
public:
    // @p path "-" is standard input. Throws a failure when the file cannot be opened. Waiting for a
    // line ends, as a failure to read, when @p stop, if given, is requested.
    explicit line_source(const std::string &path, const stop_request *stop = nullptr);

    // The next line without its end, valid until the next call; false at the end of the data.
    // Throws bad_input where the data cannot be read on.
    bool next(std::string_view &line);

    const std::string &name() const { return input_.name(); }
    unsigned long line_number() const { return line_number_; }
    // The last line had no line end: what wrote it may have been cut off.
    bool ended_inside_line() const { return ended_inside_line_; }
    // How much of the file is read, 0 to 1; negative when its size is not known.
    double fraction() const { return input_.fraction(); }

private:
    bool fill();
    [[noreturn]] void fail(const std::string &reason) const;

    text_input input_;
    std::vector<char> buffer_;
    std::size_t position_ = 0;
    std::size_t filled_ = 0;
    std::string joined_;
    unsigned long line_number_ = 0;
    bool ended_inside_line_ = false;
};

} // namespace cli

#endif
