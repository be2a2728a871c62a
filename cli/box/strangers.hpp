// Whose the files of a box are. The library changes no file of a user who could have put it there
// without the right to write to the box: here this is said in words.
#ifndef VESK_CLI_BOX_STRANGERS_HPP
#define VESK_CLI_BOX_STRANGERS_HPP

#include <string>

namespace cli
{

// "box.state belongs to user 1000 (ann), ...", and what can be done, where a file of the box has an
// owner who is neither the user of this process, nor root, nor the owner of the folder; empty
// otherwise, also where that cannot be told.
std::string stranger_words(const std::string &base);
// "belongs to user 1000 (ann)".
std::string owner_words(const std::string &path);

} // namespace cli

#endif
