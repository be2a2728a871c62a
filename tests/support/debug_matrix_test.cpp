// What the debugging functions print of matrices.
#include <gtest/gtest.h>
#include <stdio.h>
#include <string>

#include <vesk/debug_matrix.h>

#include "common/aborts.hpp"
#include "common/failing_calls.hpp"
#include "common/matrices.hpp"
#include "common/time_zone.hpp"

namespace
{

// What `print` puts on standard output.
template <typename Print>
std::string output_of(Print print)
{
    testing::internal::CaptureStdout();
    print();
    return testing::internal::GetCapturedStdout();
}

} // namespace

TEST(DebugMatrix, PrintsSixDecimalsAndABlank)
{
    const owned_matrix m = make_matrix({{1.5, -2}, {1234567.25, 0}});
    EXPECT_EQ("\na.c:12: matrix m =\n"
              "  1.500000  -2.000000 \n"
              "1234567.250000   0.000000 \n"
              "\n",
              output_of([&] { _qe_debug_matrix_print(m.get(), "m", "a.c", 12); }));
}

TEST(DebugMatrix, PrintsViewsAsTheyShow)
{
    const owned_matrix m = make_view({{1, 2, 3}});
    EXPECT_EQ("\na.c:1: matrix view =\n  1.000000   2.000000   3.000000 \n\n",
              output_of([&] { _qe_debug_matrix_print(m.get(), "view", "a.c", 1); }));
    EXPECT_EQ(uint32_t{MATRIX_TYPE_TRANSPOSED}, matrix_get_type(m.get()));
}

TEST(DebugMatrix, PrintsTheValuesOfTelemetry)
{
    const owned_matrix m = make_telemetry({{1}, {2}}, {"fan"}, {0, 1});
    EXPECT_EQ("\na.c:1: matrix t =\n  1.000000 \n  2.000000 \n\n",
              output_of([&] { _qe_debug_matrix_print(m.get(), "t", "a.c", 1); }));
}

TEST(DebugMatrix, PrintsABlankLineForAMatrixWithoutRows)
{
    const owned_matrix m(matrix_create_null());
    EXPECT_EQ("\na.c:1: matrix none =\n\n",
              output_of([&] { _qe_debug_matrix_print(m.get(), "none", "a.c", 1); }));
}

TEST(DebugTelemetryMatrix, PrintsTheTextFormAndLeavesStandardOutputOpen)
{
    const time_zone zone("UTC0");
    const owned_matrix m = make_telemetry({{1, 2}, {3, 4}}, {"fan", "psu"}, {0, 1});
    EXPECT_EQ("\na.c:7: matrix t =\n"
              "19700101:00:00:00,fan,psu\n"
              "19700101:00:00:00,1.000,2.000\n"
              "19700101:00:00:01,3.000,4.000\n"
              "\n"
              "still open",
              output_of([&] {
                  _qe_debug_telemetry_matrix_print(m.get(), "t", "a.c", 7);
                  EXPECT_LT(0, fputs("still open", stdout));
              }));
}

TEST(DebugTelemetryMatrix, AbortsWithoutMemory)
{
    const owned_matrix m = make_telemetry({{1}}, {"fan"}, {0});
    // The raw writer and its stream, then the text writer and its state.
    for (const int n : {1, 2, 3, 4}) {
        EXPECT_ABORTS(
            {
                const failing_allocation fails(n);
                _qe_debug_telemetry_matrix_print(m.get(), "t", "a.c", 7);
            },
            "stdout_writer != ((void *)0)");
    }
}

TEST(DebugTelemetryMatrix, RefusesOtherTypes)
{
    const owned_matrix regular = make_matrix({{1}});
    const owned_matrix view = make_view({{1}});
    for (const matrix *m : {regular.get(), view.get()}) {
        EXPECT_ABORTS(_qe_debug_telemetry_matrix_print(m, "m", "a.c", 1),
                      "matrix_get_type (m) == MATRIX_TYPE_TELEMETRY");
    }
}

TEST(DebugMatrix, RefusesIncompleteArguments)
{
    const owned_matrix m = make_telemetry({{1}}, {"fan"}, {0});
    for (const auto print : {_qe_debug_matrix_print, _qe_debug_telemetry_matrix_print}) {
        EXPECT_ABORTS(print(nullptr, "m", "a.c", 1), "m != ((void *)0)");
        EXPECT_ABORTS(print(m.get(), nullptr, "a.c", 1), "name != ((void *)0)");
        EXPECT_ABORTS(print(m.get(), "m", nullptr, 1), "file != ((void *)0)");
        EXPECT_ABORTS(print(m.get(), "m", "a.c", 0), "line > 0");
    }
}

TEST(DebugMatrix, RefusesADeadMatrix)
{
    matrix m;
    ASSERT_EQ(0, matrix_init(&m, 1, 1));
    matrix_destruct(&m);
    EXPECT_ABORTS(_qe_debug_matrix_print(&m, "m", "a.c", 1), "m->version == ((char) 1)");
}

TEST(DebugTelemetryMatrix, FlushesTheTextFormBeforeTheLastNewline)
{
    const time_zone zone("UTC0");
    const owned_matrix m = make_telemetry({{1}}, {"fan"}, {0});
    std::string in_file;
    const std::string all = output_of([&] {
        setvbuf(stdout, nullptr, _IOFBF, BUFSIZ);
        char name[32];
        snprintf(name, sizeof name, "/proc/self/fd/%d", fileno(stdout));
        _qe_debug_telemetry_matrix_print(m.get(), "t", "a.c", 7);
        char text[256] = {};
        FILE *written = fopen(name, "r");
        in_file.assign(text, fread(text, 1, sizeof text, written));
        fclose(written);
    });
    EXPECT_EQ(all, in_file + "\n");
}
