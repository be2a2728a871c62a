// The table of verbs: a chain through the registrations, which needs no order among the files and
// cannot fail before main() begins.
#include "verbs/verb.hpp"

#include <algorithm>

namespace cli
{
namespace
{

const registration *latest = nullptr;

} // namespace

registration::registration(const verb &what) noexcept : what_(what), next_(latest)
{
    latest = this;
}

std::vector<const verb *> all_verbs()
{
    std::vector<const verb *> verbs;
    for (const registration *entry = latest; entry != nullptr; entry = entry->next_) {
        verbs.push_back(&entry->what_);
    }
    std::sort(verbs.begin(), verbs.end(),
              [](const verb *one, const verb *other) { return one->position < other->position; });
    return verbs;
}

} // namespace cli
