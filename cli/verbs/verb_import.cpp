// vesk import BASE [FILE|-]: reads text telemetry or CSV line by line and writes it into a box. A
// wrong line ends the import with its number, and all lines before it are in the box. Times that
// are not newer than the content of the box are written all the same, counted and reported. A file
// that is refused before its first value leaves no empty box.
#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <memory>
#include <optional>

#include "box/acknowledgements.hpp"
#include "box/box_writer.hpp"
#include "box/tier_recorder.hpp"
#include "box/waiting_events.hpp"
#include "process/failure.hpp"
#include "process/stop_request.hpp"
#include "process/terminal.hpp"
#include "text/csv_text.hpp"
#include "text/line_source.hpp"
#include "text/suggestion.hpp"
#include "text/telemetry_text.hpp"
#include "text/value_text.hpp"
#include "verbs/common_options.hpp"
#include "verbs/size_plan.hpp"
#include "verbs/verb.hpp"

namespace cli
{
namespace
{

struct import_options {
    std::string base;
    std::string file = "-";
    std::string format = "text";
    bool utc = false;
    size_options sizes; // of these the shape and the tiers
    std::string sync = "end";
    std::string acknowledge; // a file or the number of a descriptor; empty: nowhere
};

constexpr std::array<std::string_view, 2> format_names = {"text", "csv"};

void check_format(const std::string &format)
{
    if (std::find(format_names.begin(), format_names.end(), format) != format_names.end()) {
        return;
    }
    const std::string_view meant = nearest_word(format.substr(0, 20), format_names);
    throw failure(exit_usage,
                  fmt::format("--format {}: there is {}{}", format.substr(0, 20),
                              fmt::join(format_names, ", "),
                              meant.empty() ? "" : fmt::format("; did you mean '{}'?", meant)));
}

// Nobody knows how far apart the lines of a file are, so every tier may be asked for.
std::vector<wanted_tier> tiers_wanted(const import_options &options)
{
    std::vector<wanted_tier> wanted;
    for (const tier_kind &kind : options.sizes.wanted_tiers(1)) {
        wanted.push_back({kind, kind.shape});
    }
    return with_tiers_that_are_there(std::move(wanted), options.base, options.sizes);
}

std::unique_ptr<sample_parser> make_parser(const std::string &format)
{
    if (format == "csv") {
        return std::make_unique<csv_parser>();
    }
    return std::make_unique<telemetry_parser>();
}

class importer
{
public:
    explicit importer(const import_options &options)
        : options_(options), sync_(parse_sync_policy(options.sync)),
          acknowledgements_(options.acknowledge, stop_), lines_(options.file, &stop_),
          parser_(make_parser(options.format))
    {
    }

    exit_code run()
    {
        std::string_view line;
        while (next_line(line)) {
            take(line);
            if (vectors_ % 256 == 0) {
                show_progress();
            }
        }
        status_.clear();
        if (box_) {
            box_->finish();
            tiers_->finish();
        }
        if (stop_.requested()) {
            throw failure(exit_failed, fmt::format("interrupted in line {} of {}",
                                                   lines_.line_number(), lines_.name()));
        }
        if (lines_.line_number() == 0) {
            throw failure(exit_failed, lines_.name() + ": is empty");
        }
        return exit_done;
    }

    // What holds for the whole import, however it ended.
    void summarise()
    {
        status_.clear();
        if (lines_.ended_inside_line()) {
            note(fmt::format("{}:{}: the last line has no line end; it may have been cut off",
                             lines_.name(), lines_.line_number()));
        }
        if (backwards_ > 0) {
            note(fmt::format("{}: {} {} earlier than the line before", lines_.name(),
                             counted(backwards_, "time"), backwards_ == 1 ? "is" : "are"));
        }
        if (old_ > 0) {
            note(fmt::format("{}: {} {} not after {}, the last sample that was in {} before: was "
                             "this imported already?",
                             lines_.name(), counted(old_, "time"), old_ == 1 ? "is" : "are",
                             format_time(*box_->last_time_before()), options_.base));
        }
    }

    uint64_t vectors() const { return vectors_; }

private:
    bool next_line(std::string_view &line)
    {
        if (stop_.requested()) {
            return false;
        }
        try {
            return lines_.next(line);
        } catch (const failure &) {
            // A signal interrupts the reading, too.
            if (stop_.requested()) {
                return false;
            }
            throw;
        }
    }

    void take(std::string_view line)
    {
        sample_parser::line_kind kind = sample_parser::line_kind::blank;
        try {
            kind = parser_->parse(line);
        } catch (const bad_text &reason) {
            throw bad_input(lines_.name(), lines_.line_number(), reason.what() + hint_for(line));
        }
        if (kind == sample_parser::line_kind::header) {
            header_is_new_ = true;
        } else if (kind == sample_parser::line_kind::values) {
            write();
        }
    }

    // Where somebody forgot to say that the file is CSV.
    std::string hint_for(std::string_view line) const
    {
        const bool is_like_csv = options_.format == "text" && lines_.line_number() == 1 &&
                                 line.find(',') != std::string_view::npos && !line.empty() &&
                                 (line.front() < '0' || line.front() > '9');
        return is_like_csv ? " (if this is CSV: --format csv)" : "";
    }

    void write()
    {
        // Not before there is something to keep: a file that is refused leaves no empty box.
        if (!box_) {
            box_.emplace(options_.base, options_.sizes.shape, sync_);
            events_.emplace(*box_, options_.base);
            tiers_.emplace(options_.base, tiers_wanted(options_), sync_);
        }
        if (header_is_new_) {
            admit_sensors();
            box_->set_sensors(parser_->sensors());
            header_is_new_ = false;
        }
        try {
            box_->write(parser_->time(), parser_->values());
        } catch (const passing_failure &reason) {
            throw bad_input(lines_.name(), lines_.line_number(), reason.what());
        }
        tiers_->add(parser_->time(), parser_->sensors(), parser_->values());
        acknowledgements_.add(parser_->time());
        events_->take_over();
        backwards_ += vectors_ > 0 && parser_->time() < latest_ ? 1U : 0U;
        latest_ = parser_->time();
        const std::optional<int64_t> before = box_->last_time_before();
        old_ += before && parser_->time() <= *before ? 1U : 0U;
        ++vectors_;
    }

    void admit_sensors()
    {
        for (const std::string &name : parser_->sensors()) {
            if (!box_->admit(name)) {
                throw bad_input(lines_.name(), lines_.line_number(),
                                "the box has no room for '" + printable(name.substr(0, 60)) +
                                    "': it holds 10000 different sensors already");
            }
        }
    }

    void show_progress()
    {
        if (!status_.visible()) {
            return;
        }
        const double fraction = lines_.fraction();
        const std::string done =
            fraction >= 0 ? fmt::format(", {:.0f} %", 100 * fraction) : std::string();
        status_.show(
            fmt::format("importing {}: {}{}", lines_.name(), counted(vectors_, "vector"), done));
    }

    const import_options &options_;
    sync_policy sync_;
    stop_request stop_;
    acknowledgements acknowledgements_;
    status_line status_;
    line_source lines_;
    std::unique_ptr<sample_parser> parser_;
    std::optional<box_writer> box_;
    std::optional<waiting_events> events_;
    std::optional<tier_recorders> tiers_;
    uint64_t vectors_ = 0;
    uint64_t backwards_ = 0; // times that are earlier than the line before
    uint64_t old_ = 0;       // times that are not after what was in the box before
    int64_t latest_ = 0;
    bool header_is_new_ = false;
};

exit_code import_text(const import_options &options)
{
    check_format(options.format);
    tiers_wanted(options);
    box_writer::check_shape_for(options.base, options.sizes.shape);
    if (options.utc) {
        use_utc();
    }
    importer job(options);
    try {
        const exit_code result = job.run();
        job.summarise();
        return result;
    } catch (failure &reason) {
        job.summarise();
        if (job.vectors() > 0) {
            reason.set_remark(fmt::format("{} before that {} in {}",
                                          counted(job.vectors(), "vector"),
                                          job.vectors() == 1 ? "is" : "are", options.base));
        }
        throw;
    }
}

action prepare(option_list &options)
{
    const auto chosen = std::make_shared<import_options>();
    options.required_word("BASE", chosen->base, "Name of the box");
    options.word("FILE", chosen->file,
                 "Text telemetry or CSV, also with gzip; - or nothing is standard input");
    options.text("--format", "text|csv", chosen->format,
                 "Text telemetry, or CSV with a header: the time, then the sensors");
    add_shape(options, chosen->sizes.shape);
    add_tiers(options, chosen->sizes, "those that it has");
    options.flag("--utc", chosen->utc, "Times are in UTC, not in the local time zone");
    add_sync(options, chosen->sync, "at the next vector after TIME");
    options.text("--acknowledge", "FILE|FD", chosen->acknowledge,
                 "Tell the time of each vector that is in the box, a line each, to a file or "
                 "to the descriptor of this number. Waits for the reader of a FIFO and while "
                 "a pipe is full");
    return [chosen] { return import_text(*chosen); };
}

constexpr const char *more =
    "A line is a time and one field for each sensor: names in a header line, then values.\n"
    "  20240101:00:00:00,::cpu,::temp\n"
    "  20240101:00:00:00,12.5,nan\n"
    "The time may also be 2024-01-01T00:00:00Z, with another zone or none, or 1704067200.\n"
    "With --format csv the first line names the columns: the time, then the sensors. An empty\n"
    "field is a missing value. What vesk export and fetch print as csv is read back.\n"
    "A line that is wrong is refused as FILE:LINE: reason; the lines before it are in the box. So "
    "are those before the one that a full disk did not take.\n"
    "\n"
    "Examples:\n"
    "  vesk import box telemetry.kelt.gz\n"
    "  vesk dump old | vesk import new\n"
    "  vesk export box --format csv --last 1h | vesk import end --format csv\n"
    "  vesk import box --samples 86400 --intervals 1440 < day.kelt\n";

const registration registered({20, "import", "Read text telemetry or CSV into a box", more,
                               prepare});

} // namespace
} // namespace cli
