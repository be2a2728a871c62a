#include "machine/measurement.hpp"

namespace cli
{

std::string name_part(const std::string &text)
{
    std::string result = text;
    for (char &c : result) {
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                           (c >= '0' && c <= '9') || c == '.' || c == '_' || c == '-' || c == '+';
        if (!plain) {
            c = '_';
        }
    }
    return result;
}

} // namespace cli
