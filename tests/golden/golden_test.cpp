// The golden files: what a recorded life left on disk when the format was released. This machine
// must make the same bytes, read them, and go on from each of them; the files come from a 64-bit
// little-endian machine, and the tests run on a 32-bit big-endian one, too.
//
// Another zlib than the one that made the files may compress to other bytes. The streams are then
// compared by their contents.
#include <algorithm>
#include <bit>
#include <filesystem>
#include <gtest/gtest.h>
#include <iostream>
#include <map>
#include <set>
#include <string>
#include <zlib.h>

#include <vesk/error.h>
#include <vesk/vesk.h>
#include <vesk/vesk_buffer.h>
#include <vesk/vesk_hist_buffer.h>

#include "common/model_buffer_reader.hpp"
#include "common/temporary_directory.hpp"
#include "common/zlib_streams.hpp"
#include "golden/recorded_life.hpp"
#include "golden/swapped_floats.hpp"
#include "support/owner.hpp"

namespace
{
using owned_box = owned<vesk, vesk_close>;
using files = std::map<std::string, std::string>;

constexpr const char *zlib_of_the_files = "1.2.13";

files files_in(const std::filesystem::path &folder)
{
    files found;
    for (const auto &entry : std::filesystem::directory_iterator(folder)) {
        found[entry.path().filename()] = read_file(entry.path());
    }
    return found;
}

std::filesystem::path golden_folder(const life_chapter &chapter)
{
    return std::filesystem::path(VESK_GOLDEN_FOLDER) / chapter.name;
}

bool is_buffer(const std::string &name)
{
    return name.ends_with(".z");
}

void expect_same_files(const files &golden, const files &found)
{
    static const bool same_zlib = std::string(zlibVersion()) == zlib_of_the_files;
    if (!same_zlib) {
        std::cerr << "zlib is " << zlibVersion() << ", not " << zlib_of_the_files
                  << ": streams are compared by their contents\n";
    }
    std::set<std::string> names;
    for (const auto &[name, content] : golden) {
        names.insert(name);
    }
    for (const auto &[name, content] : found) {
        EXPECT_EQ(1U, names.erase(name)) << name;
        if (same_zlib || !is_buffer(name)) {
            EXPECT_EQ(golden.at(name), content) << name;
        } else {
            EXPECT_EQ(zlib_contents(golden.at(name)), zlib_contents(content)) << name;
        }
    }
    EXPECT_TRUE(names.empty()) << *names.begin();
}

// Every test has the working directory for itself, because state files hold relative names.
class GoldenFiles : public testing::Test
{
protected:
    GoldenFiles() : old_(std::filesystem::current_path())
    {
        std::filesystem::current_path(folder_.path());
    }
    ~GoldenFiles() override { std::filesystem::current_path(old_); }

    // Makes the folder hold the golden files of a chapter and nothing else.
    void copy(const life_chapter &chapter)
    {
        for (const std::string &name : folder_.names()) {
            std::filesystem::remove(name);
        }
        for (const auto &[name, content] : files_in(golden_folder(chapter))) {
            write_file(name, content);
        }
    }
    files current_files() { return files_in("."); }

private:
    temporary_directory folder_;
    std::filesystem::path old_;
};

TEST_F(GoldenFiles, AreMadeAgainByteForByte)
{
    const owned_box box(vesk_create(life_base_name, life_num_cb_samples, life_num_hb_intervals));
    for (const life_chapter &chapter : life_chapters()) {
        SCOPED_TRACE(chapter.name);
        ASSERT_EQ(0, live_chapter(box.get(), chapter));
        expect_same_files(files_in(golden_folder(chapter)), current_files());
    }
}

// What users of 32-bit x86 would have seen: one stored float in 500 was another number.
TEST_F(GoldenFiles, AreMadeAgainWhereSwappedFloatsAreSignallingNaNs)
{
    const owned_box box(vesk_create(life_base_name, swapped_floats_num_cb_samples,
                                    swapped_floats_num_hb_intervals));
    for (const life_chapter &chapter : swapped_floats_chapters()) {
        SCOPED_TRACE(chapter.name);
        ASSERT_EQ(0, live_swapped_floats(box.get(), chapter));
        expect_same_files(files_in(golden_folder(chapter)), current_files());
    }
}

TEST_F(GoldenFiles, AreMadeAgainByARecorderThatIsReopenedBeforeEachVector)
{
    owned_box box(vesk_create(life_base_name, life_num_cb_samples, life_num_hb_intervals));
    // The first buffer, which has no record yet, cannot be reopened.
    ASSERT_EQ(0, live_chapter(box.get(), {"first vector", 0, 1}));
    for (const life_chapter &chapter : life_chapters()) {
        SCOPED_TRACE(chapter.name);
        for (int i = std::max(chapter.first_vector, 1); i < chapter.end_of_vectors; ++i) {
            box.reset();
            box.reset(vesk_open(life_base_name));
            ASSERT_EQ(0, live_chapter(box.get(), {"one vector", i, i + 1}));
        }
        if (chapter.end_of_vectors > 0) {
            expect_same_files(files_in(golden_folder(chapter)), current_files());
        }
    }
}

TEST_F(GoldenFiles, AreGoneOnFromWhereTheyWereCopied)
{
    const std::vector<life_chapter> &chapters = life_chapters();
    for (std::size_t i = 1; i + 1 < chapters.size(); ++i) {
        SCOPED_TRACE(chapters[i].name);
        copy(chapters[i]);
        qe_set_last_error(0);
        const owned_box box(vesk_open(life_base_name));
        ASSERT_EQ(0, qe_get_last_error());
        for (std::size_t j = i + 1; j < chapters.size(); ++j) {
            SCOPED_TRACE(chapters[j].name);
            ASSERT_EQ(0, live_chapter(box.get(), chapters[j]));
            expect_same_files(files_in(golden_folder(chapters[j])), current_files());
        }
    }
}

// ---- Reading ----------------------------------------------------------------------------------

// Bits, not values: a reading that is missing is compared, too.
std::vector<uint32_t> bits_of(const float *values, uint32_t n)
{
    std::vector<uint32_t> bits;
    for (uint32_t i = 0; i < n; ++i) {
        bits.push_back(std::bit_cast<uint32_t>(values[i]));
    }
    return bits;
}

// Expects the rest of `buffer` to hold the vectors of the life from number `first` on, as many as
// `end` at most. Returns the number behind the last one.
int expect_vectors(vesk_current_buffer *buffer, int first)
{
    int i = first;
    vesk_cb_record rec;
    vesk_cb_record_init_null(&rec);
    int result = 0;
    while ((result = vesk_current_buffer_read_record(buffer, &rec)) == 0) {
        if (rec.type == VESK_CB_RECORD_SENSOR_VALUES) {
            const owned_matrix vector = life_vector(i);
            vesk_cb_record_sensor_values expected;
            vesk_cb_record_sensor_values_init(&expected, vector.get());
            const uint32_t n = vesk_cb_record_sensor_values_get_number_values(&expected);
            EXPECT_EQ(life_time(i), rec.values->timestamp.tv.tv_sec);
            EXPECT_EQ(1, sensor_array_is_equal(
                             telemetry_matrix_get_sensors(vector.get()),
                             vesk_cb_record_sensor_names_get_sensors(buffer->sensor_working_set)));
            EXPECT_EQ(bits_of(vesk_cb_record_sensor_values_get_values(&expected), n),
                      bits_of(vesk_cb_record_sensor_values_get_values(rec.values),
                              vesk_cb_record_sensor_values_get_number_values(rec.values)));
            vesk_cb_record_sensor_values_destruct(&expected);
            ++i;
        } else if (rec.type == VESK_CB_RECORD_EVENT) {
            EXPECT_EQ(life_time(i - 1) + 1, rec.event->timestamp.tv.tv_sec);
            EXPECT_EQ("event " + std::to_string(i - 1), rec.event->text);
            EXPECT_EQ(1U + static_cast<uint32_t>(i - 1) % 5, rec.event->type);
        }
    }
    EXPECT_EQ(-43, result);
    vesk_cb_record_destruct(&rec);
    return i;
}

TEST_F(GoldenFiles, HoldTheVectorsAndEventsThatWereRecorded)
{
    const auto buffer_size = static_cast<int>(life_num_cb_samples);
    for (const life_chapter &chapter : life_chapters()) {
        SCOPED_TRACE(chapter.name);
        copy(chapter);
        // By number: in the order in which they were recorded.
        std::map<int, std::string> buffers;
        int vectors = chapter.end_of_vectors;
        int intervals = 0;
        for (const auto &[name, content] : current_files()) {
            if (name.ends_with(".cbuf.z") && !content.empty()) {
                buffers[std::stoi(name.substr(2))] = name;
            }
            intervals += name.ends_with(".hbuf.z") ? 1 : 0;
        }
        EXPECT_EQ(chapter.end_of_vectors > 3 * buffer_size ? 1 : 0, intervals);
        const auto count = static_cast<int>(buffers.size());
        int i = std::max(0, (vectors + buffer_size - 1) / buffer_size - count) * buffer_size;
        for (const auto &[number, name] : buffers) {
            SCOPED_TRACE(name);
            vesk_current_buffer *buffer = vesk_current_buffer_open_for_read_write(name.c_str());
            ASSERT_NE(nullptr, buffer);
            EXPECT_EQ(life_num_cb_samples, buffer->max_data_records);
            i = expect_vectors(buffer, i);
            vesk_current_buffer_close(&buffer);
        }
        EXPECT_EQ(vectors, i);
    }
}

TEST_F(GoldenFiles, GiveBackFloatsThatSwappedAreSignallingNaNs)
{
    copy(swapped_floats_chapters()[0]);
    vesk_cb_record rec;
    vesk_cb_record_init_null(&rec);
    uint32_t i = 0;
    for (const char *name : {"r.1.cbuf.z", "r.2.cbuf.z", "r.3.cbuf.z"}) {
        vesk_current_buffer *buffer = vesk_current_buffer_open_for_read_write(name);
        ASSERT_NE(nullptr, buffer) << name;
        while (vesk_current_buffer_read_record(buffer, &rec) == 0) {
            if (rec.type != VESK_CB_RECORD_SENSOR_VALUES) {
                continue;
            }
            const uint32_t n = vesk_cb_record_sensor_values_get_number_values(rec.values);
            std::vector<uint32_t> expected;
            for (uint32_t k = 0; k < n; ++k) {
                expected.push_back(swapped_floats_bits(i, k));
            }
            EXPECT_EQ(expected, bits_of(vesk_cb_record_sensor_values_get_values(rec.values), n));
            ++i;
        }
        vesk_current_buffer_close(&buffer);
    }
    EXPECT_EQ(24U, i);
    vesk_cb_record_destruct(&rec);
}

// The intervals of a history, one sensor's count of samples each.
std::vector<uint32_t> counts_of(const std::string &name, const std::string &sensor_name,
                                std::vector<long> *starts)
{
    std::vector<uint32_t> counts;
    vesk_hist_buffer *history = vesk_hist_buffer_open_for_read_write(name.c_str());
    EXPECT_NE(nullptr, history);
    vesk_hb_record rec;
    vesk_hb_record_init_null(&rec);
    while (vesk_hist_buffer_read_record(history, &rec) == 0) {
        if (rec.type != VESK_HB_RECORD_SENSOR_VALUES) {
            continue;
        }
        starts->push_back(rec.values->start.tv.tv_sec);
        const sensor_array *sensors =
            vesk_hb_record_sensor_names_get_sensors(history->hb_rec_sensors_last);
        for (uint32_t i = 0; i < sensor_array_get_size(sensors); ++i) {
            if (sensor_array_get_sensors(sensors)[i]->canonical->name == sensor_name) {
                counts.push_back(rec.values->hvalues[i].count);
            }
        }
    }
    vesk_hb_record_destruct(&rec);
    vesk_hist_buffer_close(&history);
    return counts;
}

TEST_F(GoldenFiles, HoldTheHistoryThatGrowsCoarser)
{
    using numbers = std::vector<uint32_t>;
    using times = std::vector<long>;
    copy(life_chapters()[4]);
    times starts;
    EXPECT_EQ((numbers{2, 2, 2, 2}), counts_of("r.4.hbuf.z", "cpu", &starts));
    EXPECT_EQ((times{life_time(0), life_time(2), life_time(4), life_time(6)}), starts);

    copy(life_chapters()[5]);
    starts.clear();
    EXPECT_EQ((numbers{4, 4, 2, 2}), counts_of("r.6.hbuf.z", "cpu", &starts));
    EXPECT_EQ((times{life_time(0), life_time(4), life_time(8), life_time(10)}), starts);

    copy(life_chapters()[8]);
    starts.clear();
    const files last = current_files();
    const auto history = std::find_if(
        last.begin(), last.end(), [](const auto &file) { return file.first.ends_with(".hbuf.z"); });
    ASSERT_NE(last.end(), history);
    const numbers counts = counts_of(history->first, "cpu", &starts);
    EXPECT_EQ(4U, counts.size());
    // Everything that is not in the two current buffers is in the history.
    EXPECT_EQ(static_cast<uint32_t>(46 - 2 - 4), counts[0] + counts[1] + counts[2] + counts[3]);
    EXPECT_EQ(life_time(0), starts[0]);
}

TEST_F(GoldenFiles, AreReadTheSameByANaiveReader)
{
    for (const life_chapter &chapter : life_chapters()) {
        for (const auto &[name, content] : files_in(golden_folder(chapter))) {
            SCOPED_TRACE(chapter.name + "/" + name);
            if (is_buffer(name) && !content.empty()) {
                const bool is_history = name.ends_with(".hbuf.z");
                EXPECT_EQ(0, model_buffer_reader(content).read_all(
                                 is_history ? VESK_BUFFER_TYPE_HIST : VESK_BUFFER_TYPE_CURRENT));
            }
        }
    }
}

} // namespace
