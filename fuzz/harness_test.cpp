// The harness itself: a harness that sees nothing finds nothing.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

#include <vesk/config.h>
#include <vesk/error.h>
#include <vesk/matrix.h>
#include <vesk/reader.h>
#include <vesk/sensor.h>
#include <vesk/timestamp.h>
#include <vesk/vesk_scan.h>

#include "common/zlib_bytes.hpp"
#include "harness.hpp"

static int inputs_run = 0;

const fuzz_target target = {"harness_test", input_form::bytes, 100,
                            [](std::string_view) { ++inputs_run; }};

namespace
{
constexpr const char *no_reader[] = {"reader != ((void *)0)"};

class Harness : public testing::Test
{
protected:
    static void SetUpTestSuite() { prepare_process(); }
};

TEST_F(Harness, TellsAReturnFromADocumentedAbort)
{
    EXPECT_TRUE(guarded({.documented_aborts = no_reader}, [] {}));
    EXPECT_FALSE(guarded({.documented_aborts = no_reader}, [] { reader_destroy(nullptr); }));
    EXPECT_TRUE(guarded({.documented_aborts = no_reader}, [] {}));
}

TEST_F(Harness, EndsWithAnyOtherAbort)
{
    EXPECT_DEATH(guarded({}, [] { reader_destroy(nullptr); }), "which is not documented here");
    EXPECT_DEATH(guarded({.documented_aborts = no_reader}, [] { sensor_destroy(nullptr); }),
                 "sensor != .*which is not documented here");
    EXPECT_DEATH(reader_destroy(nullptr), "which is not documented here");
}

TEST_F(Harness, GivesBackWhatAnAbortLeft)
{
    put_file("file", "text");
    for (int i = 0; i < 3; ++i) {
        EXPECT_FALSE(guarded({.documented_aborts = no_reader}, [] {
            (void)timestamp_create_null();
            (void)fopen("file", "r");
            (void)sensor_copy(sensor_create("one"), nullptr);
            (void)sensor_create("two");
            reader_destroy(nullptr);
        }));
    }
    // The registry of sensors is as good as new.
    EXPECT_TRUE(guarded({}, [] {
        sensor *s = sensor_create("one");
        sensor_destroy(&s);
    }));
}

TEST_F(Harness, FindsWhatACallKeeps)
{
    put_file("file", "text");
    EXPECT_DEATH(guarded({}, [] { (void)timestamp_create_null(); }), "no memory is kept");
    EXPECT_DEATH(guarded({}, [] { (void)sensor_create("one"); }), "no memory is kept");
    EXPECT_DEATH(guarded({}, [] { (void)fopen("file", "r"); }), "no file stays open");
    EXPECT_DEATH(guarded({}, [] { (void)open("file", O_RDONLY); }), "no descriptor stays open");
}

TEST_F(Harness, LetsNoNameLeadOutside)
{
    put_file("inside", "key value\n");
    for (const char *name : {"/etc/passwd", "..", "../file", "a/../../file", "inside/.."}) {
        SCOPED_TRACE(name);
        EXPECT_TRUE(guarded({}, [=] {
            config c;
            EXPECT_EQ(QE_ERROR_OPEN, config_init_from_file(&c, name));
            EXPECT_EQ(EACCES, errno);
            EXPECT_EQ(-1, unlink(name));
            EXPECT_EQ(EACCES, errno);
            EXPECT_EQ(-1, rename("inside", name));
            EXPECT_EQ(EACCES, errno);
            EXPECT_EQ(-1, open(name, O_RDWR | O_CREAT, 0600));
            EXPECT_EQ(EACCES, errno);
        }));
    }
    EXPECT_TRUE(guarded({}, [] {
        config c;
        EXPECT_EQ(0, config_init_from_file(&c, "inside"));
        config_destruct(&c);
    }));
}

TEST_F(Harness, FindsOrRefusesLargeBlocks)
{
    EXPECT_DEATH(guarded({}, [] { (void)matrix_create(1000, 1000); }),
                 "the size of a block stays within its bound");
    EXPECT_TRUE(guarded({.refuse_larger_blocks = true}, [] {
        EXPECT_EQ(nullptr, matrix_create(1000, 1000));
        EXPECT_EQ(QE_ERROR_NO_MEMORY, qe_get_last_error());
    }));
}

TEST_F(Harness, FindsMemoryThatSmallBlocksTakeTogether)
{
    const auto make_ten = [] {
        sensor *sensors[10];
        for (int i = 0; i < 10; ++i) {
            sensors[i] = sensor_create(std::string(1000, static_cast<char>('a' + i)).c_str());
        }
        for (sensor *&s : sensors) {
            sensor_destroy(&s);
        }
    };
    EXPECT_DEATH(guarded({.most_memory = 10000}, make_ten), "the memory stays within its bound");
    EXPECT_TRUE(guarded({.most_memory = 20000}, make_ten));
}

TEST_F(Harness, FindsWhatIsInflatedBeyondItsBound)
{
    put_file("r.1.cbuf.z", compressed_stream(std::string(5000, '\0')));
    const auto scan = [] {
        const auto ignore = [](const vesk_scan_item * /*item*/, void * /*context*/) { return 0; };
        EXPECT_EQ(0, vesk_scan_buffer("r.1.cbuf.z", ignore, nullptr));
    };
    EXPECT_DEATH(guarded({.most_inflated = 4999}, scan),
                 "the inflated bytes stay within their bound");
    EXPECT_TRUE(guarded({.most_inflated = 5000}, scan));
}

TEST_F(Harness, FindsCodesThatAreNotListed)
{
    static constexpr int codes[] = {-6, -48};
    expect_documented(0, codes, "a call");
    expect_documented(7, codes, "a call");
    expect_documented(-48, codes, "a call");
    EXPECT_DEATH(expect_documented(-41, codes, "a call"), "a call gave -41, which is not docum");
}

TEST_F(Harness, TriesNoInputThatIsTooLong)
{
    const uint8_t bytes[101] = {};
    inputs_run = 0;
    run_input(bytes, 101);
    EXPECT_EQ(0, inputs_run);
    run_input(bytes, 100);
    EXPECT_EQ(1, inputs_run);
}

} // namespace
