// vesk serve BASE: shows the page of a box to browsers and follows the box, until a signal ends it.
// It only reads, and answers nothing but requests for the page and for what is new.
#include <algorithm>
#include <fmt/format.h>
#include <memory>
#include <unordered_set>

#include "box/box_health.hpp"
#include "box/look_pace.hpp"
#include "box/reading.hpp"
#include "process/clock.hpp"
#include "process/failure.hpp"
#include "process/output.hpp"
#include "process/stop_request.hpp"
#include "process/terminal.hpp"
#include "serve/allowed_hosts.hpp"
#include "serve/box_stream.hpp"
#include "serve/listen_address.hpp"
#include "serve/live_page.hpp"
#include "serve/side_work.hpp"
#include "serve/web_server.hpp"
#include "text/sensor_choice.hpp"
#include "verbs/reading_options.hpp"
#include "verbs/verb.hpp"

namespace cli
{
namespace
{

struct serve_options {
    reading_options source; // without range and zone
    std::string address = "127.0.0.1:8080";
    std::vector<std::string> names;
};

// Each page is made by reading the whole box, which tells of its damage: once is enough.
class quiet_messages
{
public:
    quiet_messages() { listen_to_messages(take); }
    quiet_messages(const quiet_messages &) = delete;
    quiet_messages &operator=(const quiet_messages &) = delete;
    ~quiet_messages() { listen_to_messages(nullptr); }

private:
    static void take(std::string_view text)
    {
        constexpr std::size_t most_known = 1000;
        static std::unordered_set<std::string> known;
        if (known.size() < most_known && known.emplace(text).second) {
            listen_to_messages(nullptr);
            note(text);
            listen_to_messages(take);
        }
    }
};

// Answers requests from the page and the stream of one box.
class box_site
{
public:
    box_site(const serve_options &options, const listen_address &address, const stop_request &stop)
        : hosts_(address, options.names),
          stream_(options.source.name, options.source.sensors,
                  fmt::format("{:x}", static_cast<uint64_t>(clock_seconds() * 1e6))),
          page_(options.source.name, options.source.sensors, stream_,
                [&stop] { return stop.requested(); })
    {
    }

    box_stream &stream() { return stream_; }
    live_page &page() { return page_; }

    reply answer(const request_head &asked, std::size_t watchers)
    {
        if (!hosts_.allows(asked.host)) {
            return error_reply(misdirected_request,
                               "this server does not go by the name in your request; vesk serve "
                               "--host NAME allows one more");
        }
        if (asked.path == "/") {
            return page_.get();
        }
        if (asked.path == "/events") {
            return watch(asked, watchers);
        }
        return error_reply(not_found, "there is nothing under this address");
    }

private:
    static constexpr int forbidden = 403;
    static constexpr int not_found = 404;
    static constexpr int misdirected_request = 421;
    static constexpr int service_unavailable = 503;

    reply watch(const request_head &asked, std::size_t watchers)
    {
        // A page from elsewhere could not read the stream, but take away its places.
        if (asked.asked_by && *asked.asked_by != "same-origin" && *asked.asked_by != "none") {
            return error_reply(forbidden, "only the page of this server may ask for this");
        }
        if (watchers >= web_server::most_watchers) {
            return error_reply(service_unavailable, "too many watch the box already");
        }
        static const shared_text begin = std::make_shared<const std::string>("retry: 2000\n\n");
        reply result;
        result.type = "text/event-stream";
        result.is_stream = true;
        result.body = begin;
        result.place = asked.only_head ? stream_place() : stream_.place_behind(asked_for(asked));
        return result;
    }

    // A browser that has lost the connection tells what it has seen last.
    static std::string asked_for(const request_head &asked)
    {
        constexpr std::string_view key = "after=";
        if (!asked.last_event.empty()) {
            return asked.last_event;
        }
        return asked.query.starts_with(key) ? asked.query.substr(key.size()) : std::string();
    }

    allowed_hosts hosts_;
    box_stream stream_;
    live_page page_;
};

// Looks for what is new while somebody watches.
class watched_box
{
public:
    watched_box(const std::string &name, box_site &site, bool is_file)
        : name_(name), is_file_(is_file), stream_(site.stream()), page_(site.page()), pace_(name)
    {
    }

    // Waits for the box and for browsers, and looks when it is time.
    void go_on(const stop_request &stop, web_server &server)
    {
        if (server.watchers() == 0) {
            rest(stop, server);
            return;
        }
        last_watched_ = monotonic_seconds();
        serve(stop, pace_.seconds_to_wait(), pace_.awaited(), server);
        if (pace_.is_time()) {
            pace_.begin_look();
            stream_.look();
            check();
            pace_.end_look(true);
            server.feed_watchers();
        }
    }

private:
    // Until something is to be done, also with what was made beside the server.
    void serve(const stop_request &stop, double seconds, int other, web_server &server)
    {
        server.serve(stop, seconds, {other, page_.awaited(), check_ ? check_->awaited() : -1});
        page_.take_made();
        take_check();
    }

    void rest(const stop_request &stop, web_server &server)
    {
        // Who has lost the connection comes back soon, and then nothing is to be read again.
        constexpr double patience = 60;
        serve(stop, patience, -1, server);
        if (server.watchers() == 0 && monotonic_seconds() - last_watched_ > patience) {
            stream_.rest();
        }
    }

    // A check reads all files, so it comes rarely and takes a small part of a processor. It is done
    // beside the server, because it may take long.
    void check()
    {
        const double now = monotonic_seconds();
        if (check_ || now < next_check_) {
            return;
        }
        check_begin_ = now;
        next_check_ = now + shortest_between_checks;
        try {
            check_ = std::make_unique<side_work>([this] {
                listen_to_messages([](std::string_view) {});
                const box_health health = health_of(name_, is_file_);
                return fmt::format("{}{}", health.is_whole() ? whole : damaged, health.words());
            });
        } catch (const failure &) {
            // Without a process for it, the health stays as it was told.
        }
    }

    void take_check()
    {
        constexpr double share = 50;
        if (!check_ || !check_->is_over()) {
            return;
        }
        const std::optional<std::string> told = check_->result();
        check_.reset();
        if (told && !told->empty()) {
            stream_.set_health(told->substr(1), told->front() == whole);
        }
        const double end = monotonic_seconds();
        next_check_ = end + std::max(shortest_between_checks, share * (end - check_begin_));
    }

    static constexpr char whole = 'w';
    static constexpr char damaged = 'd';

    static constexpr double shortest_between_checks = 15;

    std::string name_;
    bool is_file_;
    box_stream &stream_;
    live_page &page_;
    look_pace pace_;
    std::unique_ptr<side_work> check_;
    double check_begin_ = 0;
    double last_watched_ = 0;
    double next_check_ = monotonic_seconds() + shortest_between_checks;
};

exit_code serve(const serve_options &options)
{
    options.source.settle();
    listen_address address = parse_listen_address(options.address);
    const quiet_messages quiet;
    const stop_request stop;
    bool is_file = false;
    {
        // What cannot be shown at all is told before anybody connects.
        const reading source(options.source.name);
        if (source.code() == exit_unreadable) {
            return exit_unreadable;
        }
        is_file = source.source().is_file;
        (void)choose_sensors(source.sensors(), options.source.sensors);
    }
    file_descriptor listener = open_listener(address);
    box_site site(options, address, stop);
    web_server server(
        std::move(listener),
        [&](const request_head &asked) { return site.answer(asked, server.watchers()); },
        [&](stream_place &place) { return site.stream().next(place); });
    if (!address.is_loopback) {
        note(fmt::format("whoever can reach {} reads the whole box, names, values and events, "
                         "without a password and without encryption",
                         address.url()));
    }
    put(address.url() + "\n");
    flush_output();
    watched_box followed(options.source.name, site, is_file);
    while (!stop.requested()) {
        followed.go_on(stop, server);
    }
    return exit_done;
}

action prepare(option_list &options)
{
    const auto chosen = std::make_shared<serve_options>();
    options.required_word("BASE|FILE", chosen->source.name,
                          "Name of a box, or one of its buffer files");
    options.text("--listen", "ADDRESS:PORT", chosen->address,
                 "Where browsers find it: 127.0.0.1:8080; port 0 takes a free one");
    options.texts("--host", "NAME", chosen->names,
                  "Allow requests for this name of the machine, too; may be repeated");
    add_sensor_choice(options, chosen->source);
    return [chosen] { return serve(*chosen); };
}

constexpr const char *more =
    "The page of vesk report for a browser, at the address that is printed. It follows the box:\n"
    "samples and events are added to the charts as soon as they are in the box, also when buffers\n"
    "take turns and when the recorder is killed and started again. It ends with 0 at SIGINT,\n"
    "SIGTERM or SIGHUP.\n"
    "\n"
    "Only this machine reaches it unless --listen names another address; then everybody who can\n"
    "reach that address reads the whole box, without a password and without encryption. It never\n"
    "writes, and answers nothing but GET and HEAD for / and /events. The name in a request has to\n"
    "be localhost, an address of the server, or one of --host.\n"
    "\n"
    "Examples:\n"
    "  vesk serve box\n"
    "  vesk serve box --listen '[::1]:0' --sensor 'cpu.*' --sensor 'mem.*'\n"
    "  ssh -L 8080:localhost:8080 host vesk serve /var/lib/vesk/box\n";

const registration registered({50, "serve", "Show a live box to browsers, and follow it", more,
                               prepare});

} // namespace
} // namespace cli
