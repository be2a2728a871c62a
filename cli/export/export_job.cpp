// Counts the rows of an export, shows the share that is done, and lets a signal end it.
#include "export/export_job.hpp"

#include <algorithm>
#include <fmt/format.h>

#include "process/failure.hpp"

namespace cli
{

void export_progress::count_row()
{
    // Often enough to look quick, and too rarely to cost anything.
    constexpr uint64_t rows_between = 512;
    if (++rows_ % rows_between != 0) {
        return;
    }
    if (stop_.requested()) {
        status_.clear();
        throw failure(exit_failed, "interrupted by " + stop_.signal_name());
    }
    if (status_.visible() && expected_ > 0) {
        status_.show(
            fmt::format("exporting: {} %", std::min<uint64_t>(99, rows_ * 100 / expected_)));
    }
}

} // namespace cli
