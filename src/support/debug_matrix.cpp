// Prints matrices to standard output to help find faults: either the values alone, or telemetry
// with its sensors and times.
#include <cstdint>
#include <cstdio>

#include <vesk/debug_matrix.h>
#include <vesk/kelt_serializer.h>
#include <vesk/kelt_writer.h>
#include <vesk/raw_writer.h>

#include "support/precondition.hpp"

static void _print_header(const char *name, const char *file, int line)
{
    printf("\n%s:%d: matrix %s =\n", file, line, name);
}

void _qe_debug_matrix_print(const matrix *m, const char *name, const char *file, int line)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    VESK_REQUIRE(name != nullptr, "name != ((void *)0)");
    VESK_REQUIRE(file != nullptr, "file != ((void *)0)");
    VESK_REQUIRE(line > 0, "line > 0");
    _print_header(name, file, line);
    // The accessor refuses a matrix without rows, and a dead one.
    const bool is_empty = m->version == 1 && m->nrows == 0;
    const uint32_t nrows = is_empty ? 0 : matrix_get_number_rows(m);
    for (uint32_t i = 0; i < nrows; ++i) {
        const uint32_t ncols = matrix_get_number_columns(m);
        for (uint32_t j = 0; j < ncols; ++j) {
            printf("%10.6lf ", matrix_get(m, i, j));
        }
        putchar('\n');
    }
    putchar('\n');
}

void _qe_debug_telemetry_matrix_print(const matrix *m, const char *name, const char *file, int line)
{
    VESK_REQUIRE(m != nullptr, "m != ((void *)0)");
    VESK_REQUIRE(name != nullptr, "name != ((void *)0)");
    VESK_REQUIRE(file != nullptr, "file != ((void *)0)");
    VESK_REQUIRE(line > 0, "line > 0");
    VESK_REQUIRE(matrix_get_type(m) == MATRIX_TYPE_TELEMETRY,
                 "matrix_get_type (m) == MATRIX_TYPE_TELEMETRY");
    // Bit 0: the stream stays open.
    writer *raw_writer = raw_writer_create(stdout, 1);
    VESK_REQUIRE(raw_writer != nullptr, "stdout_writer != ((void *)0)");
    writer *stdout_writer = kelt_writer_create(raw_writer);
    VESK_REQUIRE(stdout_writer != nullptr, "stdout_writer != ((void *)0)");
    _print_header(name, file, line);
    // The serializer changes matrices of other types only.
    kelt_serializer_write_matrix(const_cast<matrix *>(m), stdout_writer);
    // The chain flushes what it wrote before the newline comes.
    writer_destroy(&stdout_writer);
    putchar('\n');
}
