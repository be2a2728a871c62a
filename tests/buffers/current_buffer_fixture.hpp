// A current buffer in a folder of its own: what its tests share.
#ifndef VESK_TESTS_BUFFERS_CURRENT_BUFFER_FIXTURE_HPP
#define VESK_TESTS_BUFFERS_CURRENT_BUFFER_FIXTURE_HPP

#include <algorithm>
#include <string>
#include <vector>

#include <vesk/error.h>
#include <vesk/sensor_value.h>
#include <vesk/vesk_buffer.h>
#include <vesk/vesk_current_buffer.h>

#include "buffers/record_to_read.hpp"
#include "common/aborts.hpp"
#include "common/buffer_files.hpp"
#include "common/failing_calls.hpp"
#include "common/file_size_limit.hpp"
#include "common/model_buffer_reader.hpp"
#include "common/open_files.hpp"
#include "common/telemetry.hpp"
#include "common/temporary_directory.hpp"
#include "common/zlib_streams.hpp"
#include "support/owner.hpp"

using testing::ElementsAre;
using testing::StartsWith;

using owned_cbuf = owned<vesk_current_buffer, vesk_current_buffer_close>;
using strings = std::vector<std::string>;
using read_into = record_to_read<vesk_cb_record, vesk_cb_record_init_null, vesk_cb_record_destruct>;

class CurrentBuffer : public testing::Test
{
protected:
    owned_cbuf create(uint32_t capacity)
    {
        return owned_cbuf(vesk_current_buffer_create(path_.c_str(), capacity));
    }
    owned_cbuf open() { return owned_cbuf(vesk_current_buffer_open_for_read_write(path_.c_str())); }
    owned_cbuf append() { return owned_cbuf(vesk_current_buffer_open_for_append(path_.c_str())); }
    std::string bytes() { return read_file(path_); }
    strings contents() { return zlib_contents(bytes()); }

    // The code with which opening for appending fails, 0 when it succeeds.
    int code_of_appending()
    {
        const auto before = count_open_files();
        qe_set_last_error(0);
        owned_cbuf cbuf = append();
        const int code = cbuf ? 0 : qe_get_last_error();
        cbuf.reset();
        EXPECT_EQ(before, count_open_files());
        return code;
    }

    temporary_directory directory_;
    std::string path_ = directory_.file("r.1.cbuf.z");
};

// A value for a sensor or two.
inline owned_matrix one(long seconds, double value)
{
    return make_vector(seconds, {{"a", value}});
}

inline owned_matrix two(long seconds, double first, double second)
{
    return make_vector(seconds, {{"a", first}, {"b", second}});
}

inline int write(vesk_current_buffer *cbuf, const owned_matrix &vector)
{
    return vesk_current_buffer_write_telemetry_vector(cbuf, vector.get());
}

inline int write_event(vesk_current_buffer *cbuf, uint32_t type, long seconds,
                       const std::string &text)
{
    const owned_event event = make_event(type, seconds, text);
    return vesk_current_buffer_write_event(cbuf, event.get());
}

inline int write_as_record(vesk_current_buffer *cbuf, uint32_t type, long seconds,
                           const std::string &text)
{
    const owned_event event = make_event(type, seconds, text);
    return vesk_current_buffer_write_tagged_event(cbuf, event.get());
}

// Incompressible texts of more than a block fail in the write itself, not in the flush.
inline std::string noise()
{
    std::string text;
    for (uint32_t x = 1; text.size() < 9000; x = x * 1664525 + 1013904223) {
        text += static_cast<char>(x >> 24 == 0 ? 1 : x >> 24);
    }
    return text;
}

// The form in which an event can be read back, of whatever type.
inline void write_tagged_event(vesk_current_buffer *cbuf, uint32_t type, long seconds,
                               const std::string &text)
{
    const owned_event event = make_event(type, seconds, text);
    vesk_cb_record rec;
    vesk_cb_record_init_event(&rec, event.get());
    EXPECT_LE(0, binary_serializer_write_vesk_cb_record(&rec, cbuf->writer));
    EXPECT_LE(0, writer_flush(cbuf->writer));
}

#endif
