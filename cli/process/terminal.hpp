// Prints what people read: messages, notes and a status line, all on standard error, because
// standard output belongs to data. Texts of unknown origin are made printable first.
#ifndef VESK_CLI_PROCESS_TERMINAL_HPP
#define VESK_CLI_PROCESS_TERMINAL_HPP

#include <cstdint>
#include <string>
#include <string_view>

namespace cli
{

// Colour needs a terminal that can show it and a user who has not set NO_COLOR.
bool colour_wanted(bool is_terminal, const char *no_color, const char *term);

// Prints the text as it is. If standard error refuses it, the text is lost, which ends nothing.
void say(std::string_view text);

// Takes messages and notes in the place of standard error, for a program that is no command. The
// text is printable. Null gives them back to standard error.
using message_listener = void (*)(std::string_view text);
void listen_to_messages(message_listener listener);

// complain() and note() leave the names away where standard error leads to the journal of the
// system, and give it the priority instead.

// "vesk: text", with the name in red where colour is wanted. The text is made printable.
void complain(std::string_view text);

// "vesk: note: text". The text is made printable.
void note(std::string_view text);

// Text from files, paths and arguments as it may be shown. What would let it talk to the terminal
// or pass for something else becomes the substitute: control characters (C0, DEL and C1), line
// ends, characters that turn the direction of text, and bytes that are no UTF-8.
std::string printable(std::string_view text, char substitute = '?');

// "1 sample", "2 samples".
std::string counted(uint64_t count, std::string_view noun);

// One line that is rewritten in place, and makes room for what is said meanwhile; nothing at all
// when standard error is not a terminal. There is one at a time.
class status_line
{
public:
    status_line();
    status_line(const status_line &) = delete;
    status_line &operator=(const status_line &) = delete;
    ~status_line() { clear(); }

    bool visible() const { return visible_; }
    void show(std::string_view text);
    void clear();

private:
    bool visible_;
};

} // namespace cli

#endif
