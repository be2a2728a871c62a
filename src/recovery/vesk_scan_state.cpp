// Reads a state file whose content may be anything. The fields come out up to the first that is
// missing or that no recorder writes, with the code of the reason. No file that it names is looked
// at.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <vesk/error.h>
#include <vesk/vesk_limits.h>
#include <vesk/vesk_scan.h>

#include "box/loaded_file.hpp"
#include "box/stage_places.hpp"
#include "box/state_file.hpp"
#include "recovery/byte_cursor.hpp"
#include "recovery/state_scan.hpp"
#include "support/precondition.hpp"

// Takes a string into `*to`. 0, or why the file is refused.
static int _scan_string(byte_cursor *at, char **to)
{
    const uint32_t length = at->u32();
    if (at->ok() && (length == 0 || length > max_stored_count)) {
        return QE_ERROR_MALFORMED;
    }
    const unsigned char *bytes = at->take(length);
    if (bytes == nullptr) {
        return QE_ERROR_TRUNCATED;
    }
    if (memchr(bytes, 0, length) != nullptr) {
        return QE_ERROR_MALFORMED;
    }
    *to = static_cast<char *>(malloc(static_cast<size_t>(length) + 1));
    if (*to == nullptr) {
        return QE_ERROR_NO_MEMORY;
    }
    memcpy(*to, bytes, length);
    (*to)[length] = '\0';
    return 0;
}

// Takes the four counts and the stage, each checked as vesk_open() does.
static int _scan_numbers(byte_cursor *at, vesk_state_summary *summary)
{
    for (uint32_t *number : {&summary->state, &summary->num_cb_samples, &summary->num_hb_intervals,
                             &summary->num_samples_per_interval, &summary->next_file_number}) {
        *number = at->u32();
        if (!at->ok()) {
            return QE_ERROR_TRUNCATED;
        }
        ++summary->fields;
    }
    const uint32_t samples = summary->num_cb_samples;
    const uint32_t intervals = summary->num_hb_intervals;
    return samples == 0 || samples % 2 != 0 || intervals == 0 || samples % intervals != 0 ||
                   summary->num_samples_per_interval != samples / intervals ||
                   !is_stage(summary->state)
               ? QE_ERROR_MALFORMED
               : 0;
}

static int _scan_version(byte_cursor *at)
{
    const uint8_t version = at->byte();
    return !at->ok() ? QE_ERROR_TRUNCATED : version != 1 ? QE_ERROR_BAD_VERSION : 0;
}

static int _scan_state_fields(byte_cursor *at, vesk_state_summary *summary)
{
    int result = _scan_version(at);
    for (char **text : {&summary->filename, &summary->state_filename}) {
        if (result == 0) {
            result = _scan_string(at, text);
            summary->fields += result == 0 ? 1 : 0;
        }
    }
    if (result == 0) {
        result = _scan_numbers(at, summary);
    }
    if (result == 0) {
        result = _scan_version(at);
    }
    const uint32_t n = result == 0 ? places_of_stage(summary->state).n : 0;
    for (char **name = summary->names; name != summary->names + n && result == 0; ++name) {
        result = _scan_string(at, name);
        if (result == 0) {
            ++summary->num_names;
            ++summary->fields;
        }
    }
    return result;
}

int vesk_scan_state(const char *filename, vesk_state_summary *summary)
{
    VESK_REQUIRE(filename != nullptr, "filename != ((void *)0)");
    VESK_REQUIRE(summary != nullptr, "summary != ((void *)0)");
    *summary = {};
    byte_list file;
    summary->error = _vesk_load_file(filename, link_rule::refuse, most_state_bytes, &file);
    summary->size = file.size();
    if (summary->error == 0) {
        byte_cursor at(file.begin(), file.size());
        summary->error = _scan_state_fields(&at, summary);
    }
    return summary->error;
}

void vesk_state_summary_destruct(vesk_state_summary *summary)
{
    VESK_REQUIRE(summary != nullptr, "summary != ((void *)0)");
    free(summary->filename);
    free(summary->state_filename);
    for (char *name : summary->names) {
        free(name);
    }
    *summary = {};
}

// --- what follows from the fields --------------------------------------------------------------

std::size_t state_summary::form_size() const
{
    if (summary_.error != 0) {
        return 0;
    }
    constexpr std::size_t integer = 4;
    std::size_t size = 2 + 5 * integer; // two versions, the counts
    for (const char *text : {summary_.filename, summary_.state_filename}) {
        size += integer + strlen(text);
    }
    for (uint32_t i = 0; i < summary_.num_names; ++i) {
        size += integer + strlen(summary_.names[i]);
    }
    return size;
}

recorder_sizes state_summary::told_sizes() const
{
    constexpr uint32_t fields_up_to_sizes = 5;
    const recorder_sizes told = {summary_.num_cb_samples, summary_.num_hb_intervals};
    const bool contradicted =
        summary_.fields > fields_up_to_sizes &&
        (!told.usable() || summary_.num_samples_per_interval != told.samples / told.intervals);
    return summary_.fields < fields_up_to_sizes || contradicted ? recorder_sizes() : told;
}
