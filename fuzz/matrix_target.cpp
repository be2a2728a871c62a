// Stored matrices. Forms nest without a limit and a reader can be led to exhaust its stack: that is
// documented, and the size of the inputs keeps it from happening here, since a level takes six
// bytes. A form that states a large matrix is refused as by a machine with little memory.
#include <string>

#include <vesk/binary_serializer.h>
#include <vesk/error.h>
#include <vesk/matrix_compare.h>
#include <vesk/matrix_ops.h>

#include "common/memory_streams.hpp"
#include "harness.hpp"

static constexpr const char *aborts[] = {"nread != 0"}; // nothing behind the length of a name
static constexpr int codes[] = {-6, -12, -22, -43, -48, -49};

static constexpr guard_rules rules = {.documented_aborts = aborts,
                                      .largest_block = std::size_t{1} << 24,
                                      .refuse_larger_blocks = true};

static bool _has_telemetry(const std::string &form)
{
    return form.find(std::string("\1\0\0\0\3", 5)) != std::string::npos;
}

// Reads and writes a matrix. A telemetry matrix makes its values a regular matrix, so that a view
// inside of one is written as what it shows; anything else must come back as it was.
static std::string _read_and_write(const std::string &stored)
{
    memory_reader source(stored);
    memory_writer copy;
    guarded(rules, [&] {
        matrix *m = nullptr;
        const int nread = binary_serializer_read_optional_matrix(&m, source.get());
        expect_documented(nread, codes, "binary_serializer_read_optional_matrix");
        expect(nread > 0 || m == nullptr, "a failure leaves no matrix");
        if (nread > 0) {
            expect(binary_serializer_write_optional_matrix(m, copy.get()) > 0,
                   "what was read can be written");
        }
        if (m != nullptr) {
            const uint32_t nrows = matrix_get_number_rows(m);
            const uint32_t ncols = matrix_get_number_columns(m);
            (void)matrix_get(m, 0, 0);
            (void)matrix_get(m, nrows - 1, ncols - 1);
            matrix *other = matrix_copy(m);
            if (other != nullptr) {
                matrix_destroy(&other);
            }
            matrix_destroy(&m);
        }
    });
    return copy.bytes();
}

static void _run(std::string_view input)
{
    const std::string stored(input);
    const std::string once = _read_and_write(stored);
    expect(_has_telemetry(stored) || input.starts_with(once), "a matrix is written as it was read");
    if (!once.empty()) {
        expect(_read_and_write(once) == once, "what was written is read and written alike");
    }
}

const fuzz_target target = {"matrix", input_form::bytes, 4096, _run};
