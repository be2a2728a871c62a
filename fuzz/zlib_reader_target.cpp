// The decompressing reader beside zlib itself. The first byte says how much is read at a time, the
// second how much the reader below gives at a time; the rest is a row of streams.
#include <algorithm>
#include <string>

#include <vesk/zlib_reader.h>

#include "common/memory_streams.hpp"
#include "common/zlib_streams.hpp"
#include "harness.hpp"

static constexpr uint32_t largest_read = 4096;

static uint32_t _size(char selector)
{
    const auto value = static_cast<uint8_t>(selector);
    return value == 0 ? largest_read : value;
}

static void _run(std::string_view input)
{
    if (input.size() < 2) {
        return;
    }
    const uint32_t step = _size(input[0]);
    const std::string file(input.substr(2));
    std::string content;
    bool damaged = false;
    std::size_t complete = 0;
    for (const zlib_stream &stream : split_zlib_streams(file)) {
        content += stream.content;
        damaged = stream.damaged;
        complete += stream.complete ? stream.length : 0;
    }

    memory_reader source(file);
    source.limit_reads(_size(input[1]));
    std::string found;
    int nread = 0;
    guarded({}, [&] {
        reader *r = zlib_reader_create(source.lend());
        char block[largest_read];
        while ((nread = reader_read_bytes(r, block, step)) > 0) {
            found.append(block, static_cast<std::size_t>(nread));
        }
        expect(nread < 0 || reader_eof(r), "nothing read means the end");
        expect_equal(static_cast<long long>(complete), zlib_reader_get_last_savepoint(r),
                     "the savepoint is the end of the last complete stream");
        reader_destroy(&r);
    });
    expect_equal(damaged ? -41 : 0, nread, "damage is told from the end");
    expect(std::string_view(content).starts_with(found), "only what is there is handed out");
    expect(damaged || content == found, "all of an undamaged file is handed out");
}

const fuzz_target target = {"zlib_reader", input_form::bytes, 8192, _run};
