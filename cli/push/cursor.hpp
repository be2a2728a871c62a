// How far a box has been pushed to one target: a small file for each pair of them. It only saves
// work. One that is lost, torn or of another box is as good as none, because the engine is asked
// then.
#ifndef VESK_CLI_PUSH_CURSOR_HPP
#define VESK_CLI_PUSH_CURSOR_HPP

#include <cstdint>
#include <optional>
#include <string>

#include "box/raw_position.hpp"
#include "push/known_interval.hpp"

namespace cli
{

struct push_cursor {
    raw_position position;     // behind the last raw record that is pushed, or was not wanted
    int64_t time = 0;          // of that record, by which a new box of the same name is told apart
    uint32_t history_file = 0; // the number of the history that is pushed
    std::optional<known_interval> newest_interval; // of that history
    std::string facts;                             // what the engine was told of the box

    bool operator==(const push_cursor &) const = default;
};

// Keeps the cursor of one box and target below a folder, and lets one process at a time push them.
class cursor_file
{
public:
    // Makes the folder where it is missing. Throws a failure when that cannot be done, or when
    // another process pushes this box to this target.
    cursor_file(const std::string &folder, const std::string &box, const std::string &target);
    cursor_file(const cursor_file &) = delete;
    cursor_file &operator=(const cursor_file &) = delete;
    ~cursor_file();

    // Nothing where there is none that can be believed.
    std::optional<push_cursor> read() const;
    // Appears as a whole. Throws a failure.
    void write(const push_cursor &cursor) const;

    const std::string &path() const { return path_; }

private:
    std::string box_;
    std::string target_;
    std::string path_;
    int lock_ = -1;
};

// The text of a cursor, which ends with a checksum, and back; nothing for any other text and for
// another box or target.
std::string cursor_text(const push_cursor &cursor, const std::string &box,
                        const std::string &target);
std::optional<push_cursor> cursor_in(const std::string &text, const std::string &box,
                                     const std::string &target);

// Where cursors are kept unless told: the folder that a service has for its state, else that of the
// user.
std::string usual_cursor_folder();

} // namespace cli

#endif
