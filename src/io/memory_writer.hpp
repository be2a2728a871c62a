// A writer that keeps the bytes in memory. Forms are put together with it when they must be checked
// or be complete before they are written to a file.
#ifndef VESK_IO_MEMORY_WRITER_HPP
#define VESK_IO_MEMORY_WRITER_HPP

#include <vesk/error.h>
#include <vesk/writer.h>

#include "support/growing_list.hpp"

using byte_list = growing_list<unsigned char>;

class byte_list_writer
{
public:
    // Appends to `bytes`, which outlive the writer.
    explicit byte_list_writer(byte_list *bytes)
    {
        base_.version = 1;
        base_.type = WRITER_TYPE_RAW;
        base_.writer = bytes;
        base_.fn_destruct = [](void *) { return 0; };
        base_.fn_write_bytes = append;
        base_.fn_flush = [](void *) { return 0; };
    }
    byte_list_writer(const byte_list_writer &) = delete;
    byte_list_writer &operator=(const byte_list_writer &) = delete;

    writer *get() { return &base_; }

    // What such a writer is written by.
    static int append(void *to, const void *buffer, uint32_t n)
    {
        return static_cast<byte_list *>(to)->append(static_cast<const unsigned char *>(buffer), n)
                   ? static_cast<int>(n)
                   : static_cast<int>(QE_ERROR_NO_MEMORY);
    }

private:
    writer base_ = {};
};

#endif
