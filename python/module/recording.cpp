// Checks what Python hands in and writes it into a box.
#include "recording.hpp"

#include <fmt/format.h>
#include <unistd.h>
#include <unordered_set>

#include <vesk/vesk_limits.h>

#include "box/event.hpp"
#include "process/terminal.hpp"

namespace vesk_python
{
namespace
{

void require_time(int64_t time)
{
    if (time == 0 || time < INT32_MIN || time > INT32_MAX) {
        throw bad_value(fmt::format(
            "time {}: a box takes times from 1901-12-13 to 2038-01-19, without 1970-01-01 00:00:00",
            time));
    }
}

std::string shortened(const std::string &name)
{
    constexpr std::size_t enough = 60;
    return cli::printable(name.size() > enough ? name.substr(0, enough) + "..." : name);
}

void require_names(const std::vector<std::string> &names)
{
    if (names.empty()) {
        throw bad_value("a sample needs at least one sensor");
    }
    if (names.size() > VESK_MAX_COUNT) {
        throw bad_value(fmt::format("{} sensors: a sample takes {} at most", names.size(),
                                    int{VESK_MAX_COUNT}));
    }
    std::unordered_set<std::string> known;
    for (const std::string &name : names) {
        if (name.empty() || name.size() > VESK_MAX_COUNT) {
            throw bad_value(fmt::format("sensor '{}': a name has 1 to {} bytes", shortened(name),
                                        int{VESK_MAX_COUNT}));
        }
        if (name.find('\0') != std::string::npos) {
            throw bad_value(
                fmt::format("sensor '{}': there is a zero byte in the name", shortened(name)));
        }
        if (!known.insert(name).second) {
            throw bad_value(fmt::format("sensor '{}' is there twice", shortened(name)));
        }
    }
}

} // namespace

recording::recording(const std::string &base, const cli::box_shape &shape, const std::string &sync,
                     bool create)
    : process_(getpid())
{
    using if_missing = cli::box_writer::if_missing;
    const cli::sync_policy policy = cli::parse_sync_policy(sync);
    if (create) {
        cli::box_writer::check_shape_for(base, shape);
    }
    box_ = std::make_unique<open_box>(base, shape, policy,
                                      create ? if_missing::create : if_missing::refuse);
    waiting_ = box_->events.count();
}

recording::~recording()
{
    leave_to_owner();
}

void recording::leave_to_owner()
{
    if (process_ != getpid()) {
        // Closing would take away the lock of the process that has the box.
        (void)box_.release();
    }
}

void recording::require_usable() const
{
    if (process_ != getpid()) {
        throw bad_value(fmt::format("the recorder belongs to process {}", process_));
    }
    if (!box_) {
        throw bad_value("the recorder is closed");
    }
}

void recording::set_sensors(const std::vector<std::string> &names)
{
    require_usable();
    require_names(names);
    for (const std::string &name : names) {
        if (!box_->writer.admit(name)) {
            throw bad_value(fmt::format("the box has no room for '{}': it holds {} different "
                                        "sensors already",
                                        shortened(name), int{VESK_MAX_COUNT}));
        }
    }
    box_->writer.set_sensors(names);
    width_ = names.size();
}

void recording::write(int64_t time, std::span<const float> values)
{
    require_usable();
    if (width_ == 0) {
        throw bad_value("no sensors are named yet");
    }
    if (values.size() != width_) {
        throw bad_value(fmt::format("{} for {}", cli::counted(values.size(), "value"),
                                    cli::counted(width_, "sensor")));
    }
    require_time(time);
    box_->writer.write(time, values);
    ++written_;
    box_->events.take_over();
    waiting_ = box_->events.count();
}

bool recording::write_event(uint32_t type, int64_t time, const std::string &text)
{
    require_usable();
    require_time(time);
    const bool waits = box_->events.write({type, time, text}) == cli::event_result::waits;
    waiting_ = box_->events.count();
    return !waits;
}

void recording::sync()
{
    require_usable();
    box_->writer.sync_now();
}

void recording::close()
{
    leave_to_owner();
    if (box_) {
        // Whatever the disk says, the box is closed afterwards.
        const std::unique_ptr<open_box> box = std::move(box_);
        box->writer.finish();
    }
}

} // namespace vesk_python
