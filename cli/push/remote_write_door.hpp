// Pushes into stores of metrics that take remote write: VictoriaMetrics, Prometheus and others. A
// store has one value of a series at a time, and no texts: of events it gets how many there were.
#ifndef VESK_CLI_PUSH_REMOTE_WRITE_DOOR_HPP
#define VESK_CLI_PUSH_REMOTE_WRITE_DOOR_HPP

#include <map>
#include <string>
#include <unordered_map>

#include "push/collected_series.hpp"
#include "push/engine_door.hpp"
#include "push/requests.hpp"

namespace cli
{

class remote_write_door : public engine_door
{
public:
    remote_write_door(const push_target &target, requests &to) : target_(target), to_(to) {}

    void create(const std::string &cluster) override;
    void begin(const box_labels &labels, const std::vector<std::string> &sensors) override;
    bool forgets() const override { return true; }
    bool cannot_tell() const override { return cannot_tell_; }
    std::optional<timed_position> known_position() override;
    std::optional<known_interval> newest_interval(uint32_t file, int64_t from) override;
    void add_interval(const pushed_interval &interval, const std::vector<std::string> &sensors,
                      const summing &how, int64_t known) override;
    void add_sample(const raw_record &sample) override;
    void add_event(const raw_record &event) override;
    uint64_t waiting() const override { return rows_.count(); }
    void flush() override;
    void tell(const box_facts &facts) override;

private:
    // A series of a sensor, as it is called in the store.
    struct named_sensor {
        std::string metric;
        std::string label;
    };
    const named_sensor &named(const std::string &sensor);
    series_labels labels_of(const std::string &metric) const;
    series_labels labels_of(const named_sensor &sensor, const std::string &suffix) const;
    // False for a value that a store has no place for.
    bool add(series_labels labels, int64_t time, double value);
    void send_if_full();
    // False where the newest of these times are too old for the store.
    bool send(const std::vector<int64_t> &times, std::size_t begin, std::size_t end);
    // The rows of the times from @p from to @p to, in milliseconds.
    row_counts uncounted_between(int64_t from, int64_t to) const;
    void count_sent(int64_t from, int64_t to);
    // The value of a query, rounded; nothing where it has none, or where the store cannot tell.
    std::optional<int64_t> ask(const std::string &query);
    std::string selector(const std::string &metric, const std::string &more = {}) const;

    const push_target &target_;
    requests &to_;
    box_labels labels_;
    std::unordered_map<std::string, named_sensor> sensors_;
    collected_series rows_;
    std::map<int64_t, row_counts> uncounted_; // what is in rows_, by time in milliseconds
    bool cannot_tell_ = false;
    // Events of one type at one time, the newest of each type.
    struct event_count {
        int64_t time = 0;
        uint64_t count = 0;
    };
    std::unordered_map<uint8_t, event_count> events_;
};

} // namespace cli

#endif
