// vesk report BASE -o FILE: makes one HTML file that shows what is in a box, for a reader who has
// nothing but a browser. The file appears under its name when it is complete.
#include <fmt/format.h>
#include <memory>
#include <unistd.h>

#include "box/reading.hpp"
#include "export/sink.hpp"
#include "page/page_content.hpp"
#include "page/page_writer.hpp"
#include "process/failure.hpp"
#include "process/terminal.hpp"
#include "text/sensor_choice.hpp"
#include "verbs/reading_options.hpp"
#include "verbs/verb.hpp"

namespace cli
{
namespace
{

struct report_options {
    reading_options source; // without the zone of times
    std::string output;
    bool force = false;
};

void check_output(const std::string &path)
{
    if (path.empty() && isatty(STDOUT_FILENO) != 0) {
        throw failure(exit_usage, "a page is no text for a terminal: -o FILE says where it goes");
    }
}

exit_code report(const report_options &options)
{
    options.source.settle();
    check_output(options.output);
    reading source(options.source.name);
    const auto chosen = choose_sensors(source.sensors(), options.source.sensors);
    const time_range range = range_in(options.source, source);
    const auto content = collect_page(source, options.source.name, range, chosen);
    if (content->sensors_left_out > 0) {
        note(fmt::format("the page has room for {} sensors; {} are left out: --sensor chooses",
                         content->names.size(), content->sensors_left_out));
    }
    // Made after all that can fail in a box, so that such a failure leaves nothing behind.
    const std::unique_ptr<sink> out = open_sink(options.output, options.force);
    write_page(*content, [&](std::string_view text) { out->write(text); });
    out->finish();
    if (content->health.failed) {
        throw failure(exit_failed, content->health.failure_words());
    }
    return source.code();
}

action prepare(option_list &options)
{
    const auto chosen = std::make_shared<report_options>();
    add_range(options, chosen->source);
    add_sensor_choice(options, chosen->source);
    options.text("-o,--output", "FILE", chosen->output,
                 "Where the page goes; - is standard output");
    options.flag("--force", chosen->force, "Replace the file if it is there");
    return [chosen] { return report(*chosen); };
}

constexpr const char *more =
    "One HTML file that needs nothing else: a browser shows it from a disk or a mail and asks for\n"
    "nothing. It tells how the box ended, what was unusual then, events and gaps, charts of all\n"
    "sensors, their numbers, and what check finds in the files. Of a long box the charts show "
    "groups\n"
    "of samples with their least, mean and greatest values, and the newest samples one by one.\n"
    "\n" VESK_CLI_TIME_HELP " The page has times in UTC.\n"
    "\n"
    "Examples:\n"
    "  vesk report box -o report.html\n"
    "  vesk report box --last 1h --sensor 'cpu.*' --sensor 'mem.*' -o hour.html\n"
    "  ssh host vesk report /var/lib/vesk/box -o - > report.html\n";

const registration registered({49, "report", "Make a page of a box for a browser", more, prepare});

} // namespace
} // namespace cli
