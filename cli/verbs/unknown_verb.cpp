// Names the verb that is nearest to a mistyped one.
#include "verbs/unknown_verb.hpp"

#include <fmt/format.h>
#include <string_view>
#include <vector>

#include "process/terminal.hpp"
#include "text/suggestion.hpp"
#include "verbs/verb.hpp"

namespace cli
{

std::string unknown_verb_text(const std::string &typed)
{
    std::vector<std::string_view> names;
    for (const verb *each : all_verbs()) {
        names.emplace_back(each->name);
    }
    const std::string_view meant = nearest_word(typed, names);
    return fmt::format("there is no verb '{}'{}", printable(typed),
                       meant.empty() ? "" : fmt::format("; did you mean '{}'?", meant));
}

} // namespace cli
