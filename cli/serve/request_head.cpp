// A strict reader: what RFC 9112 lets a server refuse is refused. Nothing that it takes is decoded,
// joined or looked up, so no two programs can understand the same head differently.
#include "serve/request_head.hpp"

#include <algorithm>

namespace cli
{
namespace
{

constexpr int bad_request = 400;
constexpr int method_not_allowed = 405;
constexpr int content_too_large = 413;
constexpr int target_too_long = 414;
constexpr int head_too_large = 431;
constexpr int version_not_supported = 505;

constexpr std::string_view line_end = "\r\n";
constexpr std::string_view head_end = "\r\n\r\n";

bool is_letter_or_digit(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

bool is_token(std::string_view text)
{
    constexpr std::string_view others = "!#$%&'*+-.^_`|~";
    return !text.empty() && std::all_of(text.begin(), text.end(), [&](char c) {
        return is_letter_or_digit(c) || others.find(c) != std::string_view::npos;
    });
}

// Printable ASCII without spaces.
bool is_target(std::string_view text)
{
    return !text.empty() && text.front() == '/' &&
           std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c <= '~'; });
}

// Anything but control characters; a tab counts as a space.
bool is_field_value(std::string_view text)
{
    return std::all_of(text.begin(), text.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return (byte >= ' ' && byte != 0x7f) || c == '\t';
    });
}

bool is_same_name(std::string_view a, std::string_view b)
{
    const auto lower = [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    };
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(),
                                              [&](char x, char y) { return lower(x) == lower(y); });
}

std::string_view without_spaces(std::string_view text)
{
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(" \t") + 1 - first);
}

// Takes the lines of a head one by one; each function returns a status of HTTP, or 0.
class head_reader
{
public:
    int take_first_line(std::string_view line)
    {
        const std::size_t first = line.find(' ');
        const std::size_t last = line.rfind(' ');
        if (first == std::string_view::npos || first == last) {
            return bad_request;
        }
        const std::string_view method = line.substr(0, first);
        const std::string_view target = line.substr(first + 1, last - first - 1);
        const std::string_view version = line.substr(last + 1);
        if (!is_token(method) || !version.starts_with("HTTP/")) {
            return bad_request;
        }
        if (version != "HTTP/1.1" && version != "HTTP/1.0") {
            return version_not_supported;
        }
        if (method != "GET" && method != "HEAD") {
            return method_not_allowed;
        }
        if (target.size() > longest_target) {
            return target_too_long;
        }
        if (!is_target(target)) {
            return bad_request;
        }
        head_.only_head = method == "HEAD";
        const std::size_t mark = target.find('?');
        head_.path = target.substr(0, mark);
        head_.query = mark == std::string_view::npos ? "" : target.substr(mark + 1);
        return 0;
    }

    int take_field(std::string_view line)
    {
        const std::size_t colon = line.find(':');
        if (++fields_ > most_header_lines) {
            return head_too_large;
        }
        if (colon == std::string_view::npos || !is_token(line.substr(0, colon))) {
            return bad_request;
        }
        const std::string_view name = line.substr(0, colon);
        const std::string_view value = without_spaces(line.substr(colon + 1));
        if (!is_field_value(value)) {
            return bad_request;
        }
        return take_field(name, value);
    }

    int finish() const { return hosts_ == 1 ? 0 : bad_request; }
    request_head take() { return std::move(head_); }

private:
    int take_field(std::string_view name, std::string_view value)
    {
        if (is_same_name(name, "Host")) {
            ++hosts_;
            head_.host = value;
        } else if (is_same_name(name, "Last-Event-ID")) {
            head_.last_event = value;
        } else if (is_same_name(name, "Sec-Fetch-Site")) {
            head_.asked_by = value;
        } else if (is_same_name(name, "Transfer-Encoding") ||
                   (is_same_name(name, "Content-Length") && value != "0")) {
            return content_too_large;
        }
        return 0;
    }

    request_head head_;
    std::size_t fields_ = 0;
    int hosts_ = 0;
};

head_reading refused(int status)
{
    return {head_reading::state::refused, {}, status};
}

} // namespace

head_reading read_head(std::string_view bytes)
{
    const std::size_t end = bytes.substr(0, longest_head).find(head_end);
    const std::size_t first_end = bytes.find(line_end);
    if (end == std::string_view::npos) {
        const bool is_line_too_long =
            first_end == std::string_view::npos && bytes.size() > 2 * longest_target;
        if (is_line_too_long) {
            return refused(target_too_long);
        }
        return bytes.size() >= longest_head ? refused(head_too_large) : head_reading();
    }
    head_reader reader;
    if (const int status = reader.take_first_line(bytes.substr(0, first_end)); status != 0) {
        return refused(status);
    }
    for (std::size_t at = first_end; at < end;) {
        at += line_end.size();
        const std::size_t next = std::min(bytes.find(line_end, at), end);
        if (const int status = reader.take_field(bytes.substr(at, next - at)); status != 0) {
            return refused(status);
        }
        at = next;
    }
    if (const int status = reader.finish(); status != 0) {
        return refused(status);
    }
    return {head_reading::state::complete, reader.take(), 0};
}

} // namespace cli
