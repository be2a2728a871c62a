// Streams over real files, for functions that read and write: what fails below them is what they
// ask of the C library.
#ifndef VESK_TESTS_FAULTS_STREAMS_HPP
#define VESK_TESTS_FAULTS_STREAMS_HPP

#include <cstdio>
#include <string>

#include <vesk/raw_reader.h>
#include <vesk/raw_writer.h>
#include <vesk/zlib_reader.h>
#include <vesk/zlib_writer.h>

#include "common/memory_streams.hpp"
#include "faults/fault_loop.hpp"
#include "support/owner.hpp"

using owned_reader = owned<reader, reader_destroy>;
using owned_writer = owned<writer, writer_destroy>;

// An open file that holds `bytes` and stands at its begin.
inline FILE *file_with(const std::string &bytes)
{
    FILE *fp = tmpfile();
    (void)fwrite(bytes.data(), 1, bytes.size(), fp);
    rewind(fp);
    return fp;
}

inline owned_reader file_reader(const std::string &bytes)
{
    return owned_reader(raw_reader_create(file_with(bytes), 0));
}

inline owned_writer file_writer()
{
    return owned_writer(raw_writer_create(tmpfile(), 0));
}

// What reading a stored form comes to when the medium fails, which looks like the end of the data.
inline const expectations unreadable = {{call_kind::read, {"none", "-48"}}};
// Strings are strict about it.
inline const expectations unreadable_strings = {
    {call_kind::read, {"none", "-48", "reader_eof (reader)", "nread != 0"}}};

// What `write` writes.
template <typename Write>
std::string stored_form(Write write)
{
    memory_writer target;
    write(target.get());
    return target.bytes();
}

// A function that writes a stored form, over a raw writer.
template <typename Write>
outcome writes(fault &f, Write write)
{
    const owned_writer target = file_writer();
    return f.returns([&] { return write(target.get()); });
}

// A function that reads the stored form `bytes`, over a raw reader.
template <typename Read>
outcome reads(fault &f, const std::string &bytes, Read read)
{
    const owned_reader source = file_reader(bytes);
    return fault::bytes(f([&] { return read(source.get()); }));
}

#endif
