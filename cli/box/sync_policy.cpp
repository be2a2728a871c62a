// Parses the value of the option --sync: "never", "vector", "end", or a duration such as "10s"
// between two syncs. Any other text is a usage failure that names what there is.
#include "box/sync_policy.hpp"

#include <array>
#include <fmt/format.h>
#include <string_view>

#include "process/failure.hpp"
#include "text/duration.hpp"
#include "text/suggestion.hpp"

namespace cli
{

sync_policy parse_sync_policy(const std::string &text)
{
    using moment = sync_policy::moment;
    if (text == "never") {
        return {moment::never, 0};
    }
    if (text == "vector") {
        return {moment::vector, 0};
    }
    if (text == "end") {
        return {moment::end, 0};
    }
    try {
        return {moment::interval, parse_duration(text, "--sync")};
    } catch (const failure &wrong) {
        if (!text.empty() && text.front() >= '0' && text.front() <= '9') {
            throw;
        }
        constexpr std::array<std::string_view, 3> words = {"vector", "end", "never"};
        const std::string_view meant = nearest_word(text, words);
        throw failure(wrong.code(),
                      fmt::format("{}, nor vector, end or never{}", wrong.what(),
                                  meant.empty() ? "" : fmt::format("; did you mean '{}'?", meant)));
    }
}

} // namespace cli
