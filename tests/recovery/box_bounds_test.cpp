// What the files of a box may cost: what repeats is summed up, and what a recorder or a recovery
// writes meets no bound.
#include <gtest/gtest.h>

#include "recovery/recover_fixture.hpp"

namespace
{

class BoxBounds : public Recover
{
};

// Something is wrong with every second stream.
TEST_F(BoxBounds, WhatRepeatsIsSummedUp)
{
    make_box(3);
    const std::string good = compressed_stream(stored_values_record(1003, {3}));
    const std::string bad = compressed_stream(stored_event_body(2, 1003, "bare"));
    const std::string torn = bad.substr(0, bad.size() - 2);
    std::string file = read_file("r.1.cbuf.z");
    for (int i = 0; i < 1000; ++i) {
        file += bad + compressed_stream(stored_event_record(2, 1003, "tagged")) + torn;
    }
    write_file("r.1.cbuf.z", file + good);
    const steps found = plan();
    uint32_t tagged = 0;
    for (const recover_step &s : found) {
        tagged += s.action == VESK_RECOVER_TAG_EVENT ? s.count : 0;
    }
    EXPECT_EQ(1000U, tagged);
    EXPECT_LE(found.size(), 3 * (64 + 1));
    const vesk_recover_report report = recover();
    EXPECT_EQ(1000 * torn.size(), report.bytes_aside);
    EXPECT_EQ(2000U, report.events_kept);
    EXPECT_EQ(4U, report.samples_kept);
}

// --- what a recorder writes

// Ten thousand sensors that never change: each vector takes 40 KB in memory and 60 bytes on the
// disk.
TEST_F(BoxBounds, ManyConstantSensorsAreHealthySlow)
{
    constexpr uint32_t n_samples = 2000;
    std::vector<reading> readings;
    for (int i = 0; i < 10000; ++i) {
        readings.push_back({"rack.sensor." + std::to_string(i), 1.5});
    }
    {
        const owned_recorder recorder(vesk_create("r", n_samples, 20));
        const owned_matrix vector = make_vector(1000, readings);
        for (uint32_t i = 0; i < n_samples; ++i) {
            ASSERT_EQ(0, vesk_write_telemetry_vector(recorder.get(), vector.get()));
        }
    }
    ASSERT_LT(fs::file_size("r.1.cbuf.z"), n_samples * 200);
    vesk_recover_report report;
    EXPECT_EQ(0, vesk_recover_plan("r", 0, 0, nullptr, nullptr, &report));
    EXPECT_EQ(0U, report.steps);
    EXPECT_EQ(n_samples, report.samples_kept);
}

// Padding is as many records as are missing, each of them as long as a sample, in few bytes.
TEST_F(BoxBounds, WhatARecoveryPaddedIsHealthySlow)
{
    std::vector<std::string> names;
    for (int i = 0; i < 4900; ++i) {
        names.push_back("rack.sensor." + std::to_string(i));
    }
    constexpr uint32_t n_samples = 2000;
    {
        const owned_recorder recorder(vesk_create("r", n_samples, 20));
    }
    const std::string head = stored_buffer_header(1, n_samples) + stored_names_record(1000, names);
    const std::vector<float> values(names.size(), 1.5F);
    // The full buffer of a box of two holds one sample.
    write_file("r.1.cbuf.z", compressed_stream(head + stored_values_record(1001, values)));
    write_file("r.2.cbuf.z", compressed_stream(head + stored_values_record(1002, values)));
    fs::remove("r.state");
    const vesk_recover_report report = recover(n_samples, 20);
    EXPECT_EQ(n_samples - 1, report.samples_padded);
    EXPECT_EQ(2U, report.samples_kept);
}

// A stream that grows by what is done to it is divided, so that it is believed the next time.
TEST_F(BoxBounds, AStreamThatGrewWhenItWasMendedIsBelieved)
{
    make_box(3);
    std::string content;
    const std::string text(9999, 'x');
    while (content.size() + 10100 < (8U << 20U)) {
        content += stored_event_body(2, 1003, text);
    }
    append("r.1.cbuf.z", compressed_stream(content));
    const vesk_recover_report report = recover();
    EXPECT_EQ(0U, report.bytes_aside);
    EXPECT_GT(report.events_tagged, 800U);
}

} // namespace
