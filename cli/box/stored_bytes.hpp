// Opens and reads the files under the names of a box. Only regular files count: a FIFO would wait
// for ever, a device may have no end, and a link leads out of the folder.
#ifndef VESK_CLI_BOX_STORED_BYTES_HPP
#define VESK_CLI_BOX_STORED_BYTES_HPP

#include <cstdint>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

#include "process/failure.hpp"

namespace cli
{

// What cannot be had because of the machine, and may be had later, is a failure; a file that is not
// there, not allowed or not a file is unreadable.
exit_code code_for_errno(int error);

// A file that is there and cannot be read.
class read_failure : public failure
{
public:
    using failure::failure;
};

// Tells whether a file is the same one with the same content, as far as its times tell.
struct file_stamp {
    dev_t device;
    ino_t number;
    off_t size;
    int64_t modified; // in nanoseconds
    int64_t changed;

    bool operator==(const file_stamp &) const = default;
};

// A regular file that is held open: it can be read also after it was deleted.
class stored_bytes
{
public:
    enum class links { refuse, follow };

    // Never waits, whatever the path names. The members below tell what went wrong.
    explicit stored_bytes(const std::string &path, links policy = links::refuse);
    stored_bytes(const stored_bytes &) = delete;
    stored_bytes &operator=(const stored_bytes &) = delete;
    ~stored_bytes();

    bool is_open() const { return fd_ >= 0; }
    bool is_missing() const;
    // Something lies there that is no regular file.
    bool is_foreign() const { return foreign_; }
    // The number of the system's reason why it is not open, 0 for something foreign.
    int error() const { return error_; }
    // Why it is not open: "is missing", "is a folder, not a file", "Permission denied".
    const std::string &problem() const { return problem_; }

    // The current size of an open file. Throws a read_failure that names the path.
    uint64_t size() const;
    // True when it has been written to since it was opened or read.
    bool has_changed() const;
    // Of an open file, as it is now; nothing where the system does not tell.
    std::optional<file_stamp> stamp() const;
    // The bytes of the file from @p begin on. Throws a read_failure that names the path.
    std::vector<unsigned char> read(uint64_t begin = 0) const;
    // At most @p size bytes from @p begin on. Throws as read().
    std::vector<unsigned char> read_piece(uint64_t begin, std::size_t size) const;

private:
    void refuse(int error, const std::string &words);
    void remember_times() const;
    std::size_t read_some(unsigned char *to, std::size_t size, uint64_t begin) const;

    std::string path_;
    int fd_ = -1;
    int error_ = 0;
    bool foreign_ = false;
    std::string problem_;
    mutable off_t seen_size_ = 0;
    mutable struct timespec seen_time_ = {};
};

// "is a folder, not a file", when something lies there that is no regular file; empty otherwise.
std::string foreign_words(const std::string &path);

} // namespace cli

#endif
