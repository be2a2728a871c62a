// Which boxes lie below a folder.
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

#include "common/temporary_directory.hpp"
#include "process/failure.hpp"
#include "push/box_search.hpp"

namespace
{

using namespace cli;

class BoxSearch : public testing::Test
{
protected:
    void make(const std::string &name)
    {
        const std::filesystem::path path(folder_.file(name));
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path) << "x";
    }
    std::vector<std::string> names() const
    {
        std::vector<std::string> found;
        for (const found_box &box : find_boxes(folder_.path()).boxes) {
            EXPECT_EQ(box.base, folder_.file(box.name));
            found.push_back(box.name);
        }
        return found;
    }

    temporary_directory folder_;
};

TEST_F(BoxSearch, BoxesAreFoundByTheirStateAndTheirBuffers)
{
    make("b/box.state");
    make("b/box.12.cbuf.z");
    make("a/other.3.hbuf.z");
    make("a/notes.txt");
    make("a/x.cbuf.z");
    make("a/12.cbuf.z");
    make(".state");
    EXPECT_EQ(names(), (std::vector<std::string>{"a/other", "b/box"}));
}

TEST_F(BoxSearch, TiersBelongToTheirBoxes)
{
    make("box.state");
    make("box.1m.state");
    make("box.1h.3.cbuf.z");
    make("lone.1h.state");
    EXPECT_EQ(names(), (std::vector<std::string>{"box", "lone.1h"}));
}

TEST_F(BoxSearch, LinksAreNotFollowed)
{
    make("real/box.state");
    std::filesystem::create_directory_symlink("real", folder_.file("link"));
    std::filesystem::create_symlink("real/box.state", folder_.file("other.state"));
    EXPECT_EQ(names(), std::vector<std::string>{"real/box"});
}

// Root lists every folder, so a user without rights looks.
TEST_F(BoxSearch, AFolderThatCannotBeListedIsNotTakenForAnEmptyOne)
{
    using std::filesystem::perms;
    make("a/box.state");
    make("closed/box.state");
    std::filesystem::permissions(folder_.path(), perms{0755});
    std::filesystem::permissions(folder_.file("closed"), perms{0311});
    constexpr uid_t nobody = 65534;
    if (geteuid() == 0) {
        ASSERT_EQ(seteuid(nobody), 0);
    }
    const box_search found = find_boxes(folder_.path());
    EXPECT_THROW((void)find_boxes(folder_.file("closed")), failure);
    if (getuid() == 0) {
        ASSERT_EQ(seteuid(0), 0);
    }
    std::filesystem::permissions(folder_.file("closed"), perms{0755});
    EXPECT_EQ(found.boxes.size(), 1U);
    ASSERT_EQ(found.unlisted.size(), 1U);
    EXPECT_EQ(found.unlisted[0], folder_.file("closed") + ": Permission denied");
}

TEST_F(BoxSearch, AFolderThatIsNotThereIsAFailure)
{
    EXPECT_THROW((void)find_boxes(folder_.file("missing")), failure);
    EXPECT_TRUE(names().empty());
}

} // namespace
