// Where a recovered buffer goes, with what is taken out of it.
//
// In: pieces of the file that is recovered, and content that was put together. Out: the streams of
// the recovered buffer, and the bytes that were taken out. A piece is copied as it is; content
// becomes one stream. Without an output all of this does nothing, which makes a plan of the same
// code.
#ifndef VESK_RECOVERY_MENDED_FILE_HPP
#define VESK_RECOVERY_MENDED_FILE_HPP

#include <cstdint>
#include <cstdio>

#include "recovery/mended_content.hpp"
#include "support/owner.hpp"

// The parts that a mender writes.
struct mended_file {
    FILE *buffer = nullptr; // the recovered buffer
    byte_list torn;         // what was taken out
};

// All functions return 0, QE_ERROR_IO (-41) when the file cannot be read or the output not be
// written, or QE_ERROR_NO_MEMORY (-22).
class mended_output
{
public:
    explicit mended_output(mended_file *output) : output_(output) {}

    // Opens the file that is recovered. 0 or QE_ERROR_OPEN (-40).
    int open_source(const char *filename);

    // A stream that stays as it is, for whose records a scan charges @p price.
    int copy(uint64_t offset, uint64_t length, uint64_t price);
    int set_aside(uint64_t offset, uint64_t length);

    // Writes the content as a stream, if there is any, or as several when it is long, and empties
    // it.
    int write_stream(mended_content *content);

    // What a scan will charge for the records of all streams, at most.
    uint64_t price() const { return price_; }
    // Behind the last stream: makes the file so long that its scan allows that, which also has a
    // fixed part for it. What the file has lost allowed it before.
    int make_long_enough(uint64_t fixed_part);

private:
    int write(const unsigned char *bytes, std::size_t n);
    int write_compressed(const unsigned char *bytes, std::size_t n);
    int keep_torn(const unsigned char *bytes, std::size_t n);
    int give(uint64_t offset, uint64_t length,
             int (mended_output::*to)(const unsigned char *, std::size_t));

    mended_file *output_;
    owned_file source_;
    uint64_t written_ = 0;
    uint64_t price_ = 0;
};

#endif
