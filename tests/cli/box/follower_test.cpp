// Shows what a follower hands out when the files under it change in other ways than a recorder's.
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>

#include "box/box_writer.hpp"
#include "box/follower.hpp"
#include "cli/quick_folder.hpp"
#include "cli/usual_values.hpp"
#include "common/temporary_directory.hpp"

namespace
{

using namespace cli;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Follower : public ::testing::Test
{
protected:
    // Writes these samples into the only buffer of the box.
    void write(int first, int last)
    {
        box_writer writer(base, {100, 2}, without_sync);
        writer.set_sensors(std::vector<std::string>{"::number"});
        for (int number = first; number <= last; ++number) {
            writer.write(new_year + number, std::vector<float>{static_cast<float>(number)});
        }
    }

    std::string newest_buffer() const { return find_box(base).current_buffers().back()->path; }

    static std::string content_of(const std::string &path)
    {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    static void write_file(const std::string &path, const std::string &content)
    {
        std::ofstream(path, std::ios::binary) << content;
    }

    // The numbers that a look hands out.
    std::vector<float> look()
    {
        std::vector<float> numbers;
        followed.look(
            {[&](const vesk_scan_item &item) { numbers.push_back(item.values->values[0]); },
             [this] { ++losses; }});
        return numbers;
    }

    temporary_directory folder{quick_folder()};
    std::string base = folder.file("box");
    follower followed{base};
    int losses = 0;
};

// Who writes a file anew in its place empties it first. A look that comes between the two must
// not take the samples that were handed out for new ones.
TEST_F(Follower, HandsOutNothingTwiceWhenItMeetsAnEmptiedBuffer)
{
    write(0, 4);
    EXPECT_THAT(look(), ElementsAre(0, 1, 2, 3, 4));
    const std::string path = newest_buffer();
    const std::string whole = content_of(path);
    write_file(path, "");
    EXPECT_THAT(look(), IsEmpty());
    EXPECT_EQ(followed.position().records, 5U);
    write_file(path, whole);
    EXPECT_THAT(look(), IsEmpty());
    EXPECT_EQ(losses, 0);
}

TEST_F(Follower, HandsOutWhatComesAfterABufferWasCut)
{
    write(0, 4);
    const std::string path = newest_buffer();
    const std::string five = content_of(path);
    EXPECT_THAT(look(), ElementsAre(0, 1, 2, 3, 4));
    write_file(path, five.substr(0, five.size() - 1));
    EXPECT_THAT(look(), IsEmpty());
    EXPECT_EQ(followed.position().records, 4U);
    write_file(path, five);
    EXPECT_THAT(look(), ElementsAre(4));
}

} // namespace
