/**
 * @file
 * @brief How many events of each type fell into an interval of the history.
 *
 * The counters stand in the order 1, 4, 2, 3, 5, in memory and in the stored form.
 */
#ifndef VESK_HB_RECORD_EVENTS_H
#define VESK_HB_RECORD_EVENTS_H

#include <stdint.h>

#include "reader.h"
#include "vesk_api.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The event counters of an interval. */
typedef struct vesk_hb_record_events {
    signed char version;     /**< 1 while live */
    uint32_t n_type1_events; /**< events of type 1 */
    uint32_t n_type4_events; /**< events of type 4 */
    uint32_t n_type2_events; /**< events of type 2 */
    uint32_t n_type3_events; /**< events of type 3 */
    uint32_t n_type5_events; /**< events of type 5 */
} vesk_hb_record_events;

/** Sets all counters of @p rec to 0. @return 0. */
VESK_API int vesk_hb_record_events_init_null(vesk_hb_record_events *rec);

/** @return new counters, all 0, or null with QE_ERROR_NO_MEMORY (-22) in the cell. */
VESK_API vesk_hb_record_events *vesk_hb_record_events_create_null(void);

/** Sets all counters to 0 and marks @p rec dead. */
VESK_API void vesk_hb_record_events_destruct(vesk_hb_record_events *rec);

/** Destructs and frees @p *rec and sets it to null. */
VESK_API void vesk_hb_record_events_destroy(vesk_hb_record_events **rec);

/**
 * Copies @p rec to @p dst, or to new counters when @p dst is null.
 *
 * @return the copy, or null with QE_ERROR_NO_MEMORY (-22) in the cell.
 */
VESK_API vesk_hb_record_events *vesk_hb_record_events_copy(const vesk_hb_record_events *rec,
                                                           vesk_hb_record_events *dst);

/** @return 1 when all five counters are equal, else 0. */
VESK_API int vesk_hb_record_events_is_equal(const vesk_hb_record_events *rec1,
                                            const vesk_hb_record_events *rec2);

/** Adds the counters of @p rec2 to those of @p rec1. They wrap at 2^32. */
VESK_API void vesk_hb_record_events_merge_with(vesk_hb_record_events *rec1,
                                               const vesk_hb_record_events *rec2);

/**
 * Writes version 1 (1 byte) and the counters (4 bytes each): 21 bytes.
 *
 * @return what the writer reported, or its negative result.
 */
VESK_API int binary_serializer_write_vesk_hb_record_events(const vesk_hb_record_events *rec,
                                                           writer *writer);

/**
 * Reads counters into @p rec, which is live. Each is stored as soon as it was read.
 *
 * Aborts with "nread != 0" where the data ends right before the second counter, that of type 4.
 *
 * @return 21; 0 at the end of the data; QE_ERROR_BAD_VERSION (-12) on a version other than 1;
 * QE_ERROR_TRUNCATED (-48) where the data ends elsewhere; or the negative result of the reader.
 */
VESK_API int binary_serializer_read_vesk_hb_record_events(vesk_hb_record_events *rec,
                                                          reader *reader);

#ifdef __cplusplus
}
#endif

#endif
