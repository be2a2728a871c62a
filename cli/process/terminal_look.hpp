// What the terminal behind standard output can show, for verbs that draw.
#ifndef VESK_CLI_PROCESS_TERMINAL_LOOK_HPP
#define VESK_CLI_PROCESS_TERMINAL_LOOK_HPP

#include <cstddef>

namespace cli
{

struct terminal_look {
    std::size_t width = 80; // in characters
    std::size_t height = 24;
    bool colour = false;
    bool utf8 = false;
};

// Where standard output is no terminal, the size is that of COLUMNS and LINES, or 80 by 24.
terminal_look look_of_output();

// Whether texts are UTF-8 by the values of LC_ALL, LC_CTYPE and LANG, the first of which that is
// set decides. Null stands for one that is not set.
bool is_utf8_locale(const char *lc_all, const char *lc_ctype, const char *lang);

} // namespace cli

#endif
