// A stage of the recorder: some closed buffers, known by their names and oldest first, and one
// current buffer that is open for writing. The four stages differ in the buffers that they have and
// in nothing else, so their functions are written here, once, over a layout.
//
// A stage in the state file:
//
//   version      1 byte, 1
//   names        a string for each closed buffer, oldest first
//   name         string, of the open buffer
#ifndef VESK_RECORDER_STAGE_HPP
#define VESK_RECORDER_STAGE_HPP

#include <array>
#include <cstdint>
#include <cstdlib>

#include <vesk/vesk_current_buffer.h>

#include "box/stage_places.hpp"
#include "buffers/buffer_internal.hpp"
#include "io/fields.hpp"
#include "recorder/stage_reading.hpp"
#include "support/object.hpp"
#include "support/owner.hpp"
#include "support/precondition.hpp"

// The name of a closed buffer and the text of an abort that misses it.
template <typename Stage>
struct stage_closed_buffer {
    char *Stage::*filename;
    const char *missing;
};

template <typename Stage>
struct stage_open_buffer {
    vesk_current_buffer *Stage::*buffer;
    const char *missing;
};

template <typename Stage, std::size_t Count>
struct stage_layout {
    std::array<stage_closed_buffer<Stage>, Count> closed;
    stage_open_buffer<Stage> open;
};

template <typename Stage>
void stage_require_live(const Stage *state)
{
    VESK_REQUIRE(state != nullptr, "state != ((void *)0)");
    VESK_REQUIRE(state->version == 1, "state->version == ((char) 1)");
}

template <typename Stage>
Stage *stage_create_null()
{
    return create_object<Stage>([](Stage *state) {
        *state = Stage();
        state->version = 1;
        return 0;
    });
}

// Takes a stage as far as it was filled: one that was read may lack buffers.
template <typename Stage, std::size_t Count>
void stage_destroy(const stage_layout<Stage, Count> &layout, Stage **state)
{
    VESK_REQUIRE(state != nullptr, "state != ((void *)0)");
    VESK_REQUIRE(*state != nullptr, "*state != ((void *)0)");
    VESK_REQUIRE((*state)->version == 1, "(*state)->version == ((char) 1)");
    for (const stage_closed_buffer<Stage> &closed : layout.closed) {
        free((*state)->*closed.filename);
    }
    if ((*state)->*layout.open.buffer != nullptr) {
        vesk_current_buffer_close(&((*state)->*layout.open.buffer));
    }
    **state = Stage();
    free(*state);
    *state = nullptr;
}

// A stage with the names of its closed buffers and a new current buffer on `open_filename`.
template <typename Stage, std::size_t Count>
Stage *stage_create(const stage_layout<Stage, Count> &layout,
                    const std::array<const char *, Count> &closed_filenames,
                    const char *open_filename, uint32_t max_data_records)
{
    Stage *state = stage_create_null<Stage>();
    if (state == nullptr) {
        return nullptr;
    }
    bool complete = true;
    for (std::size_t i = 0; i < Count && complete; ++i) {
        char *filename = duplicate_string(closed_filenames[i]);
        state->*layout.closed[i].filename = filename;
        complete = filename != nullptr;
    }
    if (complete) {
        state->*layout.open.buffer =
            _vesk_current_buffer_create_plain(open_filename, max_data_records);
        complete = state->*layout.open.buffer != nullptr;
    }
    if (!complete) {
        stage_destroy(layout, &state);
    }
    return state;
}

template <typename Stage, std::size_t Count>
vesk_current_buffer *stage_get_open_buffer(const stage_layout<Stage, Count> &layout,
                                           const Stage *state)
{
    stage_require_live(state);
    VESK_REQUIRE(state->*layout.open.buffer != nullptr, layout.open.missing);
    return state->*layout.open.buffer;
}

template <typename Stage, std::size_t Count>
const char *stage_get_open_filename(const stage_layout<Stage, Count> &layout, const Stage *state)
{
    return vesk_current_buffer_get_filename(stage_get_open_buffer(layout, state));
}

template <typename Stage, std::size_t Count>
const char *stage_get_closed_filename(const stage_layout<Stage, Count> &layout, const Stage *state,
                                      std::size_t i)
{
    stage_require_live(state);
    const char *filename = state->*layout.closed[i].filename;
    VESK_REQUIRE(filename != nullptr, layout.closed[i].missing);
    return filename;
}

// The bytes written. A version byte that cannot be written is an error; a name that cannot be
// written makes the result 0.
template <typename Stage, std::size_t Count>
int stage_write(const stage_layout<Stage, Count> &layout, const Stage *state, writer *target)
{
    stage_require_live(state);
    VESK_REQUIRE(target != nullptr, "writer != ((void *)0)");
    field_writer fields(target);
    if (fields.byte(1).failed()) {
        return fields.result();
    }
    for (std::size_t i = 0; i < Count; ++i) {
        fields.string(stage_get_closed_filename(layout, state, i));
    }
    fields.string(stage_get_open_filename(layout, state));
    return fields.failed() ? 0 : fields.result();
}

// Reads the names into a null stage and opens its live buffer where that ends. What was read before
// a failure stays.
template <typename Stage, std::size_t Count>
int stage_read(const stage_layout<Stage, Count> &layout, Stage *state, reader *source,
               file_reading reading)
{
    stage_require_live(state);
    VESK_REQUIRE(source != nullptr, "reader != ((void *)0)");
    field_reader fields(source);
    fields.version(1);
    for (const stage_closed_buffer<Stage> &closed : layout.closed) {
        fields.replace_string(&(state->*closed.filename));
    }
    char *open_filename = nullptr;
    fields.string(&open_filename);
    owned_memory<char> filename(open_filename);
    if (!fields.ok()) {
        return fields.result();
    }
    if (state->*layout.open.buffer != nullptr) {
        vesk_current_buffer_close(&(state->*layout.open.buffer));
    }
    state->*layout.open.buffer =
        _vesk_current_buffer_open_plain_for_append(filename.get(), reading);
    return state->*layout.open.buffer == nullptr ? qe_get_last_error() : fields.result();
}

#endif
