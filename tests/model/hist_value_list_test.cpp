// The statistics of an interval, one for each sensor: lookup, order, and copies that move.
#include <cstdlib>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <vector>

#include <vesk/error.h>
#include <vesk/hist_value_list.h>

#include "common/aborts.hpp"
#include "common/failing_calls.hpp"

namespace
{

using name_list = std::vector<std::string>;

// A list that lives for one test.
class HistValueList : public testing::Test
{
protected:
    void SetUp() override { list_ = hist_value_list_create(); }
    void TearDown() override { hist_value_list_destroy(&list_); }

    // Looks the sensor up, without keeping a reference of its own.
    hist_value *add(const char *name)
    {
        sensor *s = sensor_create(name);
        hist_value *hv = hist_value_list_add_if_not_present(list_, s);
        sensor_destroy(&s);
        return hv;
    }

    name_list order() const
    {
        sensor_array *array = hist_value_list_get_sensor_copies(list_);
        name_list found;
        for (uint32_t i = 0; i < sensor_array_get_size(array); ++i) {
            found.emplace_back(sensor_array_get(array, static_cast<int>(i))->name);
        }
        sensor_array_destroy(&array);
        return found;
    }

    int are_sensors(const std::vector<const char *> &expected) const
    {
        sensor_array *array =
            sensor_array_create_from_names(expected.data(), static_cast<uint32_t>(expected.size()));
        const int equal = hist_value_list_are_sensors_equal(list_, array);
        sensor_array_destroy(&array);
        return equal;
    }

    hist_value_list *list_ = nullptr;
};

} // namespace

TEST_F(HistValueList, BeginsEmpty)
{
    EXPECT_EQ(0, list_->seq);
    EXPECT_EQ(1, hist_value_list_is_empty(list_));
    EXPECT_EQ(0U, hist_value_list_get_size(list_));
}

TEST_F(HistValueList, KeepsOneValuePerSensor)
{
    hist_value *hv = add("fan");
    EXPECT_EQ(1, hv->version);
    EXPECT_EQ(0U, hv->count);
    hist_value_update(hv, 4);
    EXPECT_EQ(hv, add("fan"));
    EXPECT_EQ(1U, hv->count);
    EXPECT_NE(hv, add("psu"));
    EXPECT_EQ(2U, hist_value_list_get_size(list_));
    EXPECT_EQ(0, hist_value_list_is_empty(list_));
}

TEST_F(HistValueList, FindsSensorsByTheirHandles)
{
    hist_value *hv = add("fan");
    sensor handle;
    sensor_init(&handle, "fan");
    EXPECT_EQ(hv, hist_value_list_add_if_not_present(list_, &handle));
    sensor_destruct(&handle);
}

TEST_F(HistValueList, KeepsItsSensorsAlive)
{
    sensor *s = sensor_create("fan");
    hist_value_list_add_if_not_present(list_, s);
    const sensor *canonical = s;
    sensor_destroy(&s);
    s = sensor_create("fan");
    EXPECT_EQ(canonical, s);
    sensor_destroy(&s);
}

TEST_F(HistValueList, OrdersByBucketAndThenLatestFirst)
{
    // Hash codes: "b" 98, "a" 97, "ab" and "ba" 195, four times 'x' and "a" 577, bucket 65 as "A".
    for (const char *name : {"b", "ab", "a", "ba", "xxxxa", "A"}) {
        add(name);
    }
    EXPECT_EQ((name_list{"A", "xxxxa", "a", "b", "ba", "ab"}), order());
}

TEST_F(HistValueList, HandsOutValuesInTheOrderOfTheSensors)
{
    float v = 1;
    for (const char *name : {"b", "ab", "a", "ba"}) {
        hist_value_update(add(name), v++);
    }
    EXPECT_EQ((name_list{"a", "b", "ba", "ab"}), order());
    hist_value *copies = hist_value_list_get_hist_value_copies(list_);
    EXPECT_EQ(3, copies[0].sum);
    EXPECT_EQ(1, copies[1].sum);
    EXPECT_EQ(4, copies[2].sum);
    EXPECT_EQ(2, copies[3].sum);
    free(copies);
}

TEST_F(HistValueList, RevivesEntriesInTheirOldPlaces)
{
    hist_value *ab = add("ab");
    hist_value *ba = add("ba");
    hist_value_update(ab, 7);
    hist_value_list_clear(list_);
    EXPECT_EQ(1, list_->seq);
    EXPECT_EQ(1, hist_value_list_is_empty(list_));
    EXPECT_EQ(0U, hist_value_list_get_size(list_));
    EXPECT_EQ(ab, add("ab"));
    EXPECT_EQ(1, ab->version);
    EXPECT_EQ(0U, ab->count);
    EXPECT_EQ(0.0F, ab->sum);
    EXPECT_EQ(name_list{"ab"}, order());
    EXPECT_EQ(ba, add("ba"));
    // Seen later this time, but the place is that of the first time.
    EXPECT_EQ((name_list{"ba", "ab"}), order());
}

TEST_F(HistValueList, HandsOutTheCurrentGenerationOnly)
{
    for (const char *name : {"a", "b", "c"}) {
        add(name);
    }
    hist_value_list_clear(list_);
    add("b");
    EXPECT_EQ(1U, hist_value_list_get_size(list_));
    EXPECT_EQ(name_list{"b"}, order());
    EXPECT_EQ(1, are_sensors({"b"}));
    EXPECT_EQ(0, are_sensors({"a"}));
}

TEST_F(HistValueList, ComparesSensorsInListOrder)
{
    for (const char *name : {"b", "ab", "a", "ba"}) {
        add(name);
    }
    EXPECT_EQ(1, are_sensors({"a", "b", "ba", "ab"}));
    EXPECT_EQ(0, are_sensors({"a", "b", "ab", "ba"}));
    EXPECT_EQ(0, are_sensors({"a", "b", "ba"}));
    EXPECT_EQ(0, are_sensors({"a", "b", "ba", "ab", "ab"}));
}

TEST_F(HistValueList, HandsOutNullWithoutACodeWhenItIsEmpty)
{
    qe_set_last_error(0);
    EXPECT_EQ(nullptr, hist_value_list_get_sensor_copies(list_));
    EXPECT_EQ(nullptr, hist_value_list_get_hist_value_copies(list_));
    EXPECT_EQ(0, qe_get_last_error());
    sensor_array *none = sensor_array_create_null();
    EXPECT_EQ(1, hist_value_list_are_sensors_equal(list_, none));
    sensor_array_destroy(&none);
}

TEST_F(HistValueList, HasGenerationsFor65535Clears)
{
    add("fan");
    for (int i = 0; i < 65535; ++i) {
        hist_value_list_clear(list_);
    }
    EXPECT_EQ(-1, list_->seq);
    EXPECT_ABORTS(hist_value_list_clear(list_), "list->seq != 0");
}

TEST_F(HistValueList, HoldsManySensors)
{
    for (int i = 0; i < 2000; ++i) {
        hist_value_update(add(std::to_string(i).c_str()), static_cast<float>(i));
    }
    EXPECT_EQ(2000U, hist_value_list_get_size(list_));
    const name_list sensors = order();
    hist_value *copies = hist_value_list_get_hist_value_copies(list_);
    for (std::size_t j = 0; j < sensors.size(); ++j) {
        EXPECT_EQ(std::stof(sensors[j]), copies[j].sum);
    }
    free(copies);
}

TEST_F(HistValueList, FindsSensorsInAnyOrder)
{
    const name_list sensors = {"a", "b", "c", "ab", "ba", "ca", "ac"};
    std::map<std::string, hist_value *> values;
    for (const std::string &name : sensors) {
        values[name] = add(name.c_str());
    }
    // A fixed walk through all pairs of neighbours, with clears in between.
    uint32_t state = 1;
    for (int i = 0; i < 2000; ++i) {
        state = state * 1103515245 + 12345;
        const std::string &name = sensors[(state >> 16) % sensors.size()];
        EXPECT_EQ(values[name], add(name.c_str()));
        if (i % 100 == 99) {
            hist_value_list_clear(list_);
        }
    }
}

TEST_F(HistValueList, DoesNotMixUpLists)
{
    hist_value_list other;
    hist_value_list_init(&other);
    sensor *fan = sensor_create("fan");
    sensor *psu = sensor_create("psu");
    const hist_value *mine[] = {hist_value_list_add_if_not_present(list_, fan),
                                hist_value_list_add_if_not_present(list_, psu)};
    const hist_value *others[] = {hist_value_list_add_if_not_present(&other, fan),
                                  hist_value_list_add_if_not_present(&other, psu)};
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(mine[0], hist_value_list_add_if_not_present(list_, fan));
        EXPECT_EQ(others[1], hist_value_list_add_if_not_present(&other, psu));
        EXPECT_EQ(others[0], hist_value_list_add_if_not_present(&other, fan));
        EXPECT_EQ(mine[1], hist_value_list_add_if_not_present(list_, psu));
    }
    // A list that begins again at the same place knows nothing of the old one.
    hist_value_list_destruct(&other);
    hist_value_list_init(&other);
    EXPECT_EQ(0U, hist_value_list_add_if_not_present(&other, psu)->count);
    EXPECT_EQ(1U, hist_value_list_get_size(&other));
    hist_value_list_destruct(&other);
    sensor_destroy(&fan);
    sensor_destroy(&psu);
}

TEST_F(HistValueList, ReportsMissingMemory)
{
    sensor *s = sensor_create("fan");
    {
        const failing_allocation fails(1);
        qe_set_last_error(0);
        EXPECT_EQ(nullptr, hist_value_list_add_if_not_present(list_, s));
        EXPECT_EQ(-22, qe_get_last_error());
        EXPECT_EQ(0U, hist_value_list_get_size(list_));
    }
    hist_value_list_add_if_not_present(list_, s);
    sensor_destroy(&s);
    for (const int n : {1, 2, 3}) {
        const failing_allocation fails(n);
        qe_set_last_error(0);
        EXPECT_EQ(nullptr, hist_value_list_get_sensor_copies(list_));
        EXPECT_EQ(-22, qe_get_last_error());
    }
    const failing_allocation fails(1, failing_allocation::for_ever);
    qe_set_last_error(0);
    EXPECT_EQ(nullptr, hist_value_list_get_hist_value_copies(list_));
    EXPECT_EQ(-22, qe_get_last_error());
    qe_set_last_error(0);
    EXPECT_EQ(nullptr, hist_value_list_create());
    EXPECT_EQ(-22, qe_get_last_error());
}

TEST_F(HistValueList, CanBeUsedAgainAfterDestruct)
{
    add("fan");
    hist_value_list_destruct(list_);
    EXPECT_EQ(0U, hist_value_list_get_size(list_));
    add("psu");
    EXPECT_EQ(name_list{"psu"}, order());
}

TEST_F(HistValueList, RefusesACountThatIsTooSmall)
{
    add("a");
    add("b");
    list_->nitems = 1;
    EXPECT_ABORTS(hist_value_list_get_sensor_copies(list_), "j < list->nitems");
    EXPECT_ABORTS(hist_value_list_get_hist_value_copies(list_), "j < list->nitems");
    list_->nitems = 2;
}

TEST_F(HistValueList, RefusesNull)
{
    sensor *s = sensor_create("fan");
    sensor_array *array = sensor_array_create_null();
    hist_value_list *none = nullptr;
    const char *const text = "list != ((void *)0)";
    EXPECT_ABORTS(hist_value_list_init(nullptr), text);
    EXPECT_ABORTS(hist_value_list_destruct(nullptr), text);
    EXPECT_ABORTS(hist_value_list_destroy(nullptr), text);
    EXPECT_ABORTS(hist_value_list_destroy(&none), "*list != ((void *)0)");
    EXPECT_ABORTS(hist_value_list_add_if_not_present(nullptr, s), text);
    EXPECT_ABORTS(hist_value_list_add_if_not_present(list_, nullptr), "sensor != ((void *)0)");
    EXPECT_ABORTS(hist_value_list_clear(nullptr), text);
    EXPECT_ABORTS(hist_value_list_is_empty(nullptr), text);
    EXPECT_ABORTS(hist_value_list_get_size(nullptr), text);
    EXPECT_ABORTS(hist_value_list_get_sensor_copies(nullptr), text);
    EXPECT_ABORTS(hist_value_list_get_hist_value_copies(nullptr), text);
    EXPECT_ABORTS(hist_value_list_are_sensors_equal(nullptr, array), text);
    EXPECT_ABORTS(hist_value_list_are_sensors_equal(list_, nullptr), "s_array != ((void *)0)");
    sensor_array_destroy(&array);
    sensor_destroy(&s);
}

TEST(MovedHistValueList, KeepsItsOwnEntries)
{
    // Lists are plain records: these two change places, after one of them was looked into.
    hist_value_list lists[2];
    sensor *sensors[] = {sensor_create("a"), sensor_create("b")};
    for (hist_value_list &list : lists) {
        hist_value_list_init(&list);
        for (int round = 0; round < 3; ++round) {
            for (const sensor *s : sensors) {
                hist_value_update(hist_value_list_add_if_not_present(&list, s), 1.0F);
            }
        }
    }
    hist_value *const of_second[] = {hist_value_list_add_if_not_present(&lists[1], sensors[0]),
                                     hist_value_list_add_if_not_present(&lists[1], sensors[1])};
    hist_value *const of_first[] = {hist_value_list_add_if_not_present(&lists[0], sensors[0]),
                                    hist_value_list_add_if_not_present(&lists[0], sensors[1])};
    std::swap(lists[0], lists[1]);
    for (int round = 0; round < 2; ++round) {
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(of_second[i], hist_value_list_add_if_not_present(&lists[0], sensors[i]));
        }
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(of_first[i], hist_value_list_add_if_not_present(&lists[1], sensors[i]));
        }
    }
    hist_value_list_destruct(&lists[0]);
    hist_value_list_destruct(&lists[1]);
    sensor_destroy(&sensors[0]);
    sensor_destroy(&sensors[1]);
}

TEST(MovedHistValueList, NeedsNothingOfTheOneThatItCameFrom)
{
    // The list that was there before is gone, with the entries that the latest lookups led to.
    sensor *s = sensor_create("a");
    hist_value_list list;
    hist_value_list_init(&list);
    hist_value_list other;
    hist_value_list_init(&other);
    const hist_value *of_other = hist_value_list_add_if_not_present(&other, s);
    for (int round = 0; round < 3; ++round) {
        hist_value_list_add_if_not_present(&list, s);
    }
    hist_value_list moved = list;
    list = other;
    hist_value_list_destruct(&moved);
    EXPECT_EQ(of_other, hist_value_list_add_if_not_present(&list, s));
    hist_value_list_destruct(&list);
    sensor_destroy(&s);
}

TEST(HistValueListPreconditions, LookAtTheSensorAtEveryLookup)
{
    hist_value_list list;
    hist_value_list_init(&list);
    sensor s;
    sensor_init(&s, "a");
    for (int round = 0; round < 3; ++round) {
        hist_value_list_add_if_not_present(&list, &s);
    }
    s.version = 0;
    EXPECT_ABORTS(hist_value_list_add_if_not_present(&list, &s), "s->version == ((char) 1)");
    s.version = 1;
    sensor_destruct(&s);
    hist_value_list_destruct(&list);
}
