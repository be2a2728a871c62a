// The sizes of a box, from whoever knows them.
#include <gtest/gtest.h>

#include "recovery/size_choice.hpp"

namespace
{

constexpr uint32_t current_type = VESK_BUFFER_TYPE_CURRENT;
constexpr uint32_t history_type = VESK_BUFFER_TYPE_HIST;
constexpr recorder_sizes nobody = {0, 0};

// A box of a history, a full and an open buffer whose headers state these capacities; 0 for a
// header that is lost.
class box_with_headers
{
public:
    box_with_headers(uint32_t in_history, uint32_t in_full, uint32_t in_open)
    {
        box_.stage = VESK_ZCF_STATE_HCC;
        add({history_type, 2}, in_history);
        add({current_type, 1}, in_full);
        add({current_type, 3}, in_open);
    }

    bool choose(const recorder_sizes &of_state, const recorder_sizes &of_copy,
                const recorder_sizes &given, recorder_sizes *sizes) const
    {
        return _vesk_choose_sizes(files_, box_, of_state, of_copy, given, sizes);
    }

private:
    void add(const buffer_name &name, uint32_t capacity)
    {
        box_file *file = files_.add(name);
        file->contents.kind = capacity > 0 ? name.kind : 0;
        file->contents.capacity = capacity;
        box_.add(name.kind, name.number);
    }

    box_file_list files_;
    arrangement box_;
};

TEST(SizeChoice, TheFirstThatAgreesWithTheHeadersCounts)
{
    recorder_sizes sizes;
    const box_with_headers box(8, 40, 40);
    EXPECT_TRUE(box.choose({40, 4}, {80, 4}, nobody, &sizes));
    EXPECT_EQ((recorder_sizes{40, 4}), sizes);
    // The state file has changed; its copy has not.
    EXPECT_TRUE(box.choose({44, 4}, {40, 4}, nobody, &sizes));
    EXPECT_EQ((recorder_sizes{40, 4}), sizes);
    EXPECT_TRUE(box.choose(nobody, {40, 20}, {40, 4}, &sizes));
    EXPECT_EQ((recorder_sizes{40, 4}), sizes);
}

TEST(SizeChoice, HeadersOfBothKindsTellBothSizes)
{
    recorder_sizes sizes;
    EXPECT_TRUE(box_with_headers(8, 0, 40).choose(nobody, nobody, nobody, &sizes));
    EXPECT_EQ((recorder_sizes{40, 4}), sizes);
}

TEST(SizeChoice, WhatOneHasLostAnotherOneTells)
{
    recorder_sizes sizes;
    // No history is left, and whoever told the intervals tells other samples.
    const box_with_headers box(0, 40, 40);
    EXPECT_TRUE(box.choose({44, 4}, nobody, nobody, &sizes));
    EXPECT_EQ((recorder_sizes{40, 4}), sizes);
    EXPECT_FALSE(box.choose(nobody, nobody, nobody, &sizes));
}

TEST(SizeChoice, TwoThatSayTheSameCountMoreThanAHeader)
{
    recorder_sizes sizes;
    const box_with_headers box(0, 0, 38);
    EXPECT_TRUE(box.choose({40, 4}, {40, 4}, nobody, &sizes));
    EXPECT_EQ((recorder_sizes{40, 4}), sizes);
    EXPECT_TRUE(box.choose(nobody, {40, 4}, {40, 4}, &sizes));
    EXPECT_EQ((recorder_sizes{40, 4}), sizes);
}

TEST(SizeChoice, SizesThatNoBoxCanHaveAreRefused)
{
    recorder_sizes sizes;
    const box_with_headers box(0, 0, 0);
    for (const recorder_sizes &bad : {recorder_sizes{41, 41}, {40, 3}, {40, 0}, {0, 4}}) {
        EXPECT_FALSE(box.choose(bad, nobody, nobody, &sizes))
            << bad.samples << " " << bad.intervals;
    }
    // A header that only looks like one tells nothing.
    EXPECT_TRUE(box_with_headers(0, 39, 40).choose({40, 4}, nobody, nobody, &sizes));
    EXPECT_EQ((recorder_sizes{40, 4}), sizes);
}

} // namespace
