// Adds the options of `vesk record` that push, and checks them before anything is recorded: who
// reads a wrong one months later in the journal has no box in the engine.
#include "verbs/record_push_options.hpp"

#include <fmt/format.h>
#include <string_view>

#include "process/failure.hpp"
#include "push/credentials.hpp"
#include "push/target.hpp"
#include "text/duration.hpp"

namespace cli
{
namespace
{

// What is wrong with the file @p path is told with the option that names it.
template <typename Check>
void check_file(std::string_view option, const std::string &path, Check check)
{
    try {
        check();
    } catch (const failure &reason) {
        throw failure(exit_usage,
                      path.empty() ? reason.what() : fmt::format("{} {}", option, reason.what()));
    }
}

void require_target(std::string_view name, bool is_given)
{
    if (is_given) {
        throw failure(exit_usage, fmt::format("{} goes with --push, which says where to", name));
    }
}

} // namespace

int64_t record_push_options::checked_period() const
{
    const int64_t period = parse_duration(every, "--push-every");
    if (!are_wanted()) {
        require_target("--push-raw", what.raw != push_request().raw);
        require_target("--push-label", !what.labels.empty());
        require_target("--push-credentials", !what.credentials.empty());
        require_target("--push-ca-file", !what.ca_file.empty());
        return period;
    }
    const push_target target = parse_target(what.url, "--push");
    (void)parse_raw_choice(what.raw, "--push-raw");
    (void)parse_box_labels(what.labels, "--push-label");
    check_file("--push-credentials", what.credentials,
               [&] { (void)find_credentials(what.credentials, target.user); });
    check_file("--push-ca-file", what.ca_file, [&] { check_ca_file(what.ca_file); });
    return period;
}

push_request record_push_options::request(const std::string &base) const
{
    push_request result = what;
    result.boxes = {base};
    result.quiet = true;
    // The next push comes anyway.
    result.retry_for = "15s";
    return result;
}

void add_record_push_options(option_list &options, record_push_options &push)
{
    options.text("--push", "URL", push.what.url,
                 "Push the box there now and then, as 'vesk push' does");
    options.text("--push-every", "TIME", push.every, "Time between two pushes");
    options.text("--push-raw", "none|all|last:LENGTH", push.what.raw,
                 "Which raw samples go along; intervals and events always do");
    options.texts("--push-label", "KEY=VALUE", push.what.labels,
                  "What the box is called there: box=, host=, site=, firmware=; may be repeated");
    options.text("--push-credentials", "FILE", push.what.credentials,
                 "Lines 'user NAME' and 'password TEXT'; only its owner may read it");
    options.text("--push-ca-file", "FILE", push.what.ca_file,
                 "Certificates to trust instead of those of the system");
}

} // namespace cli
