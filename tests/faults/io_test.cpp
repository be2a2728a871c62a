// The functions of the byte streams and the serializer, with what each gives when a call fails.
#include <gtest/gtest.h>
#include <random>

#include <vesk/binary_serializer.h>
#include <vesk/binary_serializer_common.h>
#include <vesk/garbage_reader.h>

#include "common/matrices.hpp"
#include "common/temporary_directory.hpp"
#include "common/zlib_streams.hpp"
#include "faults/fault_loop.hpp"
#include "faults/streams.hpp"

namespace
{

// A stream over another one, or over a file, which stays the caller's when it cannot be made.
template <typename Base, typename Make>
outcome takes_over(fault &f, Base base, Make make)
{
    const outcome found = make(f, base.get());
    if (found == "ok") {
        (void)base.release();
    }
    return found;
}

owned_file open_file()
{
    return owned_file(tmpfile());
}

// What zlib cannot make smaller.
std::string noise(size_t size)
{
    std::mt19937 random;
    std::string bytes(size, '\0');
    for (char &byte : bytes) {
        byte = static_cast<char>(random());
    }
    return bytes;
}

const std::string noise_of_5000 = noise(5000);

owned_reader zlib_file_reader()
{
    owned_reader raw = file_reader(deflate_stream(noise_of_5000) + deflate_stream("end"));
    return owned_reader(zlib_reader_create(raw.release()));
}

outcome reads_bytes(fault &f, const owned_reader &source, uint32_t n)
{
    std::string buffer(n, '\0');
    return fault::bytes(f([&] { return reader_read_bytes(source.get(), buffer.data(), n); }));
}

// A compressing writer to the file "z" in the working folder.
owned_writer zlib_file_writer()
{
    owned_writer raw(raw_writer_create(fopen("z", "w"), 0));
    return owned_writer(zlib_writer_create(raw.release()));
}

// Once zlib itself has failed, the writer cannot even be destroyed.
outcome and_dies(const outcome &found, owned_writer &target)
{
    if (found == "-42") {
        target.reset();
        return "survived";
    }
    return found;
}

// A file that failed is written to again: what comes then is a stream that can be read.
void writes_again(const fault &f, owned_writer &target)
{
    const bool nothing_taken = f.kind() != call_kind::torn_write;
    const std::string before = read_file("z");
    EXPECT_LE(0, writer_write_bytes(target.get(), "again", 5));
    EXPECT_LE(0, writer_flush(target.get()));
    target.reset();
    const std::string after = read_file("z");
    EXPECT_EQ(before, after.substr(0, before.size()));
    EXPECT_EQ("again", zlib_contents(after.substr(before.size())).at(0));
    EXPECT_TRUE(!nothing_taken || f.n() > 1 || before.empty());
}

template <typename Call>
outcome compresses(fault &f, Call call)
{
    owned_writer target = zlib_file_writer();
    outcome found = call(target.get());
    found = and_dies(found, target);
    if (found == "-41") {
        writes_again(f, target);
    }
    return found;
}

// A writer whose rest cannot be written goes all the same.
template <typename Destroy>
outcome destroys_zlib_writer(fault &f, Destroy destroy)
{
    writer *target = zlib_file_writer().release();
    EXPECT_EQ(0, writer_write_bytes(target, "rest", 4));
    const outcome found = f.does([&] { destroy(&target); });
    const std::string left = read_file("z");
    if (f.none() || f.kind() == call_kind::close) {
        EXPECT_EQ("rest", zlib_contents(left).at(0));
    } else if (f.kind() == call_kind::write) {
        EXPECT_EQ("", left);
    }
    return found;
}

const expectations compression = {
    {call_kind::allocation, {"zwriter->err == 0"}},
    {call_kind::zlib, {"zwriter->err == 0"}},
    {call_kind::write, {"-41"}},
    {call_kind::torn_write, {"-41"}},
    {call_kind::flush, {"-41"}},
};

const expectations unnoticed_compression = {
    {call_kind::allocation, {"ok"}}, {call_kind::zlib, {"ok"}},  {call_kind::write, {"ok"}},
    {call_kind::torn_write, {"ok"}}, {call_kind::flush, {"ok"}}, {call_kind::close, {"ok"}},
};

const expectations decompression = {
    {call_kind::allocation, {"-41"}},
    {call_kind::zlib, {"-41"}},
    {call_kind::read, {"reader_eof (zreader->reader)"}},
};

// ---- Matrices ---------------------------------------------------------------------------------

owned_matrix telemetry()
{
    return make_telemetry({{1, 2, 3}, {4, 5, 6}}, {"a", "b", "c"}, {1000, 1001});
}

outcome writes_matrix(fault &f, const owned_matrix &m)
{
    return writes(f, [&](writer *w) { return binary_serializer_write_matrix(m.get(), w); });
}

std::string stored_matrix(const owned_matrix &m)
{
    return stored_form([&](writer *w) { return binary_serializer_write_matrix(m.get(), w); });
}

// A null record, which can be destructed whatever came of it.
outcome reads_matrix(fault &f, const owned_matrix &like)
{
    const std::string bytes = stored_matrix(like);
    matrix m;
    matrix_init_null(&m);
    const outcome found =
        reads(f, bytes, [&](reader *r) { return binary_serializer_read_matrix(&m, r); });
    if (found == "ok") {
        EXPECT_EQ(elements_of(like.get()), elements_of(&m));
    }
    matrix_destruct(&m);
    return found;
}

outcome reads_optional_matrix(fault &f, const owned_matrix &like)
{
    matrix *m = nullptr;
    const outcome found = reads(f, '\1' + stored_matrix(like), [&](reader *r) {
        return binary_serializer_read_optional_matrix(&m, r);
    });
    EXPECT_EQ(found == "ok", m != nullptr);
    if (m != nullptr) {
        matrix_destroy(&m);
    }
    return found;
}

std::vector<fault_case> reader_cases()
{
    return {
        {"raw_reader_init", "", no_memory,
         [](fault &f) {
             return takes_over(f, open_file(), [](fault &g, FILE *fp) {
                 return g.inits<reader>(reader_destruct,
                                        [=](reader *r) { return raw_reader_init(r, fp, 0); });
             });
         }},
        {"raw_reader_create", "", no_memory,
         [](fault &f) {
             return takes_over(f, open_file(), [](fault &g, FILE *fp) {
                 return g.creates(reader_destroy, [=] { return raw_reader_create(fp, 0); });
             });
         }},
        {"zlib_reader_init", "", no_memory,
         [](fault &f) {
             return takes_over(f, file_reader(""), [](fault &g, reader *base) {
                 return g.inits<reader>(reader_destruct,
                                        [=](reader *r) { return zlib_reader_init(r, base); });
             });
         }},
        {"zlib_reader_create", "", no_memory,
         [](fault &f) {
             return takes_over(f, file_reader(""), [](fault &g, reader *base) {
                 return g.creates(reader_destroy, [=] { return zlib_reader_create(base); });
             });
         }},
        {"garbage_reader_init", "", no_memory,
         [](fault &f) {
             return takes_over(f, file_reader(""), [](fault &g, reader *base) {
                 return g.inits<reader>(reader_destruct,
                                        [=](reader *r) { return garbage_reader_init(r, base, 9); });
             });
         }},
        {"garbage_reader_create", "", no_memory,
         [](fault &f) {
             return takes_over(f, file_reader(""), [](fault &g, reader *base) {
                 return g.creates(reader_destroy, [=] { return garbage_reader_create(base, 9); });
             });
         }},
        {"reader_read_bytes",
         "of_a_file",
         {{call_kind::read, {"none"}}},
         [](fault &f) { return reads_bytes(f, file_reader("content"), 7); }},
        {"reader_read_bytes", "of_compressed_data", decompression,
         [](fault &f) { return reads_bytes(f, zlib_file_reader(), 5003); }},
        {"reader_read_bytes",
         "of_damaged_data",
         {{call_kind::read, {"reader_eof (reader->reader)"}}},
         [](fault &f) {
             owned_reader base = file_reader("content");
             return reads_bytes(f, owned_reader(garbage_reader_create(base.release(), 9)), 7);
         }},
        {"reader_destruct",
         "of_a_file",
         {{call_kind::close, {"ok"}}},
         [](fault &f) {
             reader r;
             EXPECT_EQ(0, raw_reader_init(&r, tmpfile(), 0));
             return f.does([&] { reader_destruct(&r); });
         }},
        {"reader_destroy",
         "of_compressed_data",
         {{call_kind::close, {"ok"}}},
         [](fault &f) {
             reader *r = zlib_file_reader().release();
             char byte = 0;
             EXPECT_EQ(1, reader_read_bytes(r, &byte, 1));
             return f.does([&] { reader_destroy(&r); });
         }},
    };
}

std::vector<fault_case> writer_cases()
{
    return {
        {"raw_writer_init", "", no_memory,
         [](fault &f) {
             return takes_over(f, open_file(), [](fault &g, FILE *fp) {
                 return g.inits<writer>(writer_destruct,
                                        [=](writer *w) { return raw_writer_init(w, fp, 0); });
             });
         }},
        {"raw_writer_create", "", no_memory,
         [](fault &f) {
             return takes_over(f, open_file(), [](fault &g, FILE *fp) {
                 return g.creates(writer_destroy, [=] { return raw_writer_create(fp, 0); });
             });
         }},
        {"zlib_writer_init", "", no_memory,
         [](fault &f) {
             return takes_over(f, file_writer(), [](fault &g, writer *base) {
                 return g.inits<writer>(writer_destruct,
                                        [=](writer *w) { return zlib_writer_init(w, base); });
             });
         }},
        {"zlib_writer_create", "", no_memory,
         [](fault &f) {
             return takes_over(f, file_writer(), [](fault &g, writer *base) {
                 return g.creates(writer_destroy, [=] { return zlib_writer_create(base); });
             });
         }},
        {"writer_write_bytes", "to_a_file", disk_full,
         [](fault &f) {
             owned_writer target(raw_writer_create(fopen("raw", "w"), 0));
             const outcome found =
                 f.returns([&] { return writer_write_bytes(target.get(), "content", 7); });
             EXPECT_EQ(5, writer_write_bytes(target.get(), "again", 5)) << "it stays usable";
             target.reset();
             const std::string taken = found == "ok"                       ? "content"
                                       : f.kind() == call_kind::torn_write ? "con"
                                                                           : "";
             EXPECT_EQ(taken + "again", read_file("raw"));
             return found;
         }},
        {"writer_write_bytes", "compressed", compression,
         [](fault &f) {
             return compresses(f, [&](writer *target) {
                 return f.returns(
                     [=] { return writer_write_bytes(target, noise_of_5000.data(), 5000); });
             });
         }},
        {"writer_flush",
         "to_a_file",
         {{call_kind::flush, {"ok"}}},
         [](fault &f) {
             const owned_writer target = file_writer();
             return f.returns([&] { return writer_flush(target.get()); });
         }},
        {"writer_flush", "compressed", compression,
         [](fault &f) {
             return compresses(f, [&](writer *target) {
                 EXPECT_EQ(0, writer_write_bytes(target, "content", 7));
                 return f.returns([=] { return writer_flush(target); });
             });
         }},
        {"writer_destruct", "", unnoticed_compression,
         [](fault &f) {
             return destroys_zlib_writer(f, [](writer **target) {
                 writer_destruct(*target);
                 free(*target);
             });
         }},
        {"writer_destroy", "", unnoticed_compression,
         [](fault &f) { return destroys_zlib_writer(f, writer_destroy); }},
    };
}

std::vector<fault_case> binary_serializer_common_cases()
{
    return {
        {"binary_serializer_read_bytes",
         "",
         {{call_kind::read, {"none"}}},
         [](fault &f) {
             char buffer[7];
             return reads(f, "content", [&](reader *r) {
                 return binary_serializer_read_bytes(buffer, sizeof buffer, r);
             });
         }},
        {"binary_serializer_write_string", "", disk_full,
         [](fault &f) {
             return writes(f, [](writer *w) { return binary_serializer_write_string("text", w); });
         }},
        {"binary_serializer_read_string", "",
         no_memory + expectations{{call_kind::read, {"reader_eof (reader)", "nread != 0"}}},
         [](fault &f) {
             const owned_reader source = file_reader(from_hex("00000004") + "text");
             int nread = -1;
             const outcome found =
                 f.allocates([&] { return binary_serializer_read_string(source.get(), &nread); });
             EXPECT_EQ(found == "ok" ? 8 : 0, nread);
             return found;
         }},
    };
}

std::vector<fault_case> binary_serializer_cases()
{
    return {
        {"binary_serializer_write_matrix", "regular", disk_full,
         [](fault &f) {
             return writes_matrix(f, make_matrix({{1, 2}, {3, 4}}));
         }},
        {"binary_serializer_write_matrix", "view", disk_full,
         [](fault &f) {
             return writes_matrix(f, make_view({{1, 2}, {3, 4}}));
         }},
        {"binary_serializer_write_matrix", "telemetry", disk_full,
         [](fault &f) { return writes_matrix(f, telemetry()); }},
        {"binary_serializer_read_matrix", "regular", no_memory + unreadable,
         [](fault &f) {
             return reads_matrix(f, make_matrix({{1, 2}, {3, 4}}));
         }},
        {"binary_serializer_read_matrix", "view", no_memory + unreadable,
         [](fault &f) {
             return reads_matrix(f, make_view({{1, 2}, {3, 4}}));
         }},
        {"binary_serializer_read_matrix", "telemetry", no_memory + unreadable_strings,
         [](fault &f) { return reads_matrix(f, telemetry()); }},
        {"binary_serializer_write_optional_matrix", "", disk_full,
         [](fault &f) {
             const owned_matrix m = telemetry();
             return writes(
                 f, [&](writer *w) { return binary_serializer_write_optional_matrix(m.get(), w); });
         }},
        {"binary_serializer_read_optional_matrix", "", no_memory + unreadable_strings,
         [](fault &f) { return reads_optional_matrix(f, telemetry()); }},
    };
}

} // namespace

std::vector<fault_case> io_cases()
{
    return joined({reader_cases(), writer_cases(), binary_serializer_common_cases(),
                   binary_serializer_cases()});
}
