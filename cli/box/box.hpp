// Finds the files that make up a box, and shows what is in them. The functions need only the right
// to read, and no content of the files can end the process.
#ifndef VESK_CLI_BOX_BOX_HPP
#define VESK_CLI_BOX_BOX_HPP

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <vesk/vesk_scan.h>

#include "box/moments.hpp"
#include "box/stored_bytes.hpp"

namespace cli
{

// A damaged file may give more messages than anybody reads: so many of one kind are shown for each
// file, and the rest as a number.
constexpr std::size_t most_told_of_a_kind = 20;

struct stored_file {
    std::string path;
    uint32_t buffer_kind = 0; // VESK_BUFFER_TYPE_CURRENT or VESK_BUFFER_TYPE_HIST
    uint64_t size = 0;
    vesk_scan_role role = VESK_SCAN_ORPHAN;
    // True when there is no such file, or something else than a file under its name.
    bool missing = false;
    // Why the file cannot be read: "is missing", "is a folder, not a file", "Permission denied".
    std::string problem;
    // The file is held open: a rotation may delete it before it is read. Null for one that the
    // state file does not name.
    std::shared_ptr<const stored_bytes> bytes;
    // Somebody writes to the box: the last record may be on its way into the file.
    bool is_live = false;

    bool is_history() const;
};

// What the state file says.
struct box_state {
    std::string path;
    int error = 0; // 0 for a whole state file, QE_ERROR_OPEN (-40) when there is none
    uint64_t size = 0;
    std::string problem;  // words for why it cannot be opened
    std::string filename; // as it was when the box was made
    uint32_t stage = 0;
    uint32_t samples = 0;
    uint32_t intervals = 0;
    uint32_t next_file_number = 0;
    std::vector<std::string> names; // of the buffers, the open one last

    bool operator==(const box_state &) const = default;
};

box_state read_state(const std::string &base);
// Why the state file cannot be used.
std::string state_words(const box_state &state);

struct box {
    std::string name;
    bool is_file = false;            // a buffer file that was named instead of a box
    box_state state;                 // not of a lone file
    std::vector<stored_file> files;  // that belong to the box, oldest first
    std::vector<stored_file> others; // that the state file does not name
    std::optional<pid_t> writer;     // who has the lock of the box

    // The buffers of one kind, oldest first.
    std::vector<const stored_file *> current_buffers() const;
    std::vector<const stored_file *> history_buffers() const;
};

// @p name is the base name of a box, its state file or one of its buffer files. Throws a failure
// (unreadable) when there is none of them. Without a usable state file all buffers that are there
// belong to the box.
//
// The files are those of one moment, also while a recorder makes them take turns: they are opened,
// and the state file has to say the same before and behind that.
box find_box(const std::string &name);
// Whether the box lies elsewhere than its state file says. It can be read where it is.
bool is_moved(const box &what);
// How the intervals of its history were made, as far as its state file tells.
summing how_summed(const box &what);
// True when the state file names other files by now.
bool has_moved_on(const box &what);

// A buffer file, held open. Nothing where there is no file of that name, or no longer.
std::optional<stored_file> open_if_there(const std::string &path);
// Shows @p visit every item of a buffer file. Throws a read_failure when the file cannot be read;
// what @p visit throws comes through.
void scan_file(const std::string &path, const std::function<void(const vesk_scan_item &)> &visit);
// The same of a file that is held open. A torn last record of a live file is left out: it is about
// to be written.
void scan_file(const stored_file &file, const std::function<void(const vesk_scan_item &)> &visit);
// The same from the byte @p begin on, where a stream begins. What stands before it is not there for
// the items: those before the next list of names have no names, and no record has a capacity.
void scan_file_from(const stored_file &file, uint64_t begin,
                    const std::function<void(const vesk_scan_item &)> &visit);

// The same of bytes that came from a buffer file of that name, however its last record looks.
void scan_bytes(const std::string &path, std::span<const unsigned char> bytes,
                const std::function<void(const vesk_scan_item &)> &visit);

// "12 bytes at 340: the data ends inside a stream".
std::string damage_text(const vesk_scan_item &item);
// True for what a reader of the box has to know about: damage, and records that are not as they
// should be. Events without a type word are how the recorder writes events.
bool is_damage(const vesk_scan_item &item);

// The names of the sensors that govern an item.
std::vector<std::string> sensor_names(const vesk_cb_record_sensor_names &names);

} // namespace cli

#endif
