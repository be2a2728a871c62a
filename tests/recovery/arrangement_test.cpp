// Which buffers make the box, decided from what is known of them alone: no disk is needed.
#include <gtest/gtest.h>

#include "recovery/arrangement.hpp"

namespace
{

constexpr uint32_t current = VESK_BUFFER_TYPE_CURRENT;
constexpr uint32_t history = VESK_BUFFER_TYPE_HIST;

// The files of a box with 4 samples in a current buffer and 4 intervals in a history.
class files
{
public:
    // A buffer that holds records of one second each, from `start` on.
    box_file &add(uint32_t kind, uint32_t number, uint32_t records, int64_t start = 0)
    {
        box_file *file = list_.add({kind, number});
        file->contents.kind = kind;
        file->contents.capacity = 4;
        file->contents.data_records = records;
        const int64_t first = start != 0 ? start : 1000 + 10 * int64_t(number);
        for (uint32_t i = 0; i < records; ++i) {
            (void)file->contents.spans.append({first + i, first + i});
        }
        return *file;
    }
    const box_file_list &list() const { return list_; }

private:
    box_file_list list_;
};

arrangement box_of(uint32_t stage, std::initializer_list<buffer_name> names)
{
    arrangement box;
    box.stage = stage;
    for (const buffer_name &name : names) {
        box.add(name.kind, name.number);
    }
    return box;
}

named_state named(const arrangement &box, uint32_t next)
{
    named_state state;
    state.fits = true;
    state.box = box;
    state.next_file_number = next;
    return state;
}

arrangement_choice choose(const files &found, const named_state &state = {},
                          const named_state &copy = {}, uint32_t free_number = 77,
                          const buffer_names &foreign = {})
{
    arrangement_choice choice;
    EXPECT_EQ(0,
              _vesk_choose_arrangement(found.list(), foreign, state, copy, free_number, &choice));
    return choice;
}

TEST(Arrangement, AStateThatFitsIsBelieved)
{
    files found;
    found.add(current, 1, 4);
    found.add(current, 2, 1);
    const arrangement box = box_of(VESK_ZCF_STATE_CC0, {{current, 1}, {current, 2}});
    const arrangement_choice choice = choose(found, named(box, 3));
    EXPECT_EQ(box, choice.box);
    EXPECT_EQ(VESK_RECOVER_FROM_STATE, choice.source);
}

TEST(Arrangement, ACopyThatFitsStandsInForTheState)
{
    files found;
    found.add(current, 1, 2);
    const arrangement box = box_of(VESK_ZCF_STATE_C00, {{current, 1}});
    const arrangement_choice choice = choose(found, {}, named(box, 2));
    EXPECT_EQ(box, choice.box);
    EXPECT_EQ(VESK_RECOVER_FROM_BACKUP, choice.source);
}

TEST(Arrangement, TheNumbersTellTheStageWhereNothingElseDoes)
{
    files found;
    EXPECT_EQ(box_of(VESK_ZCF_STATE_C00, {{current, 77}}), choose(found).box);
    found.add(current, 5, 4);
    EXPECT_EQ(box_of(VESK_ZCF_STATE_C00, {{current, 5}}), choose(found).box);
    found.add(current, 6, 4);
    EXPECT_EQ(box_of(VESK_ZCF_STATE_CC0, {{current, 5}, {current, 6}}), choose(found).box);
    found.add(current, 7, 1);
    const arrangement_choice three = choose(found);
    EXPECT_EQ(box_of(VESK_ZCF_STATE_CCC, {{current, 5}, {current, 6}, {current, 7}}), three.box);
    EXPECT_EQ(VESK_RECOVER_FROM_BUFFERS, three.source);
}

TEST(Arrangement, AHistoryIsYoungerThanTheFullBufferAndOlderThanTheOpenOne)
{
    files found;
    found.add(current, 3, 4);
    found.add(history, 4, 4, 900);
    found.add(current, 5, 1);
    EXPECT_EQ(box_of(VESK_ZCF_STATE_HCC, {{history, 4}, {current, 3}, {current, 5}}),
              choose(found).box);
}

TEST(Arrangement, WhatIsMissingBesideAHistoryGetsAFreeNumber)
{
    files found;
    found.add(history, 4, 4, 900);
    EXPECT_EQ(box_of(VESK_ZCF_STATE_HCC, {{history, 4}, {current, 3}, {current, 77}}),
              choose(found).box);
    // The number that it would have had belongs to something that is no file of the box.
    buffer_names foreign;
    ASSERT_TRUE(foreign.append({current, 3}));
    EXPECT_EQ(box_of(VESK_ZCF_STATE_HCC, {{history, 4}, {current, 2}, {current, 77}}),
              choose(found, {}, {}, 77, foreign).box);
}

// The state was not saved when the next buffer was begun.
TEST(Arrangement, AStateThatIsBehindItsBuffersGivesWay)
{
    files found;
    found.add(current, 1, 4);
    found.add(current, 2, 2);
    const named_state old = named(box_of(VESK_ZCF_STATE_C00, {{current, 1}}), 2);
    const arrangement_choice choice = choose(found, old);
    EXPECT_EQ(box_of(VESK_ZCF_STATE_CC0, {{current, 1}, {current, 2}}), choice.box);
    EXPECT_EQ(VESK_RECOVER_FROM_BUFFERS, choice.source);
}

TEST(Arrangement, TheCopyCountsWhereTheStateIsBehindAndItIsNot)
{
    files found;
    found.add(current, 1, 4);
    found.add(current, 2, 2);
    const arrangement now = box_of(VESK_ZCF_STATE_CC0, {{current, 1}, {current, 2}});
    const arrangement_choice choice =
        choose(found, named(box_of(VESK_ZCF_STATE_C00, {{current, 1}}), 2), named(now, 3));
    EXPECT_EQ(now, choice.box);
    EXPECT_EQ(VESK_RECOVER_FROM_BACKUP, choice.source);
}

// A buffer of an older box of this name was not begun when the open one was full.
TEST(Arrangement, AnOlderBufferIsNoSuccessor)
{
    files found;
    found.add(current, 1, 2, 5000);
    found.add(current, 9, 2, 100);
    const arrangement box = box_of(VESK_ZCF_STATE_C00, {{current, 1}});
    EXPECT_EQ(box, choose(found, named(box, 2)).box);
}

// The clock steps back, and the open buffer is not full: only the copy knows which one is younger.
TEST(Arrangement, TheCopyTellsWhatFollowsTheOpenBuffer)
{
    files found;
    found.add(current, 1, 2, 5000);
    found.add(current, 2, 1, 100);
    const named_state state = named(box_of(VESK_ZCF_STATE_C00, {{current, 1}}), 2);
    const arrangement both = box_of(VESK_ZCF_STATE_CC0, {{current, 1}, {current, 2}});
    named_state copy = named(both, 3);
    EXPECT_EQ(both, choose(found, state, copy).box);
    EXPECT_EQ(VESK_RECOVER_FROM_BACKUP, choose(found, state, copy).source);
    // One whose checksum is wrong counts for nothing but the order.
    copy.fits = false;
    copy.has_changed = true;
    copy.next_file_number = 0xfffffffd;
    EXPECT_EQ(both, choose(found, state, copy).box);
    EXPECT_EQ(VESK_RECOVER_FROM_BUFFERS, choose(found, state, copy).source);
    copy.has_changed = false;
    EXPECT_EQ(state.box, choose(found, state, copy).box);
}

// The copy is of the box before this one, in which the open buffer of the state was open, too.
TEST(Arrangement, ACopyThatIsBehindTellsOfNoSuccessor)
{
    files found;
    found.add(current, 1, 4, 5000);
    found.add(current, 2, 1, 6000);
    found.add(current, 3, 2, 100);
    const named_state state = named(box_of(VESK_ZCF_STATE_CC0, {{current, 1}, {current, 2}}), 3);
    const named_state copy = named(box_of(VESK_ZCF_STATE_C00, {{current, 1}}), 2);
    EXPECT_EQ(state.box, choose(found, state, copy).box);
}

// A loss zeroed the open buffer of an older state; the copy fits and names the one behind it.
TEST(Arrangement, TheCopyCountsWhereTheOpenBufferOfTheStateIsBlank)
{
    files found;
    found.add(current, 1, 4);
    found.add(current, 2, 0).blank = true;
    found.add(current, 3, 2);
    const arrangement all = box_of(VESK_ZCF_STATE_CCC, {{current, 1}, {current, 2}, {current, 3}});
    const named_state state = named(box_of(VESK_ZCF_STATE_CC0, {{current, 1}, {current, 2}}), 3);
    EXPECT_EQ(all, choose(found, state, named(all, 4)).box);
    EXPECT_EQ(state.box, choose(found, state).box);
}

// The copy is written less often than the state file, so what is younger belongs to the box.
TEST(Arrangement, ACopyAloneIsFollowedWhateverTheTimes)
{
    files found;
    found.add(current, 1, 2, 5000);
    found.add(current, 2, 1, 100);
    const named_state copy = named(box_of(VESK_ZCF_STATE_C00, {{current, 1}}), 2);
    EXPECT_EQ(box_of(VESK_ZCF_STATE_CC0, {{current, 1}, {current, 2}}),
              choose(found, {}, copy).box);
}

TEST(Arrangement, ABufferThatLostItsTimesMayBeASuccessor)
{
    files found;
    found.add(current, 1, 2, 5000);
    box_file &behind = found.add(current, 2, 0);
    behind.contents.events = 1;
    const named_state state = named(box_of(VESK_ZCF_STATE_C00, {{current, 1}}), 2);
    EXPECT_EQ(state.box, choose(found, state).box);
    behind.contents.bytes_aside = 30;
    EXPECT_EQ(box_of(VESK_ZCF_STATE_CC0, {{current, 1}, {current, 2}}), choose(found, state).box);
}

// Both fit and neither is the last word: the buffers behind the higher one decide.
TEST(Arrangement, ASuccessorOfStateAndCopyIsFound)
{
    files found;
    found.add(current, 1, 4);
    found.add(current, 2, 4);
    found.add(current, 3, 1);
    const named_state state = named(box_of(VESK_ZCF_STATE_C00, {{current, 1}}), 2);
    const named_state copy = named(box_of(VESK_ZCF_STATE_CC0, {{current, 1}, {current, 2}}), 3);
    const arrangement box = box_of(VESK_ZCF_STATE_CCC, {{current, 1}, {current, 2}, {current, 3}});
    EXPECT_EQ(box, choose(found, state, copy).box);
    EXPECT_EQ(box, choose(found, copy, state).box);
    EXPECT_EQ(VESK_RECOVER_FROM_BUFFERS, choose(found, state, copy).source);
}

// A rotation was killed: what its history was made of is still there, and tells more.
TEST(Arrangement, AHistoryThatLostSomethingGivesWayToWhatItWasMadeOf)
{
    files found;
    found.add(current, 1, 4);
    found.add(current, 2, 4);
    found.add(current, 3, 4);
    found.add(history, 4, 1, 1010);
    found.add(current, 5, 0).blank = true;
    const named_state state =
        named(box_of(VESK_ZCF_STATE_HCC, {{history, 4}, {current, 3}, {current, 5}}), 6);
    EXPECT_EQ(box_of(VESK_ZCF_STATE_CCC, {{current, 1}, {current, 2}, {current, 3}}),
              choose(found, state).box);
}

TEST(Arrangement, ANumberThatTwoNamesOfOneFileHaveCountsOnce)
{
    files found;
    found.add(current, 5, 2).identity = {1, 42};
    found.add(current, 900, 2).identity = {1, 42};
    EXPECT_EQ(box_of(VESK_ZCF_STATE_C00, {{current, 5}}), choose(found).box);
}

// Files come in the order of the folder; whoever asks for one finds it all the same.
TEST(BoxFileList, FindsFilesInWhateverOrderTheyWereAdded)
{
    box_file_list list;
    for (const uint32_t number : {7U, 2U, 9U, 4U, 1U}) {
        ASSERT_NE(nullptr, list.add({current, number}));
        ASSERT_NE(nullptr, list.add({history, number}));
    }
    uint32_t last = 0;
    for (const box_file *file : list) {
        EXPECT_LE(last, file->name.number);
        last = file->name.number;
        EXPECT_EQ(file, list.find(file->name));
    }
    EXPECT_EQ(nullptr, list.find({current, 3}));
    EXPECT_EQ(nullptr, list.find({current, 10}));
    EXPECT_EQ(nullptr, list.find({current, 0}));
}

} // namespace
