// The names of tiers and of their sensors, and how a tier is told from another box that happens to
// have such a name: by the sensor that only tiers have, in any of its buffers.
#include "box/tier.hpp"

#include <algorithm>
#include <cerrno>
#include <sys/stat.h>
#include <system_error>

#include "box/box.hpp"
#include "box/stored_bytes.hpp"
#include "process/failure.hpp"

namespace cli
{
namespace
{

// The recorder puts an instance and a device before the name, "INSTANCE:DEVICE:NAME".
std::string with_prefix(std::string_view prefix, std::string_view sensor)
{
    const std::size_t colon = sensor.rfind(':');
    const std::size_t begin = colon == std::string_view::npos ? 0 : colon + 1;
    return std::string(sensor.substr(0, begin)).append(prefix).append(sensor.substr(begin));
}

// Whether the file names @p wanted; nothing when it names no sensor.
std::optional<bool> names_sensor(const stored_file &file, const std::string &wanted)
{
    std::optional<bool> found;
    scan_file(file, [&](const vesk_scan_item &item) {
        if (!found.value_or(false) && item.kind == VESK_SCAN_SENSOR_NAMES) {
            const std::vector<std::string> names = sensor_names(*item.names);
            found = std::find(names.begin(), names.end(), wanted) != names.end();
        }
    });
    return found;
}

// A name that one may not look at counts as absent, because most boxes have no tiers; where it is
// the machine that fails, the next look may find one.
void require_machine(const std::string &path, int error)
{
    if (code_for_errno(error) == exit_failed) {
        throw failure(exit_failed, path + ": " + std::generic_category().message(error));
    }
}

bool exists(const std::string &path)
{
    struct stat status = {};
    if (lstat(path.c_str(), &status) == 0) {
        return true;
    }
    require_machine(path, errno);
    return false;
}

bool has_buffers(const std::string &base)
{
    const auto is_buffer = [](const vesk_scan_file *file, void *) {
        return file->missing != 0 || file->foreign != 0 ? 0 : 1;
    };
    errno = 0;
    const int found = vesk_scan_files(base.c_str(), is_buffer, nullptr);
    if (found < 0 && errno != 0) {
        require_machine(base, errno);
    }
    return found == 1;
}

// A box without its state file is one, too: its buffers can be read and repaired.
bool is_there(const std::string &base)
{
    return exists(base + ".state") || exists(base + ".state.bak") || has_buffers(base);
}

} // namespace

const std::vector<tier_kind> &all_tiers()
{
    // A day of minutes in each buffer, summed up by the hour; a month of hours, summed up by the
    // day.
    static const std::vector<tier_kind> kinds = {{"1m", 60, {1440, 24}}, {"1h", 3600, {720, 30}}};
    return kinds;
}

const tier_kind *find_tier(std::string_view name)
{
    const auto &kinds = all_tiers();
    const auto found = std::find_if(kinds.begin(), kinds.end(),
                                    [&](const tier_kind &kind) { return kind.name == name; });
    return found != kinds.end() ? &*found : nullptr;
}

std::string tier_base(const std::string &base, const tier_kind &kind)
{
    return std::string(base).append(".").append(kind.name);
}

std::string tier_count_name(const tier_kind &kind)
{
    return std::string("::tier.").append(kind.name).append(".samples_count");
}

std::string least_name(std::string_view sensor)
{
    return with_prefix("min.", sensor);
}

std::string greatest_name(std::string_view sensor)
{
    return with_prefix("max.", sensor);
}

std::string deviation_name(std::string_view sensor)
{
    return with_prefix("dev.", sensor);
}

int64_t period_end(int64_t time, int64_t period)
{
    const int64_t into = ((time % period) + period) % period;
    return into == 0 ? time : time - into + period;
}

std::optional<bool> is_tier(const std::string &base, const tier_kind &kind)
{
    if (!is_there(base)) {
        return std::nullopt;
    }
    const box found = find_box(base);
    if (found.is_file) {
        return std::nullopt;
    }
    const std::string wanted = tier_count_name(kind);
    bool names_others = false;
    for (auto file = found.files.rbegin(); file != found.files.rend(); ++file) {
        const std::optional<bool> named =
            file->problem.empty() ? names_sensor(*file, wanted) : std::nullopt;
        if (named.value_or(false)) {
            return true;
        }
        names_others = names_others || named.has_value();
    }
    return !names_others;
}

bool may_be_tier(const std::string &base, const tier_kind &kind)
{
    if (!is_there(base)) {
        return false;
    }
    try {
        return is_tier(base, kind).value_or(false);
    } catch (const failure &) {
        return true;
    }
}

} // namespace cli
