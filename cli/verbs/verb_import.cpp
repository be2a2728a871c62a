// vesk import BASE [FILE|-]
#include <fmt/format.h>
#include <optional>

#include "box/acknowledgements.hpp"
#include "box/box_writer.hpp"
#include "process/failure.hpp"
#include "process/stop_request.hpp"
#include "process/terminal.hpp"
#include "text/line_source.hpp"
#include "text/telemetry_text.hpp"
#include "text/value_text.hpp"
#include "verbs/verbs.hpp"

namespace cli
{
namespace
{

class importer
{
public:
    explicit importer(const import_options &options)
        : options_(options), sync_(parse_sync_policy(options.sync)),
          acknowledgements_(options.acknowledge), lines_(options.file)
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
        telemetry_parser::line_kind kind = telemetry_parser::line_kind::blank;
        try {
            kind = parser_.parse(line);
        } catch (const bad_text &reason) {
            throw bad_input(lines_.name(), lines_.line_number(), reason.what());
        }
        if (kind == telemetry_parser::line_kind::header) {
            header_is_new_ = true;
        } else if (kind == telemetry_parser::line_kind::values) {
            write();
        }
    }

    void write()
    {
        // Not before there is something to keep: a file that is refused leaves no empty box.
        if (!box_) {
            box_.emplace(options_.base, options_.shape, sync_);
        }
        if (header_is_new_) {
            admit_sensors();
            box_->set_sensors(parser_.sensors());
            header_is_new_ = false;
        }
        try {
            box_->write(parser_.time(), parser_.values());
        } catch (const storage_failure &reason) {
            throw bad_input(lines_.name(), lines_.line_number(), reason.what());
        }
        acknowledgements_.add(parser_.time());
        backwards_ += vectors_ > 0 && parser_.time() < latest_ ? 1 : 0;
        latest_ = parser_.time();
        ++vectors_;
    }

    void admit_sensors()
    {
        for (const std::string &name : parser_.sensors()) {
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
    acknowledgements acknowledgements_;
    stop_request stop_;
    status_line status_;
    line_source lines_;
    telemetry_parser parser_;
    std::optional<box_writer> box_;
    uint64_t vectors_ = 0;
    uint64_t backwards_ = 0;
    int64_t latest_ = 0;
    bool header_is_new_ = false;
};

} // namespace

exit_code import_text(const import_options &options)
{
    box_writer::check_shape_for(options.base, options.shape);
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

} // namespace cli
