// What comes from a box is text in a page and never markup or script; numbers keep all their bits.
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "page/html.hpp"

namespace
{

using namespace cli;

TEST(Html, NoCharacterOfATextIsMarkup)
{
    EXPECT_EQ(html_text("<b a=\"1\" c='2'>&</b>"),
              "&lt;b a=&quot;1&quot; c=&#39;2&#39;&gt;&amp;&lt;/b&gt;");
    EXPECT_EQ(html_text("a\x01\xff"), "a??");
}

TEST(Html, EveryByteIsSafeInAScriptElementAndComesBack)
{
    std::string all;
    for (int byte = 1; byte < 128; ++byte) {
        all += static_cast<char>(byte);
    }
    all += "</script><!--<script>\xe2\x80\xa8";
    const std::string text = script_string(all);
    EXPECT_EQ(text.find_first_of("<>&"), std::string::npos);
    EXPECT_EQ(nlohmann::json::parse(text).get<std::string>(), all);
}

TEST(Html, NumbersArePackedLittleEndian)
{
    EXPECT_EQ(base64_of(std::vector<float>{}), "");
    EXPECT_EQ(base64_of(std::vector<float>{1}), "AACAPw==");
    EXPECT_EQ(base64_of(std::vector<float>{1, -2}), "AACAPwAAAMA=");
    EXPECT_EQ(base64_of(std::vector<float>{1, -2, 0.5F}), "AACAPwAAAMAAAAA/");
    EXPECT_EQ(base64_of(std::vector<float>{-std::numeric_limits<float>::quiet_NaN()}), "AADAfw==");
}

} // namespace
