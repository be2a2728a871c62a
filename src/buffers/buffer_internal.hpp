// What the two kinds of buffer and their common front share: compressed streams over a file,
// opening a file whose kind is known, and summarising buffers that are open. Not exported.
#ifndef VESK_BUFFERS_BUFFER_INTERNAL_HPP
#define VESK_BUFFERS_BUFFER_INTERNAL_HPP

#include <stdio.h>

#include <vesk/reader.h>
#include <vesk/vesk_buffer.h>
#include <vesk/vesk_current_buffer.h>
#include <vesk/vesk_hist_buffer.h>
#include <vesk/writer.h>

#include "support/owner.hpp"

// A compressed stream over `fp`, which stays the caller's: destroying the stream leaves it open.
// Null with the last error set on failure.
reader *_vesk_buffer_create_reader(FILE *fp);
writer *_vesk_buffer_create_writer(FILE *fp);

// A buffer over an existing file whose kind was already read from `reader`. On success the buffer
// owns `reader` and `file`; on failure they stay the caller's, and the result is null.
vesk_current_buffer *_vesk_current_buffer_open(const char *filename, reader *reader, FILE *file);
vesk_hist_buffer *_vesk_hist_buffer_open(const char *path, reader *reader, FILE *fp);

// How a file is read: in pieces, where a medium that fails is taken for a broken precondition and
// ends the process; as a whole before anything else, where it gives QE_ERROR_IO (-41); or in pieces
// with that code from the read that it strikes, which takes no memory for the file.
enum class file_reading { in_pieces, whole, reported };

// As the exported functions of like name, for the files of a recorder: what stands under one of its
// names and is no regular file, be it a link to one, is not followed or waited for, but gives
// QE_ERROR_OPEN (-40).
vesk_current_buffer *_vesk_current_buffer_create_plain(const char *filename,
                                                       uint32_t max_data_records);
vesk_hist_buffer *_vesk_hist_buffer_create_plain(const char *filename, uint32_t max_data_records);
vesk_buffer *_vesk_buffer_open_plain(const char *path, file_reading reading);
vesk_current_buffer *_vesk_current_buffer_open_plain(const char *filename, file_reading reading);
vesk_current_buffer *_vesk_current_buffer_open_plain_for_append(const char *filename,
                                                                file_reading reading);
vesk_hist_buffer *_vesk_hist_buffer_open_plain(const char *filename, file_reading reading);

// Opens the file of a new buffer, whose content is lost if it is there; null with errno.
using create_file = owned_file (*)(const char *filename);

// A history named `filename` in the file that `create` gives.
vesk_hist_buffer *_vesk_hist_buffer_create_in(const char *filename, uint32_t max_data_records,
                                              create_file create);

// Summarise buffers that are open, and close them.
int _vesk_current_buffer_compress(vesk_current_buffer *cbuf, vesk_hist_buffer *hbuf,
                                  uint32_t samples_per_hb_interval);
int _vesk_hist_buffer_compress(vesk_hist_buffer *hbuf_in, vesk_hist_buffer *hbuf_out);

// Reads the next record without updating the working set and the count of the buffer: 0,
// QE_ERROR_END_OF_RECORDS (-43) at the end, or an error.
int _vesk_hist_buffer_read_next(vesk_hist_buffer *hbuf, vesk_hb_record *rec);

#endif
