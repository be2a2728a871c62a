// The locale is read from the environment and not set in the process, where it would change how
// numbers are read and written.
#include "process/terminal_look.hpp"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <string>
#include <string_view>
#include <sys/ioctl.h>
#include <unistd.h>

#include "process/terminal.hpp"

namespace cli
{
namespace
{

std::size_t size_in(const char *variable, std::size_t otherwise)
{
    constexpr std::size_t most = 10000;
    const char *const text = getenv(variable);
    if (text == nullptr) {
        return otherwise;
    }
    const std::string_view whole = text;
    std::size_t found = 0;
    const auto [end, error] = std::from_chars(whole.data(), whole.data() + whole.size(), found);
    const bool is_number = error == std::errc() && end == whole.data() + whole.size();
    return is_number && found > 0 ? std::min(found, most) : otherwise;
}

} // namespace

bool is_utf8_locale(const char *lc_all, const char *lc_ctype, const char *lang)
{
    for (const char *name : {lc_all, lc_ctype, lang}) {
        if (name == nullptr || name[0] == '\0') {
            continue;
        }
        std::string letters;
        for (const char c : std::string_view(name)) {
            if (c != '-') {
                letters += c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
            }
        }
        return letters.find("utf8") != std::string::npos;
    }
    return false;
}

terminal_look look_of_output()
{
    terminal_look look;
    winsize size = {};
    const bool is_terminal = isatty(STDOUT_FILENO) == 1;
    if (is_terminal && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
        look.width = size.ws_col;
        look.height = size.ws_row > 0 ? size.ws_row : look.height;
    } else {
        look.width = size_in("COLUMNS", look.width);
        look.height = size_in("LINES", look.height);
    }
    look.colour = colour_wanted(is_terminal, getenv("NO_COLOR"), getenv("TERM"));
    look.utf8 = is_utf8_locale(getenv("LC_ALL"), getenv("LC_CTYPE"), getenv("LANG"));
    return look;
}

} // namespace cli
