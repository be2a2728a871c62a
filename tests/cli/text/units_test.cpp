// Values for people and for machines.
#include <gtest/gtest.h>
#include <limits>
#include <nlohmann/json.hpp>

#include "text/machine_text.hpp"
#include "text/units.hpp"

namespace
{

using namespace cli;

constexpr double double_infinity = std::numeric_limits<double>::infinity();

TEST(Units, AreTakenFromTheNameOfTheSensor)
{
    EXPECT_EQ(with_unit(1.2 * 1024 * 1024 * 1024, "::mem.free_bytes"), "1.2 GiB");
    EXPECT_EQ(with_unit(3400, "::net.eth0.receive_bytes_per_s"), "3.4 kB/s");
    EXPECT_EQ(with_unit(12.5, "::cpu.total.busy_percent"), "12.5 %");
    EXPECT_EQ(with_unit(45.25, "::hwmon.k10temp.Tctl_C"), "45.25 C");
    EXPECT_EQ(with_unit(1200, "::hwmon.fan1_RPM"), "1200 RPM");
    EXPECT_EQ(with_unit(7, "::disk.sda.reads_per_s"), "7 /s");
    EXPECT_EQ(with_unit(0.5, "::load.1min"), "0.5");
    EXPECT_EQ(with_unit(0.5, "::status"), "0.5");
    EXPECT_EQ(with_unit(3, "::net.eth0.carrier_flag"), "3");
    EXPECT_EQ(with_unit(3, "::fs.free_inodes_count", 3), "3");
    EXPECT_EQ(with_unit(3, "::swap.in_pages_per_s"), "3 pages/s");
    EXPECT_EQ(with_unit(2400, "::cpu.0.MHz"), "2400 MHz");
}

TEST(Units, PrefixesChangeWhereTheNumberWouldBeTooLong)
{
    EXPECT_EQ(with_unit(0, "x_bytes"), "0 B");
    EXPECT_EQ(with_unit(1023, "x_bytes"), "1023 B");
    EXPECT_EQ(with_unit(1023.9, "x_bytes"), "0.9999 KiB");
    EXPECT_EQ(with_unit(1024, "x_bytes"), "1 KiB");
    EXPECT_EQ(with_unit(-2048, "x_bytes"), "-2 KiB");
    EXPECT_EQ(with_unit(999.2, "x_bytes_per_s"), "999.2 B/s");
    EXPECT_EQ(with_unit(1e30, "x_bytes_per_s"), "1e+12 EB/s");
}

TEST(Units, WholeNumbersStayWholeAndOthersHaveFourDigits)
{
    EXPECT_EQ(with_unit(123456, ""), "123456");
    EXPECT_EQ(with_unit(1234567890, ""), "1.235e+09");
    EXPECT_EQ(with_unit(10000004, ""), "10000004");
    EXPECT_EQ(with_unit(3.14159, ""), "3.142");
    EXPECT_EQ(with_unit(1e-9, ""), "1e-09");
}

TEST(Units, WhatIsNoNumberHasNoUnit)
{
    EXPECT_EQ(with_unit(std::numeric_limits<double>::quiet_NaN(), "x_bytes"), "-");
    EXPECT_EQ(with_unit(double_infinity, "x_bytes"), "inf B");
    EXPECT_EQ(with_unit(-double_infinity, "x"), "-inf");
}

TEST(Units, OfAnAxisFitItsLargestNumber)
{
    EXPECT_EQ(axis_unit_of(1024, "x_bytes").divisor, 1024);
    EXPECT_EQ(axis_unit_of(1024, "x_bytes").symbol, "KiB");
    EXPECT_TRUE(axis_unit_of(1024, "x_bytes").is_binary);
    EXPECT_EQ(axis_unit_of(2.5e6, "x_bytes_per_s").symbol, "MB/s");
    EXPECT_FALSE(axis_unit_of(2.5e6, "x_bytes_per_s").is_binary);
    EXPECT_EQ(axis_unit_of(1e300, "x_bytes").symbol, "EiB");
    EXPECT_EQ(axis_unit_of(double_infinity, "x_bytes").divisor, 1);
    EXPECT_EQ(axis_unit_of(1e6, "busy_percent").symbol, "%");
    EXPECT_EQ(axis_unit_of(1e6, "load").symbol, "");
}

TEST(MachineText, CsvIsQuotedWhereItNeedsIt)
{
    EXPECT_EQ(csv_field("plain"), "plain");
    EXPECT_EQ(csv_field("a,b"), "\"a,b\"");
    EXPECT_EQ(csv_field("say \"x\""), "\"say \"\"x\"\"\"");
    EXPECT_EQ(csv_field("a\nb\x1b[31m\xc2\x9b"), "a?b?[31m?");
    EXPECT_EQ(tsv_field("a\tb"), "a?b");
}

TEST(MachineText, JsonStringsAreAlwaysAsciiAndValid)
{
    EXPECT_EQ(json_string("a\"b\\"), R"("a\"b\\")");
    for (const std::string &text :
         {std::string("\x1b[31m\x7f\xc2\x9b"), std::string("\xff\xfe"), std::string("a\0b", 3),
          std::string("\xe2\x80\xae"), std::string()}) {
        const std::string written = json_string(text);
        EXPECT_TRUE(nlohmann::json::accept(written)) << written;
        for (const char c : written) {
            EXPECT_TRUE(c >= 0x20 && c < 0x7f) << written;
        }
    }
}

TEST(MachineText, NumbersReadBackAndJsonHasNoNaN)
{
    EXPECT_EQ(number_field(0.1F), "0.1");
    EXPECT_EQ(number_field(16777216.0F), "16777216");
    EXPECT_EQ(number_field(std::numeric_limits<float>::quiet_NaN()), "");
    EXPECT_EQ(number_field(-double_infinity), "-inf");
    EXPECT_EQ(json_number(std::numeric_limits<float>::quiet_NaN()), "null");
    EXPECT_EQ(json_number(double_infinity), "null");
    EXPECT_EQ(json_number(1.0 / 3), "0.3333333333333333");
    EXPECT_EQ(std::stof(number_field(3.4028235e38F)), 3.4028235e38F);
    EXPECT_EQ(std::stof(number_field(1.17549435e-38F)), 1.17549435e-38F);
}

} // namespace
