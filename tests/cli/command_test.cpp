// The small parts around the verbs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>
#include <sys/wait.h>
#include <unistd.h>
#include <zlib.h>

#include <vesk/error.h>

#include "box/box_writer.hpp"
#include "common/temporary_directory.hpp"
#include "process/failure.hpp"
#include "process/stop_request.hpp"
#include "process/terminal.hpp"
#include "text/line_source.hpp"
#include "text/suggestion.hpp"

namespace
{

using namespace cli;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

TEST(Words, EveryErrorCodeHasItsOwn)
{
    std::set<std::string> words;
    const int codes[] = {-1,  -2,  -3,  -4,  -6,  -10, -11, -12, -22,
                         -40, -41, -42, -43, -44, -48, -49, -50};
    for (const int code : codes) {
        EXPECT_THAT(words_for(code), Not(HasSubstr("unknown error"))) << code;
        words.insert(words_for(code));
    }
    EXPECT_EQ(words.size(), std::size(codes));
    EXPECT_EQ(words_for(-99), "unknown error -99");
}

TEST(Colour, NeedsATerminalAndNoRefusal)
{
    EXPECT_TRUE(colour_wanted(true, nullptr, "xterm"));
    EXPECT_TRUE(colour_wanted(true, "", "xterm"));
    EXPECT_FALSE(colour_wanted(false, nullptr, "xterm"));
    EXPECT_FALSE(colour_wanted(true, "1", "xterm"));
    EXPECT_FALSE(colour_wanted(true, nullptr, "dumb"));
    EXPECT_FALSE(colour_wanted(true, nullptr, nullptr));
}

TEST(Printable, TakesTheTeethOutOfControlCharacters)
{
    EXPECT_EQ(printable("a\033[2Jb\n\x7f"), "a?[2Jb??");
    EXPECT_EQ(printable("Gr\xc3\xbc\xc3\x9f"), "Gr\xc3\xbc\xc3\x9f");
}

TEST(Suggestion, FindsTheVerbThatWasMeant)
{
    constexpr std::string_view verbs[] = {"record", "import", "dump", "info"};
    EXPECT_EQ(nearest_word("recrod", verbs), "record");
    EXPECT_EQ(nearest_word("imprt", verbs), "import");
    EXPECT_EQ(nearest_word("dupm", verbs), "dump");
    EXPECT_EQ(nearest_word("inof", verbs), "info");
    EXPECT_EQ(nearest_word("explode", verbs), "");
    EXPECT_EQ(nearest_word("", verbs), "");
}

std::vector<std::string> lines_of(line_source &source)
{
    std::vector<std::string> lines;
    std::string_view line;
    while (source.next(line)) {
        lines.emplace_back(line);
    }
    return lines;
}

std::string gzipped(const std::string &text)
{
    const temporary_directory folder;
    gzFile file = gzopen(folder.file("z").c_str(), "wb");
    gzwrite(file, text.data(), static_cast<unsigned>(text.size()));
    gzclose(file);
    return read_file(folder.file("z"));
}

TEST(LineSource, SplitsAtLineEndsOfBothKinds)
{
    const temporary_directory folder;
    write_file(folder.file("t"), "one\ntwo\r\n\nfour\n");
    line_source source(folder.file("t"));
    EXPECT_THAT(lines_of(source), ElementsAre("one", "two", "", "four"));
    EXPECT_EQ(source.line_number(), 4U);
    EXPECT_FALSE(source.ended_inside_line());
}

TEST(LineSource, GivesALastLineWithoutEndAndSaysSo)
{
    const temporary_directory folder;
    write_file(folder.file("t"), "one\ntw");
    line_source source(folder.file("t"));
    EXPECT_THAT(lines_of(source), ElementsAre("one", "tw"));
    EXPECT_TRUE(source.ended_inside_line());
}

TEST(LineSource, RecognisesGzipByItsContent)
{
    const temporary_directory folder;
    write_file(folder.file("no-suffix"), gzipped("one\ntwo\n"));
    line_source source(folder.file("no-suffix"));
    EXPECT_THAT(lines_of(source), ElementsAre("one", "two"));
}

TEST(LineSource, JoinsLinesThatCrossItsBuffer)
{
    const temporary_directory folder;
    const std::string text(300000, 'x');
    write_file(folder.file("t"), "a\n" + text + "\nb\n");
    line_source source(folder.file("t"));
    EXPECT_THAT(lines_of(source), ElementsAre("a", text, "b"));
}

TEST(LineSource, RefusesAnEndlessLine)
{
    const temporary_directory folder;
    write_file(folder.file("t"), "a\n" + std::string(17U << 20, 'x'));
    line_source source(folder.file("t"));
    std::string_view line;
    source.next(line);
    EXPECT_THROW(source.next(line), bad_input);
}

TEST(LineSource, ReportsGzipDataThatEndsTooEarly)
{
    const temporary_directory folder;
    std::string text;
    for (int i = 0; i < 20000; ++i) {
        text += std::to_string(i * 7919) + "\n";
    }
    const std::string whole = gzipped(text);
    write_file(folder.file("t"), whole.substr(0, whole.size() - 20));
    line_source source(folder.file("t"));
    try {
        lines_of(source);
        FAIL() << "accepted";
    } catch (const bad_input &reason) {
        EXPECT_THAT(reason.what(), HasSubstr("the gzip data ends too early"));
    }
}

TEST(LineSource, ReportsGzipDataThatIsDamaged)
{
    const temporary_directory folder;
    std::string bytes = gzipped("one\ntwo\n");
    bytes[bytes.size() - 6] = static_cast<char>(bytes[bytes.size() - 6] ^ 1);
    write_file(folder.file("t"), bytes);
    line_source source(folder.file("t"));
    EXPECT_THROW(lines_of(source), bad_input);
}

TEST(LineSource, RefusesAFolderAndAFileThatIsNotThere)
{
    const temporary_directory folder;
    EXPECT_THROW(line_source(folder.path()), failure);
    EXPECT_THROW(line_source(folder.file("none")), failure);
}

std::string shape_of(const box_shape &shape)
{
    try {
        const auto [samples, intervals] = complete_shape(shape);
        return std::to_string(samples) + " in " + std::to_string(intervals);
    } catch (const failure &reason) {
        EXPECT_EQ(reason.code(), exit_usage);
        return reason.what();
    }
}

TEST(BoxShape, IsAsItIsAskedFor)
{
    EXPECT_EQ(shape_of({4, 2}), "4 in 2");
    EXPECT_EQ(shape_of({4294967294, 2}), "4294967294 in 2");
    EXPECT_EQ(shape_of({65534, 65534}), "65534 in 65534");
}

TEST(BoxShape, WhatIsNotAskedForFitsWhatIs)
{
    EXPECT_EQ(shape_of({}), "3600 in 60");
    EXPECT_EQ(shape_of({86400, {}}), "86400 in 60");
    EXPECT_EQ(shape_of({100, {}}), "100 in 50");
    EXPECT_EQ(shape_of({4, {}}), "4 in 4");
    EXPECT_EQ(shape_of({2 * 7919, {}}), "15838 in 2");
    EXPECT_EQ(shape_of({{}, 24}), "3600 in 24");
    EXPECT_EQ(shape_of({{}, 14}), "840 in 14");
}

TEST(BoxShape, RefusesWhatTheRecorderWouldAbortOn)
{
    EXPECT_THAT(shape_of({0, 2}), HasSubstr("--samples"));
    EXPECT_THAT(shape_of({5, 5}), HasSubstr("--samples"));
    EXPECT_THAT(shape_of({6, 0}), HasSubstr("--intervals"));
    EXPECT_THAT(shape_of({{}, 0}), HasSubstr("--intervals"));
    EXPECT_THAT(shape_of({6, 3}), HasSubstr("--intervals"));
    EXPECT_THAT(shape_of({65536, 65536}), HasSubstr("--intervals"));
    EXPECT_THAT(shape_of({{}, 4000000000}), HasSubstr("--intervals"));
    EXPECT_THAT(shape_of({6, 4}), HasSubstr("multiple"));
}

TEST(StopRequest, ASignalEndsTheWait)
{
    const stop_request stop;
    EXPECT_FALSE(stop.requested());
    const pid_t child = fork();
    if (child == 0) {
        kill(getppid(), SIGTERM);
        _exit(0);
    }
    EXPECT_TRUE(stop.wait(60));
    EXPECT_TRUE(stop.requested());
    waitpid(child, nullptr, 0);
}

TEST(StopRequest, ASignalThatIsIgnoredStaysIgnored)
{
    struct sigaction ignore = {};
    ignore.sa_handler = SIG_IGN;
    struct sigaction before = {};
    sigaction(SIGHUP, &ignore, &before);
    {
        const stop_request stop;
        raise(SIGHUP);
        EXPECT_FALSE(stop.requested());
    }
    sigaction(SIGHUP, &before, nullptr);
}

} // namespace
