// Finds what is new in a box by the number of the file that was read last and the number of samples
// in it: recorders only append to a buffer, and number their buffers upwards.
#include "box/follower.hpp"

#include <algorithm>
#include <charconv>

#include <vesk/sensor_array.h>

namespace cli
{
namespace
{

// A recorder numbers the next buffer one or, with a history buffer between, two higher.
constexpr uint32_t largest_step = 2;

// The number in "BASE.12.cbuf.z"; 0 when there is none.
uint32_t number_of(const stored_file &file)
{
    constexpr std::string_view kind = ".cbuf.z";
    std::string_view name = file.path;
    if (!name.ends_with(kind)) {
        return 0;
    }
    name.remove_suffix(kind.size());
    name.remove_prefix(name.rfind('.') == std::string_view::npos ? 0 : name.rfind('.') + 1);
    uint32_t number = 0;
    std::from_chars(name.data(), name.data() + name.size(), number);
    return number;
}

std::vector<stored_file> raw_buffers(const box &found)
{
    std::vector<stored_file> files;
    for (const stored_file *file : found.current_buffers()) {
        if (file->problem.empty()) {
            files.push_back(*file);
        }
    }
    return files;
}

bool holds(const std::vector<stored_file> &files, uint32_t number)
{
    return std::any_of(files.begin(), files.end(),
                       [number](const stored_file &file) { return number_of(file) == number; });
}

bool is_sample(const vesk_scan_item &item)
{
    return item.kind == VESK_SCAN_SENSOR_VALUES && item.names != nullptr &&
           item.names->sensors != nullptr &&
           sensor_array_get_size(item.names->sensors) == item.values->n_sensors;
}

} // namespace

void follower::look(const receiver &to)
{
    std::vector<stored_file> files = raw_buffers(find_box(base_));
    const bool is_another_box =
        number_ && std::all_of(files.begin(), files.end(), [this](const stored_file &file) {
            return number_of(file) < *number_;
        });
    if (is_another_box && !files.empty()) {
        // Somebody has begun a new box under the same name.
        number_.reset();
        held_.clear();
    }
    // What the last look knew and this one does not was deleted meanwhile.
    for (const stored_file &file : held_) {
        const uint32_t number = number_of(file);
        if (number_ && number >= *number_ && !holds(files, number)) {
            read(file, number, to);
        }
    }
    if (has_lost(files)) {
        to.on_loss();
    }
    for (const stored_file &file : files) {
        const uint32_t number = number_of(file);
        if (!number_ || number >= *number_) {
            read(file, number, to);
        }
    }
    held_ = std::move(files);
}

bool follower::has_lost(const std::vector<stored_file> &files) const
{
    return number_ && !files.empty() && !holds(files, *number_) &&
           number_of(files.front()) > *number_ + largest_step;
}

void follower::read(const stored_file &file, uint32_t number, const receiver &to)
{
    const uint64_t known = number_ == number ? samples_ : 0;
    const uint64_t size = file.bytes->size();
    if (number_ == number && size == size_) {
        return;
    }
    uint64_t samples = 0;
    scan_file(file, [&](const vesk_scan_item &item) {
        if (is_sample(item) && ++samples > known) {
            to.on_sample(item);
        }
    });
    number_ = number;
    samples_ = samples;
    size_ = size;
}

} // namespace cli
