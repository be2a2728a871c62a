// Writes the readings of a machine into a box. What goes wrong for a while costs the samples of
// that while, is told once and never ends a recording.
#ifndef VESK_CLI_MACHINE_SAMPLE_WRITER_HPP
#define VESK_CLI_MACHINE_SAMPLE_WRITER_HPP

#include <cstdint>
#include <string>
#include <vector>

#include "box/box_writer.hpp"
#include "machine/rates.hpp"

namespace cli
{

class sample_writer
{
public:
    // @p box must outlive this. @p base is how the user calls it.
    // @p waits_for_first: readings may come later where there are none at first.
    sample_writer(box_writer &box, std::string base, bool waits_for_first)
        : box_(box), base_(std::move(base)), waits_for_first_(waits_for_first)
    {
    }

    // The machine has been seen to give readings: where there are none at first, they come later.
    void readings_exist() { waits_for_first_ = true; }
    // True when the sample is recorded; @p found is left with what was. Throws a failure when the
    // machine gives no reading at all from the start, and what box_writer throws for good.
    bool write(int64_t time, readings &found);

    uint64_t recorded() const { return recorded_; }
    uint64_t missing() const { return missing_; } // since the last sample that was recorded
    std::size_t number_of_sensors() const { return sensors_.size(); }

private:
    void drop_what_has_no_room(readings &found);
    void require_readings(const readings &found) const;
    void write_vector(int64_t time, const readings &found);

    box_writer &box_;
    std::string base_;
    bool waits_for_first_;
    std::vector<std::string> sensors_;
    uint64_t recorded_ = 0;
    uint64_t missing_ = 0;
    bool noted_ = false;
};

// "1 sample is", "2 samples are".
std::string samples_are(uint64_t count);

} // namespace cli

#endif
