// Writes a tier beside the box that is recorded. What goes wrong with a tier costs that tier only:
// it is told once, and tried again with the next row. While a row cannot be written it waits, so
// that a full disk leaves no hole for a while.
#ifndef VESK_CLI_BOX_TIER_RECORDER_HPP
#define VESK_CLI_BOX_TIER_RECORDER_HPP

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "box/box_shape.hpp"
#include "box/box_writer.hpp"
#include "box/sync_policy.hpp"
#include "box/tier.hpp"
#include "box/tier_period.hpp"

namespace cli
{

class reading;

struct wanted_tier {
    tier_kind kind;
    whole_shape shape; // where the tier has to be made; one that is there keeps its own
};

class tier_recorder
{
public:
    // So many rows wait while they cannot be written.
    static constexpr std::size_t most_waiting = 60;

    // Opens or makes the tier of the box on @p base.
    tier_recorder(const std::string &base, const wanted_tier &wanted, const sync_policy &sync);

    // Fills up the tier with what the box still has in full detail and the tier has not, up to the
    // first sample that was added: a recording that was killed costs no row then. A tier that
    // cannot be opened yet does so by itself once it can.
    void catch_up(reading &source);

    // A sample that the box has taken.
    void add(int64_t time, std::span<const std::string> names, std::span<const float> values);
    // As box_writer does.
    void work_ahead(double seconds);
    // To be called last: writes the row under way.
    void finish();

private:
    void open();
    void catch_up_late();
    void absorb(int64_t time, std::span<const std::string> names, std::span<const float> values);
    void take(tier_row row);
    void try_to_write();
    void write_waiting();
    void settle_row_in_doubt();
    void write(const tier_row &row);
    void drop_what_has_no_room(tier_row &row);
    void tell(const std::string &reason);

    std::string box_base_; // whose tier this is
    std::string base_;
    wanted_tier wanted_;
    sync_policy sync_;
    tier_period period_;
    std::unique_ptr<box_writer> box_;  // null while the tier cannot be opened
    std::vector<std::string> sensors_; // that the box was told of
    std::deque<tier_row> waiting_;
    bool is_row_in_doubt_ = false; // the first that waits may have been written
    uint64_t lost_ = 0;
    bool is_told_ = false;
    bool told_names_ = false;
    std::optional<int64_t> last_time_;  // of the newest row that was there before
    std::optional<int64_t> first_time_; // of the first sample that was added
    bool has_caught_up_ = false;
};

// All tiers of a recording.
class tier_recorders
{
public:
    // Fills up the tiers of the box on @p base.
    tier_recorders(const std::string &base, const std::vector<wanted_tier> &wanted,
                   const sync_policy &sync);

    void add(int64_t time, std::span<const std::string> names, std::span<const float> values);
    // Gives each of them so long.
    void work_ahead(double seconds);
    void finish();

private:
    void catch_up(const std::string &base);

    std::deque<tier_recorder> tiers_;
};

} // namespace cli

#endif
