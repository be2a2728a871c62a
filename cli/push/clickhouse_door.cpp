// Writes rows as RowBinary and sends them with INSERT statements over HTTP. Each request has its
// length in front, so a server that gets a part of it stores nothing of it.
#include "push/clickhouse_door.hpp"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <limits>

#include "process/clock.hpp"
#include "push/percent.hpp"
#include "push/row_binary.hpp"

namespace cli
{
namespace
{

bool is_storable(int64_t time)
{
    return time >= 0 && time <= std::numeric_limits<uint32_t>::max();
}

uint32_t storable(int64_t time)
{
    return static_cast<uint32_t>(
        std::clamp<int64_t>(time, 0, std::numeric_limits<uint32_t>::max()));
}

void put_interval(std::string &row, const interval_summary &value, const summing &how)
{
    const moments of(value, how);
    put_number(row, value.count);
    put_float(row, value.min_value);
    put_float(row, value.max_value);
    put_double(row, of.mean());
    put_float(row, value.first_value);
    put_float(row, value.last_value);
    put_double(row, of.deviation().reliable());
}

} // namespace

clickhouse_door::clickhouse_door(const push_target &target, requests &to)
    : target_(target), to_(to), samples_(clickhouse::samples), intervals_(clickhouse::intervals),
      events_(clickhouse::events), boxes_(clickhouse::boxes)
{
}

void clickhouse_door::create(const std::string &cluster)
{
    for (const std::string &statement : clickhouse::create_statements(target_.database, cluster)) {
        (void)ask(statement);
    }
}

void clickhouse_door::begin(const box_labels &labels, const std::vector<std::string> & /*sensors*/)
{
    box_ = labels.box;
    counts_ = {};
    for (clickhouse_rows *rows : {&samples_, &intervals_, &events_, &boxes_}) {
        rows->clear();
    }
}

std::optional<timed_position> clickhouse_door::known_position()
{
    const auto row =
        clickhouse::numbers_in(ask(clickhouse::position_query(target_.database, box_)), 3);
    if (row.empty()) {
        return std::nullopt;
    }
    return timed_position{{static_cast<uint32_t>(row[0]), static_cast<uint64_t>(row[1])}, row[2]};
}

std::optional<known_interval> clickhouse_door::newest_interval(uint32_t file, int64_t from)
{
    const auto row = clickhouse::numbers_in(
        ask(clickhouse::newest_interval_query(target_.database, box_, file, storable(from))), 4);
    if (row.empty()) {
        return std::nullopt;
    }
    return known_interval{row[0], row[1], static_cast<uint32_t>(row[2]),
                          static_cast<uint32_t>(row[3])};
}

bool clickhouse_door::delivers_later()
{
    const auto row =
        clickhouse::numbers_in(ask(clickhouse::distributed_query(target_.database)), 1);
    return !row.empty() && row[0] == 1;
}

bool clickhouse_door::make_room(clickhouse_rows &rows, int64_t time)
{
    if (!is_storable(time)) {
        return false;
    }
    const int partition = clickhouse::partition_of(rows.table(), time);
    if (rows.must_be_sent_before(partition)) {
        send(rows);
    }
    return true;
}

void clickhouse_door::add_interval(const pushed_interval &interval,
                                   const std::vector<std::string> &sensors, const summing &how,
                                   int64_t known)
{
    const bool fits = is_storable(interval.end) && make_room(intervals_, interval.start);
    const int partition = clickhouse::partition_of(intervals_.table(), interval.start);
    for (std::size_t i = 0; i < sensors.size(); ++i) {
        const interval_summary *value = interval.values[i];
        if (value == nullptr || value->count == 0) {
            continue;
        }
        if (!fits) {
            ++counts_.left_out;
            continue;
        }
        std::string &row = intervals_.bytes;
        intervals_.begin_row(partition);
        put_text(row, sensors[i]);
        put_text(row, box_);
        put_number(row, storable(interval.start));
        put_number(row, storable(interval.end));
        put_number(row, storable(known));
        put_number(row, interval.file);
        put_number(row, interval.ordinal);
        put_interval(row, *value, how);
        ++counts_.intervals;
    }
}

void clickhouse_door::add_sample(const raw_record &sample)
{
    const bool fits = make_room(samples_, sample.time);
    const int partition = clickhouse::partition_of(samples_.table(), sample.time);
    for (std::size_t i = 0; i < sample.values.size(); ++i) {
        if (std::isnan(sample.values[i])) {
            continue;
        }
        if (!fits) {
            ++counts_.left_out;
            continue;
        }
        std::string &row = samples_.bytes;
        samples_.begin_row(partition);
        put_text(row, (*sample.sensors)[i]);
        put_text(row, box_);
        put_number(row, storable(sample.time));
        put_number(row, sample.behind.file);
        put_number(row, sample.ordinal);
        put_float(row, sample.values[i]);
        ++counts_.samples;
    }
}

void clickhouse_door::add_event(const raw_record &event)
{
    if (!make_room(events_, event.time)) {
        ++counts_.left_out;
        return;
    }
    std::string &row = events_.bytes;
    events_.begin_row(clickhouse::partition_of(events_.table(), event.time));
    put_text(row, box_);
    put_number(row, storable(event.time));
    put_number(row, event.behind.file);
    put_number(row, event.ordinal);
    put_number(row, event.type);
    put_text(row, event.text);
    ++counts_.events;
}

void clickhouse_door::flush()
{
    for (clickhouse_rows *rows : {&intervals_, &events_, &samples_}) {
        send(*rows);
    }
}

void clickhouse_door::tell(const box_facts &facts)
{
    std::string &row = boxes_.bytes;
    boxes_.begin_row(0);
    put_text(row, box_);
    put_number(row, storable(static_cast<int64_t>(clock_seconds())));
    put_number(row, storable(facts.first));
    put_number(row, storable(facts.last));
    put_text(row, facts.labels.host);
    put_text(row, facts.labels.site);
    put_text(row, facts.labels.firmware);
    put_number(row, facts.position.file);
    put_number(row, facts.position.records);
    put_number(row, storable(facts.position_time));
    send(boxes_);
}

void clickhouse_door::send(clickhouse_rows &rows)
{
    if (rows.count == 0) {
        return;
    }
    const std::string statement = clickhouse::insert_statement(target_.database, rows.table());
    const std::string reply = to_.send("/?query=" + percent_encoded(statement), rows.bytes);
    if (!reply.empty()) {
        throw push_refused(target_.name() + " answers an INSERT with more than nothing");
    }
    rows.clear();
}

std::string clickhouse_door::ask(const std::string &query)
{
    return to_.send("/", query);
}

} // namespace cli
