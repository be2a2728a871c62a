// Gives sensors their columns and chooses some of them by patterns. Records name their sensors only
// when these change, so the columns are found anew only then.
#include "sensor_columns.hpp"

#include <array>
#include <fmt/format.h>
#include <new>
#include <unordered_set>

#include "box/box.hpp"
#include "box/reading.hpp"
#include "text/sensor_choice.hpp"

namespace vesk_python
{
namespace
{

// How many bytes of UTF-8 @p text begins with make one character; 0 when they are none.
std::size_t character_length(std::string_view text)
{
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = byte(0);
    if (first < 0x80) {
        return 1;
    }
    const std::size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
    if (first < 0xc2 || first > 0xf4 || length > text.size()) {
        return 0;
    }
    // The second byte has bounds of its own: no overlong forms, no surrogates, nothing too large.
    const unsigned char least = first == 0xe0 ? 0xa0 : first == 0xf0 ? 0x90 : 0x80;
    const unsigned char most = first == 0xed ? 0x9f : first == 0xf4 ? 0x8f : 0xbf;
    if (byte(1) < least || byte(1) > most) {
        return 0;
    }
    for (std::size_t i = 2; i < length; ++i) {
        if ((byte(i) & 0xc0U) != 0x80) {
            return 0;
        }
    }
    return length;
}

// A pattern that fits exactly @p name.
std::string literal_pattern(const std::string &name)
{
    std::string pattern;
    for (const char c : name) {
        const bool special = c == '*' || c == '?' || c == '[';
        pattern += special ? std::string("[") + c + "]" : std::string(1, c);
    }
    return pattern;
}

} // namespace

const column_list &sensor_columns::columns(const vesk_cb_record_sensor_names &names)
{
    const bool same = governing_ && governing_->sensors == names.sensors->sensors;
    if (!same) {
        columns_.clear();
        for (std::string &name : cli::sensor_names(names)) {
            columns_.push_back(column_of(std::move(name)));
        }
        governing_.reset(sensor_array_copy(names.sensors));
        if (!governing_) {
            throw std::bad_alloc();
        }
    }
    return columns_;
}

std::size_t sensor_columns::column_of(std::string name)
{
    const auto place = known_.find(name);
    if (place != known_.end()) {
        return place->second;
    }
    if (names_.size() == cli::most_named_sensors) {
        exceeded_ = true;
        return none;
    }
    known_.emplace(name, names_.size());
    names_.push_back(std::move(name));
    return names_.size() - 1;
}

std::string readable_text(const std::string &text)
{
    std::string result;
    std::string_view rest = text;
    while (!rest.empty()) {
        const std::size_t length = character_length(rest);
        if (length == 0) {
            result += fmt::format("\\x{:02x}", static_cast<unsigned char>(rest[0]));
        } else {
            result += rest.substr(0, length);
        }
        rest.remove_prefix(length == 0 ? 1 : length);
    }
    return result;
}

column_list choose_columns(const std::vector<std::string> &names,
                           const std::vector<std::string> &patterns)
{
    if (patterns.empty()) {
        return cli::choose_sensors(names, patterns);
    }
    std::unordered_map<std::string, const std::string *> raw_names;
    for (const std::string &name : names) {
        raw_names.emplace(readable_text(name), &name);
    }
    std::vector<std::string> wanted;
    wanted.reserve(patterns.size());
    for (const std::string &pattern : patterns) {
        const auto exact = raw_names.find(pattern);
        wanted.push_back(exact != raw_names.end() && !pattern.starts_with('!')
                             ? literal_pattern(*exact->second)
                             : pattern);
    }
    return cli::choose_sensors(names, wanted);
}

} // namespace vesk_python
