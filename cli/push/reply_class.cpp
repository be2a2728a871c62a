// Sorts replies. The status of HTTP decides where it can; engines use 500 for both, and say in the
// text what is meant.
#include "push/reply_class.hpp"

#include <algorithm>
#include <charconv>
#include <fmt/format.h>

#include "process/terminal.hpp"

namespace cli
{
namespace
{

constexpr std::size_t longest_words = 300;

// Exceptions of ClickHouse that go away by themselves: files or memory that are short, time that
// ran out, connections, quotas, too many parts or queries, replicas that are away, a query that was
// ended.
constexpr int passing_codes[] = {74,  75,  76,  77,  159, 160, 173, 198,  201,  202, 203, 204,
                                 209, 210, 225, 236, 241, 242, 243, 252,  254,  279, 285, 286,
                                 319, 341, 394, 425, 439, 473, 999, 1000, 1001, 1002};

reply_class of_status(long status)
{
    constexpr long passing[] = {408, 421, 425, 429, 500, 502, 503, 504, 507};
    if (status >= 200 && status < 300) {
        return reply_class::taken;
    }
    const bool may_pass =
        std::find(std::begin(passing), std::end(passing), status) != std::end(passing);
    return may_pass ? reply_class::passing : reply_class::permanent;
}

reply_class of_clickhouse(long status, std::string_view text)
{
    const int code = clickhouse_code(text);
    if (code == 0) {
        return of_status(status);
    }
    // A query that fails when its reply has begun has a status of 200.
    const bool may_pass = std::find(std::begin(passing_codes), std::end(passing_codes), code) !=
                          std::end(passing_codes);
    return may_pass ? reply_class::passing : reply_class::permanent;
}

reply_class of_remote_write(long status, std::string_view text)
{
    // Prometheus has 500 for it, which would be worth another attempt.
    return tells_wrong_time(text) ? reply_class::permanent : of_status(status);
}

} // namespace

bool tells_wrong_time(std::string_view text)
{
    constexpr std::string_view signs[] = {"too old sample",
                                          "out of order sample",
                                          "out of bounds",
                                          "out-of-order",
                                          "duplicate sample for timestamp",
                                          "too far in the past"};
    return std::any_of(std::begin(signs), std::end(signs), [&](std::string_view sign) {
        return text.find(sign) != std::string_view::npos;
    });
}

int clickhouse_code(std::string_view text)
{
    constexpr std::string_view begin = "Code: ";
    const std::size_t found = text.find(begin);
    if (found == std::string_view::npos) {
        return 0;
    }
    int code = 0;
    const std::string_view rest = text.substr(found + begin.size());
    std::from_chars(rest.data(), rest.data() + rest.size(), code);
    return code;
}

reply_class classify_reply(engine_kind engine, long status, std::string_view text)
{
    return engine == engine_kind::clickhouse ? of_clickhouse(status, text)
                                             : of_remote_write(status, text);
}

std::string reply_words(long status, std::string_view text)
{
    std::string line(text.substr(0, text.find_first_of("\r\n")));
    constexpr std::string_view tail = ", e.what() = DB::Exception";
    if (line.ends_with(tail)) {
        line.resize(line.size() - tail.size());
    }
    const bool is_long = line.size() > longest_words;
    line.resize(std::min(line.size(), longest_words));
    return fmt::format("HTTP {}{}{}{}", status, line.empty() ? "" : ": ", printable(line),
                       is_long ? "..." : "");
}

} // namespace cli
