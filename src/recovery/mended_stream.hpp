// The current stream of a buffer that is recovered.
//
// In: where each stream of the file begins and how long it is, what is done to it, and the content
// that it should have. Out: the steps, the counts of what is taken out, and the stream itself in
// the output: copied when nothing in it was changed, compressed anew otherwise, and kept in
// FILE.torn when something had to be taken out of it. It may be assumed that streams and damaged
// places come in file order, and that content is only added while a stream is open or behind the
// last one.
#ifndef VESK_RECOVERY_MENDED_STREAM_HPP
#define VESK_RECOVERY_MENDED_STREAM_HPP

#include <cstdint>

#include <vesk/vesk_scan.h>

#include "recovery/buffer_mender.hpp"
#include "recovery/mended_content.hpp"
#include "recovery/mended_file.hpp"
#include "recovery/step_runs.hpp"

// All functions that return an int return 0, what the receiver of the steps returned, QE_ERROR_IO
// (-41) or QE_ERROR_NO_MEMORY (-22).
class mended_stream
{
public:
    mended_stream(const char *filename, const step_receiver &receiver, mended_file *output,
                  buffer_contents *contents)
        : steps_(filename, receiver, &contents->steps), has_output_(output != nullptr),
          output_(output), contents_(contents)
    {
    }

    bool has_output() const { return has_output_; }
    mended_output *output() { return &output_; }
    mended_content *content() { return &content_; }

    bool is_open_at(uint64_t offset) const { return open_ && offset_ == offset; }
    void begin(uint64_t offset, uint64_t length);
    int end();

    // Bytes in no complete stream, while no stream is open.
    int cut(const vesk_scan_item &item);
    // Takes a record out of the stream, which is kept as a whole.
    int set_aside(int error);

    // Something else than what was found belongs into the stream, or behind the last one.
    void mark_changed() { changed_ = true; }
    void write_behind() { changed_otherwise_ = true; }

    // What is done to a record of the stream.
    int tell_record(vesk_recover_action action, int error);
    int tell_mended(vesk_recover_action action);
    // What is done to something else.
    int tell(vesk_recover_action action, int error, uint64_t offset, uint64_t length,
             uint32_t count);

    // Behind the last stream: hands the last steps over, and finds whether cutting is all. A scan
    // of the file charges its records to a budget that has so large a fixed part.
    int finish(uint64_t fixed_part);

private:
    step_runs steps_;
    bool has_output_;
    mended_output output_;
    buffer_contents *contents_;
    mended_content content_; // of the stream, as it should be
    bool open_ = false;
    bool changed_ = false;
    bool to_torn_ = false;
    uint64_t offset_ = 0;
    uint64_t length_ = 0;
    bool cut_at_end_ = false;        // nothing follows the last cut so far
    bool changed_otherwise_ = false; // not only by a cut at the end
    uint64_t cut_offset_ = 0;
};

#endif
