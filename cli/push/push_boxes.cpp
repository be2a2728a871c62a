// Sets up the way to the engine and goes through the boxes.
#include "push/push_boxes.hpp"

#include <fmt/format.h>
#include <memory>
#include <sys/utsname.h>
#include <unistd.h>

#include "process/clock.hpp"
#include "process/output.hpp"
#include "process/terminal.hpp"
#include "push/box_search.hpp"
#include "push/clickhouse_door.hpp"
#include "push/push_job.hpp"
#ifdef VESK_HAVE_REMOTE_WRITE
#include "push/remote_write_door.hpp"
#endif
#include "text/byte_size.hpp"
#include "text/duration.hpp"
#include "text/machine_text.hpp"

namespace cli
{
namespace
{

std::string name_of_this_machine()
{
    utsname names = {};
    return uname(&names) == 0 && names.nodename[0] != '\0' ? names.nodename : "unknown";
}

// Two machines call their boxes alike: the name of the machine tells them apart.
box_search boxes_of(const push_request &request)
{
    if (!request.folder.empty()) {
        return find_boxes(request.folder);
    }
    std::vector<found_box> boxes;
    for (const std::string &base : request.boxes) {
        const std::size_t slash = base.find_last_of('/');
        const std::string name = slash == std::string::npos ? base : base.substr(slash + 1);
        boxes.push_back({base, name_of_this_machine() + "/" + name});
    }
    return {boxes, {}};
}

double patience_of(const push_request &request)
{
    return request.retry_for == "0"
               ? 0
               : static_cast<double>(parse_duration(request.retry_for, "--retry-for"));
}

uint32_t any_seed()
{
    const auto moment = static_cast<uint64_t>(clock_seconds() * 1e6);
    return static_cast<uint32_t>(moment) ^ (static_cast<uint32_t>(getpid()) << 16U);
}

class all_pushes
{
public:
    explicit all_pushes(const push_request &request)
        : request_(request), labels_(parse_box_labels(request.labels)),
          raw_(parse_raw_choice(request.raw)), target_(parse_target(request.url)),
          client_(target_.origin(), find_credentials(request.credentials, target_.user),
                  request.ca_file, stop_),
          requests_(target_, client_, stop_, retries(patience_of(request), any_seed())),
          door_(open_door())
    {
    }

    exit_code run()
    {
        if (request_.create) {
            door_->create(request_.cluster);
        }
        const box_search found = boxes_of(request_);
        for (const std::string &folder_and_reason : found.unlisted) {
            complain(folder_and_reason);
            ++failed_;
        }
        const std::vector<found_box> &boxes = found.boxes;
        const std::string folder =
            request_.state.empty() && !boxes.empty() ? usual_cursor_folder() : request_.state;
        for (std::size_t i = 0; i < boxes.size(); ++i) {
            if (!push(boxes[i], folder)) {
                stopped_at_ = i;
                break;
            }
        }
        return finish(boxes.size());
    }

private:
    std::unique_ptr<engine_door> open_door()
    {
        if (target_.engine == engine_kind::clickhouse) {
            return std::make_unique<clickhouse_door>(target_, requests_);
        }
#ifdef VESK_HAVE_REMOTE_WRITE
        return std::make_unique<remote_write_door>(target_, requests_);
#else
        throw failure(exit_failed, "this vesk-push was built without protobuf and snappy, which "
                                   "remote write needs");
#endif
    }

    // False when the others need not be tried.
    bool push(const found_box &box, const std::string &folder)
    {
        try {
            push_one(box, folder);
            return true;
        } catch (const push_given_up &reason) {
            complain_of(box, reason.what());
            ++failed_;
            return false;
        } catch (const failure &reason) {
            complain_of(box, reason.what());
            ++(reason.code() == exit_unreadable ? unreadable_ : failed_);
            return true;
        }
    }

    void complain_of(const found_box &box, const std::string &reason)
    {
        requests_.status().clear();
        const bool is_named = reason.starts_with(box.base + ": ");
        complain(is_named ? reason
                          : fmt::format("{}: not pushed to its end: {}", box.base, reason));
    }

    void push_one(const found_box &box, const std::string &folder)
    {
        const double begin = monotonic_seconds();
        const uint64_t requests_before = requests_.count();
        const uint64_t bytes_before = requests_.bytes();
        box_push what;
        what.base = box.base;
        what.labels = labels_;
        what.labels.box = labels_.box.empty() ? box.name : labels_.box;
        what.raw = raw_;
        what.again = request_.again;
        what.show_progress = [&](const row_counts &rows) {
            requests_.status().show(fmt::format("pushing {}: {} rows", box.base, rows.all()));
        };
        const cursor_file cursors(folder, what.labels.box, target_.name());
        const push_result result = push_box(what, cursors, *door_);
        requests_.status().clear();
        damaged_ += result.code == exit_damaged ? 1 : 0;
        unreadable_ += result.code == exit_unreadable ? 1 : 0;
        failed_ += result.code == exit_failed ? 1 : 0;
        ++pushed_;
        tell(what, result, requests_.count() - requests_before, requests_.bytes() - bytes_before,
             monotonic_seconds() - begin);
    }

    void tell(const box_push &what, const push_result &result, uint64_t sent, uint64_t bytes,
              double seconds) const
    {
        const row_counts &rows = result.rows;
        if (request_.json) {
            put(fmt::format("{{\"box\": {}, \"name\": {}, \"samples\": {}, \"intervals\": {}, "
                            "\"events\": {}, \"left_out\": {}, \"requests\": {}, \"bytes\": {}, "
                            "\"seconds\": {:.3f}}}\n",
                            json_string(what.base), json_string(what.labels.box), rows.samples,
                            rows.intervals, rows.events, rows.left_out, sent, bytes, seconds));
        } else if (!request_.quiet) {
            put(fmt::format("{}: {}, {} and {} pushed as {} in {:.1f} s ({})\n",
                            printable(what.base), counted(rows.samples, "sample value"),
                            counted(rows.intervals, "interval row"), counted(rows.events, "event"),
                            printable(what.labels.box), seconds, format_byte_size(bytes)));
        }
        flush_output();
    }

    exit_code finish(std::size_t boxes) const
    {
        if (stopped_at_ && *stopped_at_ + 1 < boxes) {
            note(fmt::format("{} not tried", counted(boxes - *stopped_at_ - 1, "further box")));
        }
        if (boxes > 1 && !request_.json && !request_.quiet) {
            put(fmt::format("{} of {} boxes pushed\n", pushed_, boxes));
            flush_output();
        }
        if (boxes == 0 && failed_ == 0 && !request_.create) {
            note("there is no box below " + request_.folder);
        }
        if (failed_ > 0) {
            return exit_failed;
        }
        if (unreadable_ > 0) {
            return unreadable_ == boxes ? exit_unreadable : exit_damaged;
        }
        return damaged_ > 0 ? exit_damaged : exit_done;
    }

    const push_request &request_;
    box_labels labels_;
    raw_choice raw_;
    push_target target_;
    stop_request stop_;
    http_client client_;
    requests requests_;
    std::unique_ptr<engine_door> door_;
    std::size_t pushed_ = 0;
    std::size_t failed_ = 0;
    std::size_t damaged_ = 0;
    std::size_t unreadable_ = 0;
    std::optional<std::size_t> stopped_at_;
};

} // namespace

exit_code push_boxes(const push_request &request)
{
    all_pushes pushes(request);
    return pushes.run();
}

} // namespace cli
