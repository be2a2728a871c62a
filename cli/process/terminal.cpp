#include "process/terminal.hpp"

#include <cstdio>
#include <cstdlib>
#include <fmt/format.h>
#include <sys/ioctl.h>
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

// The line that stands there and would be written over.
status_line *shown_line = nullptr;

void make_room()
{
    if (shown_line != nullptr) {
        shown_line->clear();
    }
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

void complain(std::string_view text)
{
    make_room();
    const bool colour = colour_on_stderr();
    say(fmt::format("{}vesk:{} {}\n", colour ? "\033[1;31m" : "", colour ? "\033[0m" : "", text));
}

void note(std::string_view text)
{
    make_room();
    say(fmt::format("vesk: note: {}\n", text));
}

std::string printable(std::string_view text)
{
    std::string result(text);
    for (char &c : result) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7f) {
            c = '?';
        }
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
    say(fmt::format("\r\033[K{}", text.substr(0, terminal_width() - 1)));
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
