// The lines of a text file, of a gzip file (recognised by its content) or of standard input.
#ifndef VESK_CLI_TEXT_LINE_SOURCE_HPP
#define VESK_CLI_TEXT_LINE_SOURCE_HPP

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>
#include <zlib.h>

namespace cli
{

class line_source
{
public:
    // @p path "-" is standard input. Throws a failure when the file cannot be opened.
    explicit line_source(const std::string &path);

    // The next line without its end, valid until the next call; false at the end of the data.
    // Throws bad_input where the data cannot be read on.
    bool next(std::string_view &line);

    const std::string &name() const { return name_; }
    unsigned long line_number() const { return line_number_; }
    // The last line had no line end: what wrote it may have been cut off.
    bool ended_inside_line() const { return ended_inside_line_; }
    // How much of the file is read, 0 to 1; negative when its size is not known.
    double fraction() const;

private:
    bool fill();
    void fail(const std::string &reason) const;

    struct closer {
        void operator()(gzFile_s *file) const { gzclose_r(file); }
    };
    std::string name_;
    std::unique_ptr<gzFile_s, closer> file_;
    std::vector<char> buffer_;
    std::size_t position_ = 0;
    std::size_t filled_ = 0;
    std::string joined_;
    int64_t size_ = -1;
    unsigned long line_number_ = 0;
    bool ended_inside_line_ = false;
};

} // namespace cli

#endif
