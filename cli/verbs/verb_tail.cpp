// vesk tail BASE [-f]: prints the newest samples of a box, and with -f goes on with those that
// come, through the turns of the buffers, until a signal or the end of its reader ends it.
#include <algorithm>
#include <array>
#include <charconv>
#include <fmt/format.h>
#include <limits>
#include <memory>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>
#include <unordered_set>

#include "box/column_map.hpp"
#include "box/follower.hpp"
#include "box/look_pace.hpp"
#include "box/reading.hpp"
#include "process/failure.hpp"
#include "process/output.hpp"
#include "process/stop_request.hpp"
#include "process/terminal.hpp"
#include "text/sensor_choice.hpp"
#include "verbs/fetch_output.hpp"
#include "verbs/reading_options.hpp"
#include "verbs/verb.hpp"

namespace cli
{
namespace
{

struct tail_options {
    reading_options source; // without its range
    std::optional<uint32_t> rows;
    std::string format;
    bool follow = false;
};

constexpr uint32_t usual_rows = 10;

// Prints samples as they come. Sensors that were not there before begin a new table.
class sample_table
{
public:
    sample_table(const tail_options &options, output_format format, const reading &source)
        : options_(options), format_(format), sensors_(source.sensors()),
          usual_step_(source.usual_step())
    {
        known_.insert(sensors_.begin(), sensors_.end());
        begin_table();
    }

    void skip(uint64_t samples) { skipped_ = samples; }

    void take(const vesk_scan_item &item)
    {
        look_at_names(*item.names);
        const int64_t time = item.values->timestamp.tv.tv_sec;
        if (skipped_ > 0) {
            --skipped_;
        } else {
            print(*item.names, *item.values, time);
        }
        last_time_ = time;
    }

private:
    void begin_table()
    {
        const auto chosen = choose_sensors(sensors_, options_.source.sensors);
        names_ = names_of(sensors_, chosen);
        columns_.emplace(sensors_, chosen);
        cells_.resize(names_.size());
        output_ = make_fetch_output(format_, names_, {statistic::mean}, options_.source.where());
    }

    void look_at_names(const vesk_cb_record_sensor_names &names)
    {
        if (seen_ && sensor_array_is_equal(seen_.get(), names.sensors) != 0) {
            return;
        }
        seen_.reset(sensor_array_copy(names.sensors));
        const std::size_t before = sensors_.size();
        for (const std::string &name : sensor_names(names)) {
            if (sensors_.size() < most_named_sensors && known_.insert(name).second) {
                sensors_.push_back(name);
            }
        }
        if (sensors_.size() > before) {
            const std::size_t shown = names_.size();
            begin_table();
            note(fmt::format("{} came, {} of them chosen: a new table begins",
                             counted(sensors_.size() - before, "new sensor"),
                             names_.size() - shown));
        }
    }

    void print(const vesk_cb_record_sensor_names &names, const vesk_cb_record_sensor_values &record,
               int64_t time)
    {
        if (last_time_ && usual_step_ > 0 && time - *last_time_ > 2 * usual_step_) {
            output_->print_gap(*last_time_, time);
        }
        std::fill(cells_.begin(), cells_.end(), sensor_statistics());
        for (const auto &[column, place] : columns_->columns(names)) {
            cells_[place].add(record.values[column], time);
        }
        output_->print({time, fetch_kind::raw, 0}, cells_);
    }

    struct release {
        void operator()(sensor_array *array) const { sensor_array_destroy(&array); }
    };

    const tail_options &options_;
    output_format format_;
    std::vector<std::string> sensors_; // of the box
    std::unordered_set<std::string> known_;
    std::vector<std::string> names_; // of those that are chosen
    std::optional<column_map> columns_;
    std::vector<sensor_statistics> cells_;
    std::unique_ptr<fetch_output> output_;
    std::unique_ptr<sensor_array, release> seen_;
    int64_t usual_step_;
    uint64_t skipped_ = 0;
    std::optional<int64_t> last_time_;
};

// Standard output where it is a pipe: when its reader goes, nothing has to be written to notice.
class reader_watch
{
public:
    reader_watch()
    {
        struct stat status = {};
        fd_ = fstat(STDOUT_FILENO, &status) == 0 && S_ISFIFO(status.st_mode) ? STDOUT_FILENO : -1;
    }
    int descriptor() const { return fd_; }
    bool has_gone() const
    {
        pollfd pipe = {fd_, 0, 0};
        return fd_ >= 0 && poll(&pipe, 1, 0) > 0 && (pipe.revents & (POLLERR | POLLNVAL)) != 0;
    }

private:
    int fd_ = -1;
};

void follow(follower &box, const follower::receiver &to, const std::string &base,
            const stop_request &stop, const uint64_t &taken)
{
    const reader_watch reader;
    look_pace pace(base);
    while (!stop.wait(pace.seconds_to_wait(), {pace.awaited(), reader.descriptor()})) {
        if (reader.has_gone()) {
            throw failure(exit_failed, "standard output: its reader has gone");
        }
        if (pace.is_time()) {
            const uint64_t before = taken;
            pace.begin_look();
            box.look(to);
            flush_output();
            pace.end_look(taken > before);
        }
    }
}

exit_code tail(const tail_options &options)
{
    constexpr std::array<std::string_view, 4> formats = {"table", "csv", "tsv", "jsonl"};
    options.source.settle();
    const output_format format = parse_format(options.format, formats);
    const stop_request stop;
    // Not kept: it would hold files open that a recorder deletes.
    std::optional<reading> source(options.source.name);
    const exit_code code = source->code();
    if (code == exit_unreadable) {
        return code;
    }
    sample_table table(options, format, *source);
    const uint64_t rows = options.rows.value_or(usual_rows);
    table.skip(source->samples() > rows ? source->samples() - rows : 0);
    source.reset();
    uint64_t taken = 0;
    const follower::receiver to = {
        [&](const vesk_scan_item &item) {
            table.take(item);
            ++taken;
        },
        [] { note("the recorder was faster: samples have gone into the history unseen"); }};
    follower box(options.source.name);
    box.look(to);
    flush_output();
    if (options.follow) {
        follow(box, to, options.source.name, stop, taken);
    }
    return code;
}

action prepare(option_list &options)
{
    const auto chosen = std::make_shared<tail_options>();
    reading_options &source = chosen->source;
    options.required_word("BASE|FILE", source.name, "Name of a box, or one of its buffer files");
    options.flag("-f,--follow", chosen->follow,
                 "Go on with the samples that come, until SIGINT or SIGTERM");
    options.number("-n,--rows", "N", chosen->rows, "How many of the newest samples first: 10");
    add_sensor_choice(options, source);
    options.text("--format", "csv|tsv|jsonl", chosen->format,
                 "For programs; without it a table for people");
    add_time_zone(options, source, false);
    return [chosen] { return tail(*chosen); };
}

constexpr const char *more =
    "The newest raw samples, as vesk fetch prints them. With -f the samples that come follow as\n"
    "soon as they are in the box, each one once, also when its buffers take turns and when the\n"
    "recorder is killed and started again. It ends with 0 at SIGINT, SIGTERM or SIGHUP, and with\n"
    "1 when nobody reads its output any more. Where a recorder fills buffers faster than they are\n"
    "read, a note tells it. When sensors come, a new table with its heading begins.\n"
    "\n"
    "Examples:\n"
    "  vesk tail -f box --sensor cpu.total.busy_percent\n"
    "  vesk tail -n 60 box\n"
    "  vesk tail -f -n 0 box --format jsonl | jq .values\n";

const registration registered({54, "tail", "Show the newest samples, and follow a box", more,
                               prepare});

} // namespace
} // namespace cli
