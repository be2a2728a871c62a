// Names that take the place of names that cannot stay.
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "recovery/mended_names.hpp"

namespace
{

using name_list = std::vector<std::string>;

name_list mend(const name_list &stored, bool unique)
{
    std::vector<const char *> texts;
    for (const std::string &name : stored) {
        texts.push_back(name.c_str());
    }
    const owned_names record(vesk_cb_record_sensor_names_create_null());
    record->sensors =
        sensor_array_create_from_names(texts.data(), static_cast<uint32_t>(texts.size()));
    const owned_names mended = _vesk_create_mended_names(record.get(), unique);
    name_list result;
    for (uint32_t i = 0; i < _vesk_count_names(mended.get()); ++i) {
        result.emplace_back(_vesk_name_at(mended->sensors, i));
    }
    return result;
}

TEST(MendedNames, KeepsTheFirstOfEachNameAndNumbersTheOthers)
{
    EXPECT_EQ((name_list{"a", "a.2", "b", "a.4"}), mend({"a", "a", "b", "a"}, true));
    EXPECT_EQ((name_list{"a", "a", "unknown.3"}), mend({"a", "a", ""}, false));
}

TEST(MendedNames, TakesNoNameThatASensorHas)
{
    EXPECT_EQ((name_list{"a", "a.3", "a.2", "a.4"}), mend({"a", "a", "a.2", "a"}, true));
    EXPECT_EQ((name_list{"unknown.2", "unknown.3", "unknown.4"}),
              mend({"unknown.2", "", ""}, true));
}

// Looking for a free number must not begin anew for each sensor.
TEST(MendedNames, MendsManyNamesThatStandInEachOthersWay)
{
    constexpr int half = 5000;
    name_list stored(half, "x");
    for (int i = 1; i <= half; ++i) {
        stored.push_back("x." + std::to_string(i));
    }
    const name_list mended = mend(stored, true);
    ASSERT_EQ(stored.size(), mended.size());
    EXPECT_EQ("x", mended[0]);
    EXPECT_EQ("x.5001", mended[1]);
    EXPECT_EQ("x.9999", mended[half - 1]);
    EXPECT_EQ("x.1", mended[half]);
}

} // namespace
