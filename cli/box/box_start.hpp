// Starts a recorder on a box: finds out whether the box exists, recovers and opens it, or makes a
// new one. No existing file is ever overwritten.
#ifndef VESK_CLI_BOX_BOX_START_HPP
#define VESK_CLI_BOX_BOX_START_HPP

#include <memory>
#include <string>

#include <vesk/vesk.h>

#include "box/box_shape.hpp"

namespace cli
{

struct recorder_closer {
    void operator()(struct vesk *recorder) const { vesk_close(&recorder); }
};
using owned_recorder = std::unique_ptr<struct vesk, recorder_closer>;

// The base name of a box as the user gave it, and as an absolute path, which holds in every working
// directory. Throws a failure for an empty name and for a path that the recorder would cut off.
struct box_name {
    explicit box_name(const std::string &given);

    std::string base;
    std::string path;
};

// True when there is anything of a box: a state file, its copy or a buffer. Only names that are not
// there count as absent; throws a failure where that cannot be told.
bool is_there(const box_name &name);

// True when @p path is there, be it a link that leads nowhere; throws a failure where that cannot
// be told.
bool exists(const std::string &path);

// Tells people when the state file names buffers elsewhere, mostly because the box was moved or
// copied. Those beside the state file are used.
void note_other_place(const box_name &name);

// Throws a storage_failure when the disk has no room to recover the box: a recovery writes a whole
// buffer anew, which on a full disk can only fail.
void require_room_to_recover(const box_name &name);

struct started_box {
    owned_recorder recorder;
    bool is_new;
};

// Recovers the box, as `vesk repair` does it, with a note where that did more than delete old
// files, and opens it; or makes one where there is none. A medium that fails later gives the
// recorder a code and never ends the process. @p shape is that of a new box, and of one that was
// killed before anything on the disk told its shape: then the same call is likely to be what made
// it. Throws a storage_failure, or a failure (unreadable) when the box cannot be recovered.
started_box start_box(const box_name &name, const box_shape &shape);

} // namespace cli

#endif
