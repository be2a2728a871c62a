/**
 * @file
 * @brief Error codes and the last-error cell.
 *
 * Functions that return a pointer leave the code of a failure in one process-wide cell; those that
 * may return null without one say so. A function that returns a code may leave one there, too.
 * Success leaves the cell as it is, with config_get_values_for_key() as the one exception: who
 * wants to tell an old failure from a new one sets the cell to 0 first.
 */
#ifndef VESK_ERROR_H
#define VESK_ERROR_H

#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Error codes, the same wherever they are returned or stored. */
enum {
    QE_ERROR_SYNTAX = -1,            /**< a configuration line has no key or no value */
    QE_ERROR_FULL = -2,              /**< the buffer holds its capacity */
    QE_ERROR_WRONG_KIND = -3,        /**< the file holds the other kind of buffer */
    QE_ERROR_UNKNOWN_KIND = -4,      /**< not a buffer file, or its first record names no sensors */
    QE_ERROR_MALFORMED = -6,         /**< malformed or out-of-range content */
    QE_ERROR_DIVISION_BY_ZERO = -10, /**< the divisor is zero within tolerance */
    QE_ERROR_BAD_TIME = -11,         /**< a text timestamp is malformed or out of range */
    QE_ERROR_BAD_VERSION = -12,      /**< the version byte of a stored form is not the known one */
    QE_ERROR_NO_MEMORY = -22,        /**< an allocation failed */
    QE_ERROR_OPEN = -40,             /**< a file cannot be opened */
    QE_ERROR_IO = -41,               /**< a stream cannot be read or written, or a header is bad */
    QE_ERROR_COMPRESSION = -42,      /**< compression failed, or a header was not written */
    QE_ERROR_END_OF_RECORDS = -43,   /**< no more records, or no string where one was expected */
    QE_ERROR_NOT_FULL = -44,         /**< the history buffer is not full, or the text is empty */
    QE_ERROR_TRUNCATED = -48,        /**< the data ended inside an item */
    QE_ERROR_LIMIT = -49,            /**< a count or length is over 10000, or a stored count is 0 */
    QE_ERROR_NEGATIVE_ROOT = -50,    /**< the square root of a negative element */
    QE_ERROR_EXISTS = -51,           /**< what was to be made is there already */
    QE_ERROR_ABSENT = -52            /**< there is nothing of this name */
};

/**
 * Stores @p err in the last-error cell: a negative code, or 0 to clear the cell.
 *
 * Aborts with "err <= 0" on a positive value.
 */
VESK_API void qe_set_last_error(int err);

/** @return the code of the last failure that was stored, 0 when there was none. */
VESK_API int qe_get_last_error(void);

/**
 * Says in words what a code means, for messages to people.
 *
 * @param code  what a function returned or the last-error cell holds; any number
 * @return a short English text without a full stop or a line end, "no error" for 0 and
 *         "unknown error" for a number that is none of the codes above; never null. It belongs to
 *         the library and lives as long as the process.
 *
 * Cannot fail and does not touch the last-error cell. The wording may change; programs compare
 * codes.
 */
VESK_API const char *qe_error_text(int code);

#ifdef __cplusplus
}
#endif

#endif
