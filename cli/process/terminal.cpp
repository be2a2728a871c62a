// Prints messages, notes and the status line on standard error, with colour where it is wanted, and
// makes texts of unknown origin printable. Text may hold any bytes: what could control the terminal
// or disguise the text becomes a substitute character.
#include "process/terminal.hpp"

#include <cstdio>
#include <cstdlib>
#include <fmt/format.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace cli
{
namespace
{

std::size_t terminal_width()
{
    winsize size = {};
    if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) {
        return 80;
    }
    return size.ws_col;
}

message_listener listener_of_messages = nullptr;

// False when nobody listens, so that the message goes to standard error.
bool tell_listener(std::string_view text)
{
    if (listener_of_messages != nullptr) {
        listener_of_messages(printable(text));
    }
    return listener_of_messages != nullptr;
}

// The status line that is shown now; a message must clear it first.
status_line *shown_line = nullptr;

void make_room()
{
    if (shown_line != nullptr) {
        shown_line->clear();
    }
}

constexpr uint32_t not_a_character = 0xffffffff;

struct character {
    uint32_t code; // not_a_character for a byte that is no UTF-8
    std::size_t length;
};

// How many bytes a UTF-8 sequence has by its first one, and the least code that needs so many.
struct sequence_form {
    std::size_t length;
    uint32_t least;
    unsigned mask;
};

sequence_form form_of(unsigned char first)
{
    if (first < 0x80) {
        return {1, 0, 0x7f};
    }
    if (first >= 0xc0 && first < 0xe0) {
        return {2, 0x80, 0x1f};
    }
    if (first >= 0xe0 && first < 0xf0) {
        return {3, 0x800, 0x0f};
    }
    return first >= 0xf0 && first < 0xf8 ? sequence_form{4, 0x10000, 0x07} : sequence_form{};
}

character first_character(std::string_view text)
{
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const sequence_form form = form_of(byte(0));
    if (form.length == 0 || form.length > text.size()) {
        return {not_a_character, 1};
    }
    uint32_t code = byte(0) & form.mask;
    for (std::size_t i = 1; i < form.length; ++i) {
        if ((byte(i) & 0xc0U) != 0x80) {
            return {not_a_character, 1};
        }
        code = code << 6U | (byte(i) & 0x3fU);
    }
    const bool is_surrogate = code >= 0xd800 && code <= 0xdfff;
    if (code < form.least || code > 0x10ffff || is_surrogate) {
        return {not_a_character, 1};
    }
    return {code, form.length};
}

bool may_be_shown(const character &one)
{
    const uint32_t code = one.code;
    const bool control = code < 0x20 || (code >= 0x7f && code <= 0x9f);
    const bool line_end = code == 0x2028 || code == 0x2029;
    // The marks, embeddings, overrides and isolates that turn the direction of a text.
    const bool direction = code == 0x061c || code == 0x200e || code == 0x200f ||
                           (code >= 0x202a && code <= 0x202e) || (code >= 0x2066 && code <= 0x2069);
    return code != not_a_character && !control && !line_end && !direction;
}

// JOURNAL_STREAM holds the device and the inode of the stream that leads to the journal of the
// system; it stays in the environment when standard error was redirected since. The journal knows
// the name of the process, and takes a number in front for the priority.
bool goes_to_journal()
{
    const char *stream = getenv("JOURNAL_STREAM");
    struct stat status = {};
    return stream != nullptr && fstat(STDERR_FILENO, &status) == 0 &&
           fmt::format("{}:{}", status.st_dev, status.st_ino) == stream;
}

bool colour_on_stderr()
{
    return colour_wanted(isatty(STDERR_FILENO) == 1, getenv("NO_COLOR"), getenv("TERM"));
}

} // namespace

bool colour_wanted(bool is_terminal, const char *no_color, const char *term)
{
    const bool refused = no_color != nullptr && no_color[0] != '\0';
    const bool dumb = term == nullptr || std::string_view(term) == "dumb";
    return is_terminal && !refused && !dumb;
}

void say(std::string_view text)
{
    (void)std::fwrite(text.data(), 1, text.size(), stderr);
    (void)std::fflush(stderr);
}

void listen_to_messages(message_listener listener)
{
    listener_of_messages = listener;
}

void complain(std::string_view text)
{
    if (tell_listener(text)) {
        return;
    }
    make_room();
    if (goes_to_journal()) {
        say(fmt::format("<3>{}\n", printable(text)));
        return;
    }
    const bool colour = colour_on_stderr();
    say(fmt::format("{}vesk:{} {}\n", colour ? "\033[1;31m" : "", colour ? "\033[0m" : "",
                    printable(text)));
}

void note(std::string_view text)
{
    if (tell_listener(text)) {
        return;
    }
    make_room();
    say(fmt::format("{}{}\n", goes_to_journal() ? "<5>" : "vesk: note: ", printable(text)));
}

std::string printable(std::string_view text, char substitute)
{
    std::string result;
    while (!text.empty()) {
        const character next = first_character(text);
        if (may_be_shown(next)) {
            result += text.substr(0, next.length);
        } else {
            result += substitute;
        }
        text.remove_prefix(next.length);
    }
    return result;
}

std::string counted(uint64_t count, std::string_view noun)
{
    return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

status_line::status_line() : visible_(isatty(STDERR_FILENO) == 1) {}

void status_line::show(std::string_view text)
{
    if (!visible_) {
        return;
    }
    // One column stays free: a full line would wrap and leave its first half behind.
    say(fmt::format("\r\033[K{}", printable(text.substr(0, terminal_width() - 1))));
    shown_line = this;
}

void status_line::clear()
{
    if (shown_line == this) {
        say("\r\033[K");
        shown_line = nullptr;
    }
}

} // namespace cli
