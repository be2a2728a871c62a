// The streams of a buffer file, found and decoded.
//
// In: all bytes of a file, which must outlive the object. Out: the file in pieces, in order and
// without a gap: complete streams with their content, and between them what is none. Nothing is
// assumed about the bytes. Behind a torn or damaged stream the next complete one is searched for
// that begins with a record; what is decoded in vain in that search is charged to a budget of so
// much for each byte of the file, and where it is spent the rest of the file is one piece.
#ifndef VESK_RECOVERY_STREAM_DECODER_HPP
#define VESK_RECOVERY_STREAM_DECODER_HPP

#include <cstddef>
#include <cstdint>
#include <zlib.h>

#include "io/memory_writer.hpp"

enum class stream_end { complete, torn, bad, no_memory };

// Decodes one zlib stream after the other from memory.
class stream_decoder
{
public:
    stream_decoder();
    stream_decoder(const stream_decoder &) = delete;
    stream_decoder &operator=(const stream_decoder &) = delete;
    ~stream_decoder();

    // The stream that begins at `bytes`: its content, and with stream_end::complete its length.
    stream_end decode(const unsigned char *bytes, std::size_t n);

    const byte_list &content() const { return content_; }
    std::size_t length() const { return length_; }

private:
    stream_end drain();

    z_stream zstrm_ = {};
    bool ready_;
    byte_list content_;
    std::size_t length_ = 0;
};

// How many bytes may be decoded in vain while the streams of a file of `size` bytes are searched
// for. 64 bits wide, whatever a size_t is.
uint64_t _vesk_search_budget(uint64_t size, uint64_t fixed_part);

// A piece of a file: a complete stream, or bytes in none.
struct file_piece {
    uint64_t offset;
    uint64_t length;
    // 0 for a stream, else why there is none: QE_ERROR_IO (-41), QE_ERROR_TRUNCATED (-48) or
    // QE_ERROR_LIMIT (-49).
    int error;
    const byte_list *content; // of a stream, else null; until the next piece
};

class stream_search
{
public:
    stream_search(const unsigned char *bytes, std::size_t size, uint64_t fixed_part)
        : bytes_(bytes), size_(size), budget_(_vesk_search_budget(size, fixed_part))
    {
    }

    // The next piece. False at the end of the file, or without memory, which failed() tells.
    bool next(file_piece *piece);
    bool failed() const { return failed_; }

    // Charges other work that was done in vain to the budget. False when the budget is spent.
    bool charge(uint64_t n);
    bool is_spent() const { return budget_ == 0; }

private:
    stream_end decode_at(std::size_t at);
    stream_end decode_record(std::size_t at);
    void charge_decoding();
    std::size_t find_stream(std::size_t from, bool *gave_up);

    const unsigned char *bytes_;
    std::size_t size_;
    std::size_t at_ = 0;
    uint64_t budget_;
    bool failed_ = false;
    stream_decoder decoder_;
};

#endif
