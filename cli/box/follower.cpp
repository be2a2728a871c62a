// Finds what is new in a box by the number of the file that was read last and the number of samples
// in it: recorders only append to a buffer, and number their buffers upwards.
#include "box/follower.hpp"

#include <algorithm>
#include <charconv>
#include <new>

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

// So many bytes before a place tell whether a file is still the same there. They hold at least the
// checksum of a record.
constexpr std::size_t compared_bytes = 64;

std::vector<unsigned char> bytes_before(const stored_file &file, uint64_t end)
{
    const uint64_t begin = end - std::min<uint64_t>(end, compared_bytes);
    return file.bytes->read_piece(begin, static_cast<std::size_t>(end - begin));
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

follower::names_owner follower::copy_of(const vesk_cb_record_sensor_names *names)
{
    if (names == nullptr || names->sensors == nullptr) {
        return nullptr;
    }
    names_owner copy(vesk_cb_record_sensor_names_copy(names, nullptr));
    if (!copy) {
        throw std::bad_alloc();
    }
    return copy;
}

bool follower::has_lost(const std::vector<stored_file> &files) const
{
    return number_ && !files.empty() && !holds(files, *number_) &&
           number_of(files.front()) > *number_ + largest_step;
}

// A recorder only appends, but a recovery may have rewritten the file, or cut it.
bool follower::goes_on(const stored_file &file, uint32_t number) const
{
    return number_ == number && end_ > 0 && file.bytes->size() >= end_ &&
           bytes_before(file, end_) == before_end_;
}

void follower::read(const stored_file &file, uint32_t number, const receiver &to)
{
    const uint64_t known = number_ == number ? samples_ : 0;
    const uint64_t size = file.bytes->size();
    if (number_ == number && size == size_) {
        return;
    }
    if (!goes_on(file, number)) {
        samples_ = 0;
        end_ = 0;
        names_.reset();
    }
    number_ = number;
    scan_file_from(file, end_, [&](const vesk_scan_item &item) { take(item, known, to); });
    before_end_ = bytes_before(file, end_);
    size_ = size;
}

void follower::take(const vesk_scan_item &item, uint64_t known, const receiver &to)
{
    vesk_scan_item governed = item;
    if (item.kind == VESK_SCAN_HEADER) {
        names_.reset();
    } else if (item.kind == VESK_SCAN_SENSOR_NAMES) {
        names_ = copy_of(item.names);
    } else if (item.names == nullptr) {
        governed.names = names_.get();
    }
    if (item.kind != VESK_SCAN_DAMAGE) {
        end_ = item.offset + item.length;
    }
    if (is_sample(governed) && ++samples_ > known) {
        to.on_sample(governed);
    }
}

} // namespace cli
