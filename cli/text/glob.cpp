// Matches a pattern against a name. After a mismatch only the latest '*' is extended: if the rest
// cannot follow it, extending an earlier '*' does not help either. That keeps the time bounded.
#include "text/glob.hpp"

namespace cli
{
namespace
{

constexpr auto none = std::string_view::npos;

// Where the set that begins with the '[' at @p begin ends, or none if it is not closed. A ']' right
// at its beginning belongs to it.
std::size_t end_of_set(std::string_view pattern, std::size_t begin)
{
    std::size_t first = begin + 1;
    if (first < pattern.size() && (pattern[first] == '!' || pattern[first] == '^')) {
        ++first;
    }
    return pattern.find(']', first + 1);
}

// @p set is what stands between the brackets.
bool is_in_set(std::string_view set, unsigned char c)
{
    const bool inverted = set.starts_with('!') || set.starts_with('^');
    set.remove_prefix(inverted ? 1 : 0);
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(set[i]); };
    for (std::size_t i = 0; i < set.size(); ++i) {
        const bool is_range = i + 2 < set.size() && set[i + 1] == '-';
        if (c >= byte(i) && c <= byte(is_range ? i + 2 : i)) {
            return !inverted;
        }
        i += is_range ? 2 : 0;
    }
    return inverted;
}

// Whether the element of the pattern at @p at, which is no '*', stands for @p c. Moves on behind it
// if so.
bool takes(std::string_view pattern, std::size_t &at, char c)
{
    if (pattern[at] == '[') {
        if (const std::size_t end = end_of_set(pattern, at); end != none) {
            if (!is_in_set(pattern.substr(at + 1, end - at - 1), static_cast<unsigned char>(c))) {
                return false;
            }
            at = end + 1;
            return true;
        }
    }
    if (pattern[at] != '?' && pattern[at] != c) {
        return false;
    }
    ++at;
    return true;
}

} // namespace

bool matches_glob(std::string_view pattern, std::string_view text)
{
    std::size_t p = 0;
    std::size_t t = 0;
    std::size_t behind_star = none;
    std::size_t star_text = 0; // up to where the latest star reaches
    while (t < text.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            behind_star = ++p;
            star_text = t;
        } else if (p < pattern.size() && takes(pattern, p, text[t])) {
            ++t;
        } else if (behind_star != none) {
            p = behind_star;
            t = ++star_text;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == '*') {
        ++p;
    }
    return p == pattern.size();
}

bool is_glob(std::string_view pattern)
{
    return pattern.find_first_of("*?[") != none;
}

} // namespace cli
