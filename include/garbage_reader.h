/**
 * @file
 * @brief A reader that damages what it reads, to test readers of records.
 */
#ifndef VESK_GARBAGE_READER_H
#define VESK_GARBAGE_READER_H

#include <stdint.h>

#include "reader.h"
#include "vesk_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Makes @p r yield the bytes of @p base_reader, which it takes over: the first @p nclean bytes
 * unchanged, every byte after them changed. A read that ends within the clean bytes is passed on as
 * it is.
 *
 * A damaged read always yields as many bytes as were wanted. At the end of the source it goes on
 * with bytes of the caller's buffer, changed likewise, until one draw in 64, one a read, ends it:
 * then reads return 0 and reader_eof() is true. Codes of the source are returned unchanged. The
 * damage comes from rand(); seed it with _qe_srand() to repeat a run.
 *
 * A source that yields nothing without being at its end aborts with "reader_eof (reader->reader)".
 *
 * @return 0, or QE_ERROR_NO_MEMORY (-22) without memory; then @p base_reader stays the caller's.
 */
VESK_API int garbage_reader_init(reader *r, reader *base_reader, uint32_t nclean);

/** As garbage_reader_init(), allocated. @return null without memory, with QE_ERROR_NO_MEMORY (-22)
 * in the cell. */
VESK_API reader *garbage_reader_create(reader *base_reader, uint32_t nclean);

#ifdef __cplusplus
}
#endif

#endif
