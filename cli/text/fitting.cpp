// Characters are counted and not the columns that a terminal gives them: names of sensors hold no
// wide characters, and a line that is too long does no harm.
#include "text/fitting.hpp"

#include <algorithm>

#include "process/terminal.hpp"

namespace cli
{
namespace
{

bool begins_character(char byte)
{
    return (static_cast<unsigned char>(byte) & 0xc0U) != 0x80;
}

// The bytes of the first @p count characters.
std::size_t bytes_of(std::string_view text, std::size_t count)
{
    std::size_t seen = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (begins_character(text[i]) && seen++ == count) {
            return i;
        }
    }
    return text.size();
}

} // namespace

std::string shown_text(std::string_view text, charset set)
{
    std::string shown = printable(text);
    if (set == charset::utf8) {
        return shown;
    }
    std::string plain;
    for (const char c : shown) {
        if (begins_character(c)) {
            plain += static_cast<unsigned char>(c) < 0x80 ? c : '?';
        }
    }
    return plain;
}

std::size_t width_of(std::string_view text)
{
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), begins_character));
}

std::string fitted(std::string_view text, std::size_t width, charset set)
{
    constexpr std::string_view mark = "...";
    std::string shown = shown_text(text, set);
    if (width_of(shown) <= width) {
        return shown;
    }
    if (width <= mark.size()) {
        return shown.substr(0, bytes_of(shown, width));
    }
    return shown.substr(0, bytes_of(shown, width - mark.size())) + std::string(mark);
}

namespace
{

// The last blank among the first @p most + 1 bytes; none in front of a sign such as % or /s, which
// belongs to the number before it.
std::size_t blank_to_break_at(std::string_view text, std::size_t most)
{
    std::size_t blank = text.substr(0, most + 1).rfind(' ');
    while (blank != std::string_view::npos && blank > 0 && blank + 1 < text.size() &&
           (text[blank + 1] == '%' || text[blank + 1] == '/')) {
        blank = text.rfind(' ', blank - 1);
    }
    return blank;
}

} // namespace

std::vector<std::string> wrapped(std::string_view text, std::size_t width, charset set)
{
    const std::string shown = shown_text(text, set);
    width = std::max<std::size_t>(width, 1);
    std::string_view rest = shown;
    std::vector<std::string> lines;
    while (width_of(rest) > width) {
        const std::size_t most = bytes_of(rest, width);
        // The blank behind a line does not need room in it.
        const std::size_t blank = blank_to_break_at(rest, most);
        const bool at_blank = blank != std::string_view::npos && blank > 0;
        lines.emplace_back(rest.substr(0, at_blank ? blank : most));
        rest.remove_prefix(at_blank ? blank + 1 : most);
    }
    if (!rest.empty() || lines.empty()) {
        lines.emplace_back(rest);
    }
    return lines;
}

} // namespace cli
