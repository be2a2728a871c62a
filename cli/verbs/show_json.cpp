// The page of `show` as one object. All that is not ASCII is escaped, and bytes that are no UTF-8
// are replaced.
#include <algorithm>
#include <nlohmann/json.hpp>

#include "analysis/unusual_text.hpp"
#include "text/machine_text.hpp"
#include "verbs/show_page.hpp"
#include "verbs/tiers_json.hpp"

namespace cli
{
namespace
{

using nlohmann::ordered_json;

class page_object
{
public:
    explicit page_object(const shown_box &what) : what_(what) {}

    ordered_json make() const
    {
        const box_ending ending =
            what_.rows.ending().result(what_.source.source().writer.has_value());
        return {{"box", what_.name},
                {"sentence", sentence_of(ending, what_.where)},
                {"ending", ending_object(ending)},
                {"machine", machine_object()},
                {"health", what_.health.word()},
                {"tiers", tiers_json(what_.health.tiers)},
                {"raw", span_object(what_.rows.raw(), "samples")},
                {"history", span_object(what_.rows.history(), "intervals")},
                {"horizon", time_or_null(what_.rows.horizon())},
                {"sensors", what_.source.sensors().size()},
                {"gaps", gaps()},
                {"number_of_gaps", what_.rows.ending().log().number_of_gaps()},
                {"events", events()},
                {"number_of_events", what_.rows.events()},
                {"unusual", what_.ranking.unusual()},
                {"perhaps", what_.ranking.perhaps()},
                {"unusual_sensors", unusual_sensors()}};
    }

private:
    ordered_json time(int64_t seconds) const { return iso_time(seconds, what_.where); }
    ordered_json time_or_null(const std::optional<int64_t> &seconds) const
    {
        return seconds ? time(*seconds) : ordered_json(nullptr);
    }
    static ordered_json text_or_null(const std::string &text)
    {
        return text.empty() ? ordered_json(nullptr) : ordered_json(text);
    }

    ordered_json ending_object(const box_ending &ending) const
    {
        ordered_json kernel = nullptr;
        if (ending.kernel) {
            kernel = {{"time", time(ending.kernel->time)}, {"text", ending.kernel->text}};
        }
        return {{"how", name_of(ending.it_ended)},
                {"time", time_or_null(ending.time)},
                {"reason", text_or_null(ending.reason)},
                {"error", text_or_null(ending.error)},
                {"kernel", kernel}};
    }

    ordered_json machine_object() const
    {
        const auto &who = what_.rows.ending().log().identity();
        if (!who) {
            return nullptr;
        }
        return {{"host", text_or_null(who->host)},
                {"machine_id", text_or_null(who->machine_id)},
                {"boot_id", text_or_null(who->boot_id)},
                {"kernel", text_or_null(who->kernel)}};
    }

    ordered_json span_object(const counted_span &span, const char *rows) const
    {
        if (span.rows == 0) {
            return nullptr;
        }
        return {{"from", time(span.range.from)}, {"to", time(span.range.to)}, {rows, span.rows}};
    }

    ordered_json gaps() const
    {
        ordered_json list = ordered_json::array();
        for (const gap &each : what_.rows.ending().log().gaps()) {
            list.push_back({{"from", time(each.from)},
                            {"to", time(each.to)},
                            {"seconds", each.seconds},
                            {"reason", each.reason}});
        }
        return list;
    }

    ordered_json events() const
    {
        ordered_json list = ordered_json::array();
        for (const dated_event &one : what_.rows.latest_events()) {
            list.push_back({{"time", time(one.time)}, {"type", one.type}, {"text", one.text}});
        }
        return list;
    }

    ordered_json unusual_sensors() const
    {
        ordered_json list = ordered_json::array();
        const std::size_t shown =
            std::min(most_unusual_shown, what_.ranking.unusual() + what_.ranking.perhaps());
        for (std::size_t rank = 0; rank < shown; ++rank) {
            const std::size_t number = what_.ranking.order[rank];
            list.push_back({{"rank", rank + 1},
                            {"sensor", what_.ranking.names[number]},
                            {"score", what_.ranking.findings[number].score},
                            {"level", level_of(what_.ranking.findings[number])},
                            {"sentence", what_.ranking.sentence(rank)}});
        }
        return list;
    }

    const shown_box &what_;
};

} // namespace

std::string show_json(const shown_box &what)
{
    return page_object(what).make().dump(2, ' ', true, ordered_json::error_handler_t::replace);
}

} // namespace cli
