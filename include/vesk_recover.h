/**
 * @file
 * @brief Recovering a box after a crash.
 *
 * A process that is killed, a disk that is full or a file that rots may leave a box that
 * vesk_open() does not open, or opens only to fail at the next rotation. vesk_recover() turns such
 * a box into one on which a recorder goes on:
 *
 * - bytes in no complete stream (a torn tail, a damaged middle) are taken out of the buffer; the
 *   streams behind them stay;
 * - bare events get the type word that lets readers take them, and records that are whole but
 *   refused by the readers are changed so that readers take them;
 * - a buffer that has to be full is padded: a current buffer with samples of NaN at its last time,
 *   which add nothing to any statistic, a history buffer with intervals of count 0;
 * - a state file that is missing, partial or behind its buffers is written anew, from the backup
 *   (vesk_backup_state()) or from the buffers;
 * - files that nothing refers to any more are deleted, but only when all that they hold is proven
 *   to be in the history or in a buffer of the box; others are named and kept.
 *
 * What is taken out is kept: it is appended to FILE.torn beside its buffer, see
 * #VESK_RECOVER_CUT. A box that needs nothing is not written to.
 *
 * Changed files are written under the name FILE.new, synced and renamed, and the state file comes
 * last, so the process may be killed at any moment: recovering again does the rest. No content of
 * any file aborts the process. The memory needed grows with the size of the largest file, and not
 * with what it claims.
 *
 * No recorder may have the box open meanwhile.
 */
#ifndef VESK_RECOVER_H
#define VESK_RECOVER_H

#include <stdint.h>

#include "error.h"
#include "vesk_api.h"
#include "vesk_limits.h"

#ifdef __cplusplus
extern "C" {
#endif

/** What is done to a file of a box. */
typedef enum vesk_recover_action {
    /** Bytes of the file in no complete stream are taken out, and kept in FILE.torn. That file is
        begun anew when it would grow beyond 1 MB, and deleted together with its buffer. */
    VESK_RECOVER_CUT = 1,
    /** A record, or a piece of one, that cannot be kept is taken out; its stream is kept in
        FILE.torn. */
    VESK_RECOVER_SET_ASIDE,
    VESK_RECOVER_TAG_EVENT, /**< a bare event gets its type word */
    VESK_RECOVER_MEND_TIME, /**< a time that readers refuse, or 0, becomes the nearest valid one */
    VESK_RECOVER_MEND_TEXT, /**< a name or text that cannot stay gets a substitute: it is empty, has
                                 a zero byte, or is a sensor's name that a history has twice */
    /** Samples whose names are lost get those of the buffer before, or of the next names record,
       when their number agrees, and otherwise "unknown.1", "unknown.2" and so on. */
    VESK_RECOVER_NAME_SENSORS,
    VESK_RECOVER_ADD_HEADER, /**< the header of the buffer is missing or wrong and is written */
    VESK_RECOVER_PAD,        /**< samples without values, or intervals without samples, are added */
    VESK_RECOVER_CREATE,     /**< a buffer that the box needs is missing and is made */
    VESK_RECOVER_WRITE_STATE, /**< the state file is written */
    VESK_RECOVER_DELETE,      /**< a file whose content is in the history or in a buffer of the box
                                   is deleted, or what an earlier recovery left unfinished */
    /** A file that does not belong to the box, but may hold something that is nowhere else, is left
        alone; not counted as a step. With the error #QE_ERROR_WRONG_KIND (-3) it is no regular
        file (a link, a folder, a FIFO, a device), or it belongs to neither the owner of the folder
        nor the user who runs this nor root; it is not looked into then. */
    VESK_RECOVER_KEEP,
    /** A buffer gets a new, low number in its name, because the numbers come to their end. */
    VESK_RECOVER_RENAME
} vesk_recover_action;

/** One thing that is wrong and what is done about it. */
typedef struct vesk_recover_step {
    vesk_recover_action action; /**< what is done */
    const char *filename;       /**< to which file; lives until the visitor returns */
    uint64_t offset;            /**< where in the file the bytes or the stream in question begin */
    uint64_t length;            /**< how many bytes of the file; with 0 the whole file is meant */
    uint32_t count; /**< records that are added, changed or set aside, else 0. What is done
                         to records of one stream, or of streams that follow each other,
                         is one step. What is done for the same reason more than 64 times
                         in a file is summed up: one more step counts the rest, places without
                         records as one each, and reaches from the first of them to the last */
    int error;      /**< the code that tells what is wrong, as in #vesk_scan_item and
                         #vesk_state_summary, or 0 */
} vesk_recover_step;

/** Called for each step; a result other than 0 ends the planning and becomes its result. */
typedef int (*vesk_recover_visitor)(const vesk_recover_step *step, void *context);

/** Where the state of a box comes from. */
typedef enum vesk_recover_source {
    VESK_RECOVER_FROM_STATE = 0, /**< the state file itself */
    VESK_RECOVER_FROM_BACKUP,    /**< the backup of the state file */
    VESK_RECOVER_FROM_BUFFERS    /**< the buffers that were found */
} vesk_recover_source;

/** What was found and done. */
typedef struct vesk_recover_report {
    uint32_t steps;             /**< how many steps that change something; 0 for a healthy box */
    vesk_recover_source source; /**< where the state comes from */
    uint32_t state;             /**< stage of the box afterwards, a vesk_zcf_state */
    uint32_t num_cb_samples;    /**< capacity of a current buffer */
    uint32_t num_hb_intervals;  /**< intervals that a current buffer is summarised into */
    uint64_t samples_kept;      /**< samples in the buffers of the box that were there before */
    uint64_t events_kept;       /**< events likewise, those that got a type word included */
    uint64_t intervals_kept;    /**< intervals likewise */
    uint64_t events_tagged;     /**< bare events that got a type word */
    uint64_t records_mended;    /**< records of which a time, a name or a text was replaced */
    uint64_t samples_padded;    /**< samples that were added */
    uint64_t intervals_padded;  /**< intervals that were added */
    uint64_t records_aside;     /**< records that had to be taken out */
    uint64_t bytes_aside;       /**< bytes of files that were taken out */
    uint32_t files_deleted;     /**< files whose content the box has elsewhere */
    uint32_t files_kept;        /**< files that do not belong to the box and were left alone */
} vesk_recover_report;

/**
 * Brings the box with the base name @p filename to a state in which vesk_open() opens it and the
 * next rotation succeeds, as far as the content of its files is concerned.
 *
 * @p num_cb_samples and @p num_hb_intervals are the sizes that the box was created with. They are
 * used only where nothing on disk tells them (a box killed while it was created, or one without
 * state file and backup before its first history); 0 where they are not known. @p report may be
 * null; it is filled whatever the result is, as far as things came.
 *
 * Aborts with "filename != ((void *)0)" or "filename[0] != 0".
 *
 * Nothing is followed out of the folder or waited for: see #VESK_RECOVER_KEEP. What is rewritten
 * keeps its owner and its permissions; FILE.torn is readable by its owner only.
 *
 * @return 0 when the box is in order, whether or not something had to be done; or
 * - #QE_ERROR_OPEN (-40) when there is no box of this name, or its state file, or a FILE.new or
 *   FILE.torn that is needed, is there and no regular file;
 * - #QE_ERROR_IO (-41) when the folder or a file cannot be read or written, or not renamed, also
 *   when no descriptor is left;
 * - #QE_ERROR_MALFORMED (-6) when the sizes cannot be told and the arguments do not tell them
 *   either, or are none that vesk_create() takes;
 * - #QE_ERROR_LIMIT (-49) when the base name has more than #VESK_MAX_BASE_LENGTH bytes, or the
 *   sizes are impossible: more than #VESK_MAX_INTERVALS intervals, or 10 million records missing in
 *   one buffer;
 * - #QE_ERROR_NO_MEMORY (-22) without memory.
 *
 * The box is then as good as before, and recovering can be tried again.
 */
VESK_API int vesk_recover(const char *filename, uint32_t num_cb_samples, uint32_t num_hb_intervals,
                          vesk_recover_report *report);

/**
 * Shows @p visit, file by file, what vesk_recover() would do with the same arguments, and fills
 * @p report with what it would report. Files are read and never changed. @p visit may be null.
 *
 * Aborts as vesk_recover() does.
 *
 * @return 0, what @p visit returned if that was not 0, or a code of vesk_recover().
 */
VESK_API int vesk_recover_plan(const char *filename, uint32_t num_cb_samples,
                               uint32_t num_hb_intervals, vesk_recover_visitor visit, void *context,
                               vesk_recover_report *report);

#ifdef __cplusplus
}
#endif

#endif
