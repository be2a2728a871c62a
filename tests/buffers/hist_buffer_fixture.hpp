// A history buffer in a folder of its own: what its tests share.
#ifndef VESK_TESTS_BUFFERS_HIST_BUFFER_FIXTURE_HPP
#define VESK_TESTS_BUFFERS_HIST_BUFFER_FIXTURE_HPP

#include <string>
#include <vector>

#include <vesk/error.h>
#include <vesk/vesk_buffer.h>
#include <vesk/vesk_hist_buffer.h>

#include "buffers/buffer_internal.hpp"
#include "buffers/record_to_read.hpp"
#include "common/aborts.hpp"
#include "common/buffer_files.hpp"
#include "common/failing_calls.hpp"
#include "common/file_size_limit.hpp"
#include "common/history.hpp"
#include "common/model_buffer_reader.hpp"
#include "common/open_files.hpp"
#include "common/telemetry.hpp"
#include "common/temporary_directory.hpp"
#include "common/zlib_streams.hpp"
#include "support/owner.hpp"

using testing::ElementsAre;
using testing::StartsWith;

using owned_hbuf = owned<vesk_hist_buffer, vesk_hist_buffer_close>;
using strings = std::vector<std::string>;
using read_into = record_to_read<vesk_hb_record, vesk_hb_record_init_null, vesk_hb_record_destruct>;

class HistBuffer : public testing::Test
{
protected:
    owned_hbuf create(uint32_t capacity)
    {
        return owned_hbuf(vesk_hist_buffer_create(path_.c_str(), capacity));
    }
    owned_hbuf open() { return owned_hbuf(vesk_hist_buffer_open_for_read_write(path_.c_str())); }
    std::string bytes() { return read_file(path_); }
    strings contents() { return zlib_contents(bytes()); }

    temporary_directory directory_;
    std::string path_ = directory_.file("r.4.hbuf.z");
};

inline int write(vesk_hist_buffer *hbuf, long start, long end,
                 const std::vector<samples_of> &sensors,
                 const vesk_hb_record_events *events = nullptr)
{
    const timestamp first = make_timestamp(start);
    const timestamp last = make_timestamp(end);
    const owned_hist_list list = make_list(sensors);
    return vesk_hist_buffer_write_interval(hbuf, &first, &last, list.get(), events);
}

#endif
