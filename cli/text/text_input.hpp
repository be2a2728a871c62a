// Reads the bytes of a text as soon as they arrive, and unpacks them if they are gzip. The file
// functions of zlib would wait until a buffer is full.
#ifndef VESK_CLI_TEXT_TEXT_INPUT_HPP
#define VESK_CLI_TEXT_TEXT_INPUT_HPP

#include <cstdint>
#include <span>
#include <string>
#include <sys/types.h>
#include <vector>
#include <zlib.h>

#include "process/stop_request.hpp"

namespace cli
{

class text_input
{
public:
    // @p path "-" is standard input. Throws a failure when the file cannot be opened. Waiting ends
    // when @p stop, if given, is requested.
    explicit text_input(const std::string &path, const stop_request *stop = nullptr);
    text_input(const text_input &) = delete;
    text_input &operator=(const text_input &) = delete;
    ~text_input();

    // Waits for some bytes and gives what there is, at most as many as fit into @p target; 0 at the
    // end. Where the data cannot be read on @p problem says why, and the result is 0.
    std::size_t read(std::span<char> target, std::string &problem);

    const std::string &name() const { return name_; }
    // How much of the file is read, 0 to 1; negative when its size is not known.
    double fraction() const;

private:
    enum class form { unknown, plain, gzip, behind_gzip };

    ssize_t wait_and_read();
    bool more(std::string &problem);
    bool tell_form(std::string &problem);
    bool begins_member(std::string &problem);
    std::size_t take_plain(std::span<char> target);
    std::size_t unpack(std::span<char> target, std::string &problem);

    std::string name_;
    const stop_request *stop_;
    int fd_ = -1;
    int64_t size_ = -1;
    int64_t taken_ = 0; // bytes of the file
    std::vector<unsigned char> raw_;
    std::size_t begin_ = 0; // of what is not used yet in raw_
    std::size_t end_ = 0;
    bool at_end_ = false;
    form form_ = form::unknown;
    z_stream stream_ = {};
    bool stream_is_open_ = false;
};

} // namespace cli

#endif
