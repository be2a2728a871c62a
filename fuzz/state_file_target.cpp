// A state file: read from memory and written back, then opened as a recorder that goes on. The
// scratch folder holds the buffers of a recorder on the base name "r", so that names can be right.
#include <array>
#include <map>
#include <string>

#include <vesk/error.h>
#include <vesk/vesk.h>
#include <vesk/vesk_scan.h>

#include "common/memory_streams.hpp"
#include "common/telemetry.hpp"
#include "common/temporary_directory.hpp"
#include "harness.hpp"

static constexpr const char *reading_aborts[] = {
    "nread != 0", // nothing behind the length of a string
};
static constexpr int reading_codes[] = {-3, -4, -6, -12, -40, -41, -43, -48, -49};

// A recorder of which a part could be read has a state without a stage, or an unknown one.
static constexpr const char *partial_aborts[] = {
    "nread != 0",
    "0",
    "(*vesk)->c00 != ((void *)0)",
    "(*vesk)->cc0 != ((void *)0)",
    "(*vesk)->ccc != ((void *)0)",
    "(*vesk)->hcc != ((void *)0)",
};

// A state can name any file as the one to summarise or to halve; see the targets of the buffers.
static constexpr const char *rotation_aborts[] = {
    "nread != 0",
    "!timestamp_is_null (&state->start)",
    "!timestamp_is_null (&state->end)",
    "0",
    "*names1 != ((void *)0)",
    "*names1 == state->hbuf_in->hb_rec_sensors_last",
    "hvalue->count == 0",
    "list->seq != 0",
    "strcmp (hbuf0_filename, hbuf_filename) != 0", // the next number is that of the history
    "max_data_records != 0",                       // twice the number of intervals is 2^32
    "*hbuf != ((void *)0)", // the first history was made, but the state cannot be saved
};
static constexpr int recorder_codes[] = {-3, -4, -6, -12, -22, -40, -41, -42, -43, -44, -48, -49};

// The files that the names of a state file may mean: 1 to 3 and 5 hold raw samples, the last one in
// part; 4 is the history of 1 and 2.
static const std::map<std::string, std::string> &_buffers()
{
    static const std::map<std::string, std::string> buffers = [] {
        std::map<std::string, std::string> files;
        vesk *box = vesk_create("r", 4, 2);
        for (int i = 0; i < 13; ++i) {
            if (i == 12) {
                for (const char *name : {"r.1.cbuf.z", "r.2.cbuf.z", "r.3.cbuf.z"}) {
                    files[name] = read_file(name);
                }
            }
            const owned_matrix vector =
                make_vector(1000 + i, {{"cpu", 1.0 * i}, {"fan", -1.0 * i}});
            expect_equal(0, vesk_write_telemetry_vector(box, vector.get()), "the box is recorded");
        }
        vesk_close(&box);
        for (const char *name : {"r.4.hbuf.z", "r.5.cbuf.z"}) {
            files[name] = read_file(name);
        }
        return files;
    }();
    return buffers;
}

static void _put_buffers()
{
    const auto &buffers = _buffers();
    clear_scratch_folder();
    for (const auto &[name, content] : buffers) {
        put_file(name.c_str(), content);
    }
}

static constexpr int reading_aborted = 1; // no result of a read: a state has more bytes

// Reads the input from memory. Returns the result or reading_aborted.
static int _read(std::string_view input)
{
    memory_reader source{std::string(input)};
    memory_writer copy;
    int result = reading_aborted;
    guarded({.documented_aborts = reading_aborts}, [&] {
        vesk *box = vesk_create_null();
        const int nread = binary_serializer_read_vesk(box, source.get());
        expect_documented(nread, reading_codes, "binary_serializer_read_vesk");
        if (nread > 0) {
            expect_equal(nread, binary_serializer_write_vesk(box, copy.get()),
                         "a state is written in as many bytes as it was read from");
        }
        if (nread < 0 && box->stage == nullptr) {
            // Closing refuses a state without a stage.
            box->state = 0;
        }
        vesk_close(&box);
        result = nread;
    });
    expect(input.starts_with(copy.bytes()), "a state is written as it was read");
    return result;
}

// The scanner says of the state file what the reader says, without aborting.
static void _scan(int read_result, std::size_t size)
{
    // No buffer is opened for it.
    guarded({.most_memory = 8 * size + (std::size_t(1) << 19), .most_inflated = 0}, [&] {
        vesk_state_summary summary;
        const int error = vesk_scan_state("r.state", &summary);
        expect_equal(error, summary.error, "the summary tells the result");
        if (read_result > reading_aborted) {
            expect_equal(0, error, "what can be read is good");
            expect_equal(summary.num_names + 7, summary.fields, "a good state has all fields");
        } else if (read_result == reading_aborted) {
            expect_equal(-48, error, "an early end is told");
        } else if (read_result == -12 || read_result == -43) {
            expect_equal(read_result == -43 ? -48 : -12, error, "the reason is told");
        }
        vesk_state_summary_destruct(&summary);
        const auto visit = [](const vesk_scan_file *file, void * /*context*/) {
            expect(file->filename != nullptr && (file->missing == 0 || file->size == 0),
                   "a file has a name");
            return 0;
        };
        expect_equal(0, vesk_scan_files("r", visit, nullptr), "the files are listed");
    });
}

// The recorder is opened and written to until a write fails, and closed.
static void _go_on()
{
    std::array<owned_matrix, 4> vectors;
    for (std::size_t i = 0; i < vectors.size(); ++i) {
        vectors[i] = make_vector(2000 + static_cast<long>(i), {{"cpu", 1}, {"fan", 2}});
    }
    guarded({.documented_aborts = rotation_aborts}, [&] {
        vesk *box = vesk_open("r");
        int result = 0;
        for (std::size_t i = 0; i < vectors.size() && result == 0; ++i) {
            result = vesk_write_telemetry_vector(box, vectors[i].get());
            expect_documented(result, recorder_codes, "vesk_write_telemetry_vector");
        }
        vesk_close(&box);
    });
}

// A recorder of which only a part can be read is opened and closed.
static void _open_in_part()
{
    guarded({.documented_aborts = partial_aborts}, [&] {
        qe_set_last_error(0);
        vesk *box = vesk_open("r");
        expect(qe_get_last_error() < 0, "a recorder in part leaves a code");
        if (box != nullptr) {
            vesk_close(&box);
        } else {
            expect_equal(-48, qe_get_last_error(), "only an empty state file makes no recorder");
        }
    });
}

static void _run(std::string_view input)
{
    static bool are_buffers_there = false;
    if (!are_buffers_there) {
        _put_buffers();
        are_buffers_there = true;
    }
    const int result = _read(input);
    put_file("r.state", input);
    _scan(result, input.size());
    if (result > reading_aborted) {
        _go_on();
        _put_buffers();
    } else {
        _open_in_part();
    }
}

const fuzz_target target = {"state_file", input_form::bytes, 4096, _run};
