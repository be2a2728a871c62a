// Reads a descriptor in large pieces with read(), which tells how much came before a signal or the
// medium interrupted it.
#include "io/reporting_reader.hpp"

#include <algorithm>
#include <cerrno>
#include <unistd.h>

#include <vesk/error.h>

#include "io/reader_internal.hpp"
#include "support/object.hpp"
#include "support/precondition.hpp"

namespace
{

constexpr uint32_t piece = 16384;

struct reported_source {
    int descriptor;
    bool met_end;
    uint32_t next; // what was read and not taken yet: from here ...
    uint32_t end;  // ... to here
    unsigned char bytes[piece];
};

} // namespace

// Reads the next piece. 0 at the end of the file, 1, or a negative code.
static int _fetch(reported_source *source)
{
    ssize_t n = 0;
    do {
        n = read(source->descriptor, source->bytes, sizeof source->bytes);
    } while (n < 0 && errno == EINTR);
    if (n < 0) {
        return QE_ERROR_IO;
    }
    source->next = 0;
    source->end = static_cast<uint32_t>(n);
    source->met_end = n == 0;
    return n == 0 ? 0 : 1;
}

int _reporting_reader_read_bytes(void *implementation, void *buffer, uint32_t n)
{
    auto *source = static_cast<reported_source *>(implementation);
    VESK_REQUIRE(buffer != nullptr, "buffer != ((void *)0)");
    auto *to = static_cast<unsigned char *>(buffer);
    uint32_t taken = 0;
    while (taken < n) {
        if (source->next == source->end) {
            const int fetched = _fetch(source);
            if (fetched < 0) {
                return fetched;
            }
            if (fetched == 0) {
                break;
            }
        }
        const uint32_t part = std::min(n - taken, source->end - source->next);
        std::copy_n(source->bytes + source->next, part, to + taken);
        source->next += part;
        taken += part;
    }
    return static_cast<int>(taken);
}

static int _reporting_reader_eof(void *implementation)
{
    return static_cast<reported_source *>(implementation)->met_end ? 1 : 0;
}

static int _reporting_reader_destruct(void *)
{
    return 0;
}

reader *_reporting_reader_create(int descriptor)
{
    return create_object<reader>([=](reader *r) {
        auto *source = allocate<reported_source>();
        if (source == nullptr) {
            return static_cast<int>(QE_ERROR_NO_MEMORY);
        }
        source->descriptor = descriptor;
        source->met_end = false;
        source->next = 0;
        source->end = 0;
        _reader_init(r, READER_TYPE_RAW);
        r->reader = source;
        r->fn_destruct = _reporting_reader_destruct;
        r->fn_read_bytes = _reporting_reader_read_bytes;
        r->fn_eof = _reporting_reader_eof;
        return 0;
    });
}
