/**
 * @file
 * @brief The first stage of a recorder: one current buffer, open for writing.
 */
#ifndef VESK_ZCF_STATE_C00_H
#define VESK_ZCF_STATE_C00_H

#include <stdint.h>

#include "matrix.h"
#include "reader.h"
#include "vesk_api.h"
#include "vesk_cb_record_event.h"
#include "vesk_current_buffer.h"
#include "writer.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The first stage of a recorder: one current buffer, open for writing. */
typedef struct vesk_zcf_state_c00 {
    char version;               /**< 1 while live */
    vesk_current_buffer *cbuf0; /**< owned, the open buffer; null only in a null stage */
} vesk_zcf_state_c00;

/**
 * Makes a stage with a new, empty current buffer of @p max_data_records vectors. Names are copied.
 *
 * Aborts with "cbuf_filename != ((void *)0)" or "max_data_records > 0".
 *
 * @return the stage, or null with the code in the cell: QE_ERROR_NO_MEMORY (-22) without memory, or
 * that of vesk_current_buffer_create(). QE_ERROR_OPEN (-40) is also given when something else than
 * a regular file has the name of the open buffer: a link is not followed, a FIFO not waited for.
 */
VESK_API vesk_zcf_state_c00 *vesk_zcf_state_c00_create(const char *cbuf_filename,
                                                       uint32_t max_data_records);

/** @return a new stage without buffers, to be read, or null with QE_ERROR_NO_MEMORY (-22) in the
 * cell. */
VESK_API vesk_zcf_state_c00 *vesk_zcf_state_c00_create_null(void);

/**
 * Closes the open buffer, if any, which finishes its file, frees @p *state and sets it to null.
 */
VESK_API void vesk_zcf_state_c00_destroy(vesk_zcf_state_c00 **state);

/**
 * Writes @p vector to the open buffer.
 *
 * Aborts with "cbuf0 != ((void *)0)" when there is none.
 *
 * @return the result of vesk_current_buffer_write_telemetry_vector(); QE_ERROR_FULL (-2) means that
 * it is full.
 */
VESK_API int vesk_zcf_state_c00_write_telemetry_vector(vesk_zcf_state_c00 *state,
                                                       const matrix *vector);

/**
 * Writes @p event to the open buffer.
 *
 * Aborts with "cbuf0 != ((void *)0)" when there is none.
 *
 * @return the result of vesk_current_buffer_write_event().
 */
VESK_API int vesk_zcf_state_c00_write_event(vesk_zcf_state_c00 *state,
                                            const vesk_cb_record_event *event);

/**
 * Aborts with "cbuf0 != ((void *)0)" when it is missing.
 *
 * @return the name of the open buffer, which stays that of the stage.
 */
VESK_API const char *vesk_zcf_state_c00_get_filename(const vesk_zcf_state_c00 *state);

/**
 * Writes version 1 (1 byte) and the names of the buffers, oldest first, as strings.
 *
 * Aborts with "cbuf0 != ((void *)0)" on a missing buffer.
 *
 * @return what the writer reported; its negative result when the version cannot be written; but 0
 * when a name cannot.
 */
VESK_API int binary_serializer_write_vesk_zcf_state_c00(const vesk_zcf_state_c00 *state,
                                                        writer *writer);

/**
 * Reads the names into @p state, a null stage, and opens the current buffer where it ends. The
 * names that were read before a failure stay.
 *
 * @return the bytes consumed; 0 at the end of the data; QE_ERROR_BAD_VERSION (-12) on a version
 * other than 1; QE_ERROR_END_OF_RECORDS (-43) where the data ends before a name,
 * QE_ERROR_TRUNCATED (-48) where it ends elsewhere, QE_ERROR_MALFORMED (-6) on an impossible name;
 * QE_ERROR_NO_MEMORY (-22) without memory; or the code of vesk_current_buffer_open_for_append(),
 * which is QE_ERROR_OPEN (-40) also when the open buffer is no regular file. It aborts with
 * "nread != 0" where the data ends right behind the length of a name.
 */
VESK_API int binary_serializer_read_vesk_zcf_state_c00(vesk_zcf_state_c00 *state, reader *reader);

#ifdef __cplusplus
}
#endif

#endif
