// The functions of the files of buffers, with every call that can fail.
#include <filesystem>
#include <gtest/gtest.h>

#include <vesk/vesk_buffer.h>
#include <vesk/vesk_current_buffer.h>
#include <vesk/vesk_current_buffer_compress.h>
#include <vesk/vesk_hist_buffer.h>
#include <vesk/vesk_hist_buffer_compress.h>

#include "common/buffer_files.hpp"
#include "common/temporary_directory.hpp"
#include "common/zlib_streams.hpp"
#include "faults/buffer_values.hpp"
#include "faults/fault_loop.hpp"
#include "faults/streams.hpp"

namespace
{

namespace fs = std::filesystem;

using owned_buffer = owned<vesk_buffer, vesk_buffer_destroy>;
using owned_cbuf = owned<vesk_current_buffer, vesk_current_buffer_close>;
using owned_hbuf = owned<vesk_hist_buffer, vesk_hist_buffer_close>;

constexpr uint32_t capacity = 8;

// All that the complete streams of a file contain.
std::string content_of(const std::string &file)
{
    std::string content;
    for (const zlib_stream &stream : split_zlib_streams(file)) {
        if (!stream.complete) {
            break;
        }
        content += stream.content;
    }
    return content;
}

// The file "b" while the call is made: what was acknowledged before lies in the file "kept".
void acknowledge()
{
    write_file("kept", read_file("b"));
}

// Whether every byte that was acknowledged is still there.
bool is_kept()
{
    const std::string kept = read_file("kept");
    return read_file("b").substr(0, kept.size()) == kept;
}

// A vector of `n` sensors; those of different `kind` have other names.
owned_matrix make_readings(long seconds, size_t n, const std::string &kind = "s")
{
    std::vector<reading> readings;
    for (size_t i = 0; i < n; ++i) {
        readings.push_back({kind + std::to_string(i),
                            static_cast<double>(seconds) + static_cast<double>(i * i % 97)});
    }
    return make_vector(seconds, readings);
}

// A current buffer "b" with vectors of n sensors, taken at seconds 1, 2 and so on.
owned_cbuf create_cbuf(int vectors, size_t n = 2)
{
    owned_cbuf cbuf(vesk_current_buffer_create("b", capacity));
    for (int i = 1; i <= vectors; ++i) {
        EXPECT_EQ(
            0, vesk_current_buffer_write_telemetry_vector(cbuf.get(), make_readings(i, n).get()));
    }
    return cbuf;
}

// A history buffer "b" with intervals of the sensors a and b.
owned_hbuf create_hbuf(int intervals, uint32_t size = capacity)
{
    owned_hbuf hbuf(vesk_hist_buffer_create("b", size));
    for (int i = 1; i <= intervals; ++i) {
        const timestamp t = make_timestamp(1000 + i);
        EXPECT_EQ(0, vesk_hist_buffer_write_interval(hbuf.get(), &t, &t, make_summaries().get(),
                                                     nullptr));
    }
    return hbuf;
}

// An undamaged file can be opened and goes on where it was left.
void goes_on(uint32_t vectors, size_t n)
{
    const owned_cbuf cbuf(vesk_current_buffer_open_for_append("b"));
    ASSERT_TRUE(cbuf) << qe_get_last_error();
    EXPECT_EQ(vectors, cbuf->num_data_records);
    EXPECT_EQ(0,
              vesk_current_buffer_write_telemetry_vector(cbuf.get(), make_readings(99, n).get()));
}

// How a write to a current buffer is tried: `vectors` of n sensors are there, then comes one of m.
struct vector_write {
    int vectors;
    size_t n;
    size_t m;
    std::string kind = "s";
    bool reopened = false;
};

// Writing the vector on which a call fails; the buffer is closed afterwards.
outcome writes_vector(fault &f, const vector_write &tried)
{
    owned_cbuf cbuf = create_cbuf(tried.vectors, tried.n);
    if (tried.reopened) {
        cbuf.reset();
        cbuf.reset(vesk_current_buffer_open_for_append("b"));
    }
    acknowledge();
    const auto count = static_cast<uint32_t>(tried.vectors);
    const owned_matrix vector = make_readings(50, tried.m, tried.kind);
    const outcome found = f.returns(
        [&] { return vesk_current_buffer_write_telemetry_vector(cbuf.get(), vector.get()); });
    EXPECT_EQ(found == "ok" ? count + 1 : count, cbuf->num_data_records);
    return found;
}

void check_vector(const vector_write &tried, const fault &f, const outcome &found)
{
    EXPECT_TRUE(is_kept());
    const std::string kept = content_of(read_file("kept"));
    const std::string left = content_of(read_file("b"));
    if (found == "ok") {
        EXPECT_LT(kept.size(), left.size());
        return;
    }
    if (tried.vectors == 0) {
        // The header comes with the first record, or with closing. An empty file cannot be opened.
        EXPECT_TRUE(left.empty() || left == stored_buffer_header(1, capacity));
        return;
    }
    EXPECT_EQ(kept, left);
    const bool unchanged = read_file("b") == read_file("kept");
    EXPECT_TRUE(unchanged || f.kind() == call_kind::torn_write || f.n() > 1);
    if (unchanged) {
        goes_on(static_cast<uint32_t>(tried.vectors), tried.n);
    }
}

// QE_ERROR_COMPRESSION (-42) leaves a stream that cannot even be closed.
const expectations record_writing = {
    {call_kind::zlib, {"zwriter->err == 0"}},
    {call_kind::write, {"-41"}},
    {call_kind::torn_write, {"-41"}},
    {call_kind::flush, {"-41"}},
};
const expectations memory_and_stream = {{call_kind::allocation, {"-22", "zwriter->err == 0"}}};
const expectations stream_memory = {{call_kind::allocation, {"zwriter->err == 0"}}};

fault_case vector_case(const std::string &situation, const expectations &expected,
                       const vector_write &tried)
{
    return {.function = "vesk_current_buffer_write_telemetry_vector",
            .situation = situation,
            .expected = expected,
            .run = [=](fault &f) { return writes_vector(f, tried); },
            .check =
                [=](const fault &f, const outcome &found) {
                    if (!f.none()) {
                        check_vector(tried, f, found);
                    }
                }};
}

// The event is bare: what tells that it could not be written is the cell alone, unless it is large.
outcome writes_event(fault &f, const std::string &text)
{
    const owned_cbuf cbuf = create_cbuf(2);
    acknowledge();
    const owned_event event = make_event(3, 50, text);
    const outcome found =
        f.returns([&] { return vesk_current_buffer_write_event(cbuf.get(), event.get()); });
    return found == "ok" ? fault::success() : found;
}

outcome writes_tagged_event(fault &f, const std::string &text)
{
    const owned_cbuf cbuf = create_cbuf(1);
    acknowledge();
    const owned_event event = make_event(3, 50, text);
    return f.returns(
        [&] { return vesk_current_buffer_write_tagged_event(cbuf.get(), event.get()); });
}

// A file that was there is truncated as soon as it is opened, but not before.
outcome creates_over_old_file(fault &f, const std::function<outcome(fault &)> &create)
{
    write_file("b", "old");
    const outcome found = create(f);
    if (f.kind() == call_kind::open || (f.kind() == call_kind::allocation && f.n() <= 2)) {
        EXPECT_EQ(f.none() ? read_file("b") : "old", read_file("b"));
    }
    return found;
}

// Opening a file changes nothing in it, whatever comes of it.
template <typename Open>
outcome opens(fault &f, Open open)
{
    acknowledge();
    const outcome found = open(f);
    EXPECT_EQ(read_file("kept"), read_file("b"));
    return found;
}

void unchanged(const fault &, const outcome &)
{
    EXPECT_EQ(read_file("kept"), read_file("b"));
}

const expectations opening_a_buffer = {
    {call_kind::allocation, {"-22", "-41"}},
    {call_kind::zlib, {"-41"}},
    {call_kind::open, {"-40"}},
    {call_kind::read, {"reader_eof (zreader->reader)"}},
};

fault_case opening_case(const std::string &function, const std::string &situation,
                        const std::function<void()> &prepare,
                        const std::function<outcome(fault &)> &open)
{
    return {.function = function,
            .situation = situation,
            .expected = opening_a_buffer,
            .run = open,
            .prepare =
                [=] {
                    prepare();
                    acknowledge();
                },
            .check = unchanged};
}

// Records of an open file, the first of which is read with the file.
template <typename Buffer, typename Record>
outcome reads_record(fault &f, Buffer *(*open)(const char *), void (*close)(Buffer **),
                     int (*read)(Buffer *, Record *), int (*init_null)(Record *),
                     void (*destruct)(Record *), int skipped)
{
    Buffer *buffer = open("b");
    Record rec;
    init_null(&rec);
    for (int i = 0; i < skipped; ++i) {
        EXPECT_EQ(0, read(buffer, &rec));
    }
    const outcome found = f.returns([&] { return read(buffer, &rec); });
    destruct(&rec);
    close(&buffer);
    return found;
}

outcome reads_cbuf(fault &f, int skipped)
{
    return reads_record(f, vesk_current_buffer_open_for_read_write, vesk_current_buffer_close,
                        vesk_current_buffer_read_record, vesk_cb_record_init_null,
                        vesk_cb_record_destruct, skipped);
}

outcome reads_hbuf(fault &f, int skipped)
{
    return reads_record(f, vesk_hist_buffer_open_for_read_write, vesk_hist_buffer_close,
                        vesk_hist_buffer_read_record, vesk_hb_record_init_null,
                        vesk_hb_record_destruct, skipped);
}

// Two vectors, other sensors, a tagged event: each in a stream of its own.
void make_mixed_cbuf()
{
    const owned_cbuf cbuf = create_cbuf(2);
    EXPECT_EQ(
        0, vesk_current_buffer_write_telemetry_vector(cbuf.get(), make_readings(3, 3, "t").get()));
    const owned_event event = make_event(3, 4, "text");
    vesk_cb_record rec;
    vesk_cb_record_init_event(&rec, event.get());
    EXPECT_LE(0, binary_serializer_write_vesk_cb_record(&rec, cbuf->writer));
    EXPECT_LE(0, writer_flush(cbuf->writer));
}

// A buffer whose header is still in memory; closing it writes that, if it can.
template <typename Close>
outcome closes_new(fault &f, Close close)
{
    const outcome found = close(f);
    const bool written =
        f.none() || f.kind() == call_kind::close || (f.kind() == call_kind::flush && f.n() > 1);
    EXPECT_EQ(written ? 9U : 0U, content_of(read_file("b")).size());
    return found;
}

// A history buffer that is summarised into: what was there before stays, what comes is whole.
template <typename Compress>
outcome summarises(fault &f, uint32_t kept_intervals, Compress compress)
{
    owned_hbuf hbuf(vesk_hist_buffer_create("b", capacity));
    for (uint32_t i = 0; i < kept_intervals; ++i) {
        EXPECT_EQ(0, vesk_hist_buffer_write_interval(hbuf.get(), &noon, &later,
                                                     make_summaries().get(), nullptr));
    }
    acknowledge();
    const std::string source = read_file("source");
    const outcome found = f.returns([&] { return compress(hbuf.get()); });
    EXPECT_EQ(source, read_file("source")) << "the input is only read";
    EXPECT_TRUE(is_kept());
    return found;
}

// Into a new file, whose stream has no memory yet.
const expectations summarising_first = {
    {call_kind::allocation, {"-22", "-41", "zwriter->err == 0"}}};
const expectations summarising = {
    {call_kind::allocation, {"-22", "-41"}},
    {call_kind::zlib, {"-41", "zwriter->err == 0"}},
    {call_kind::open, {"-40"}},
    {call_kind::read, {"reader_eof (zreader->reader)"}},
    {call_kind::write, {"-41"}},
    {call_kind::torn_write, {"-41"}},
    // Also when the input is closed.
    {call_kind::flush, {"-41", "ok"}},
    {call_kind::close, {"ok"}},
};

// Samples are summarised without the memory for columns, too.
const expectations summarising_samples_first = {
    {call_kind::allocation, {"-22", "-41", "zwriter->err == 0", "ok"}}};
const expectations summarising_samples = {{call_kind::allocation, {"-22", "-41", "ok"}}};

void make_cbuf_source()
{
    create_cbuf(8).reset();
    fs::rename("b", "source");
}

void make_hbuf_source()
{
    create_hbuf(4, 4).reset();
    fs::rename("b", "source");
}

const expectations closing = {{call_kind::close, {"ok"}}, {call_kind::flush, {"ok"}}};
const expectations closing_new = {
    {call_kind::allocation, {"ok"}}, {call_kind::zlib, {"ok"}},  {call_kind::write, {"ok"}},
    {call_kind::torn_write, {"ok"}}, {call_kind::flush, {"ok"}}, {call_kind::close, {"ok"}},
};

// All of the file was fetched already, and of the first stream all was inflated with its names.
const expectations reading_record = no_memory + expectations{{call_kind::zlib, {"-41"}}};

const expectations creating = no_memory + expectations{{call_kind::open, {"-40"}}};

std::vector<fault_case> vesk_buffer_cases()
{
    return {
        opening_case("vesk_buffer_open_for_read_write", "current", make_mixed_cbuf,
                     [](fault &f) {
                         return f.creates(vesk_buffer_destroy,
                                          [] { return vesk_buffer_open_for_read_write("b"); });
                     }),
        opening_case(
            "vesk_buffer_open_for_read_write", "history", [] { create_hbuf(2); },
            [](fault &f) {
                return f.creates(vesk_buffer_destroy,
                                 [] { return vesk_buffer_open_for_read_write("b"); });
            }),
        {"vesk_buffer_destroy", "", closing,
         [](fault &f) {
             create_cbuf(2).reset();
             vesk_buffer *handle = vesk_buffer_open_for_read_write("b");
             return f.does([&] { vesk_buffer_destroy(&handle); });
         }},
        {"vesk_buffer_destruct", "", closing,
         [](fault &f) {
             create_hbuf(2).reset();
             const owned_buffer handle(vesk_buffer_open_for_read_write("b"));
             return f.does([&] { vesk_buffer_destruct(handle.get()); });
         }},
        {"binary_serializer_write_vesk_buffer", "", disk_full,
         [](fault &f) {
             const owned_cbuf cbuf = create_cbuf(0);
             vesk_buffer handle;
             vesk_buffer_init_current_buffer(&handle, cbuf.get());
             return writes(
                 f, [&](writer *w) { return binary_serializer_write_vesk_buffer(&handle, w); });
         }},
    };
}

std::vector<fault_case> vesk_current_buffer_cases()
{
    return {
        {"vesk_current_buffer_create", "", creating,
         [](fault &f) {
             return creates_over_old_file(f, [](fault &g) {
                 return g.creates(vesk_current_buffer_close,
                                  [] { return vesk_current_buffer_create("b", capacity); });
             });
         }},
        opening_case("vesk_current_buffer_open_for_read_write", "", make_mixed_cbuf,
                     [](fault &f) {
                         return f.creates(vesk_current_buffer_close, [] {
                             return vesk_current_buffer_open_for_read_write("b");
                         });
                     }),
        opening_case("vesk_current_buffer_open_for_append", "", make_mixed_cbuf,
                     [](fault &f) {
                         return f.creates(vesk_current_buffer_close,
                                          [] { return vesk_current_buffer_open_for_append("b"); });
                     }),
        vector_case("first", memory_and_stream + record_writing, {0, 0, 2}),
        vector_case("same_sensors", nothing_fails + record_writing, {3, 2, 2}),
        vector_case("other_sensors", no_memory + record_writing, {3, 2, 3, "t"}),
        vector_case("large", nothing_fails + record_writing, {2, 700, 700}),
        vector_case("large_first", memory_and_stream + record_writing, {0, 0, 700}),
        vector_case("after_opening", stream_memory + record_writing, {3, 2, 2, "s", true}),
        {"vesk_current_buffer_write_event",
         "small",
         {{call_kind::zlib, {"zwriter->err == 0"}},
          {call_kind::write, {"ok, but -41"}},
          {call_kind::torn_write, {"ok, but -41"}},
          {call_kind::flush, {"ok, but -41"}}},
         [](fault &f) { return writes_event(f, "text"); },
         [] {},
         [](const fault &, const outcome &) { EXPECT_TRUE(is_kept()); }},
        {"vesk_current_buffer_write_event",
         "large",
         {{call_kind::zlib, {"zwriter->err == 0"}},
          {call_kind::write, {"-41", "ok, but -41"}},
          {call_kind::torn_write, {"-41", "ok, but -41"}},
          {call_kind::flush, {"-41", "ok, but -41"}}},
         [](fault &f) { return writes_event(f, std::string(9000, 'x')); },
         [] {},
         [](const fault &, const outcome &) { EXPECT_TRUE(is_kept()); }},
        {"vesk_current_buffer_write_tagged_event", "small", record_writing,
         [](fault &f) { return writes_tagged_event(f, "text"); }, [] {},
         [](const fault &, const outcome &) { EXPECT_TRUE(is_kept()); }},
        {"vesk_current_buffer_write_tagged_event", "large", record_writing,
         [](fault &f) { return writes_tagged_event(f, std::string(9000, 'x')); }, [] {},
         [](const fault &, const outcome &) { EXPECT_TRUE(is_kept()); }},
        {"vesk_current_buffer_read_record", "values", no_memory,
         [](fault &f) { return reads_cbuf(f, 0); }, make_mixed_cbuf},
        {"vesk_current_buffer_read_record",
         "values_of_the_next_stream",
         {{call_kind::zlib, {"-41"}}},
         [](fault &f) { return reads_cbuf(f, 1); },
         [] { create_cbuf(2); }},
        {"vesk_current_buffer_read_record", "names", reading_record,
         [](fault &f) { return reads_cbuf(f, 2); }, make_mixed_cbuf},
        {"vesk_current_buffer_read_record", "event", reading_record,
         [](fault &f) { return reads_cbuf(f, 4); }, make_mixed_cbuf},
        {"vesk_current_buffer_close", "new", closing_new,
         [](fault &f) {
             return closes_new(f, [](fault &g) {
                 vesk_current_buffer *cbuf = create_cbuf(0).release();
                 return g.does([&] { vesk_current_buffer_close(&cbuf); });
             });
         }},
        {"vesk_current_buffer_close", "written", closing,
         [](fault &f) {
             vesk_current_buffer *cbuf = create_cbuf(2).release();
             acknowledge();
             const outcome found = f.does([&] { vesk_current_buffer_close(&cbuf); });
             unchanged(f, found);
             return found;
         }},
        {"binary_serializer_write_vesk_current_buffer", "", disk_full,
         [](fault &f) {
             const owned_cbuf cbuf = create_cbuf(0);
             return writes(f, [&](writer *w) {
                 return binary_serializer_write_vesk_current_buffer(cbuf.get(), w);
             });
         }},
        {"binary_serializer_read_vesk_current_buffer", "", unreadable,
         [](fault &f) {
             const owned_cbuf cbuf = create_cbuf(0);
             return reads(f, from_hex("01 00000008"), [&](reader *r) {
                 return binary_serializer_read_vesk_current_buffer(cbuf.get(), r);
             });
         }},
        {"vesk_current_buffer_compress", "", summarising_samples_first + summarising,
         [](fault &f) {
             return summarises(f, 0, [](vesk_hist_buffer *hbuf) {
                 return vesk_current_buffer_compress("source", hbuf, 2);
             });
         },
         make_cbuf_source},
        {"vesk_current_buffer_compress", "behind_a_history", summarising_samples + summarising,
         [](fault &f) {
             return summarises(f, 4, [](vesk_hist_buffer *hbuf) {
                 return vesk_current_buffer_compress("source", hbuf, 2);
             });
         },
         make_cbuf_source},
    };
}

std::vector<fault_case> vesk_hist_buffer_cases()
{
    return {
        {"vesk_hist_buffer_create", "", creating,
         [](fault &f) {
             return creates_over_old_file(f, [](fault &g) {
                 return g.creates(vesk_hist_buffer_close,
                                  [] { return vesk_hist_buffer_create("b", capacity); });
             });
         }},
        opening_case(
            "vesk_hist_buffer_open_for_read_write", "", [] { create_hbuf(2); },
            [](fault &f) {
                return f.creates(vesk_hist_buffer_close,
                                 [] { return vesk_hist_buffer_open_for_read_write("b"); });
            }),
        {"vesk_hist_buffer_write_interval", "first", memory_and_stream + record_writing,
         [](fault &f) {
             const owned_hbuf hbuf = create_hbuf(0);
             const owned_hist_list list = make_summaries();
             acknowledge();
             return f.returns([&] {
                 return vesk_hist_buffer_write_interval(hbuf.get(), &noon, &later, list.get(),
                                                        nullptr);
             });
         },
         [] {}, [](const fault &, const outcome &) { EXPECT_TRUE(is_kept()); }},
        {"vesk_hist_buffer_write_interval", "same_sensors", no_memory + record_writing,
         [](fault &f) {
             const owned_hbuf hbuf = create_hbuf(2);
             const owned_hist_list list = make_summaries();
             acknowledge();
             const outcome found = f.returns([&] {
                 return vesk_hist_buffer_write_interval(hbuf.get(), &noon, &later, list.get(),
                                                        nullptr);
             });
             EXPECT_EQ(found == "ok" ? 3U : 2U, hbuf->num_data_records);
             return found;
         },
         [] {}, [](const fault &, const outcome &) { EXPECT_TRUE(is_kept()); }},
        {"vesk_hist_buffer_read_record", "values", no_memory,
         [](fault &f) { return reads_hbuf(f, 0); }, [] { create_hbuf(2); }},
        {"vesk_hist_buffer_read_record",
         "values_of_the_next_stream",
         {{call_kind::zlib, {"-41"}}},
         [](fault &f) { return reads_hbuf(f, 1); },
         [] { create_hbuf(2); }},
        {"vesk_hist_buffer_close", "new", closing_new,
         [](fault &f) {
             return closes_new(f, [](fault &g) {
                 vesk_hist_buffer *hbuf = create_hbuf(0).release();
                 return g.does([&] { vesk_hist_buffer_close(&hbuf); });
             });
         }},
        {"vesk_hist_buffer_close", "written", closing,
         [](fault &f) {
             vesk_hist_buffer *hbuf = create_hbuf(2).release();
             acknowledge();
             const outcome found = f.does([&] { vesk_hist_buffer_close(&hbuf); });
             unchanged(f, found);
             return found;
         }},
        {"binary_serializer_write_vesk_hist_buffer", "", disk_full,
         [](fault &f) {
             const owned_hbuf hbuf = create_hbuf(0);
             return writes(f, [&](writer *w) {
                 return binary_serializer_write_vesk_hist_buffer(hbuf.get(), w);
             });
         }},
        {"binary_serializer_read_vesk_hist_buffer", "", unreadable,
         [](fault &f) {
             const owned_hbuf hbuf = create_hbuf(0);
             return reads(f, from_hex("01 00000008"), [&](reader *r) {
                 return binary_serializer_read_vesk_hist_buffer(hbuf.get(), r);
             });
         }},
        {"vesk_hist_buffer_compress", "", summarising_first + summarising,
         [](fault &f) {
             return summarises(f, 0, [](vesk_hist_buffer *hbuf) {
                 return vesk_hist_buffer_compress("source", hbuf);
             });
         },
         make_hbuf_source},
    };
}

} // namespace

std::vector<fault_case> buffer_cases()
{
    return joined({vesk_buffer_cases(), vesk_current_buffer_cases(), vesk_hist_buffer_cases()});
}
