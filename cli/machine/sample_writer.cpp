// Passes readings to a box_writer and counts what it does not take. The first failure of a row is
// printed, and so is its end; the failures in between are only counted.
#include "machine/sample_writer.hpp"

#include <fmt/format.h>
#include <utility>

#include "box/storage_failure.hpp"
#include "process/failure.hpp"
#include "process/terminal.hpp"

namespace cli
{

std::string samples_are(uint64_t count)
{
    return counted(count, "sample") + (count == 1 ? " is" : " are");
}

bool sample_writer::write(int64_t time, readings &found)
{
    drop_what_has_no_room(found);
    try {
        write_vector(time, found);
    } catch (const passing_failure &reason) {
        if (missing_ == 0) {
            complain(fmt::format("{}; this sample is not recorded, the next ones are tried",
                                 reason.what()));
        }
        ++missing_;
        return false;
    }
    ++recorded_;
    if (missing_ > 0) {
        note(fmt::format("{}: recording again; {} missing", base_, samples_are(missing_)));
        missing_ = 0;
    }
    return true;
}

// A temporary failure does not end the recording: a full disk, a clock out of range, no descriptors
// left for /proc. What is recorded stays.
void sample_writer::write_vector(int64_t time, const readings &found)
{
    require_readings(found);
    if (found.names != sensors_) {
        box_.set_sensors(found.names);
        sensors_ = found.names;
    }
    box_.write(time, found.values);
}

// A machine without any reading at the start will never give one. Later the cause is temporary.
void sample_writer::require_readings(const readings &found) const
{
    if (found.names.empty() && recorded_ == 0 && !waits_for_first_) {
        throw failure(exit_failed,
                      "this machine gives no readings (is /proc there? 'vesk sensors' lists them)");
    }
    if (found.names.empty()) {
        throw passing_failure("this machine gives no readings now");
    }
}

// A box keeps the name of every sensor for ever, and has room for so many only.
void sample_writer::drop_what_has_no_room(readings &found)
{
    std::size_t kept = 0;
    for (std::size_t i = 0; i < found.names.size(); ++i) {
        if (box_.admit(found.names[i])) {
            std::swap(found.names[kept], found.names[i]);
            found.values[kept] = found.values[i];
            ++kept;
        }
    }
    if (kept < found.names.size() && !noted_) {
        note(fmt::format("{}: holds 10000 different sensors already; '{}' and all other new "
                         "ones are not recorded",
                         base_, found.names[kept]));
        noted_ = true;
    }
    found.names.resize(kept);
    found.values.resize(kept);
}

} // namespace cli
