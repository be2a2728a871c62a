// Options in a file: what they set, and what is refused.
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "common/temporary_directory.hpp"
#include "process/failure.hpp"
#include "verbs/option_file.hpp"
#include "verbs/record_options.hpp"

namespace
{

using namespace cli;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

bool nothing_given(const std::string &)
{
    return false;
}

class OptionFile : public ::testing::Test
{
protected:
    void put(const std::string &text) const { std::ofstream(path_) << text; }
    record_options read(const option_list::presence &given = nothing_given)
    {
        line_.config = path_;
        return with_file(line_, given);
    }
    std::string refusal(const std::string &text)
    {
        put(text);
        try {
            read();
        } catch (const failure &reason) {
            EXPECT_EQ(reason.code(), exit_usage);
            std::string message = reason.what();
            EXPECT_TRUE(message.starts_with(path_)) << message;
            return message.substr(std::min(path_.size(), message.size()));
        }
        return "none";
    }

    temporary_directory folder_;
    std::string path_ = folder_.file("record.conf");
    record_options line_;
};

TEST_F(OptionFile, SetsOptionsOfEachKind)
{
    put("# a comment\n\n  \t# another\ninterval 10s\n\ttop   5  \nsensors cpu,mem\nsensors fs\r\n"
        "no-kernel-log yes\ntop-arguments off\nexclude net.#*");
    const record_options options = read();
    EXPECT_EQ(options.interval, "10s");
    EXPECT_EQ(options.events.top, 5U);
    EXPECT_THAT(options.sensors.groups, ElementsAre("cpu,mem", "fs"));
    EXPECT_THAT(options.sensors.excluded, ElementsAre("net.#*"));
    EXPECT_TRUE(options.events.no_kernel_log);
    EXPECT_FALSE(options.events.top_arguments);
}

TEST_F(OptionFile, GivesWayToTheCommandLine)
{
    put("interval 10s\nsensors cpu\nkeep 7d\nkernel-log yes\n");
    line_.interval = "1s";
    line_.sensors.groups = {"mem"};
    line_.sizes.shape.samples = 60;
    line_.events.no_kernel_log = true;
    const record_options options = read([](const std::string &name) {
        return name == "--interval" || name == "--sensors" || name == "--samples" ||
               name == "--no-kernel-log";
    });
    EXPECT_EQ(options.interval, "1s");
    EXPECT_THAT(options.sensors.groups, ElementsAre("mem"));
    EXPECT_EQ(options.sizes.keep, "");
    EXPECT_FALSE(options.events.kernel_log);
}

TEST_F(OptionFile, IsRefusedWithTheLineAndTheKey)
{
    EXPECT_EQ(refusal("\nintervall 1s\n"),
              ":2: there is no option 'intervall'; did you mean 'interval'?");
    EXPECT_EQ(refusal("interval\n"), ":1: interval has no value");
    EXPECT_EQ(refusal("top x\n"), ":1: top x: must be a whole number");
    EXPECT_EQ(refusal("top -1\n"), ":1: top -1: must be a whole number");
    EXPECT_EQ(refusal("kernel-log maybe\n"), ":1: kernel-log maybe: must be yes or no");
    EXPECT_EQ(refusal("top 1\ntop 2\n"), ":2: top stands there twice");
    EXPECT_EQ(refusal("top 3\ninterval soon\n"),
              ":2: --interval soon: not a duration such as 30s, 5m, 2h or 1d");
    EXPECT_EQ(refusal("samples 7\n"), ":1: --samples must be an even number above 0");
    EXPECT_THAT(refusal("config other\n"), HasSubstr("there is no option 'config'"));
    EXPECT_THAT(refusal("keep 7d\nsamples 60\n"), HasSubstr(":1: --keep and --samples exclude"));
    EXPECT_THAT(refusal("top " + std::string(5000, 'x')), HasSubstr("longer than 4094"));
    EXPECT_THAT(refusal(std::string("top 1\0 2\n", 9)), HasSubstr("zero byte"));
    EXPECT_THAT(refusal(std::string(70000, '\n')), HasSubstr("longer than 64 KiB"));
}

TEST_F(OptionFile, MustBeAFile)
{
    ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
    EXPECT_THROW(option_file{path_}, failure);
    EXPECT_THROW(option_file{folder_.path()}, failure);
    EXPECT_THROW(option_file{folder_.file("missing")}, failure);
    EXPECT_THROW(option_file{"/dev/zero"}, failure);
}

} // namespace
