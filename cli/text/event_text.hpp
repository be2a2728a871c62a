// The texts of the events that a recording writes by itself, and what the types of events mean.
//
// Such a text is one of the words below and pairs behind it, one blank before each:
//
//   gap from=1732264205 to=1732264260 seconds=55 reason=killed
//   kernel priority=3 text="EXT4-fs error (device \"sda1\")"
//
// Keys are small letters, digits and '_'. A value that is anything but letters, digits and
// "%+,-./:@_" stands in quotation marks, and in it a backslash goes before '"' and '\' and, as
// \xNN, in place of each byte that is not a printable ASCII character. So a text has no control
// characters, whatever the value comes from.
#ifndef VESK_CLI_TEXT_EVENT_TEXT_HPP
#define VESK_CLI_TEXT_EVENT_TEXT_HPP

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace cli
{

// The types of events, on one scale for what a recording writes and for what users send.
enum event_level : uint32_t {
    level_note = 1,
    level_notice = 2,
    level_warning = 3,
    level_error = 4,
    level_critical = 5
};

// The first words.
namespace event_word
{
inline constexpr std::string_view start = "start";     // a recording makes a new box
inline constexpr std::string_view resume = "resume";   // a recording goes on with a box
inline constexpr std::string_view end = "end";         // a recording ends
inline constexpr std::string_view machine = "machine"; // who records, again in each buffer
inline constexpr std::string_view gap = "gap";         // a time without samples
inline constexpr std::string_view kernel = "kernel";   // a message of the kernel
inline constexpr std::string_view top = "top";         // the processes that use the most
inline constexpr std::string_view program = "program"; // what gives sensors of its own
inline constexpr std::string_view omitted = "omitted"; // how many events had no room
} // namespace event_word

// Longer texts are not made, and not taken for one of these when a box holds them.
constexpr std::size_t longest_event_text = 8000;
constexpr std::size_t most_event_pairs = 64;
constexpr std::size_t longest_event_key = 32;

struct parsed_event {
    std::string word;
    std::vector<std::pair<std::string, std::string>> pairs;

    // Null when there is no such key.
    const std::string *find(std::string_view key) const;
    // Empty when there is no such key.
    std::string value(std::string_view key) const;
    // Nothing when there is no such key, or its value is not a whole number.
    std::optional<int64_t> number(std::string_view key) const;
};

// Makes a text. A pair that would make it too long is left out; add() tells.
class event_text
{
public:
    explicit event_text(std::string_view word) : text_(word) {}

    bool add(std::string_view key, std::string_view value);
    bool add(std::string_view key, int64_t value);

    const std::string &text() const { return text_; }

private:
    std::string text_;
    std::size_t pairs_ = 0;
};

// Exactly what event_text makes: one of the words, then pairs with different keys. Nothing for any
// other text.
std::optional<parsed_event> parse_event_text(std::string_view text);

} // namespace cli

#endif
