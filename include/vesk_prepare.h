/**
 * @file
 * @brief Doing the work of a rotation before it is due.
 *
 * When a buffer is full, the next vector moves the recorder on to the next files: it summarises the
 * oldest samples and halves the history, and the call takes as much longer as there is to
 * summarise. What will be summarised is known as soon as the rotation before is through, though,
 * and does not change any more. vesk_prepare() does a slice of that work, and a program calls it
 * when it has nothing else to do:
 *
 *     while (vesk_write_telemetry_vector(box, vector) == 0) {
 *         (void)vesk_settle(box);
 *         (void)vesk_prepare(box, 50000, 0); // at most about 50 ms, no memory for the result
 *         wait_for_the_next_sample();
 *     }
 *
 * The rotation then gives the finished history its name, makes the new buffer and saves the state.
 * The files have the same bytes, and they appear in the same order, as without it.
 *
 * What is prepared lies in a file without a name in the folder of the box, which takes the room
 * there that the rotation would take, or in memory where the file system knows no such files. It is
 * gone with the recorder and with the process, and it is thrown away when a vector or an event
 * cannot be written, and at the rotation if anything is not as it was: the files that were read,
 * the number of the next file. To get its name it needs /proc. Where that is not there, and in all
 * those cases, the rotation does its work itself.
 */
#ifndef VESK_PREPARE_H
#define VESK_PREPARE_H

#include <stddef.h>
#include <stdint.h>

#include "vesk.h"
#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Works ahead for the next rotation of a recorder of vesk_start().
 *
 * The work goes on in steps: one sample, or two intervals of the history, which take about 30 ms
 * with 10,000 sensors. The call ends with the first step behind which @p microseconds have passed,
 * so with 0 it only tells how far the work is. The last step brings the result onto the medium.
 * While the work is under way it takes about 0.4 MiB and 100 bytes for each sensor, and up to
 * three descriptors; behind it, one descriptor.
 *
 * @p memory is how many bytes of memory the result may take where it cannot lie on the disk; 0 for
 * none.
 *
 * Aborts with "vesk != ((void *)0)" or "vesk->version == ((char) 1)".
 *
 * @return 1 when there is more to do; 0 when the next rotation has nothing left to summarise, which
 * is so from the start while there is no history yet and the buffer is one of the first two; or why
 * the work was given up until the rotation is through: QE_ERROR_WRONG_KIND (-3) for a recorder of
 * vesk_create() or vesk_open(), QE_ERROR_OPEN (-40) when a file cannot be opened or made,
 * QE_ERROR_NO_MEMORY (-22) without memory or when the result takes more than @p memory,
 * QE_ERROR_IO (-41) when a file cannot be read or written, or the code with which the rotation
 * will probably fail, such as QE_ERROR_MALFORMED (-6) or QE_ERROR_TRUNCATED (-48) for damaged
 * files. The recorder can be used as before in all these cases.
 */
VESK_API int vesk_prepare(vesk *vesk, uint32_t microseconds, size_t memory);

#ifdef __cplusplus
}
#endif

#endif
