/**
 * @file
 * @brief Reading the files of a box whatever state they are in.
 *
 * The readers of the buffers (vesk_current_buffer.h, vesk_hist_buffer.h) stop at the first thing
 * that they do not expect, and some content aborts the process. The scanner is for everybody who
 * has to look at a box after a crash: it opens files for reading only, takes nothing of what they
 * hold for granted and never aborts because of it.
 *
 * A buffer file is a row of zlib streams, each of them complete in itself: it ends with a checksum
 * and begins at a record boundary. The scanner hands out the records of a stream only after the
 * whole stream was decoded and its checksum agreed. Behind a torn or damaged stream it searches for
 * the next complete one, so that one bad place in a file hides nothing behind it. Whatever lies
 * between is reported as damage. A stream in whose checksum another one begins has lost its last
 * bytes: it is damage, even where the bytes that follow complete it by chance.
 *
 * Memory and time are bounded on any content: a stored count or length is believed only when the
 * data is there, and the search for streams gives up (see #VESK_SCAN_DAMAGE) rather than take
 * longer than a fixed multiple of the size of the file. A file may hold one sample, interval or
 * event in each stream, as recorders write them, as much padding (samples and intervals without
 * values) as its capacity, at most 10 million, and one more record for each byte of the file, and
 * 8,192; sensors that are named count as one each, and each kilobyte of such records as one more. A
 * stream may hold 8 MiB, and 32 bytes for each byte that it takes in the file. What goes beyond is
 * shown as damage. In a box of more than eight files a recovery allows each of them less than 8,192
 * records, so that all together have 65,536.
 *
 * A file that a recorder is appending to may be scanned; its last record may then look torn.
 */
#ifndef VESK_SCAN_H
#define VESK_SCAN_H

#include <stddef.h>
#include <stdint.h>

#include "vesk_api.h"
#include "vesk_cb_record_event.h"
#include "vesk_cb_record_sensor_names.h"
#include "vesk_cb_record_sensor_values.h"
#include "vesk_hb_record_sensor_values.h"

#ifdef __cplusplus
extern "C" {
#endif

/** What an item of a buffer file is. */
typedef enum vesk_scan_kind {
    VESK_SCAN_HEADER = 1,    /**< the kind of the buffer and its capacity */
    VESK_SCAN_SENSOR_NAMES,  /**< the sensors of the records that follow, in either kind of file */
    VESK_SCAN_SENSOR_VALUES, /**< one sample of a current buffer */
    VESK_SCAN_EVENT,         /**< an event as a record with its type word */
    VESK_SCAN_BARE_EVENT,    /**< an event as vesk_write_event() stores it, without type word */
    VESK_SCAN_INTERVAL,      /**< one interval of a history buffer */
    /**
     * Bytes that hold no record. With @c content_length 0 they are the bytes of the file from @c
     * offset on, @c length of them, in no complete stream; otherwise they are a piece of the
     * content of the complete stream at @c offset: a record that was begun and abandoned.
     */
    VESK_SCAN_DAMAGE
} vesk_scan_kind;

/** One item of a buffer file. Everything in it is lent: it lives until the visitor returns. */
typedef struct vesk_scan_item {
    vesk_scan_kind kind;     /**< what the item is */
    uint32_t buffer_kind;    /**< #VESK_BUFFER_TYPE_CURRENT or #VESK_BUFFER_TYPE_HIST; 0 before the
                                  header, and in a file without one as long as nothing tells */
    uint32_t capacity;       /**< the capacity that the header states; 0 before the header */
    uint64_t offset;         /**< where the compressed stream of the item begins in the file */
    uint64_t length;         /**< how many bytes of the file that stream takes */
    uint32_t stream;         /**< number of that stream among the complete ones, from 0 */
    uint32_t content_offset; /**< where the item begins in the content of the stream */
    uint32_t content_length; /**< how many bytes of the content it takes */
    const unsigned char *content; /**< those bytes; null for damage outside of streams */
    /**
     * The sensors that govern the item, or the names record itself; null before the first names
     * record and behind a header.
     */
    const vesk_cb_record_sensor_names *names;
    vesk_cb_record_sensor_values *values;   /**< the sample, else null; always holds its floats */
    vesk_cb_record_event *event;            /**< the event, with type word or without, else null */
    vesk_hb_record_sensor_values *interval; /**< the interval, else null */
    /**
     * For damage the reason: QE_ERROR_TRUNCATED (-48) where the data ends inside a stream,
     * QE_ERROR_IO (-41) where it cannot be decoded, QE_ERROR_MALFORMED (-6) for content that is no
     * record, QE_ERROR_LIMIT (-49) where the search for streams gave up or where a stream holds
     * more records than a file of this size and capacity may have. For everything else 0, or the
     * code with which the readers of the buffers refuse the item although all of it is here: a bare
     * event (-6), a sensor without a name (-6), an event without a text (-6), a timestamp with
     * microseconds (-6), values in another number than the sensors that govern them (-6), a record
     * before the first names record (-4), more records than the capacity (-6).
     */
    int error;
} vesk_scan_item;

/** Called for each item; a result other than 0 ends the scan and becomes its result. */
typedef int (*vesk_scan_visitor)(const vesk_scan_item *item, void *context);

/**
 * Shows @p visit every item of the buffer file @p filename in file order, damage included.
 *
 * Whether the file is a current or a history buffer is told by its content; the name only decides
 * where the header is missing (".hbuf.z" at the end, anything else means a current buffer). An
 * empty file has no items.
 *
 * Only a regular file is read; nothing is waited for. A link that @p filename leads over is
 * followed, so @p filename should come from a person. What was found under a name of a box may be a
 * link to anywhere: vesk_scan_files() tells that.
 *
 * @return 0 after the last item, whatever was found; what @p visit returned if that was not 0;
 * QE_ERROR_OPEN (-40) when the file cannot be opened or is a pipe or a device; QE_ERROR_IO (-41)
 * when it cannot be read or is a folder; QE_ERROR_NO_MEMORY (-22) without memory.
 */
VESK_API int vesk_scan_buffer(const char *filename, vesk_scan_visitor visit, void *context);

/**
 * Shows @p visit every item of the content of a buffer file, as vesk_scan_buffer() does: for a
 * caller who opens and reads files in its own way, as one has to whose files may be deleted
 * meanwhile.
 *
 * @p bytes are the @p size bytes of the file; they are lent and may be null when @p size is 0.
 * @p buffer_kind, #VESK_BUFFER_TYPE_CURRENT or #VESK_BUFFER_TYPE_HIST, decides where the header is
 * missing, as the name of the file does for vesk_scan_buffer().
 *
 * Aborts with "bytes != ((void *)0) || size == 0", "buffer_kind == VESK_BUFFER_TYPE_CURRENT ||
 * buffer_kind == VESK_BUFFER_TYPE_HIST" or "visit != ((void *)0)".
 *
 * @return 0 after the last item, whatever was found; what @p visit returned if that was not 0;
 * QE_ERROR_NO_MEMORY (-22).
 */
VESK_API int vesk_scan_bytes(const unsigned char *bytes, size_t size, uint32_t buffer_kind,
                             vesk_scan_visitor visit, void *context);

/** What a state file says, as far as it can be read. */
typedef struct vesk_state_summary {
    /**
     * 0 when the file is complete and a recorder can be opened from it as far as the state file is
     * concerned; QE_ERROR_OPEN (-40) when it cannot be opened, QE_ERROR_IO (-41) when it cannot be
     * read, QE_ERROR_TRUNCATED (-48) when it ends early, QE_ERROR_BAD_VERSION (-12) for an unknown
     * version, QE_ERROR_MALFORMED (-6) for a content that vesk_open() refuses.
     */
    int error;
    uint64_t size;                     /**< of the file, in bytes; no more than a state can have */
    uint32_t fields;                   /**< how many of the fields below were read, in this order */
    char *filename;                    /**< base name of the box, else null */
    char *state_filename;              /**< name of the state file, else null */
    uint32_t state;                    /**< the stage, a vesk_zcf_state */
    uint32_t num_cb_samples;           /**< vectors in a current buffer */
    uint32_t num_hb_intervals;         /**< intervals that a current buffer is summarised into */
    uint32_t num_samples_per_interval; /**< the quotient of both */
    uint32_t next_file_number;         /**< number of the next buffer file */
    uint32_t num_names;                /**< how many names of buffer files were read, 0 to 3 */
    char *names[3]; /**< names of the buffer files, oldest first, the open one last */
} vesk_state_summary;

/**
 * Reads the state file @p filename (with its ".state"; a backup has the same form) into
 * @p summary, which need not be initialised and is to be released with
 * vesk_state_summary_destruct() whatever the result. No buffer file is opened. A link is not
 * followed (-40): the name is one of a box.
 *
 * @return the @c error of the summary, or QE_ERROR_NO_MEMORY (-22) without memory.
 */
VESK_API int vesk_scan_state(const char *filename, vesk_state_summary *summary);

/** Frees the strings of @p summary and empties it. */
VESK_API void vesk_state_summary_destruct(vesk_state_summary *summary);

/** What a file is to its box. */
typedef enum vesk_scan_role {
    VESK_SCAN_ORPHAN = 0, /**< the state file does not name it */
    VESK_SCAN_HISTORY,    /**< the history buffer */
    VESK_SCAN_FULL,       /**< a current buffer that is full and closed */
    VESK_SCAN_OPEN        /**< the current buffer that is being written */
} vesk_scan_role;

/** One buffer file of a box. The name lives until the visitor returns. */
typedef struct vesk_scan_file {
    const char *filename; /**< its name, with the folder of the base name */
    uint32_t buffer_kind; /**< #VESK_BUFFER_TYPE_CURRENT or #VESK_BUFFER_TYPE_HIST, by its name */
    uint32_t number;      /**< the number in its name */
    uint64_t size;        /**< in bytes; 0 also when @c missing */
    vesk_scan_role role;  /**< what the state file says of it */
    int missing;          /**< 1 when the state file names it but it is not there, or leads out of
                               the folder of the box, where nothing is looked at */
    int foreign;          /**< 1 when something else than a regular file has its name: a link, a
                               folder, a pipe or a device; it must not be opened */
} vesk_scan_file;

/**
 * Shows @p visit every buffer file of the box with the base name @p filename: first those that the
 * state file names, oldest first, the open one last, present or not; then the orphans beside it, by
 * number. The state file may be damaged or missing: then all files are orphans.
 *
 * @return 0, what @p visit returned if that was not 0, QE_ERROR_OPEN (-40) when there is no such
 * folder, QE_ERROR_IO (-41) when it cannot be read or it cannot be told whether a file is there,
 * QE_ERROR_NO_MEMORY (-22) without memory, QE_ERROR_LIMIT (-49) when the base name is too long.
 */
VESK_API int vesk_scan_files(const char *filename,
                             int (*visit)(const vesk_scan_file *file, void *context),
                             void *context);

#ifdef __cplusplus
}
#endif

#endif
