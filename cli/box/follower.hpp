// Follows a box that is written to, through the turns of its buffers: each look hands out the
// samples and events that came since the one before, once and in their order.
//
// The files of the last look stay open, so what was written to one of them before a rotation
// deleted it is still read. Buffers that came and went between two looks are told as a loss. A look
// reads what was appended since the one before, however large the buffer is.
#ifndef VESK_CLI_BOX_FOLLOWER_HPP
#define VESK_CLI_BOX_FOLLOWER_HPP

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <vesk/vesk_cb_record_sensor_names.h>

#include "box/box.hpp"
#include "box/raw_position.hpp"

namespace cli
{

class follower
{
public:
    struct receiver {
        // A sample with the names that govern it.
        std::function<void(const vesk_scan_item &)> on_sample;
        // Samples may have come and gone between the one before and the one that follows.
        std::function<void()> on_loss;
        // An event, for who wants them.
        std::function<void(const vesk_scan_item &)> on_event = {};
    };

    explicit follower(std::string base) : base_(std::move(base)) {}
    // Begins behind @p seen, as if a look had handed out all that lies before.
    follower(std::string base, const raw_position &seen)
        : base_(std::move(base)), records_(seen.records)
    {
        if (seen != raw_position()) {
            number_ = seen.file;
        }
    }

    // Throws a failure when the box is not there or a file of it cannot be read.
    void look(const receiver &to);

    // Where the next look goes on; while an item is handed out, the place behind that item.
    raw_position position() const { return {number_.value_or(0), records_}; }
    // Whether somebody wrote to the box at the last look.
    bool has_writer() const { return has_writer_; }
    // How often another box had come under the same name.
    uint64_t new_boxes() const { return new_boxes_; }

private:
    struct names_release {
        void operator()(vesk_cb_record_sensor_names *names) const
        {
            vesk_cb_record_sensor_names_destroy(&names);
        }
    };

    using names_owner = std::unique_ptr<vesk_cb_record_sensor_names, names_release>;

    static names_owner copy_of(const vesk_cb_record_sensor_names *names);
    void read(const stored_file &file, uint32_t number, const receiver &to);
    void take(const vesk_scan_item &item, uint64_t known, const receiver &to);
    bool goes_on(const stored_file &file, uint32_t number) const;
    bool has_lost(const std::vector<stored_file> &files) const;

    std::string base_;
    std::vector<stored_file> held_; // the buffers with raw samples at the last look, by number
    // The file that was read last, its size then, and how many of its samples and events were
    // handed out; while it is read, how many were seen.
    std::optional<uint32_t> number_;
    uint64_t size_ = 0;
    uint64_t records_ = 0;
    uint64_t seen_ = 0;
    // Up to where it was whole, the bytes before that place, and the sensors that govern what
    // follows it.
    uint64_t end_ = 0;
    std::vector<unsigned char> before_end_;
    names_owner names_;
    bool has_writer_ = false;
    uint64_t new_boxes_ = 0;
};

} // namespace cli

#endif
