/**
 * @file
 * @brief Looking at telemetry before it is recorded.
 *
 * A recorder takes some things that it cannot give back, or that end the process later: at the next
 * rotation, or when the box is opened again. Telemetry from a source that is not trusted is checked
 * first:
 *
 *     if (vesk_check_vector(vector) == 0) {
 *         vesk_write_telemetry_vector(box, vector);
 *     }
 *
 * What passes is stored and read back. Values are not looked at: a recorder takes all of them, NaN
 * and the infinities included. Nothing is written, and no content aborts.
 *
 * One vector is looked at, and not those before it: vectors of different sensors that fall into one
 * interval are summarised together, and more than 10000 sensors in all stop every rotation with
 * QE_ERROR_LIMIT (-49), though each vector passes. Whoever changes sensors keeps their number over
 * an interval below that.
 */
#ifndef VESK_CHECK_H
#define VESK_CHECK_H

#include "matrix.h"
#include "vesk_api.h"
#include "vesk_cb_record_event.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Says whether vesk_write_telemetry_vector() can be given @p vector. The time needed grows with the
 * number of sensors, n log n, and with the length of their names.
 *
 * Aborts with "vector != ((void *)0)", or when @p vector is no live matrix.
 *
 * @return 0, or the first of
 * - QE_ERROR_MALFORMED (-6) for a matrix without sensors and times (no telemetry matrix), or not of
 * one row: writing it aborts;
 * - QE_ERROR_BAD_TIME (-11) for a time that is null (a rotation that reads it as the first or last
 * of an interval aborts), that is not whole seconds (not read back, QE_ERROR_MALFORMED (-6)) or
 * that signed 32 bits do not hold (refused, QE_ERROR_MALFORMED (-6));
 * - QE_ERROR_LIMIT (-49) for no sensors (not read back), or more than 10000 of them (refused
 * half-written, which makes the file unreadable from there on);
 * - for each sensor QE_ERROR_MALFORMED (-6) when it is missing or its name is empty (not read
 * back), QE_ERROR_LIMIT (-49) when its name is longer than 10000 bytes (refused half-written);
 * - QE_ERROR_NO_MEMORY (-22) without memory to compare the sensors, a pointer each;
 * - QE_ERROR_MALFORMED (-6) when a sensor occurs twice (the history takes the readings of both for
 * one sensor's).
 */
VESK_API int vesk_check_vector(const matrix *vector);

/**
 * Says whether vesk_write_tagged_event() can be given @p event, as far as the event is concerned.
 *
 * Aborts with "event != ((void *)0)" or "event->version == ((char) 1)".
 *
 * @return 0, or the first of QE_ERROR_MALFORMED (-6) for a type other than 1 to 5 (a rotation
 * aborts), QE_ERROR_BAD_TIME (-11) for a time as above, QE_ERROR_MALFORMED (-6) for no text or an
 * empty one (not read back), QE_ERROR_LIMIT (-49) for a text of more than 10000 bytes.
 */
VESK_API int vesk_check_event(const vesk_cb_record_event *event);

#ifdef __cplusplus
}
#endif

#endif
