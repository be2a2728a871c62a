// Pushes one box: first the intervals of history that the engine does not have, then raw samples
// and events from the cursor on, then what is told of the box, and last the cursor. Whatever ends
// it in between, the next push sends the same rows again, and an engine knows them by their keys.
#ifndef VESK_CLI_PUSH_PUSH_JOB_HPP
#define VESK_CLI_PUSH_PUSH_JOB_HPP

#include <functional>
#include <string>

#include "push/cursor.hpp"
#include "push/engine_door.hpp"
#include "push/push_request.hpp"

namespace cli
{

struct box_push {
    std::string base;  // of the box
    box_labels labels; // box is never empty
    raw_choice raw;
    bool again = false; // as if nothing were pushed yet
    std::function<void(const row_counts &)> show_progress = [](const row_counts &) {};
};

struct push_result {
    exit_code code = exit_done;
    row_counts rows;
};

// Throws a failure where the box is not pushed to its end.
push_result push_box(const box_push &what, const cursor_file &cursors, engine_door &door);

} // namespace cli

#endif
