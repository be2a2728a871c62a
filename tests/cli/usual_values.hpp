// What many tests of the command take for a time, a missing reading and a box that need not be
// synced.
#ifndef VESK_TESTS_CLI_USUAL_VALUES_HPP
#define VESK_TESTS_CLI_USUAL_VALUES_HPP

#include <cstdint>
#include <limits>
#include <string>

#include "box/sync_policy.hpp"

inline constexpr int64_t new_year = 1704067200; // 2024-01-01T00:00:00Z, a Monday
inline constexpr int64_t noon = new_year + 12 * 3600;
inline constexpr float missing = std::numeric_limits<float>::quiet_NaN();
inline constexpr cli::sync_policy without_sync = {cli::sync_policy::moment::never, 0};
inline const std::string boot = "boot_id=aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa";

#endif
