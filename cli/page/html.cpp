// Escapes texts for HTML and for JSON in a script element, and packs numbers. This is the only
// place where a text of unknown origin is made a part of a page.
#include "page/html.hpp"

#include <array>
#include <bit>
#include <cmath>
#include <cstdint>

#include "draw/svg_chart.hpp"
#include "text/machine_text.hpp"

namespace cli
{
namespace
{

std::string_view escape_of(char c)
{
    switch (c) {
    case '&':
        return "\\u0026";
    case '<':
        return "\\u003c";
    case '>':
        return "\\u003e";
    default:
        return {};
    }
}

// Collects bytes and appends four characters for three of them.
class base64_writer
{
public:
    explicit base64_writer(std::size_t bytes) { out_.reserve((bytes + 2) / 3 * 4); }

    void add(uint8_t byte)
    {
        bits_ = (bits_ << 8U) | byte;
        if (++count_ == 3) {
            put(4);
        }
    }
    std::string take()
    {
        const std::size_t rest = count_;
        if (rest > 0) {
            bits_ <<= 8U * (3 - rest);
            put(rest + 1);
            out_.append(3 - rest, '=');
        }
        return std::move(out_);
    }

private:
    void put(std::size_t characters)
    {
        constexpr std::string_view digits =
            "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
        for (std::size_t i = 0; i < characters; ++i) {
            out_ += digits[(bits_ >> (18U - 6U * i)) & 63U];
        }
        bits_ = 0;
        count_ = 0;
    }

    std::string out_;
    uint32_t bits_ = 0;
    std::size_t count_ = 0;
};

} // namespace

std::string html_text(std::string_view text)
{
    return xml_text(text);
}

std::string script_string(std::string_view text)
{
    std::string result;
    for (const char c : json_string(text)) {
        if (const std::string_view escape = escape_of(c); !escape.empty()) {
            result += escape;
        } else {
            result += c;
        }
    }
    return result;
}

std::string base64_of(std::span<const float> values)
{
    constexpr uint32_t nan_bits = 0x7fc00000;
    base64_writer writer(values.size() * sizeof(float));
    for (const float value : values) {
        const uint32_t bits = std::isnan(value) ? nan_bits : std::bit_cast<uint32_t>(value);
        for (unsigned shift = 0; shift < 32; shift += 8) {
            writer.add(static_cast<uint8_t>(bits >> shift));
        }
    }
    return writer.take();
}

} // namespace cli
