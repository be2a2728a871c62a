// Finds what is new in a box by the number of the file that was read last and the number of records
// in it: recorders only append to a buffer, and number their buffers upwards.
#include "box/follower.hpp"

#include <algorithm>
#include <new>

namespace cli
{
namespace
{

// A recorder numbers the next buffer one or, with a history buffer between, two higher.
constexpr uint32_t largest_step = 2;

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
    return std::any_of(files.begin(), files.end(), [number](const stored_file &file) {
        return number_of_file(file) == number;
    });
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
    const box found = find_box(base_);
    has_writer_ = found.writer.has_value();
    std::vector<stored_file> files = raw_buffers(found);
    const bool is_another_box =
        number_ && std::all_of(files.begin(), files.end(), [this](const stored_file &file) {
            return number_of_file(file) < *number_;
        });
    if (is_another_box && !files.empty()) {
        // Somebody has begun a new box under the same name.
        number_.reset();
        records_ = 0;
        held_.clear();
        ++new_boxes_;
    }
    // What the last look knew and this one does not was deleted meanwhile.
    for (const stored_file &file : held_) {
        const uint32_t number = number_of_file(file);
        if (number_ && number >= *number_ && !holds(files, number)) {
            read(file, number, to);
        }
    }
    if (has_lost(files)) {
        to.on_loss();
    }
    for (const stored_file &file : files) {
        const uint32_t number = number_of_file(file);
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
    if (!number_ || files.empty() || holds(files, *number_)) {
        return false;
    }
    // Without the file that it goes on in, nobody knows what came behind the place in it.
    return !holds(held_, *number_) || number_of_file(files.front()) > *number_ + largest_step;
}

// A recorder only appends, but a recovery may have rewritten the file, or cut it.
bool follower::goes_on(const stored_file &file, uint32_t number) const
{
    return number_ == number && end_ > 0 && file.bytes->size() >= end_ &&
           bytes_before(file, end_) == before_end_;
}

void follower::read(const stored_file &file, uint32_t number, const receiver &to)
{
    const uint64_t known = number_ == number ? records_ : 0;
    const uint64_t size = file.bytes->size();
    // Who writes a file anew in its place empties it first: the place in it stays.
    if (size == 0 || (number_ == number && size == size_)) {
        return;
    }
    if (!goes_on(file, number)) {
        seen_ = 0;
        end_ = 0;
        names_.reset();
    }
    records_ = known;
    number_ = number;
    scan_file_from(file, end_, [&](const vesk_scan_item &item) { take(item, known, to); });
    before_end_ = bytes_before(file, end_);
    records_ = seen_;
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
    if (!is_raw_record(governed) || ++seen_ <= known) {
        return;
    }
    records_ = seen_;
    if (governed.event == nullptr) {
        to.on_sample(governed);
    } else if (to.on_event) {
        to.on_event(governed);
    }
}

} // namespace cli
