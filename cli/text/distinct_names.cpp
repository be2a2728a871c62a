// Numbers equal names. The number that was tried last for a name is remembered: no number is tried
// twice for it, so the time grows with the number of names and not with its square.
#include "text/distinct_names.hpp"

#include <fmt/format.h>
#include <unordered_map>
#include <unordered_set>

namespace cli
{

std::vector<std::string>
distinct_names(std::span<const std::string> names,
               const std::function<std::string(const std::string &)> &changed)
{
    std::vector<std::string> result;
    result.reserve(names.size());
    std::unordered_set<std::string> taken(names.begin(), names.end());
    std::unordered_map<std::string, unsigned> tried;
    for (const std::string &original : names) {
        const std::string plain = changed(original);
        std::string name = plain;
        if (name != original && !taken.insert(name).second) {
            unsigned &number = tried.try_emplace(plain, 1).first->second;
            do {
                name = fmt::format("{}_{}", plain, ++number);
            } while (name != original && !taken.insert(name).second);
        }
        result.push_back(std::move(name));
    }
    return result;
}

} // namespace cli
