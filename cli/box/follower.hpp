// Follows a box that is written to, through the turns of its buffers: each look hands out the
// samples that came since the one before, once and in their order.
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
    };

    explicit follower(std::string base) : base_(std::move(base)) {}

    // Throws a failure when the box is not there or a file of it cannot be read.
    void look(const receiver &to);

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
    // The file that was read last, its size then, and how many of its samples were handed out.
    std::optional<uint32_t> number_;
    uint64_t size_ = 0;
    uint64_t samples_ = 0;
    // Up to where it was whole, the bytes before that place, and the sensors that govern what
    // follows it.
    uint64_t end_ = 0;
    std::vector<unsigned char> before_end_;
    names_owner names_;
};

} // namespace cli

#endif
