// Cuts the texts of the kernel into lines, words and numbers. The pieces point into the text that
// went in. A number counts only if the whole word is one and fits its type; otherwise there is no
// result.
#include "machine/text_fields.hpp"

#include <charconv>
#include <cmath>
#include <limits>

namespace cli
{
namespace
{

bool is_blank(char c)
{
    return c == ' ' || c == '\t';
}

} // namespace

std::string_view cut(std::string_view &text, char separator)
{
    const auto at = text.find(separator);
    const std::string_view part = text.substr(0, at);
    text.remove_prefix(at == std::string_view::npos ? text.size() : at + 1);
    return part;
}

std::string_view cut_word(std::string_view &text)
{
    std::size_t begin = 0;
    while (begin < text.size() && is_blank(text[begin])) {
        ++begin;
    }
    std::size_t end = begin;
    while (end < text.size() && !is_blank(text[end])) {
        ++end;
    }
    const std::string_view word = text.substr(begin, end - begin);
    text.remove_prefix(end);
    return word;
}

std::string_view word_at(std::string_view text, std::size_t number)
{
    for (std::size_t i = 0; i < number; ++i) {
        cut_word(text);
    }
    return cut_word(text);
}

std::optional<uint64_t> parse_count(std::string_view text)
{
    uint64_t value = 0;
    const char *end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    if (result.ec != std::errc() || result.ptr != end) {
        return std::nullopt;
    }
    return value;
}

std::optional<double> parse_decimal(std::string_view text)
{
    double value = 0;
    const char *end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    const bool whole = result.ec == std::errc() && result.ptr == end;
    if (!whole || !(std::abs(value) <= double{std::numeric_limits<float>::max()})) {
        return std::nullopt;
    }
    return value;
}

std::size_t parse_counts(std::string_view text, std::span<uint64_t> counts)
{
    for (std::size_t i = 0; i < counts.size(); ++i) {
        const auto value = parse_count(cut_word(text));
        if (!value) {
            return i;
        }
        counts[i] = *value;
    }
    return counts.size();
}

} // namespace cli
