// What is new in a box as a stream of server-sent events, made once for all watchers:
//
//   names   the sensors of the samples that follow, a JSON list
//   sample  its time and its values in base64, in the order of the names
//   event   its time, type and words, as JSON
//   state   how the box stands, as JSON: whether it is being recorded to, and what is wrong
//   reload  the page is to be asked for again; the stream ends
//
// Samples and events carry an id, which tells the place behind them: there a page that was made, or
// that has lost its connection, goes on without doubling or missing any.
#ifndef VESK_CLI_SERVE_BOX_STREAM_HPP
#define VESK_CLI_SERVE_BOX_STREAM_HPP

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "box/ending_watch.hpp"
#include "box/follower.hpp"
#include "page/page_content.hpp"
#include "serve/reply.hpp"

namespace cli
{

class box_stream
{
public:
    // @p name is that of a box or file, @p patterns choose from its sensors. @p token tells this
    // stream from those of other processes; it is of letters and digits.
    box_stream(std::string name, std::vector<std::string> patterns, std::string token);

    // The id of a place. Places of another era of the box have other ids.
    std::string id_of(const raw_position &place) const;
    // What a watcher that has seen all up to the id is told next. Begins to follow the box there if
    // nobody has watched it before.
    stream_place place_behind(const std::string &id);
    // The next text for a watcher; null when there is none now, or when it is_over.
    shared_text next(stream_place &place) const;

    bool is_followed() const { return box_.has_value(); }
    // Looks for what is new. What goes wrong becomes a part of the state.
    void look();
    // Forgets all and closes the files, until somebody watches again.
    void rest();
    // How the recording that a page was made of stood: later events add to it.
    void set_ending(const ending_watch &ending) { ending_ = ending; }
    // What is told of the files, and whether they are whole.
    void set_health(const std::string &words, bool is_whole);

private:
    struct release {
        void operator()(sensor_array *array) const { sensor_array_destroy(&array); }
    };
    struct message {
        shared_text text;
        shared_text names; // those that govern it
        raw_position behind;
    };

    // A watcher that is further behind than this loads its page again.
    static constexpr std::size_t most_messages = 8192;
    static constexpr std::size_t most_bytes = 8U << 20U;

    void take_sample(const vesk_scan_item &item);
    void take_event(const vesk_scan_item &item);
    void take_names(const vesk_cb_record_sensor_names &names);
    void add(std::string_view text);
    void begin_era();
    void follow_from(const raw_position &place);
    void tell_state();

    std::string name_;
    std::vector<std::string> patterns_;
    std::string token_;
    std::optional<follower> box_;
    uint64_t era_ = 1;
    raw_position begin_;           // of what is kept
    std::deque<message> messages_; // what is kept
    uint64_t first_ = 0;           // the number of its first message
    std::size_t bytes_ = 0;
    uint64_t boxes_ = 0; // that had come under the name at the last look
    std::unique_ptr<sensor_array, release> sensors_;
    std::vector<std::size_t> columns_; // of the sensors that are chosen
    shared_text names_;
    ending_watch ending_;
    std::string problem_;
    std::string health_;
    bool is_whole_ = true;
    shared_text state_;
    uint64_t state_number_ = 0;
};

} // namespace cli

#endif
