// A reader of bytes in memory. It reports the end of the input as stdio does: when a read finds
// fewer bytes than it asked for, not when it takes the last byte. Readers above this one
// distinguish a clean end from a torn one by that.

#include "io/memory_reader.hpp"

#include <algorithm>
#include <new>
#include <utility>

#include "io/reader_internal.hpp"
#include "support/object.hpp"
#include "support/precondition.hpp"

namespace
{

struct memory_source {
    byte_list bytes;
    std::size_t at = 0;
    bool met_end = false;
};

} // namespace

int _memory_reader_read_bytes(void *implementation, void *buffer, uint32_t n)
{
    auto *source = static_cast<memory_source *>(implementation);
    VESK_REQUIRE(buffer != nullptr, "buffer != ((void *)0)");
    const std::size_t taken = std::min<std::size_t>(n, source->bytes.size() - source->at);
    std::copy_n(source->bytes.begin() + source->at, taken, static_cast<unsigned char *>(buffer));
    source->at += taken;
    source->met_end = source->met_end || taken < n;
    return static_cast<int>(taken);
}

static int _memory_reader_eof(void *implementation)
{
    return static_cast<memory_source *>(implementation)->met_end ? 1 : 0;
}

static int _memory_reader_destruct(void *implementation)
{
    static_cast<memory_source *>(implementation)->~memory_source();
    return 0;
}

reader *_memory_reader_create(byte_list *bytes)
{
    return create_object<reader>([=](reader *r) {
        auto *storage = allocate<memory_source>();
        if (storage == nullptr) {
            return static_cast<int>(QE_ERROR_NO_MEMORY);
        }
        auto *source = new (storage) memory_source();
        std::swap(source->bytes, *bytes);
        _reader_init(r, READER_TYPE_RAW);
        r->reader = source;
        r->fn_destruct = _memory_reader_destruct;
        r->fn_read_bytes = _memory_reader_read_bytes;
        r->fn_eof = _memory_reader_eof;
        return 0;
    });
}
