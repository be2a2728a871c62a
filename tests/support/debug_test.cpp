// Seeds of random numbers, which a test shows so that it can be repeated.
#include <stdlib.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <vesk/debug.h>

#include "common/aborts.hpp"
#include "common/temporary_directory.hpp"

// The log and the generator belong to the process, so every test has a process of its own, whose
// standard output is standard error, where death tests look.
static void enter(const temporary_directory &directory)
{
    if (chdir(directory.path().c_str()) != 0 || dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
        _exit(99);
    }
}

TEST(SeededRandom, RepeatsTheSequenceOfTheSeed)
{
    const temporary_directory directory;
    EXPECT_EXIT(
        {
            enter(directory);
            srand(42);
            const int expected = rand();
            _qe_srand(42, "here.c", 7);
            exit(rand() == expected ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST(SeededRandom, ShowsTheSeedOnStandardOutputAndInTheLog)
{
    const temporary_directory directory;
    EXPECT_EXIT(
        {
            enter(directory);
            _qe_srand(42, "here.c", 7);
            exit(0);
        },
        testing::ExitedWithCode(0), testing::Eq("\nhere.c:7: seed=42\n"));
    EXPECT_EQ("here.c:7: seed=42\n", read_file(directory.file("srand.log")));
}

TEST(SeededRandom, ShowsHighSeedsAsNegativeNumbers)
{
    const temporary_directory directory;
    EXPECT_EXIT(
        {
            enter(directory);
            _qe_srand(4294967295U, "here.c", 7);
            exit(0);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_EQ("here.c:7: seed=-1\n", read_file(directory.file("srand.log")));
}

TEST(SeededRandom, AppendsFurtherSeedsOfAProcessToItsLog)
{
    const temporary_directory directory;
    EXPECT_EXIT(
        {
            enter(directory);
            _qe_srand(1, "a.c", 1);
            _qe_srand(2, "b.c", 2);
            exit(0);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_EQ("a.c:1: seed=1\nb.c:2: seed=2\n", read_file(directory.file("srand.log")));
}

TEST(SeededRandom, TruncatesTheLogOfAnEarlierProcess)
{
    const temporary_directory directory;
    write_file(directory.file("srand.log"), "what an earlier process left behind\n");
    EXPECT_EXIT(
        {
            enter(directory);
            _qe_srand(3, "c.c", 3);
            exit(0);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_EQ("c.c:3: seed=3\n", read_file(directory.file("srand.log")));
}

TEST(SeededRandom, DoesNotFlushTheLogBeforeTheProcessExits)
{
    const temporary_directory directory;
    EXPECT_EXIT(
        {
            enter(directory);
            _qe_srand(3, "c.c", 3);
            _exit(0);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_EQ("", read_file(directory.file("srand.log")));
    EXPECT_EQ(std::set<std::string>{"srand.log"}, directory.names());
}

TEST(SeededRandom, AbortsWhenTheLogCannotBeOpened)
{
    const temporary_directory directory;
    ASSERT_EQ(0, mkdir(directory.file("srand.log").c_str(), 0755));
    EXPECT_ABORTS(
        {
            enter(directory);
            _qe_srand(1, "a.c", 1);
        },
        "fp != ((void *)0)");
}

TEST(SeededRandom, TakesTheClockAsSeed)
{
    const temporary_directory directory;
    const time_t before = time(nullptr);
    EXPECT_EXIT(
        {
            enter(directory);
            _qe_srand_clock("here.c", 7);
            exit(0);
        },
        testing::ExitedWithCode(0), "");
    const time_t after = time(nullptr);

    const std::string start = "here.c:7: seed=";
    const std::string line = read_file(directory.file("srand.log"));
    ASSERT_EQ(start, line.substr(0, start.size()));
    const long seed = std::stol(line.substr(start.size()));
    EXPECT_GE(seed, before);
    EXPECT_LE(seed, after);
}
