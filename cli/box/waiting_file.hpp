// The file BASE.events, which keeps the events that no buffer can take yet: reading it, appending
// to it, marking what has come into the box, and taking out what cannot be read. Only what this
// command made is written to or deleted, whatever else has the name.
#ifndef VESK_CLI_BOX_WAITING_FILE_HPP
#define VESK_CLI_BOX_WAITING_FILE_HPP

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "box/event_channel.hpp"
#include "box/waiting_record.hpp"
#include "process/failure.hpp"

namespace cli
{

// More are refused.
constexpr std::size_t most_waiting_events = 1000;
constexpr std::size_t most_waiting_bytes = std::size_t{1} << 20;

// Something else has the name: a link, a FIFO, a folder, the file of another user, or a file that
// this command has not written.
class foreign_waiting_file : public failure
{
public:
    explicit foreign_waiting_file(const std::string &path)
        : failure(exit_failed, path + ": is no file of waiting events")
    {
    }
};

struct waiting_file {
    bool is_there = false;
    std::size_t size = 0;
    std::vector<waiting_record> records; // of the events that are not in the box for certain
    std::vector<unreadable_piece> damage;

    std::size_t unreadable_bytes() const;
};

std::string waiting_file_of(const std::string &base);
// Only reads. Throws a foreign_waiting_file, or a failure when the file cannot be read.
waiting_file read_waiting_file(const std::string &base);
// Puts an event behind those that wait, so many as @p waiting; it is on the medium when this
// returns. Throws a failure when it is not there.
void append_to_waiting_file(const std::string &base, const event &what, std::size_t waiting);
// Appends what cannot be read to BASE.events.torn. Throws a failure when that fails.
void keep_unreadable_apart(const std::string &base);
// Does so and leaves only what can be read. Returns how many bytes were taken out.
std::size_t mend_waiting_file(const std::string &base);

// Changes the marks of the records in place.
class waiting_marks
{
public:
    explicit waiting_marks(const std::string &base);
    waiting_marks(const waiting_marks &) = delete;
    waiting_marks &operator=(const waiting_marks &) = delete;
    // They are on the medium then, as far as it takes them.
    ~waiting_marks();

    void set(const waiting_record &each, std::string_view mark) const;

private:
    std::string path_;
    file_descriptor file_;
};

} // namespace cli

#endif
