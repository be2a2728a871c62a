/**
 * @file
 * @brief The last stage of a recorder: a history buffer, a full current buffer and the open one.
 *
 * The recorder stays in it and replaces it by another one of its kind whenever the open buffer is
 * full. The history buffer is open only while that happens.
 */
#ifndef VESK_ZCF_STATE_HCC_H
#define VESK_ZCF_STATE_HCC_H

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

/** The last stage of a recorder: a history buffer, a full current buffer and the open one. */
typedef struct vesk_zcf_state_hcc {
    char version;               /**< 1 while live */
    char *hbuf_filename;        /**< owned, name of the history buffer */
    char *cbuf1_filename;       /**< owned, name of the full current buffer */
    vesk_current_buffer *cbuf2; /**< owned, the open buffer; null only in a null stage */
} vesk_zcf_state_hcc;

/**
 * Makes a stage of the history buffer @p hbuf_filename, the full current buffer @p cbuf1_filename,
 * and a new, empty current buffer @p cbuf2_filename of @p max_data_records vectors. Names are
 * copied.
 *
 * Aborts with "hbuf_filename != ((void *)0)", "cbuf1_filename != ((void *)0)",
 * "cbuf2_filename != ((void *)0)" or "max_data_records > 0".
 *
 * @return the stage, or null with the code in the cell: QE_ERROR_NO_MEMORY (-22) without memory, or
 * that of vesk_current_buffer_create(). QE_ERROR_OPEN (-40) is also given when something else than
 * a regular file has the name of the open buffer: a link is not followed, a FIFO not waited for.
 */
VESK_API vesk_zcf_state_hcc *vesk_zcf_state_hcc_create(const char *hbuf_filename,
                                                       const char *cbuf1_filename,
                                                       const char *cbuf2_filename,
                                                       uint32_t max_data_records);

/** @return a new stage without buffers, to be read, or null with QE_ERROR_NO_MEMORY (-22) in the
 * cell. */
VESK_API vesk_zcf_state_hcc *vesk_zcf_state_hcc_create_null(void);

/**
 * Closes the open buffer, if any, which finishes its file, frees @p *state and sets it to null.
 */
VESK_API void vesk_zcf_state_hcc_destroy(vesk_zcf_state_hcc **state);

/**
 * Writes @p vector to the open buffer.
 *
 * Aborts with "cbuf2 != ((void *)0)" when there is none.
 *
 * @return the result of vesk_current_buffer_write_telemetry_vector(); QE_ERROR_FULL (-2) means that
 * it is full.
 */
VESK_API int vesk_zcf_state_hcc_write_telemetry_vector(vesk_zcf_state_hcc *state,
                                                       const matrix *vector);

/**
 * Writes @p event to the open buffer.
 *
 * Aborts with "cbuf2 != ((void *)0)" when there is none.
 *
 * @return the result of vesk_current_buffer_write_event().
 */
VESK_API int vesk_zcf_state_hcc_write_event(vesk_zcf_state_hcc *state,
                                            const vesk_cb_record_event *event);

/**
 * Aborts with "hbuf_filename != ((void *)0)" when it is missing.
 *
 * @return the name of the history buffer, which stays that of the stage.
 */
VESK_API const char *vesk_zcf_state_hcc_get_hbuf_filename(const vesk_zcf_state_hcc *state);

/**
 * Aborts with "cbuf1_filename != ((void *)0)" when it is missing.
 *
 * @return the name of the full current buffer, which stays that of the stage.
 */
VESK_API const char *vesk_zcf_state_hcc_get_cbuf1_filename(const vesk_zcf_state_hcc *state);

/**
 * Aborts with "cbuf2 != ((void *)0)" when it is missing.
 *
 * @return the name of the open buffer, which stays that of the stage.
 */
VESK_API const char *vesk_zcf_state_hcc_get_cbuf2_filename(const vesk_zcf_state_hcc *state);

/**
 * Writes version 1 (1 byte) and the names of the buffers, oldest first, as strings.
 *
 * Aborts with "hbuf_filename != ((void *)0)", "cbuf1_filename != ((void *)0)" or
 * "cbuf2 != ((void *)0)" on a missing buffer.
 *
 * @return what the writer reported; its negative result when the version cannot be written; but 0
 * when a name cannot.
 */
VESK_API int binary_serializer_write_vesk_zcf_state_hcc(const vesk_zcf_state_hcc *state,
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
VESK_API int binary_serializer_read_vesk_zcf_state_hcc(vesk_zcf_state_hcc *state, reader *reader);

#ifdef __cplusplus
}
#endif

#endif
