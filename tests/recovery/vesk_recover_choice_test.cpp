// Which buffers make the box when the state file, its copy and the files tell different things:
// nothing that was acknowledged ends up outside of the box, and nothing is in it twice.
#include "recovery/recover_fixture.hpp"

namespace
{

class RecoverChoice : public Recover
{
protected:
    // Vectors `first` to `last`, with times that step back to 500 at the vector behind `turn`.
    static void write_with_turn(int first, int last, int turn)
    {
        owned_recorder recorder(first == 1 ? vesk_create("r", 4, 2) : vesk_open("r"));
        for (int i = first; i <= last; ++i) {
            const int64_t time = i <= turn ? 1000 + i : 500 + i;
            const owned_matrix vector = make_vector(time, {{"a", static_cast<double>(i)}});
            ASSERT_EQ(0, vesk_write_telemetry_vector(recorder.get(), vector.get())) << i;
        }
    }

    // What the files that the state names hold, oldest first.
    static std::vector<float> samples_of_box()
    {
        std::vector<float> all;
        vesk_state_summary summary;
        EXPECT_EQ(0, vesk_scan_state("r.state", &summary));
        for (uint32_t i = 0; i < summary.num_names; ++i) {
            for (const float value : samples_in(summary.names[i])) {
                all.push_back(value);
            }
        }
        vesk_state_summary_destruct(&summary);
        return all;
    }

    static std::vector<std::string> names_of_box()
    {
        vesk_state_summary summary;
        EXPECT_EQ(0, vesk_scan_state("r.state", &summary));
        std::vector<std::string> found(summary.names, summary.names + summary.num_names);
        vesk_state_summary_destruct(&summary);
        return found;
    }

    // The files of a box with 16 vectors, before a rotation, beside those behind it.
    void make_box_with_consumed_files()
    {
        make_box(16);
        fs::create_directory("before");
        for (const char *name : {"r.state", "r.4.hbuf.z", "r.3.cbuf.z", "r.5.cbuf.z"}) {
            fs::copy_file(name, std::string("before/") + name);
        }
        owned_recorder recorder(vesk_open("r"));
        write(recorder.get(), 17);
        recorder.reset();
        fs::copy_file("r.state", "r.state.bak");
        for (const char *name : {"r.4.hbuf.z", "r.3.cbuf.z"}) {
            fs::rename(std::string("before/") + name, name);
        }
        fs::rename("before/r.state", "r.state.before");
        fs::remove_all("before");
    }

    void clear()
    {
        for (const std::string &name : files()) {
            fs::remove_all(name);
        }
    }
};

TEST_F(RecoverChoice, TakesABufferBehindTheStateWhateverItsTimes)
{
    for (const int rotated : {4, 8}) {
        write_with_turn(1, rotated, rotated);
        const std::string behind = read_file("r.state");
        write_with_turn(rotated + 1, rotated + 2, rotated);
        write_file("r.state", behind);
        recover();
        EXPECT_EQ(static_cast<std::size_t>(rotated + 2), samples_of_box().size()) << rotated;
        goes_on(rotated + 3);
        clear();
    }
}

TEST_F(RecoverChoice, TakesABufferBehindTheCopyWhateverItsTimes)
{
    for (const int rotated : {4, 8}) {
        write_with_turn(1, rotated, rotated);
        const std::string behind = read_file("r.state");
        write_with_turn(rotated + 1, rotated + 2, rotated);
        write_file("r.state.bak", behind);
        fs::resize_file("r.state", 30);
        recover();
        EXPECT_EQ(static_cast<std::size_t>(rotated + 2), samples_of_box().size()) << rotated;
        goes_on(rotated + 3);
        clear();
    }
}

TEST_F(RecoverChoice, TakesTheCopyWhenItIsAheadOfTheState)
{
    write_with_turn(1, 4, 4);
    const std::string behind = read_file("r.state");
    write_with_turn(5, 6, 4);
    fs::rename("r.state", "r.state.bak");
    write_file("r.state", behind);
    EXPECT_EQ(VESK_RECOVER_FROM_BACKUP, recover().source);
    EXPECT_EQ((std::vector<float>{1, 2, 3, 4, 5, 6}), samples_of_box());
}

// What a loss of power may leave of a file that was not synced.
const std::vector<std::pair<std::string, std::string (*)(const std::string &)>> losses = {
    {"empty", [](const std::string &) { return std::string(); }},
    {"zeros", [](const std::string &all) { return std::string(all.size(), '\0'); }},
    {"torn", [](const std::string &all) { return all.substr(0, all.size() / 2); }},
    {"zeros behind a half",
     [](const std::string &all) {
         return all.substr(0, all.size() / 2) + std::string(all.size() - all.size() / 2, '\0');
     }},
};

TEST_F(RecoverChoice, TakesTheConsumedFilesWhenTheNewHistoryIsLost)
{
    for (const auto &[how, lose] : losses) {
        for (const bool copy_is_new : {false, true}) {
            for (const bool state_is_new : {false, true}) {
                SCOPED_TRACE(how + (copy_is_new ? ", copy new" : "") +
                             (state_is_new ? ", state new" : ""));
                make_box_with_consumed_files();
                write_file("r.6.hbuf.z", lose(read_file("r.6.hbuf.z")));
                write_file("r.7.cbuf.z", how == "torn" ? "x" : lose(read_file("r.7.cbuf.z")));
                if (!copy_is_new) {
                    fs::copy_file("r.state.before", "r.state.bak",
                                  fs::copy_options::overwrite_existing);
                }
                if (!state_is_new) {
                    fs::copy_file("r.state.before", "r.state",
                                  fs::copy_options::overwrite_existing);
                }
                fs::remove("r.state.before");
                const vesk_recover_report report = recover();
                EXPECT_EQ((std::vector<std::string>{"r.4.hbuf.z", "r.3.cbuf.z", "r.5.cbuf.z"}),
                          names_of_box());
                EXPECT_EQ(8U, report.samples_kept);
                EXPECT_EQ(4U, report.intervals_kept);
                EXPECT_EQ(0U, report.samples_padded + report.intervals_padded);
                goes_on(17);
                clear();
            }
        }
    }
}

TEST_F(RecoverChoice, TakesTheConsumedFilesWithoutAnyState)
{
    for (const auto &[how, lose] : losses) {
        for (const bool history_is_there : {true, false}) {
            SCOPED_TRACE(how);
            make_box_with_consumed_files();
            write_file("r.6.hbuf.z", lose(read_file("r.6.hbuf.z")));
            write_file("r.7.cbuf.z", how == "torn" ? "x" : lose(read_file("r.7.cbuf.z")));
            if (!history_is_there) {
                fs::remove("r.6.hbuf.z");
            }
            for (const char *name : {"r.state", "r.state.bak", "r.state.before"}) {
                fs::remove(name);
            }
            recover();
            EXPECT_EQ((std::vector<std::string>{"r.4.hbuf.z", "r.3.cbuf.z", "r.5.cbuf.z"}),
                      names_of_box());
            clear();
        }
    }
}

TEST_F(RecoverChoice, TakesTheThreeBuffersWhenTheFirstHistoryIsLost)
{
    for (const auto &[how, lose] : losses) {
        SCOPED_TRACE(how);
        make_box(12);
        const std::string one = read_file("r.1.cbuf.z");
        const std::string two = read_file("r.2.cbuf.z");
        {
            owned_recorder recorder(vesk_open("r"));
            write(recorder.get(), 13);
        }
        write_file("r.1.cbuf.z", one);
        write_file("r.2.cbuf.z", two);
        write_file("r.4.hbuf.z", lose(read_file("r.4.hbuf.z")));
        write_file("r.5.cbuf.z", how == "torn" ? "x" : lose(read_file("r.5.cbuf.z")));
        recover();
        EXPECT_EQ(12U, samples_of_box().size());
        goes_on(13);
        clear();
    }
}

TEST_F(RecoverChoice, TakesTheNewFilesWhenTheyAreWhole)
{
    make_box_with_consumed_files();
    fs::remove("r.state.before");
    EXPECT_EQ(2U, recover().files_deleted);
    EXPECT_EQ((std::vector<float>{13, 14, 15, 16, 17}), samples_of_box());
    goes_on(18);
}

TEST_F(RecoverChoice, LosesTheBufferRatherThanTheHistory)
{
    make_box_with_consumed_files();
    fs::remove("r.state.before");
    fs::resize_file("r.6.hbuf.z", 10);
    recover();
    EXPECT_EQ((std::vector<std::string>{"r.4.hbuf.z", "r.3.cbuf.z", "r.5.cbuf.z"}), names_of_box());
    EXPECT_EQ((std::vector<float>{17}), samples_in("r.7.cbuf.z"));
    goes_on(18);
    EXPECT_EQ((std::vector<float>{17}), samples_in("r.7.cbuf.z"));
}

} // namespace
