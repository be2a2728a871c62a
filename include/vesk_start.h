/**
 * @file
 * @brief Starting a recorder, whatever was there before.
 *
 * One call that a program makes at each of its starts:
 *
 *     vesk_start_report report;
 *     vesk *box = vesk_start("/var/lib/box/r", 3600, 60, &report);
 *
 * It makes the box when there is none, recovers it (vesk_recover.h) when a crash left it in need of
 * that, and opens it. It never overwrites a box: it makes one only where it is certain that there
 * is neither a state file nor its copy nor a buffer.
 *
 * The recorder differs from one of vesk_open() or vesk_create(), with the same bytes in the files:
 *
 * 1. A medium that fails while a file is read gives QE_ERROR_IO (-41), where vesk_open() and a
 *    rotation of other recorders end the process. So does a state file that cannot be saved.
 * 2. A vector that fails on its way to other files leaves the recorder where it was: what was begun
 *    is removed, and the vector can be written again. When only the state file could not be saved,
 *    the recorder has moved on and the next vector, event or vesk_settle() saves it first.
 * 3. Files that were summarised stay until vesk_settle() has brought onto the medium what replaces
 *    them; so a loss of power at any moment leaves one of the two. Without vesk_settle() the next
 *    rotation does it.
 */
#ifndef VESK_START_H
#define VESK_START_H

#include <stdint.h>

#include "vesk.h"
#include "vesk_api.h"
#include "vesk_recover.h"

#ifdef __cplusplus
extern "C" {
#endif

/** What vesk_start() did. */
typedef struct vesk_start_report {
    int created; /**< 1 when there was no box and one was made, otherwise 0 */
    int settled; /**< what vesk_settle() returned: negative when the recorder works, but what it
                      began with may not survive the loss of power; it will be tried again */
    vesk_recover_report recovered; /**< of a box that was there, what vesk_recover() reports */
} vesk_start_report;

/**
 * Makes, or recovers and opens, the box with the base name @p filename.
 *
 * A box that is there keeps its sizes; the recorder tells them. @p num_cb_samples and
 * @p num_hb_intervals are those of a new box, and of one that was killed before anything on the
 * disk told them. With 0 for both no box is made. @p report may be null; it is filled whatever the
 * result is.
 *
 * The recorder is closed with vesk_close(). No other recorder may have the box open.
 *
 * Aborts with "filename != ((void *)0)" or "filename[0] != 0".
 *
 * @return the recorder, or null with the code in the cell: QE_ERROR_ABSENT (-52) when there is no
 * box and both sizes are 0; QE_ERROR_OPEN (-40) when the folder is missing or a file cannot be
 * opened; QE_ERROR_IO (-41) when the folder cannot be read, so that nobody knows what is there, or
 * a file cannot be read or written; QE_ERROR_EXISTS (-51) when another process made the box
 * meanwhile; QE_ERROR_MALFORMED (-6) for sizes that vesk_create() does not take, or when nothing
 * tells the sizes of a box; QE_ERROR_LIMIT
 * (-49) for a name of more than #VESK_MAX_BASE_LENGTH bytes, one that is too long for a new box, or
 * more intervals than #VESK_MAX_INTERVALS; QE_ERROR_NO_MEMORY (-22); or another
 * code of vesk_recover() or vesk_create_new(). Nothing acknowledged is lost then.
 */
VESK_API vesk *vesk_start(const char *filename, uint32_t num_cb_samples, uint32_t num_hb_intervals,
                          vesk_start_report *report);

#ifdef __cplusplus
}
#endif

#endif
