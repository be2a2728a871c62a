// Pushes into tables of ClickHouse.
#ifndef VESK_CLI_PUSH_CLICKHOUSE_DOOR_HPP
#define VESK_CLI_PUSH_CLICKHOUSE_DOOR_HPP

#include <string>
#include <string_view>

#include "push/clickhouse_schema.hpp"
#include "push/engine_door.hpp"
#include "push/requests.hpp"

namespace cli
{

// The rows of one table that wait to be sent. A request is stored as a whole or not at all only
// within one partition, so it ends where the partition of the next row is another one.
class clickhouse_rows
{
public:
    explicit clickhouse_rows(const clickhouse_table &table) : table_(table) {}

    // Whether rows of @p partition have to be sent in a request of their own.
    bool must_be_sent_before(int partition) const
    {
        return count > 0 && (partition != partition_ || bytes.size() >= most_bytes);
    }
    void begin_row(int partition)
    {
        partition_ = partition;
        ++count;
    }
    void clear()
    {
        bytes.clear();
        count = 0;
    }
    const clickhouse_table &table() const { return table_; }

    std::string bytes;
    uint64_t count = 0;

private:
    // At 19 bytes and more a row these are less than half a million, which a server stores as one
    // block.
    static constexpr std::size_t most_bytes = std::size_t{8} * 1024 * 1024;
    const clickhouse_table &table_;
    int partition_ = 0;
};

class clickhouse_door : public engine_door
{
public:
    clickhouse_door(const push_target &target, requests &to);

    void create(const std::string &cluster) override;
    void begin(const box_labels &labels, const std::vector<std::string> &sensors) override;
    bool delivers_later() override;
    std::optional<timed_position> known_position() override;
    std::optional<known_interval> newest_interval(uint32_t file, int64_t from) override;
    void add_interval(const pushed_interval &interval, const std::vector<std::string> &sensors,
                      const summing &how, int64_t known) override;
    void add_sample(const raw_record &sample) override;
    void add_event(const raw_record &event) override;
    uint64_t waiting() const override { return samples_.count + intervals_.count + events_.count; }
    void flush() override;
    void tell(const box_facts &facts) override;

private:
    // Whether rows of this time can be stored; makes room for them.
    bool make_room(clickhouse_rows &rows, int64_t time);
    void send(clickhouse_rows &rows);
    std::string ask(const std::string &query);

    const push_target &target_;
    requests &to_;
    std::string box_;
    clickhouse_rows samples_;
    clickhouse_rows intervals_;
    clickhouse_rows events_;
    clickhouse_rows boxes_;
};

} // namespace cli

#endif
