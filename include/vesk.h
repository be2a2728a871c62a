/**
 * @file
 * @brief The recorder: the black box itself.
 *
 * A recorder takes telemetry vectors and events and keeps them on disk in a bounded number of
 * files. The newest samples are kept as they came, in current buffers; older ones are summarised
 * per interval in a history buffer, and the older the history, the longer its intervals.
 *
 *     vesk *box = vesk_create("/var/lib/box/r", 3600, 60);
 *     ...
 *     if (vesk_write_telemetry_vector(box, vector) < 0) { ... }
 *     ...
 *     vesk_close(&box);
 *
 * Later, and after every restart, vesk_open("/var/lib/box/r") goes on where this stopped.
 *
 * 1. Files. On base name r they are r.state, r.N.cbuf.z and r.N.hbuf.z, and N grows with every
 *    file that is made: r.1.cbuf.z is written first, then r.2.cbuf.z and r.3.cbuf.z; when that is
 *    full, r.4.hbuf.z summarises the first two, which are deleted, and r.5.cbuf.z is opened. From
 *    then on each full buffer makes a history and a current buffer, and takes away one of each.
 *    The base name may contain folders; it has at most #VESK_MAX_BASE_LENGTH (1005) bytes, because
 *    the names of buffers are cut at 1023. The names are stored in the state file as they were
 *    given: a relative name depends on the working directory, and a copied recorder still means the
 *    original's buffers. A recorder opens and makes regular files only: a link, a FIFO, a device or
 *    a folder under one of these names is neither followed nor waited for, but gives QE_ERROR_OPEN
 *    (-40); a link to /dev/full, which shows what a full disk does, is written to, and a folder in
 *    the place of the state file is a file without bytes. The folder of the box may be a link.
 * 2. Sizes. A current buffer holds num_cb_samples vectors and is summarised into num_hb_intervals
 *    intervals; a history buffer holds twice as many. Two consecutive intervals of a full history
 *    become one when the next buffer is summarised. num_hb_intervals must not
 *    exceed #VESK_MAX_INTERVALS (65534).
 * 3. Durability. A vector or an event is with the operating system when the call returns. What
 *    brings it onto the medium is vesk_sync(); a recorder of vesk_start() also syncs a new history
 *    before the state file names it. The state file is written when a recorder is created and
 *    whenever its files change, in place, and never by vesk_close(). vesk_backup_state() keeps a
 *    copy of it, and vesk_recover() (vesk_recover.h) recovers a box after a crash.
 * 4. Failures. A vector that could not be written is not counted. When the call that failed had to
 *    move on to the next file first, the recorder should be closed and opened again: its state may
 *    be ahead of its files, and the next call may abort.
 * 5. Events. vesk_write_tagged_event() stores an event as a record that readers take and the
 *    history counts. vesk_write_event() stores it without the type that precedes every other
 *    record: it stays in the file, but readers stop in front of it with QE_ERROR_MALFORMED (-6).
 *    The buffer cannot be summarised any more, so the call that would have to do it fails with
 *    that code from then on, and so does opening a recorder whose current buffer contains such an
 *    event.
 * 6. One process at a time may have a recorder open, and nobody else may read its current buffer
 *    then. Nothing enforces this.
 */
#ifndef VESK_H
#define VESK_H

#include <stdint.h>

#include "matrix.h"
#include "reader.h"
#include "vesk_api.h"
#include "vesk_cb_record_event.h"
#include "vesk_limits.h"
#include "vesk_zcf_state_c00.h"
#include "vesk_zcf_state_cc0.h"
#include "vesk_zcf_state_ccc.h"
#include "vesk_zcf_state_hcc.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

/** A recorder. */
typedef struct vesk {
    char version;                      /**< 1 while live */
    char *filename;                    /**< owned, the base name */
    char *state_filename;              /**< owned, the base name and ".state" */
    uint32_t state;                    /**< a vesk_zcf_state; 0 in a null recorder */
    uint32_t num_cb_samples;           /**< vectors in a current buffer */
    uint32_t num_hb_intervals;         /**< intervals that a current buffer is summarised into */
    uint32_t num_samples_per_interval; /**< the quotient of the two */
    uint32_t next_file_number;         /**< what the name of the next buffer carries */
    union {
        void *stage;             /**< owned; null in a null recorder */
        vesk_zcf_state_c00 *c00; /**< the stage in state 1 */
        vesk_zcf_state_cc0 *cc0; /**< the stage in state 2 */
        vesk_zcf_state_ccc *ccc; /**< the stage in state 3 */
        vesk_zcf_state_hcc *hcc; /**< the stage in state 4 */
    };
    uint32_t stage_type; /**< private: what the stage really is, also after a failed transition */
    void *safety;        /**< private: what vesk_start() adds, null in other recorders */
} vesk;

/**
 * Makes a new recorder on the base name @p filename: its state file and its first current buffer. A
 * recorder that was there under this name is lost: both files are overwritten, and its other
 * buffers stay behind.
 *
 * Aborts with "filename != ((void *)0)", "filename[0] != 0", "num_cb_samples > 0",
 * "num_hb_intervals > 0", "num_cb_samples % num_hb_intervals == 0", "num_cb_samples % 2 == 0" or
 * "num_hb_intervals % 2 == 0", in this order.
 *
 * @return the recorder, or null with the code in the cell: QE_ERROR_OPEN (-40) when the state file
 * cannot be opened or is no regular file, QE_ERROR_IO (-41) when it cannot be written, the code of
 * vesk_current_buffer_create(), or QE_ERROR_NO_MEMORY (-22) without memory. A current buffer that
 * was made stays on disk. The copy that vesk_backup_state() made of an older state of this name is
 * removed.
 */
VESK_API vesk *vesk_create(const char *filename, uint32_t num_cb_samples,
                           uint32_t num_hb_intervals);

/**
 * As vesk_create(), but only where there is certainly no recorder yet: neither a state file nor its
 * copy nor a buffer of this name. Nothing that was there is changed.
 *
 * Aborts with "filename != ((void *)0)" or "filename[0] != 0".
 *
 * @return the recorder, or null with the code in the cell: QE_ERROR_EXISTS (-51) when there is
 * something of a recorder, or another process is making one; QE_ERROR_OPEN (-40) when the folder is
 * missing or a file cannot be made; QE_ERROR_IO (-41) when the folder cannot be read, so that
 * nobody knows what is there; QE_ERROR_MALFORMED (-6) for sizes with which vesk_create() aborts;
 * QE_ERROR_LIMIT (-49) for more than #VESK_MAX_INTERVALS, a name of more than
 * #VESK_MAX_BASE_LENGTH bytes, or one to which the file system does not let 23 bytes be added, as
 * the last buffer needs; or a code of vesk_create(). What was begun is removed then.
 */
VESK_API vesk *vesk_create_new(const char *filename, uint32_t num_cb_samples,
                               uint32_t num_hb_intervals);

/**
 * Opens the recorder with the base name @p filename and its current buffer, to go on writing there.
 *
 * A recorder is returned, too, when its state file could be read only in part or its current buffer
 * not at all; the cell tells then: set it to 0 before the call and look at it afterwards. Such a
 * recorder aborts when it is written to. vesk_close() takes it unless its state file ended, or was
 * refused, between the state and the stage: then it aborts as well. A program that starts does
 * better with vesk_start() (vesk_start.h), which recovers such a recorder first.
 *
 * Aborts with "filename != ((void *)0)" or "filename[0] != 0", and with "nread != 0" when the state
 * file ends right behind the length of a name.
 *
 * @return the recorder, or null with QE_ERROR_OPEN (-40) in the cell when there is no state file or
 * it is no regular file, QE_ERROR_TRUNCATED (-48) when it is empty, QE_ERROR_NO_MEMORY (-22)
 * without memory for the recorder itself. With a recorder in part, the cell has
 * QE_ERROR_MALFORMED (-6) for impossible counts or an unknown state, QE_ERROR_BAD_VERSION (-12) for
 * an unknown version, QE_ERROR_END_OF_RECORDS (-43) or QE_ERROR_TRUNCATED (-48) for a state file
 * that ends early, QE_ERROR_NO_MEMORY (-22) when memory ended while the names, the stage or the
 * current buffer was read, or another code of vesk_current_buffer_open_for_append().
 */
VESK_API vesk *vesk_open(const char *filename);

/** @return a new recorder of state 0 without names, to be read, or null with
 * QE_ERROR_NO_MEMORY (-22) in the cell. */
VESK_API vesk *vesk_create_null(void);

/**
 * Records @p vector, a telemetry matrix of one row. When the current buffer is full, it first moves
 * on to the next one and summarises and deletes the oldest files.
 *
 * A timestamp of 0 cannot be summarised, nor can more than #VESK_MAX_COUNT sensors be stored.
 *
 * Aborts with "vesk != ((void *)0)", "vesk->version == ((char) 1)", "vector != ((void *)0)",
 * "vesk->c00 != ((void *)0)", or the same of the stage at hand, in a recorder without its stage,
 * and with "0" in an unknown state. It aborts in a process that cannot save the state file after
 * the first history was made.
 *
 * @return 0; QE_ERROR_IO (-41) when a file cannot be read or written, QE_ERROR_OPEN (-40) when it
 * cannot be opened or is no regular file, QE_ERROR_MALFORMED (-6) when a full buffer cannot be
 * summarised, or another code of the buffers. A history buffer that was begun stays behind then.
 * Files are deleted only when the history that replaces them is complete and the state file was
 * written; so they are gone, too, when only the vector behind them could not be written.
 */
VESK_API int vesk_write_telemetry_vector(vesk *vesk, const matrix *vector);

/**
 * @return nonzero when the current buffer is full, so that the next vector moves on to other files,
 * which takes longer and needs more room than other vectors do.
 *
 * Aborts as vesk_sync() does.
 */
VESK_API int vesk_is_full(const vesk *vesk);

/**
 * Records @p event in the current buffer, also when that is full, in a form that readers do not
 * take: see the fifth note above.
 *
 * Aborts as vesk_write_telemetry_vector() does, with "event != ((void *)0)".
 *
 * @return 0, QE_ERROR_LIMIT (-49) when the text is longer than #VESK_MAX_COUNT bytes, or another
 * negative result of the buffer. 0 does not tell that the event is in the file: a disk that takes
 * nothing leaves QE_ERROR_IO (-41) in the cell and nowhere else, so who wants to know sets the cell
 * to 0 before.
 */
VESK_API int vesk_write_event(vesk *vesk, const vesk_cb_record_event *event);

/**
 * Records @p event in the current buffer, also when that is full, as a record with its type: it can
 * be read back, and the history counts it in the interval of the next vector of its buffer. Behind
 * the last vector of a full buffer it is in no interval: it goes with the file, uncounted.
 *
 * Right after vesk_create(), and after opening a recorder whose current buffer is empty, there is
 * nothing yet that an event could follow, and the result is QE_ERROR_UNKNOWN_KIND (-4): the event
 * is to be written after the next vector.
 *
 * Aborts as vesk_write_telemetry_vector() does, with "event != ((void *)0)" or
 * "event->version == ((char) 1)", and with "cbuf != ((void *)0)" in a recorder that was opened
 * without its current buffer.
 *
 * @return 0 when the event is with the operating system; QE_ERROR_MALFORMED (-6),
 * QE_ERROR_LIMIT (-49) or QE_ERROR_UNKNOWN_KIND (-4) with nothing written, QE_ERROR_IO (-41) or
 * QE_ERROR_COMPRESSION (-42), as vesk_current_buffer_write_tagged_event() has them.
 */
VESK_API int vesk_write_tagged_event(vesk *vesk, const vesk_cb_record_event *event);

/**
 * Brings onto the medium what was written: the data of all files of @p vesk, and their names. When
 * it returns 0, everything that was acknowledged before the call survives the loss of power.
 *
 * It is the caller who knows what a sync costs and what a loss: a monitor that samples each second
 * may sync each minute, and after an event that announces the end. Moving on to other files deletes
 * the old ones, and the new ones are not on the medium yet. So it is to be called in any case after
 * a vector that changed the @c next_file_number of @p vesk: a loss of power between the two can
 * cost history.
 *
 * Aborts as vesk_write_tagged_event() does.
 *
 * @return 0; QE_ERROR_OPEN (-40) when a file of the recorder cannot be opened or is no regular
 * file; QE_ERROR_IO (-41) when a file or the folder cannot be synced. The recorder can be used on.
 */
VESK_API int vesk_sync(const vesk *vesk);

/**
 * Writes a copy of the state file beside it, under its name and ".bak", from which vesk_recover()
 * recovers a box whose state file was lost while it was written. The copy replaces the one
 * before as a whole and is synced: whenever the process is killed or power is lost, one of the two
 * is there.
 *
 * To be called after vesk_create() and after each vector that changed the @c next_file_number of
 * @p vesk, before the next one of those is written. When the state file itself is good, the copy is
 * not needed.
 *
 * Aborts as vesk_write_telemetry_vector() does.
 *
 * @return 0; QE_ERROR_OPEN (-40) when the file that becomes the copy cannot be made;
 * QE_ERROR_IO (-41) when it cannot be written, synced or put into place; QE_ERROR_LIMIT (-49) when
 * its name is too long; QE_ERROR_NO_MEMORY (-22) without memory; QE_ERROR_MALFORMED (-6) after a
 * vector that failed on its way to other files, until the recorder was opened again. The copy of
 * before is then still there, and what was begun is removed. Only where the folder cannot be synced
 * (-41, too) it may be the new one.
 */
VESK_API int vesk_backup_state(const vesk *vesk);

/**
 * Brings onto the medium that the recorder has moved on to other files, and deletes the files that
 * were replaced by that. To be called after each vector and event of a recorder from vesk_start():
 * when it has not moved on since the last call, this returns 0 at once and touches no file.
 * Otherwise it is vesk_sync(), vesk_backup_state() and then the deletion.
 *
 * When it returns 0, everything that was acknowledged before the call, and was on the medium or in
 * the files that the recorder has moved away from, survives the loss of power. For the samples of
 * the open buffer that is left to vesk_sync().
 *
 * In a recorder that vesk_start() did not make it is vesk_sync() and vesk_backup_state(): there the
 * replaced files are deleted by the vector that replaces them.
 *
 * Aborts as vesk_sync() does.
 *
 * @return 0; QE_ERROR_IO (-41) when a file cannot be written, synced or deleted; or another code of
 * vesk_sync() and vesk_backup_state(). Nothing is lost then, and the next call tries again.
 */
VESK_API int vesk_settle(const vesk *vesk);

/**
 * Closes the files of @p *vesk, frees it and sets it to null. The state file is not written.
 *
 * Aborts with "(*vesk) != ((void *)0)", "(*vesk)->version == ((char) 1)",
 * "(*vesk)->c00 != ((void *)0)", or the same of the stage at hand, when there is a state but no
 * stage, and with "0" in an unknown state.
 */
VESK_API void vesk_close(vesk **vesk);

/**
 * Writes the content of the state file.
 *
 * Aborts with "0" when @p vesk has no known state, and as vesk_write_telemetry_vector() does when
 * it has no stage.
 *
 * @return what the writer reported; QE_ERROR_LIMIT (-49) when the base name is longer than
 * #VESK_MAX_COUNT bytes; or the negative result of the writer, except where that strikes a name of
 * the stage: such a failure is not reported, and the form is cut there.
 */
VESK_API int binary_serializer_write_vesk(const vesk *vesk, writer *writer);

/**
 * Reads the content of a state file into @p vesk, which is live, and opens its current buffer. What
 * was read before a failure stays in @p vesk.
 *
 * @return the bytes consumed; 0 at the end of the data; QE_ERROR_BAD_VERSION (-12) on a version
 * other than 1; QE_ERROR_MALFORMED (-6) on counts that do not fit together or an unknown state;
 * QE_ERROR_END_OF_RECORDS (-43) where the data ends before a name, QE_ERROR_TRUNCATED (-48) where
 * it ends elsewhere; QE_ERROR_NO_MEMORY (-22) without memory; or the negative result of the reader
 * or of vesk_current_buffer_open_for_append().
 */
VESK_API int binary_serializer_read_vesk(vesk *vesk, reader *reader);

#ifdef __cplusplus
}
#endif

#endif
