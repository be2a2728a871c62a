// What somebody else put under the names of a box: links, FIFOs, devices and folders are neither
// followed nor waited for by anything that a recorder does, and what they lead to stays as it is.
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <vesk/error.h>
#include <vesk/vesk.h>
#include <vesk/vesk_start.h>

#include "common/aborts.hpp"
#include "common/open_files.hpp"
#include "common/telemetry.hpp"
#include "common/temporary_directory.hpp"

namespace
{

namespace fs = std::filesystem;

using owned_recorder = owned<vesk, vesk_close>;

const char *const kinds[] = {
    "link", "link to the own file", "link to a device", "link to nothing", "fifo", "folder"};

// Recorders on the base name "r" with 4 vectors a buffer, in a working folder of their own.
class ForeignFiles : public testing::Test
{
protected:
    ForeignFiles() : working_folder_(fs::current_path())
    {
        fs::current_path(folder_.path());
        fs::create_directory("elsewhere");
        write_file("elsewhere/precious", "precious");
    }
    ~ForeignFiles() override { fs::current_path(working_folder_); }

    // Whoever waits for a FIFO is ended.
    void SetUp() override { alarm(60); }
    void TearDown() override { alarm(0); }

    // Puts something foreign in the place of what is there.
    static void plant(const std::string &kind, const std::string &name)
    {
        fs::remove("elsewhere/own");
        if (kind == "link to the own file" && fs::exists(name)) {
            fs::rename(name, "elsewhere/own");
        } else {
            write_file("elsewhere/own", "own");
        }
        fs::remove(name);
        if (kind == "link") {
            fs::create_symlink("elsewhere/precious", name);
        } else if (kind == "link to the own file") {
            fs::create_symlink("elsewhere/own", name);
        } else if (kind == "link to a device") {
            fs::create_symlink("/dev/zero", name);
        } else if (kind == "link to nothing") {
            fs::create_symlink("elsewhere/nothing", name);
        } else if (kind == "fifo") {
            ASSERT_EQ(0, mkfifo(name.c_str(), 0600));
        } else {
            fs::create_directory(name);
        }
        own_ = read_file("elsewhere/own");
    }

    // Nothing was followed, and what was planted is still there.
    static void expect_untouched(const std::string &name)
    {
        EXPECT_EQ("precious", read_file("elsewhere/precious"));
        EXPECT_EQ(own_, read_file("elsewhere/own"));
        EXPECT_FALSE(fs::exists("elsewhere/nothing"));
        const fs::file_status status = fs::symlink_status(name);
        EXPECT_TRUE(fs::exists(status) && !fs::is_regular_file(status));
    }

    static int write(vesk *recorder, int i)
    {
        const owned_matrix vector = make_vector(1000 + i, {{"a", static_cast<double>(i)}});
        return vesk_write_telemetry_vector(recorder, vector.get());
    }
    static void write_all(vesk *recorder, int last)
    {
        for (int i = 1; i <= last; ++i) {
            ASSERT_EQ(0, write(recorder, i)) << i;
        }
    }
    static owned_recorder create_with(int last)
    {
        clear();
        owned_recorder recorder(vesk_create("r", 4, 2));
        write_all(recorder.get(), last);
        return recorder;
    }
    static owned_recorder start_with(int last)
    {
        clear();
        owned_recorder recorder(vesk_start("r", 4, 2, nullptr));
        write_all(recorder.get(), last);
        return recorder;
    }
    static void clear()
    {
        for (const auto &entry : fs::directory_iterator(".")) {
            if (entry.path().filename() != "elsewhere") {
                fs::remove(entry.path());
            }
        }
    }

    // For each kind of foreign thing under each of the names, with a message that tells which.
    static void for_each(const std::vector<std::string> &names,
                         const std::function<void(const std::string &, const std::string &)> &body)
    {
        for (const char *kind : kinds) {
            for (const std::string &name : names) {
                SCOPED_TRACE(std::string(kind) + " " + name);
                body(kind, name);
            }
        }
    }

private:
    static std::string own_;

    temporary_directory folder_;
    fs::path working_folder_;
};

std::string ForeignFiles::own_;

TEST_F(ForeignFiles, CreatingGives40)
{
    for_each({"r.state", "r.1.cbuf.z"}, [](const std::string &kind, const std::string &name) {
        clear();
        plant(kind, name);
        qe_set_last_error(0);
        EXPECT_EQ(nullptr, vesk_create("r", 4, 2));
        EXPECT_EQ(QE_ERROR_OPEN, qe_get_last_error());
        expect_untouched(name);
    });
}

TEST_F(ForeignFiles, CreatingANewBoxGives51)
{
    for_each({"r.state", "r.1.cbuf.z"}, [](const std::string &kind, const std::string &name) {
        clear();
        plant(kind, name);
        qe_set_last_error(0);
        EXPECT_EQ(nullptr, vesk_create_new("r", 4, 2));
        EXPECT_EQ(QE_ERROR_EXISTS, qe_get_last_error());
        expect_untouched(name);
    });
}

TEST_F(ForeignFiles, OpeningWithAForeignStateFileGives40OrForAFolder48)
{
    for (const int vectors : {1, 5, 9, 13}) {
        for_each({"r.state"}, [=](const std::string &kind, const std::string &name) {
            create_with(vectors).reset();
            plant(kind, name);
            qe_set_last_error(0);
            EXPECT_EQ(nullptr, vesk_open("r"));
            EXPECT_EQ(kind == "folder" ? QE_ERROR_TRUNCATED : QE_ERROR_OPEN, qe_get_last_error());
            expect_untouched(name);
        });
    }
}

// The recorder is returned as far as it was read, with the code of a buffer that is not there.
TEST_F(ForeignFiles, OpeningWithAForeignBufferGivesTheCodeOfAMissingOne)
{
    const std::vector<std::string> open_buffers = {"r.1.cbuf.z", "r.2.cbuf.z", "r.3.cbuf.z",
                                                   "r.5.cbuf.z"};
    for (int stage = 0; stage < 4; ++stage) {
        for_each({open_buffers[static_cast<std::size_t>(stage)]},
                 [=](const std::string &kind, const std::string &name) {
                     create_with(4 * stage + 1).reset();
                     plant(kind, name);
                     const auto before = count_open_files();
                     qe_set_last_error(0);
                     owned_recorder recorder(vesk_open("r"));
                     ASSERT_TRUE(recorder);
                     EXPECT_EQ(QE_ERROR_OPEN, qe_get_last_error());
                     recorder.reset();
                     EXPECT_EQ(before, count_open_files());
                     expect_untouched(name);
                 });
    }
}

// A state file may tell any name.
TEST_F(ForeignFiles, ABufferThatTheStateFilePutsElsewhereMayNotBeADeviceEither)
{
    create_with(1).reset();
    std::string state = read_file("r.state");
    const std::string name = "r.1.cbuf.z";
    for (const char *other : {"//dev/zero", "/dev//null"}) {
        state.replace(state.size() - name.size(), name.size(), other);
        write_file("r.state", state);
        qe_set_last_error(0);
        const owned_recorder recorder(vesk_open("r"));
        ASSERT_TRUE(recorder);
        EXPECT_EQ(QE_ERROR_OPEN, qe_get_last_error());
    }
}

TEST_F(ForeignFiles, MovingOnToAForeignFileGives40)
{
    struct rotation {
        int full;
        std::vector<std::string> names;
    };
    const rotation rotations[] = {
        {4, {"r.2.cbuf.z", "r.state"}},
        {8, {"r.3.cbuf.z", "r.state"}},
        {12, {"r.4.hbuf.z", "r.5.cbuf.z", "r.1.cbuf.z", "r.2.cbuf.z"}},
        {16, {"r.6.hbuf.z", "r.7.cbuf.z", "r.4.hbuf.z", "r.3.cbuf.z", "r.state"}}};
    for (const rotation &rotation : rotations) {
        for_each(rotation.names, [&](const std::string &kind, const std::string &name) {
            const owned_recorder recorder = create_with(rotation.full);
            plant(kind, name);
            EXPECT_EQ(QE_ERROR_OPEN, write(recorder.get(), rotation.full + 1));
            expect_untouched(name);
        });
    }
}

TEST_F(ForeignFiles, TheFirstHistoryThatCannotBeSavedForOneAborts)
{
    for_each({"r.state"}, [](const std::string &kind, const std::string &name) {
        const owned_recorder recorder = create_with(12);
        plant(kind, name);
        EXPECT_ABORTS(write(recorder.get(), 13), "*hbuf != ((void *)0)");
        expect_untouched(name);
    });
}

TEST_F(ForeignFiles, AStartedRecorderStaysWhereItWasAndGoesOnWithoutThem)
{
    const std::vector<std::vector<std::string>> names = {
        {"r.2.cbuf.z"}, {"r.3.cbuf.z"}, {"r.1.cbuf.z", "r.2.cbuf.z"}, {"r.4.hbuf.z", "r.3.cbuf.z"}};
    for (int stage = 0; stage < 4; ++stage) {
        for_each(names[static_cast<std::size_t>(stage)], [=](const std::string &kind,
                                                             const std::string &name) {
            const int full = 4 * (stage + 1);
            const owned_recorder recorder = start_with(full);
            ASSERT_EQ(0, vesk_settle(recorder.get()));
            if (fs::exists(name)) {
                fs::copy_file(name, "elsewhere/kept", fs::copy_options::overwrite_existing);
            } else {
                fs::remove("elsewhere/kept");
            }
            plant(kind, name);
            EXPECT_EQ(QE_ERROR_OPEN, write(recorder.get(), full + 1));
            EXPECT_EQ("precious", read_file("elsewhere/precious"));
            EXPECT_FALSE(fs::exists("elsewhere/nothing"));
            fs::remove(name);
            if (fs::exists("elsewhere/kept")) {
                fs::rename("elsewhere/kept", name);
            }
            EXPECT_EQ(0, write(recorder.get(), full + 1));
        });
    }
}

TEST_F(ForeignFiles, SyncingGives40)
{
    const std::vector<std::vector<std::string>> names = {{"r.state"},
                                                         {"r.state", "r.1.cbuf.z"},
                                                         {"r.state", "r.1.cbuf.z", "r.2.cbuf.z"},
                                                         {"r.state", "r.4.hbuf.z", "r.3.cbuf.z"}};
    for (int stage = 0; stage < 4; ++stage) {
        for_each(names[static_cast<std::size_t>(stage)],
                 [=](const std::string &kind, const std::string &name) {
                     const owned_recorder recorder = create_with(4 * stage + 1);
                     plant(kind, name);
                     EXPECT_EQ(QE_ERROR_OPEN, vesk_sync(recorder.get()));
                     EXPECT_EQ(QE_ERROR_OPEN, vesk_settle(recorder.get()));
                     expect_untouched(name);
                 });
    }
}

// The name of the copy is replaced, whatever it leads to; only a folder cannot be.
TEST_F(ForeignFiles, TheCopyOfTheStateReplacesThem)
{
    for_each({"r.state.bak"}, [](const std::string &kind, const std::string &name) {
        const owned_recorder recorder = create_with(1);
        plant(kind, name);
        if (kind == "folder") {
            EXPECT_EQ(QE_ERROR_IO, vesk_backup_state(recorder.get()));
            expect_untouched(name);
        } else {
            EXPECT_EQ(0, vesk_backup_state(recorder.get()));
            EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(name)));
            EXPECT_EQ("precious", read_file("elsewhere/precious"));
        }
        EXPECT_FALSE(fs::exists(fs::symlink_status("r.state.bak.new")));
    });
}

TEST_F(ForeignFiles, TheCopyOfTheStateIsNotWrittenThroughThem)
{
    for_each({"r.state.bak.new"}, [](const std::string &kind, const std::string &name) {
        const owned_recorder recorder = create_with(1);
        plant(kind, name);
        EXPECT_EQ(QE_ERROR_OPEN, vesk_backup_state(recorder.get()));
        expect_untouched(name);
    });
}

// A box may lie in a folder, and below folders, that a link leads to.
TEST_F(ForeignFiles, TheFolderOfABoxMayBeALink)
{
    fs::create_directory("real");
    fs::create_directory_symlink("real", "box");
    {
        const owned_recorder recorder(vesk_create("box/r", 4, 2));
        ASSERT_TRUE(recorder);
        write_all(recorder.get(), 17);
        EXPECT_EQ(0, vesk_settle(recorder.get()));
    }
    qe_set_last_error(0);
    const owned_recorder recorder(vesk_open("box/r"));
    ASSERT_TRUE(recorder);
    EXPECT_EQ(0, qe_get_last_error());
    EXPECT_TRUE(fs::exists("real/r.7.cbuf.z"));
}

// Every file that a recorder keeps open, in each stage.
TEST_F(ForeignFiles, NoProgramThatIsStartedGetsADescriptorOfABox)
{
    const auto expect_closed_on_exec = [] {
        const std::string box = fs::current_path() / "r.";
        int found = 0;
        for (int descriptor = 0; descriptor < 1024; ++descriptor) {
            std::error_code ignored;
            const fs::path path =
                fs::read_symlink("/proc/self/fd/" + std::to_string(descriptor), ignored);
            if (path.string().starts_with(box)) {
                EXPECT_NE(0, fcntl(descriptor, F_GETFD) & FD_CLOEXEC) << path;
                ++found;
            }
        }
        EXPECT_EQ(1, found);
    };
    for (int vectors = 1; vectors <= 17; vectors += 4) {
        owned_recorder recorder = create_with(vectors);
        expect_closed_on_exec();
        recorder.reset();
        recorder.reset(vesk_open("r"));
        expect_closed_on_exec();
        recorder.reset();
        recorder.reset(vesk_start("r", 4, 2, nullptr));
        expect_closed_on_exec();
    }
}

} // namespace
