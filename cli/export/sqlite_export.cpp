// A database of SQLite with all of a box: tables with keys for programs, and views with readable
// times for people. Times are seconds since 1970. Everything is written in one transaction into a
// new file, which gets its name when it is complete.
//
// The samples are written sensor by sensor, in the order of their key, so that the table grows at
// its end only. A build without SQLite gets the function at the end of this file, which refuses.
#include "export/export_job.hpp"

#ifdef VESK_HAVE_SQLITE

#include <array>
#include <charconv>

#include "export/database.hpp"
#include "export/new_file.hpp"
#include "export/series.hpp"
#include "text/machine_text.hpp"

namespace cli
{
namespace
{

// The number of the application is "Vesk" in ASCII; the user version is that of these tables.
constexpr const char *schema = R"(
PRAGMA application_id = 1449489259;
PRAGMA user_version = 1;
BEGIN;
CREATE TABLE box (
    name TEXT NOT NULL, host TEXT, machine_id TEXT, boot_id TEXT, kernel TEXT,
    first_time INTEGER, last_time INTEGER, usual_step INTEGER NOT NULL);
CREATE TABLE labels (key TEXT NOT NULL PRIMARY KEY, value TEXT NOT NULL) WITHOUT ROWID;
CREATE TABLE sensors (id INTEGER PRIMARY KEY, name TEXT NOT NULL UNIQUE);
CREATE TABLE samples (
    sensor INTEGER NOT NULL REFERENCES sensors (id),
    time INTEGER NOT NULL,
    repeat INTEGER NOT NULL, -- 1, 2, ... where a clock that was set back showed a time again
    value REAL NOT NULL,
    PRIMARY KEY (sensor, time, repeat)) WITHOUT ROWID;
CREATE TABLE history (
    id INTEGER PRIMARY KEY, start_time INTEGER NOT NULL, end_time INTEGER NOT NULL,
    events_1 INTEGER NOT NULL, events_2 INTEGER NOT NULL, events_3 INTEGER NOT NULL,
    events_4 INTEGER NOT NULL, events_5 INTEGER NOT NULL);
CREATE TABLE intervals (
    sensor INTEGER NOT NULL REFERENCES sensors (id),
    history INTEGER NOT NULL REFERENCES history (id),
    count INTEGER NOT NULL,
    sum REAL, min REAL, max REAL, first REAL, last REAL, stddev REAL,
    PRIMARY KEY (sensor, history)) WITHOUT ROWID;
CREATE TABLE events (
    id INTEGER PRIMARY KEY, time INTEGER NOT NULL, type INTEGER NOT NULL, text TEXT NOT NULL);
CREATE INDEX events_by_time ON events (time);
CREATE VIEW sample_list AS
    SELECT datetime(time, 'unixepoch') AS time_utc, name AS sensor, value
    FROM samples JOIN sensors ON sensors.id = samples.sensor;
CREATE VIEW interval_list AS
    SELECT datetime(start_time, 'unixepoch') AS start_utc, datetime(end_time, 'unixepoch') AS end_utc,
        end_time - start_time AS seconds, name AS sensor, count, sum / count AS mean,
        min, max, first, last, stddev
    FROM intervals JOIN history ON history.id = intervals.history
        JOIN sensors ON sensors.id = intervals.sensor;
CREATE VIEW event_list AS
    SELECT datetime(time, 'unixepoch') AS time_utc, type, text FROM events;
CREATE VIEW sensor_list AS
    SELECT name AS sensor, count(value) AS samples, datetime(min(time), 'unixepoch') AS first_utc,
        datetime(max(time), 'unixepoch') AS last_utc, min(value) AS min, avg(value) AS mean,
        max(value) AS max
    FROM sensors LEFT JOIN samples ON samples.sensor = sensors.id GROUP BY sensors.id;
)";

// The number that the shortest decimal of @p value stands for, so that 0.1 is 0.1 also as a double.
// It is taken only if it becomes the same single-precision number again.
double decimal_of(float value)
{
    const std::string text = number_field(value);
    double decimal = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), decimal);
    const bool is_same = result.ec == std::errc() && static_cast<float>(decimal) == value;
    return is_same ? decimal : static_cast<double>(value);
}

int64_t id_of(std::size_t sensor)
{
    return static_cast<int64_t>(sensor) + 1;
}

void write_box(const export_job &job, database &into)
{
    statement box(into, "INSERT INTO box VALUES (?, ?, ?, ?, ?, ?, ?, ?)");
    const std::vector<label> names = labels_of(job.source.source().name, {}, {});
    box.text(names.front().value).text_or_null(label_text(job.who.host));
    box.text_or_null(job.who.machine_id).text_or_null(job.who.boot_id);
    box.text_or_null(label_text(job.who.kernel));
    for (const std::optional<int64_t> time : {job.source.begin(), job.source.end()}) {
        time ? box.integer(*time) : box.null();
    }
    box.integer(job.source.usual_step()).run();
    statement label(into, "INSERT INTO labels VALUES (?, ?)");
    for (const auto &each : job.labels) {
        label.text(each.key).text(each.value).run();
    }
    statement sensor(into, "INSERT INTO sensors VALUES (?, ?)");
    for (std::size_t i = 0; i < job.names.size(); ++i) {
        sensor.integer(id_of(i)).text(job.names[i]).run();
    }
}

class row_writer : public row_visitor
{
public:
    row_writer(const export_job &job, const database &into)
        : job_(job), history_(into, "INSERT INTO history VALUES (?, ?, ?, ?, ?, ?, ?, ?)"),
          interval_(into, "INSERT INTO intervals VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)"),
          event_(into, "INSERT INTO events VALUES (NULL, ?, ?, ?)")
    {
    }

    void on_interval(const interval_row &row) override
    {
        job_.progress.count_row();
        const vesk_hb_record_events &events = *row.events;
        history_.integer(++intervals_).integer(row.start).integer(row.end);
        for (const uint32_t count :
             {events.n_type1_events, events.n_type2_events, events.n_type3_events,
              events.n_type4_events, events.n_type5_events}) {
            history_.integer(count);
        }
        history_.run();
        for (std::size_t i = 0; i < row.values.size(); ++i) {
            if (row.values[i] != nullptr && row.values[i]->count > 0) {
                write(i, *row.values[i]);
            }
        }
    }
    void on_event(const event_row &row) override
    {
        event_.integer(row.time).integer(row.type).text(printable(row.text)).run();
    }

private:
    void write(std::size_t sensor, const interval_summary &value)
    {
        interval_.integer(id_of(sensor)).integer(intervals_).integer(value.count);
        for (const quantity what : interval_quantities) {
            interval_.real(decimal_of(value_of(value, what, job_.source.how_summed())));
        }
        interval_.run();
    }

    const export_job &job_;
    statement history_;
    statement interval_;
    statement event_;
    int64_t intervals_ = 0;
};

void write_samples(const export_job &job, const database &into)
{
    statement sample(into, "INSERT INTO samples VALUES (?, ?, ?, ?)");
    std::vector<series_key> keys;
    for (std::size_t i = 0; i < job.names.size(); ++i) {
        keys.push_back({i, quantity::sample});
    }
    for_each_series(job, keys, [&](const series_key &key, std::span<series_point> points) {
        int64_t repeat = 0;
        for (std::size_t i = 0; i < points.size(); ++i) {
            repeat = i > 0 && points[i].time == points[i - 1].time ? repeat + 1 : 0;
            sample.integer(id_of(key.sensor)).integer(points[i].time).integer(repeat);
            sample.real(decimal_of(static_cast<float>(points[i].value))).run();
        }
    });
}

} // namespace

void export_sqlite(const export_job &job, const std::string &path, bool force)
{
    new_file file(path, force);
    database into(file.temporary_path(), path);
    into.run(schema);
    write_box(job, into);
    {
        row_writer rows(job, into);
        job.source.read(job.range, job.chosen, rows);
        write_samples(job, into);
    }
    into.run("COMMIT");
    into.close();
    file.put_in_place();
}

} // namespace cli

#else

#include "process/failure.hpp"

namespace cli
{

void export_sqlite(const export_job &, const std::string &, bool)
{
    throw failure(exit_usage,
                  "--format sqlite: this vesk was built without SQLite; another one, or "
                  "another format, can do it");
}

} // namespace cli

#endif
