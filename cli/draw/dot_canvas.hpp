// A picture of dots that becomes lines of characters: braille with 2 by 4 dots in each, half blocks
// with 1 by 2, or ASCII.
#ifndef VESK_CLI_DRAW_DOT_CANVAS_HPP
#define VESK_CLI_DRAW_DOT_CANVAS_HPP

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace cli
{

enum class dot_form { ascii, blocks, braille };

// Of one character.
struct dot_size {
    std::size_t width;
    std::size_t height;
};
constexpr dot_size dots_of(dot_form form)
{
    switch (form) {
    case dot_form::braille:
        return {2, 4};
    case dot_form::blocks:
        return {1, 2};
    case dot_form::ascii:
        break;
    }
    return {1, 1};
}

// What a dot belongs to; the greater one covers the other.
enum class dot_ink : uint8_t { none, band, line };

class dot_canvas
{
public:
    // Sizes in characters.
    dot_canvas(std::size_t columns, std::size_t rows, dot_form form);

    // Sizes in dots.
    std::size_t width() const { return width_; }
    std::size_t height() const { return height_; }

    // The left end is 0, the lower end 0. What lies outside of the canvas is not drawn.
    void dot(std::size_t x, std::size_t y, dot_ink ink);
    // From one height to the other, both included.
    void upright(std::size_t x, std::size_t y, std::size_t other_y, dot_ink ink);
    // A line between two dots, both included.
    void line(std::size_t x, std::size_t y, std::size_t other_x, std::size_t other_y, dot_ink ink);

    // One line of characters, the uppermost has the number 0, without the blanks at its end. With
    // @p colour the line and the band have colours of a terminal.
    std::string row(std::size_t number, bool colour) const;

private:
    dot_ink at(std::size_t x, std::size_t y) const { return dots_[y * width_ + x]; }
    std::string character(std::size_t column, std::size_t row, dot_ink &most) const;

    dot_form form_;
    std::size_t width_;
    std::size_t height_;
    std::size_t columns_;
    std::vector<dot_ink> dots_; // from the upper left corner, line by line
};

// UTF-8 of one character.
std::string utf8_of(char32_t code);

} // namespace cli

#endif
