// Parses and writes the texts of a recording's own events. A text may come from a box that anybody
// has made, so only what event_text would write itself is accepted.
#include "text/event_text.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <fmt/format.h>

namespace cli
{
namespace
{

constexpr std::array words = {event_word::start,   event_word::resume,  event_word::end,
                              event_word::machine, event_word::gap,     event_word::kernel,
                              event_word::top,     event_word::program, event_word::omitted};

bool is_key_character(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
}

bool is_plain(char c)
{
    return is_key_character(c) || (c >= 'A' && c <= 'Z') ||
           std::string_view("%+,-./:@").find(c) != std::string_view::npos;
}

bool is_printable_ascii(char c)
{
    return c >= ' ' && c <= '~';
}

std::string quoted(std::string_view value)
{
    if (!value.empty() && std::all_of(value.begin(), value.end(), is_plain)) {
        return std::string(value);
    }
    std::string result = "\"";
    for (const char c : value) {
        if (c == '"' || c == '\\') {
            result.append(1, '\\').append(1, c);
        } else if (is_printable_ascii(c)) {
            result += c;
        } else {
            result += fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
        }
    }
    return result + '"';
}

// Cuts the first characters off @p text for which @p belongs is true.
std::string_view take_while(std::string_view &text, bool (*belongs)(char))
{
    const auto *const end = std::find_if_not(text.begin(), text.end(), belongs);
    const std::string_view part = text.substr(0, static_cast<std::size_t>(end - text.begin()));
    text.remove_prefix(part.size());
    return part;
}

bool skip(std::string_view &text, char c)
{
    if (!text.starts_with(c)) {
        return false;
    }
    text.remove_prefix(1);
    return true;
}

int digit_of(char c)
{
    return c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

// What stands behind a backslash.
bool take_escaped(std::string_view &text, std::string &value)
{
    if (text.starts_with('"') || text.starts_with('\\')) {
        value += text.front();
        text.remove_prefix(1);
        return true;
    }
    if (text.size() < 3 || text[0] != 'x' || digit_of(text[1]) < 0 || digit_of(text[2]) < 0) {
        return false;
    }
    const char c = static_cast<char>(digit_of(text[1]) * 16 + digit_of(text[2]));
    text.remove_prefix(3);
    // An escape where none is needed is refused, so that each value has exactly one text.
    if (is_printable_ascii(c)) {
        return false;
    }
    value += c;
    return true;
}

bool take_quoted(std::string_view &text, std::string &value)
{
    while (!text.empty() && text.front() != '"') {
        const char c = text.front();
        text.remove_prefix(1);
        if (c == '\\') {
            if (!take_escaped(text, value)) {
                return false;
            }
        } else if (is_printable_ascii(c)) {
            value += c;
        } else {
            return false;
        }
    }
    return skip(text, '"') && (value.empty() || !std::all_of(value.begin(), value.end(), is_plain));
}

bool take_value(std::string_view &text, std::string &value)
{
    if (skip(text, '"')) {
        return take_quoted(text, value);
    }
    value = take_while(text, is_plain);
    return !value.empty();
}

bool take_pair(std::string_view &text, parsed_event &event)
{
    if (!skip(text, ' ') || event.pairs.size() == most_event_pairs) {
        return false;
    }
    const std::string_view key = take_while(text, is_key_character);
    std::string value;
    if (key.empty() || key.size() > longest_event_key || event.find(key) != nullptr ||
        !skip(text, '=') || !take_value(text, value)) {
        return false;
    }
    event.pairs.emplace_back(key, std::move(value));
    return true;
}

} // namespace

const std::string *parsed_event::find(std::string_view key) const
{
    const auto found = std::find_if(pairs.begin(), pairs.end(),
                                    [&](const auto &pair) { return pair.first == key; });
    return found != pairs.end() ? &found->second : nullptr;
}

std::string parsed_event::value(std::string_view key) const
{
    const std::string *found = find(key);
    return found != nullptr ? *found : std::string();
}

std::optional<int64_t> parsed_event::number(std::string_view key) const
{
    const std::string text = value(key);
    int64_t result = 0;
    const char *end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, result);
    if (error != std::errc() || rest != end) {
        return std::nullopt;
    }
    return result;
}

bool event_text::add(std::string_view key, std::string_view value)
{
    const std::string pair = fmt::format(" {}={}", key, quoted(value));
    if (pairs_ == most_event_pairs || text_.size() + pair.size() > longest_event_text) {
        return false;
    }
    text_ += pair;
    ++pairs_;
    return true;
}

bool event_text::add(std::string_view key, int64_t value)
{
    return add(key, fmt::format("{}", value));
}

std::optional<parsed_event> parse_event_text(std::string_view text)
{
    const std::string_view word = text.substr(0, text.find(' '));
    if (text.size() > longest_event_text ||
        std::find(words.begin(), words.end(), word) == words.end()) {
        return std::nullopt;
    }
    parsed_event event;
    event.word = word;
    text.remove_prefix(word.size());
    while (!text.empty()) {
        if (!take_pair(text, event)) {
            return std::nullopt;
        }
    }
    return event;
}

} // namespace cli
