// An export that takes long can be ended.
#include <csignal>
#include <gtest/gtest.h>

#include "cli/unignored_signal.hpp"
#include "export/export_job.hpp"
#include "process/failure.hpp"

namespace
{

using namespace cli;

void count_rows(export_progress &progress)
{
    for (int i = 0; i < 1000; ++i) {
        progress.count_row();
    }
}

TEST(ExportProgress, ASignalEndsTheExport)
{
    const unignored_signal terminated(SIGTERM);
    export_progress progress;
    progress.expect(1000);
    EXPECT_NO_THROW(count_rows(progress));
    ASSERT_EQ(raise(SIGTERM), 0);
    try {
        count_rows(progress);
        ADD_FAILURE() << "it went on";
    } catch (const failure &reason) {
        EXPECT_EQ(reason.code(), exit_failed);
        EXPECT_STREQ(reason.what(), "interrupted by SIGTERM");
    }
}

} // namespace
