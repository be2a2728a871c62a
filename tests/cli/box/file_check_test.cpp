// Shows that the check of a file is used again while the file stays the same, and only then.
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "box/box_writer.hpp"
#include "box/diagnosis.hpp"
#include "box/file_check.hpp"
#include "box/reading.hpp"
#include "cli/quick_folder.hpp"
#include "common/temporary_directory.hpp"

namespace
{

using namespace cli;

class KeptChecks : public ::testing::Test
{
protected:
    KeptChecks()
    {
        box_writer writer(base, {4, 2});
        writer.set_sensors(std::vector<std::string>{"::a"});
        for (int64_t i = 0; i < 6; ++i) {
            writer.write(1795235400 + 60 * i, std::vector<float>{1});
        }
    }

    // The check of a file with a finding that is not in it: who tells of it has not read the file.
    static kept_checks made_up(const stored_file &file)
    {
        kept_checks::scan scan(file);
        vesk_scan_item item = {};
        item.kind = VESK_SCAN_BARE_EVENT;
        item.offset = 4711;
        scan.look_at(item);
        kept_checks checks;
        checks.keep(std::move(scan));
        return checks;
    }

    temporary_directory folder{quick_folder()};
    std::string base = folder.file("box");
};

TEST_F(KeptChecks, SpareADiagnosisTheReading)
{
    const box what = find_box(base);
    const diagnosis found = diagnose_box(base, {}, made_up(what.files.front()));
    ASSERT_EQ(found.files.size(), what.files.size());
    EXPECT_EQ(found.files[0].lines(),
              std::vector<std::string>{"the event at 4711 lacks its type word"});
    EXPECT_EQ(found.files[0].file, &found.what.files[0]);
    EXPECT_EQ(found.files[1].lines(), std::vector<std::string>{});
    EXPECT_EQ(found.files[1].samples, 2U);
}

TEST_F(KeptChecks, OfAReadingAreThoseOfADiagnosis)
{
    // Damage in the open file.
    std::ofstream(find_box(base).files.back().path, std::ios::binary | std::ios::app) << "torn";
    ::testing::internal::CaptureStderr();
    const reading source(base);
    (void)::testing::internal::GetCapturedStderr();
    const diagnosis fresh = diagnose_box(base, {});
    for (const checked_file &file : fresh.files) {
        const std::optional<checked_file> kept = source.checks().check_of(*file.file);
        ASSERT_TRUE(kept);
        EXPECT_EQ(kept->lines(), file.lines());
        EXPECT_EQ(kept->contents_text(), file.contents_text());
    }
    EXPECT_FALSE(fresh.files.back().lines().empty());
}

TEST_F(KeptChecks, EndWhereTheFileGrows)
{
    const box what = find_box(base);
    const kept_checks checks = made_up(what.files.front());
    EXPECT_TRUE(checks.check_of(what.files.front()));
    std::ofstream(what.files.front().path, std::ios::binary | std::ios::app) << "more";
    EXPECT_FALSE(checks.check_of(what.files.front()));
    EXPECT_FALSE(checks.check_of(find_box(base).files.front()));
}

// A repair puts another file under the name.
TEST_F(KeptChecks, EndWhereAnotherFileIsInThePlace)
{
    const box what = find_box(base);
    const std::string path = what.files.front().path;
    const kept_checks checks = made_up(what.files.front());
    const auto time = std::filesystem::last_write_time(path);
    std::filesystem::copy_file(path, path + ".copy");
    std::filesystem::last_write_time(path + ".copy", time);
    std::filesystem::rename(path + ".copy", path);
    EXPECT_FALSE(checks.check_of(find_box(base).files.front()));
}

// A torn end is damage only where nobody is about to write the rest.
TEST_F(KeptChecks, EndWhereTheWriterIsGone)
{
    const box what = find_box(base);
    stored_file live = what.files.front();
    live.is_live = true;
    const kept_checks checks = made_up(live);
    EXPECT_TRUE(checks.check_of(live));
    EXPECT_FALSE(checks.check_of(what.files.front()));
}

} // namespace
