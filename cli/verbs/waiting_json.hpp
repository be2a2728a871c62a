// The JSON form of the report on events that wait for a box. `vesk info` and `vesk check` share it,
// so that programs find the same keys in both.
#ifndef VESK_CLI_VERBS_WAITING_JSON_HPP
#define VESK_CLI_VERBS_WAITING_JSON_HPP

#include <nlohmann/json.hpp>

#include "box/waiting_events.hpp"

namespace cli
{

// Null without a file.
inline nlohmann::ordered_json waiting_json(const waiting_report &found)
{
    if (!found.is_there()) {
        return nullptr;
    }
    return {{"path", found.path},
            {"condition", found.condition_name()},
            {"bytes", found.bytes},
            {"events", found.events},
            {"unreadable_bytes", found.unreadable_bytes}};
}

} // namespace cli

#endif
