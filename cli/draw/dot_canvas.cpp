// The dots of a band are thinned out in braille, where they are all that tells it from a line.
#include "draw/dot_canvas.hpp"

#include <algorithm>
#include <array>
#include <cstdlib>

namespace cli
{
namespace
{

constexpr std::size_t most_rows_of_dots = 4;
constexpr std::size_t most_columns_of_dots = 2;

// The bit of each dot in a braille character, by row and column.
constexpr std::array<std::array<uint32_t, most_columns_of_dots>, most_rows_of_dots> braille_bits = {
    {{0x01, 0x08}, {0x02, 0x10}, {0x04, 0x20}, {0x40, 0x80}}};
constexpr char32_t empty_braille = 0x2800;

constexpr const char *line_colour = "\033[33m";
constexpr const char *band_colour = "\033[34m";
constexpr const char *plain = "\033[0m";

} // namespace

std::string utf8_of(char32_t code)
{
    const auto byte = [](char32_t bits) { return static_cast<char>(bits); };
    if (code < 0x80) {
        return {byte(code)};
    }
    if (code < 0x800) {
        return {byte(0xc0U | code >> 6U), byte(0x80U | (code & 0x3fU))};
    }
    return {byte(0xe0U | code >> 12U), byte(0x80U | (code >> 6U & 0x3fU)),
            byte(0x80U | (code & 0x3fU))};
}

dot_canvas::dot_canvas(std::size_t columns, std::size_t rows, dot_form form)
    : form_(form), width_(columns * dots_of(form).width), height_(rows * dots_of(form).height),
      columns_(columns), dots_(width_ * height_, dot_ink::none)
{
}

void dot_canvas::dot(std::size_t x, std::size_t y, dot_ink ink)
{
    if (x < width_ && y < height_) {
        dot_ink &place = dots_[(height_ - 1 - y) * width_ + x];
        place = std::max(place, ink);
    }
}

void dot_canvas::upright(std::size_t x, std::size_t y, std::size_t other_y, dot_ink ink)
{
    for (std::size_t at = std::min(y, other_y); at <= std::max(y, other_y); ++at) {
        dot(x, at, ink);
    }
}

void dot_canvas::line(std::size_t x, std::size_t y, std::size_t other_x, std::size_t other_y,
                      dot_ink ink)
{
    const auto distance = [](std::size_t a, std::size_t b) { return a < b ? b - a : a - b; };
    const std::size_t length = std::max(distance(x, other_x), distance(y, other_y));
    const auto between = [&](std::size_t a, std::size_t b, std::size_t step) {
        const auto from = static_cast<int64_t>(a);
        const auto way = static_cast<int64_t>(b) - from;
        const auto whole = static_cast<int64_t>(std::max<std::size_t>(length, 1));
        // Rounded to the nearest dot.
        const int64_t moved =
            (2 * way * static_cast<int64_t>(step) + (way < 0 ? -whole : whole)) / (2 * whole);
        return static_cast<std::size_t>(from + moved);
    };
    for (std::size_t step = 0; step <= length; ++step) {
        dot(between(x, other_x, step), between(y, other_y, step), ink);
    }
}

std::string dot_canvas::character(std::size_t column, std::size_t row, dot_ink &most) const
{
    const dot_size size = dots_of(form_);
    uint32_t line = 0;
    uint32_t band = 0;
    for (std::size_t i = 0; i < size.height; ++i) {
        for (std::size_t j = 0; j < size.width; ++j) {
            const std::size_t x = column * size.width + j;
            const std::size_t y = row * size.height + i;
            const dot_ink ink = at(x, y);
            most = std::max(most, ink);
            line |= ink == dot_ink::line ? braille_bits[i][j] : 0;
            band |= ink == dot_ink::band && (x + y) % 2 == 0 ? braille_bits[i][j] : 0;
        }
    }
    if (most == dot_ink::none) {
        return " ";
    }
    if (form_ == dot_form::braille) {
        return line + band == 0 ? " " : utf8_of(empty_braille + line + band);
    }
    if (form_ == dot_form::ascii) {
        return most == dot_ink::line ? "*" : ":";
    }
    if (most == dot_ink::band) {
        return "\u2591"; // light shade
    }
    constexpr uint32_t upper = 0x01;
    constexpr uint32_t lower = 0x02;
    return line == (upper | lower) ? "\u2588" : line == upper ? "\u2580" : "\u2584";
}

std::string dot_canvas::row(std::size_t number, bool colour) const
{
    std::string text;
    std::string blanks;
    dot_ink shown = dot_ink::none;
    for (std::size_t column = 0; column < columns_; ++column) {
        dot_ink ink = dot_ink::none;
        const std::string next = character(column, number, ink);
        if (next == " ") {
            blanks += next;
            continue;
        }
        text += blanks;
        blanks.clear();
        if (colour && ink != shown) {
            text += ink == dot_ink::line ? line_colour : band_colour;
            shown = ink;
        }
        text += next;
    }
    return shown == dot_ink::none ? text : text + plain;
}

} // namespace cli
