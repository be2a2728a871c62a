/**
 * @file
 * @brief Histogram values: what an interval of history keeps of one sensor.
 *
 * The sums of powers are raw, so that intervals can be merged; mean, variance, skewness and
 * kurtosis follow from them and the count. All arithmetic is in single precision.
 *
 * A null pointer aborts with the name of the argument, as in "hv != ((void *)0)", and a summary
 * that is not live with "hv->version == ((char) 1)" (hv1 and hv2 where there are two), whether or
 * not it is said below.
 */
#ifndef VESK_HIST_VALUE_H
#define VESK_HIST_VALUE_H

#include <stdint.h>

#include "reader.h"
#include "vesk_api.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * The summary of the samples of one sensor. It owns nothing, so it may live on the stack. While
 * `count` is 0 all floats are 0, except in one that was read from a file that says otherwise.
 */
typedef struct hist_value {
    signed char version;     /**< 1 while live */
    uint32_t count;          /**< number of samples; missing readings do not count */
    float min_value;         /**< smallest sample */
    float max_value;         /**< largest sample */
    float first_value;       /**< earliest sample */
    float last_value;        /**< latest sample */
    float sum;               /**< sum of the samples */
    float sum_squares;       /**< sum of their squares */
    float sum_cubes;         /**< sum of their cubes */
    float sum_fourth_powers; /**< sum of their fourth powers */
} hist_value;

/** Makes @p hv a summary of no samples. Aborts with "hv != ((void *)0)". @return 0. */
VESK_API int hist_value_init(hist_value *hv);

/** @return a new summary of no samples; null with QE_ERROR_NO_MEMORY (-22) without memory. */
VESK_API hist_value *hist_value_create(void);

/**
 * Ends the life of @p hv, which stays with the caller as storage.
 *
 * Aborts with "hv != ((void *)0)" or "hv->version == ((char) 1)".
 */
VESK_API void hist_value_destruct(hist_value *hv);

/**
 * Destructs and frees `*hv` and sets it to null.
 *
 * Aborts with "hv != ((void *)0)" or "*hv != ((void *)0)".
 */
VESK_API void hist_value_destroy(hist_value **hv);

/**
 * Copies @p hv to @p dst, which need not be initialised, or to a new object when @p dst is null.
 *
 * @return the copy; null with QE_ERROR_NO_MEMORY (-22) when there is no memory for a new one.
 */
VESK_API hist_value *hist_value_copy(const hist_value *hv, hist_value *dst);

/**
 * Compares the counts, and the floats with the tolerance of sensor_value_is_equal().
 *
 * Aborts with "fabs (c) <= ((float) 1E-6)" on two equal infinities, which sums of large samples
 * overflow to.
 *
 * @return 1 or 0.
 */
VESK_API int hist_value_is_equal(const hist_value *hv1, const hist_value *hv2);

/**
 * Adds one sample. A missing reading (NaN) changes nothing.
 *
 * Aborts with "hv != ((void *)0)" or "hv->version == ((char) 1)".
 */
VESK_API void hist_value_update(hist_value *hv, float value);

/**
 * Merges the summary of the later interval @p hv2 into that of the earlier one @p hv1: first comes
 * from @p hv1, last from @p hv2, unless either has no samples.
 *
 * Aborts with "hv1 != ((void *)0)", "hv2 != ((void *)0)", "hv1->version == ((char) 1)" or
 * "hv2->version == ((char) 1)".
 */
VESK_API void hist_value_merge_with(hist_value *hv1, const hist_value *hv2);

/**
 * Writes the stored form, 37 bytes: version 1, count (4), then the eight floats in the order of the
 * struct (4 each).
 *
 * Aborts with "writer != ((void *)0)".
 *
 * @return the bytes written, or the first negative result of @p writer.
 */
VESK_API int binary_serializer_write_hist_value(const hist_value *hv, writer *writer);

/**
 * Reads the stored form into @p hv, which must be live. What is read before a failure stays in it.
 *
 * Aborts with "reader != ((void *)0)".
 *
 * @return 37; 0 at the end of the data; QE_ERROR_BAD_VERSION (-12) for an unknown version;
 * QE_ERROR_TRUNCATED (-48) when the data end inside the form; or a negative result of @p reader.
 */
VESK_API int binary_serializer_read_hist_value(hist_value *hv, reader *reader);

#ifdef __cplusplus
}
#endif

#endif
