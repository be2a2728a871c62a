// What holds for every stage, whichever buffers it has. Each stage's test gives a description of
// its stage and instantiates these facts for it.
#ifndef VESK_TESTS_RECORDER_STAGE_CONTRACT_HPP
#define VESK_TESTS_RECORDER_STAGE_CONTRACT_HPP

#include <string>
#include <vector>

#include <vesk/error.h>
#include <vesk/vesk_current_buffer.h>

#include "common/aborts.hpp"
#include "common/buffer_files.hpp"
#include "common/failing_calls.hpp"
#include "common/memory_streams.hpp"
#include "common/open_files.hpp"
#include "common/telemetry.hpp"
#include "common/temporary_directory.hpp"
#include "common/zlib_streams.hpp"

// A description has
//   stage                                    its type
//   closed(state)                            the places of the names of its closed buffers
//   open(state)                              the place of its open buffer
//   filenames(state)                         all names, by the accessors, that of the open one last
//   create(names, capacity), create_null(), destroy(&state),
//   write_vector, write_event, write, read   its functions
//   missing_names, missing_buffer            the texts of aborts
template <typename Description>
class Stage : public testing::Test
{
protected:
    using stage = typename Description::stage;

    // Destroys its stage at the end.
    class owned_stage
    {
    public:
        explicit owned_stage(stage *state) : state_(state) {}
        owned_stage(const owned_stage &) = delete;
        owned_stage &operator=(const owned_stage &) = delete;
        ~owned_stage() { reset(); }
        stage *get() const { return state_; }
        explicit operator bool() const { return state_ != nullptr; }
        void reset()
        {
            if (state_ != nullptr) {
                Description::destroy(&state_);
            }
        }

    private:
        stage *state_;
    };

    Stage()
    {
        for (std::size_t i = 0; i < Description::missing_names.size() + 1; ++i) {
            filenames_.push_back(directory_.file("buffer" + std::to_string(i)));
        }
    }

    const std::string &open_filename() const { return filenames_.back(); }
    stage *create(uint32_t capacity = 2) { return Description::create(filenames_, capacity); }

    // The stored form of a stage with these buffers.
    std::string form() const
    {
        std::string bytes = "\1";
        for (const std::string &name : filenames_) {
            bytes += stored_string(name);
        }
        return bytes;
    }
    static int read(stage *state, const std::string &bytes)
    {
        memory_reader source(bytes);
        return Description::read(state, source.get());
    }
    static int read_new(const std::string &bytes)
    {
        const owned_stage state(Description::create_null());
        return read(state.get(), bytes);
    }
    static int write_vector(stage *state, long seconds)
    {
        const owned_matrix vector = make_vector(seconds, {{"a", 1}});
        return Description::write_vector(state, vector.get());
    }

    temporary_directory directory_;
    std::vector<std::string> filenames_;
};

TYPED_TEST_SUITE_P(Stage);

TYPED_TEST_P(Stage, CreatesItsOpenBufferAndOnlyThat)
{
    const auto before = count_open_files();
    typename TestFixture::owned_stage state(this->create(2));
    ASSERT_TRUE(state);
    EXPECT_EQ(1, state.get()->version);
    EXPECT_EQ((std::set<std::string>{"buffer" + std::to_string(this->filenames_.size() - 1)}),
              this->directory_.names());
    EXPECT_EQ(2U, TypeParam::open(state.get())->max_data_records);
    EXPECT_EQ(before + 1, count_open_files());
    state.reset();
    EXPECT_EQ(before, count_open_files());
}

TYPED_TEST_P(Stage, CopiesTheNamesOfItsBuffers)
{
    const std::vector<std::string> names = this->filenames_;
    const typename TestFixture::owned_stage state(this->create());
    for (std::string &name : this->filenames_) {
        name.assign(name.size(), 'x');
    }
    const std::vector<const char *> found = TypeParam::filenames(state.get());
    EXPECT_EQ(names, std::vector<std::string>(found.begin(), found.end()));
}

TYPED_TEST_P(Stage, CreatingWhereNoFileCanBeGives40)
{
    this->filenames_.back() = this->directory_.file("missing/buffer");
    qe_set_last_error(0);
    EXPECT_EQ(nullptr, this->create());
    EXPECT_EQ(-40, qe_get_last_error());
}

TYPED_TEST_P(Stage, CreatingReportsEveryFailedAllocation)
{
    const auto before = count_open_files();
    for (int n = 1;; ++n) {
        qe_set_last_error(0);
        const failing_allocation failing(n);
        const typename TestFixture::owned_stage state(this->create());
        if (!failing_allocation::happened()) {
            EXPECT_TRUE(state);
            EXPECT_LT(2 + static_cast<int>(this->filenames_.size()), n);
            break;
        }
        EXPECT_FALSE(state) << n;
        EXPECT_EQ(-22, qe_get_last_error()) << n;
        EXPECT_EQ(before, count_open_files()) << n;
    }
}

TYPED_TEST_P(Stage, NullStageIsLiveAndHasNoBuffers)
{
    const typename TestFixture::owned_stage state(TypeParam::create_null());
    ASSERT_TRUE(state);
    EXPECT_EQ(1, state.get()->version);
    EXPECT_EQ(nullptr, TypeParam::open(state.get()));
    for (char **name : TypeParam::closed(state.get())) {
        EXPECT_EQ(nullptr, *name);
    }
    qe_set_last_error(0);
    const failing_allocation failing(1);
    EXPECT_EQ(nullptr, TypeParam::create_null());
    EXPECT_EQ(-22, qe_get_last_error());
}

TYPED_TEST_P(Stage, WritesVectorsToItsOpenBufferUntilThatIsFull)
{
    const typename TestFixture::owned_stage state(this->create(2));
    EXPECT_EQ(0, this->write_vector(state.get(), 1000));
    EXPECT_EQ(0, this->write_vector(state.get(), 1001));
    EXPECT_EQ(-2, this->write_vector(state.get(), 1002));
    EXPECT_EQ(2U, TypeParam::open(state.get())->num_data_records);
}

TYPED_TEST_P(Stage, WritesEventsAlsoWhenTheBufferIsFull)
{
    const typename TestFixture::owned_stage state(this->create(1));
    EXPECT_EQ(0, this->write_vector(state.get(), 1000));
    const owned_event event = make_event(3, 1001, "text");
    EXPECT_EQ(0, TypeParam::write_event(state.get(), event.get()));
    EXPECT_EQ(stored_event_body(3, 1001, "text"),
              zlib_contents(read_file(this->open_filename())).back());
}

TYPED_TEST_P(Stage, DestroyFinishesTheFileAndSetsThePointerToNull)
{
    typename TestFixture::stage *state = this->create(2);
    EXPECT_EQ("", read_file(this->open_filename()));
    TypeParam::destroy(&state);
    EXPECT_EQ(nullptr, state);
    EXPECT_EQ((std::vector<std::string>{stored_buffer_header(1, 2)}),
              zlib_contents(read_file(this->open_filename())));
}

TYPED_TEST_P(Stage, FormIsTheVersionAndTheNamesOldestFirst)
{
    const typename TestFixture::owned_stage state(this->create());
    memory_writer target;
    EXPECT_EQ(static_cast<int>(this->form().size()), TypeParam::write(state.get(), target.get()));
    EXPECT_EQ(this->form(), target.bytes());
}

TYPED_TEST_P(Stage, ANameThatCannotBeWrittenMakesTheResult0)
{
    const typename TestFixture::owned_stage state(this->create());
    const std::size_t size = this->form().size();
    memory_writer no_room(0, -41);
    EXPECT_EQ(-41, TypeParam::write(state.get(), no_room.get()));
    for (std::size_t room = 1; room < size; ++room) {
        memory_writer target(room, -41);
        EXPECT_EQ(0, TypeParam::write(state.get(), target.get())) << room;
    }
}

TYPED_TEST_P(Stage, ReadingContinuesInTheOpenBuffer)
{
    typename TestFixture::owned_stage written(this->create(2));
    EXPECT_EQ(0, this->write_vector(written.get(), 1000));
    written.reset();

    const typename TestFixture::owned_stage state(TypeParam::create_null());
    EXPECT_EQ(static_cast<int>(this->form().size()), this->read(state.get(), this->form()));
    const std::vector<const char *> found = TypeParam::filenames(state.get());
    EXPECT_EQ(this->filenames_, std::vector<std::string>(found.begin(), found.end()));
    EXPECT_EQ(1U, TypeParam::open(state.get())->num_data_records);
    EXPECT_EQ(0, this->write_vector(state.get(), 1001));
    EXPECT_EQ(-2, this->write_vector(state.get(), 1002));
}

TYPED_TEST_P(Stage, AFullBufferIsStillFullWhenItIsReopened)
{
    typename TestFixture::owned_stage written(this->create(2));
    EXPECT_EQ(0, this->write_vector(written.get(), 1000));
    EXPECT_EQ(0, this->write_vector(written.get(), 1001));
    written.reset();
    const typename TestFixture::owned_stage state(TypeParam::create_null());
    EXPECT_LT(0, this->read(state.get(), this->form()));
    EXPECT_EQ(-2, this->write_vector(state.get(), 1002));
}

TYPED_TEST_P(Stage, ReadingReplacesWhatItHolds)
{
    const auto before = count_open_files();
    typename TestFixture::owned_stage state(this->create(2));
    EXPECT_EQ(0, this->write_vector(state.get(), 1000));
    EXPECT_LT(0, this->read(state.get(), this->form()));
    EXPECT_EQ(before + 1, count_open_files());
    EXPECT_EQ(1U, TypeParam::open(state.get())->num_data_records);
}

TYPED_TEST_P(Stage, AMissingBufferLeavesTheNamesThatWereRead)
{
    const typename TestFixture::owned_stage state(TypeParam::create_null());
    EXPECT_EQ(-40, this->read(state.get(), this->form()));
    EXPECT_EQ(nullptr, TypeParam::open(state.get()));
    std::size_t i = 0;
    for (char **name : TypeParam::closed(state.get())) {
        EXPECT_EQ(this->filenames_[i++], *name);
    }
}

TYPED_TEST_P(Stage, ABufferThatCannotBeReadGivesItsCode)
{
    typename TestFixture::owned_stage written(this->create(2));
    const owned_event event = make_event(3, 1001, "text");
    EXPECT_EQ(0, this->write_vector(written.get(), 1000));
    EXPECT_EQ(0, TypeParam::write_event(written.get(), event.get()));
    written.reset();
    EXPECT_EQ(-6, this->read_new(this->form())) << "an event";
    write_file(this->open_filename(), "");
    EXPECT_EQ(-48, this->read_new(this->form())) << "nothing";
    write_file(this->open_filename(), deflate_stream(stored_buffer_header(2, 2)));
    EXPECT_EQ(-3, this->read_new(this->form())) << "a history";
}

TYPED_TEST_P(Stage, DataThatEndsInsideGivesTheCodeOfThePlace)
{
    const typename TestFixture::owned_stage written(this->create(2));
    const std::string form = this->form();
    EXPECT_EQ(0, this->read_new(""));
    std::size_t name = 1;
    std::size_t next = name + 4 + this->filenames_[0].size();
    for (std::size_t n = 1, i = 0; n < form.size(); ++n) {
        if (n == next) {
            name = next;
            next += 4 + this->filenames_[++i].size();
        }
        const std::string cut = form.substr(0, n);
        if (n == name) {
            EXPECT_EQ(-43, this->read_new(cut)) << n;
        } else if (n == name + 4) {
            EXPECT_ABORTS(this->read_new(cut), "nread != 0");
        } else {
            EXPECT_EQ(-48, this->read_new(cut)) << n;
        }
    }
}

TYPED_TEST_P(Stage, RefusesOtherVersionsAndImpossibleNames)
{
    std::string form = this->form();
    form[0] = 2;
    EXPECT_EQ(-12, this->read_new(form));
    EXPECT_EQ(-6, this->read_new("\1" + stored_u32(0)));
    EXPECT_EQ(-6, this->read_new("\1" + stored_u32(10001)));
    EXPECT_EQ(-6, this->read_new("\1" + stored_string(std::string("a\0b", 3))));
}

TYPED_TEST_P(Stage, ReadingWithoutMemoryFails)
{
    typename TestFixture::owned_stage written(this->create(2));
    EXPECT_EQ(0, this->write_vector(written.get(), 1000));
    written.reset();
    const auto before = count_open_files();
    for (int n = 1;; ++n) {
        typename TestFixture::owned_stage state(TypeParam::create_null());
        memory_reader source(this->form());
        const failing_allocation failing(n);
        const int nread = TypeParam::read(state.get(), source.get());
        if (!failing_allocation::happened()) {
            EXPECT_EQ(static_cast<int>(this->form().size()), nread);
            break;
        }
        EXPECT_GT(0, nread) << n;
        state.reset();
        EXPECT_EQ(before, count_open_files()) << n;
    }
}

TYPED_TEST_P(Stage, AbortsOnNullPointersAndDeadStages)
{
    typename TestFixture::owned_stage live(this->create(2));
    typename TestFixture::stage dead = {};
    typename TestFixture::stage *none = nullptr;
    typename TestFixture::stage *dead_pointer = &dead;
    const owned_event event = make_event(3, 1001, "text");
    memory_writer target;
    memory_reader source("");
    const char *const null = "state != ((void *)0)";
    const char *const version = "state->version == ((char) 1)";
    EXPECT_ABORTS(TypeParam::destroy(nullptr), null);
    EXPECT_ABORTS(TypeParam::destroy(&none), "*state != ((void *)0)");
    EXPECT_ABORTS(TypeParam::destroy(&dead_pointer), "(*state)->version == ((char) 1)");
    EXPECT_ABORTS(this->write_vector(nullptr, 1), null);
    EXPECT_ABORTS(this->write_vector(&dead, 1), version);
    EXPECT_ABORTS(TypeParam::write_vector(live.get(), nullptr), "vector != ((void *)0)");
    EXPECT_ABORTS(TypeParam::write_event(nullptr, event.get()), null);
    EXPECT_ABORTS(TypeParam::write_event(&dead, event.get()), version);
    EXPECT_ABORTS(TypeParam::write_event(live.get(), nullptr), "event != ((void *)0)");
    EXPECT_ABORTS(TypeParam::filenames(nullptr), null);
    EXPECT_ABORTS(TypeParam::filenames(&dead), version);
    EXPECT_ABORTS(TypeParam::write(nullptr, target.get()), null);
    EXPECT_ABORTS(TypeParam::write(&dead, target.get()), version);
    EXPECT_ABORTS(TypeParam::write(live.get(), nullptr), "writer != ((void *)0)");
    EXPECT_ABORTS(TypeParam::read(nullptr, source.get()), null);
    EXPECT_ABORTS(TypeParam::read(&dead, source.get()), version);
    EXPECT_ABORTS(TypeParam::read(live.get(), nullptr), "reader != ((void *)0)");
}

TYPED_TEST_P(Stage, AbortsWithoutItsOpenBuffer)
{
    const typename TestFixture::owned_stage state(TypeParam::create_null());
    for (char **name : TypeParam::closed(state.get())) {
        *name = strdup("name");
    }
    const owned_event event = make_event(3, 1001, "text");
    memory_writer target;
    EXPECT_ABORTS(this->write_vector(state.get(), 1), TypeParam::missing_buffer);
    EXPECT_ABORTS(TypeParam::write_event(state.get(), event.get()), TypeParam::missing_buffer);
    EXPECT_ABORTS(TypeParam::filenames(state.get()), TypeParam::missing_buffer);
    EXPECT_ABORTS(TypeParam::write(state.get(), target.get()), TypeParam::missing_buffer);
}

TYPED_TEST_P(Stage, AbortsWithoutAName)
{
    for (std::size_t i = 0; i < TypeParam::missing_names.size(); ++i) {
        const typename TestFixture::owned_stage state(this->create(2));
        char **name = TypeParam::closed(state.get())[i];
        free(*name);
        *name = nullptr;
        memory_writer target;
        EXPECT_ABORTS(TypeParam::filenames(state.get()), TypeParam::missing_names[i]);
        EXPECT_ABORTS(TypeParam::write(state.get(), target.get()), TypeParam::missing_names[i]);
    }
}

REGISTER_TYPED_TEST_SUITE_P(
    Stage, CreatesItsOpenBufferAndOnlyThat, CopiesTheNamesOfItsBuffers,
    CreatingWhereNoFileCanBeGives40, CreatingReportsEveryFailedAllocation,
    NullStageIsLiveAndHasNoBuffers, WritesVectorsToItsOpenBufferUntilThatIsFull,
    WritesEventsAlsoWhenTheBufferIsFull, DestroyFinishesTheFileAndSetsThePointerToNull,
    FormIsTheVersionAndTheNamesOldestFirst, ANameThatCannotBeWrittenMakesTheResult0,
    ReadingContinuesInTheOpenBuffer, AFullBufferIsStillFullWhenItIsReopened,
    ReadingReplacesWhatItHolds, AMissingBufferLeavesTheNamesThatWereRead,
    ABufferThatCannotBeReadGivesItsCode, DataThatEndsInsideGivesTheCodeOfThePlace,
    RefusesOtherVersionsAndImpossibleNames, ReadingWithoutMemoryFails,
    AbortsOnNullPointersAndDeadStages, AbortsWithoutItsOpenBuffer, AbortsWithoutAName);

#endif
