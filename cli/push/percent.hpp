// Percent-encoding of any bytes, as URLs have it.
#ifndef VESK_CLI_PUSH_PERCENT_HPP
#define VESK_CLI_PUSH_PERCENT_HPP

#include <string>
#include <string_view>

namespace cli
{

// Letters, digits, '-', '.', '_' and '~' stay; every other byte becomes "%XX".
inline std::string percent_encoded(std::string_view text)
{
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string result;
    for (const char c : text) {
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                           (c >= '0' && c <= '9') || c == '-' || c == '.' || c == '_' || c == '~';
        if (plain) {
            result += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            result += {'%', digits[byte >> 4U], digits[byte & 15U]};
        }
    }
    return result;
}

// What is no "%XX" stays as it is.
inline std::string percent_decoded(std::string_view text)
{
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() && digits.find(text[i + 1]) != digits.npos &&
            digits.find(text[i + 2]) != digits.npos) {
            result += static_cast<char>(digits.find(text[i + 1]) * 16 + digits.find(text[i + 2]));
            i += 2;
        } else {
            result += text[i];
        }
    }
    return result;
}

} // namespace cli

#endif
