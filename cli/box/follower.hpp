// Follows a box that is written to, through the turns of its buffers: each look hands out the
// samples that came since the one before, once and in their order.
//
// The files of the last look stay open, so what was written to one of them before a rotation
// deleted it is still read. Buffers that came and went between two looks are told as a loss.
#ifndef VESK_CLI_BOX_FOLLOWER_HPP
#define VESK_CLI_BOX_FOLLOWER_HPP

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

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
    void read(const stored_file &file, uint32_t number, const receiver &to);
    bool has_lost(const std::vector<stored_file> &files) const;

    std::string base_;
    std::vector<stored_file> held_; // the buffers with raw samples at the last look, by number
    // The file that was read last, how many of its samples were handed out, and its size then.
    std::optional<uint32_t> number_;
    uint64_t samples_ = 0;
    uint64_t size_ = 0;
};

} // namespace cli

#endif
