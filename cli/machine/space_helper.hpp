// Asks for the space of file systems without waiting for one that does not answer. A dead disk or a
// lost connection blocks the asking process, and no signal wakes it, so a separate process asks.
#ifndef VESK_CLI_MACHINE_SPACE_HELPER_HPP
#define VESK_CLI_MACHINE_SPACE_HELPER_HPP

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace cli
{

struct space {
    int32_t failed;    // not 0 when it cannot be told
    int32_t read_only; // not 0 when nothing can be written
    uint64_t mount_id; // 0 when the kernel does not tell
    uint64_t total_bytes, free_bytes, available_bytes;
    uint64_t inodes, free_inodes;
};

// What statvfs() and statx() say. Does not return before the file system answers.
space space_of(const char *path);

class space_helper
{
public:
    // So many paths and so many bytes of them fit into one question.
    static constexpr std::size_t most_paths = 64;
    static constexpr std::size_t most_bytes = 32768;

    using question = space (*)(const char *path);

    // Starts the process that calls @p answer, which is not there when the machine refuses one.
    explicit space_helper(question answer);
    space_helper(const space_helper &) = delete;
    space_helper &operator=(const space_helper &) = delete;
    // Ends the process. A process that a file system blocks is left behind; it keeps no file or
    // lock of this one.
    ~space_helper();

    bool is_there() const { return socket_ >= 0; }

    // Asks for several at once, which wakes each process once only. The process must be there and
    // not wait for an answer. False when it is gone, and when there is no room for so many paths.
    bool ask(const std::vector<std::string> &paths);
    // One answer for each path. Nothing when they have not all come within @p limit: they may be
    // waited for again. None when the process is gone.
    std::optional<std::vector<space>> wait(std::chrono::milliseconds limit);
    bool waits() const { return waits_; }

private:
    int socket_ = -1;
    pid_t process_ = -1;
    bool waits_ = false;
    std::size_t asked_ = 0;
};

} // namespace cli

#endif
