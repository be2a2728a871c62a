// The command line: what is asked for, and the help that teaches how to ask.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <exception>
#include <fmt/format.h>
#include <string_view>

#include "process/failure.hpp"
#include "process/terminal.hpp"
#include "text/suggestion.hpp"
#include "verbs/verbs.hpp"

namespace
{

using namespace cli;

constexpr std::array<std::string_view, 7> verb_names = {"record", "import", "event", "dump",
                                                        "info",   "check",  "repair"};

constexpr const char *exit_codes_text = "Exit codes:\n"
                                        "  0  done\n"
                                        "  1  failed\n"
                                        "  2  wrong usage\n"
                                        "  3  damaged, but readable or repairable\n"
                                        "  4  unreadable or not repairable\n";

struct all_options {
    record_options record;
    import_options import;
    event_options event;
    dump_options dump;
    info_options info;
    check_options check;
    repair_options repair;
};

// CLI11 indents nothing and wraps nothing in a footer, so it is written as it is to be shown.
std::string footer(const std::string &text)
{
    return text + "\n" + exit_codes_text;
}

void add_shape(CLI::App &verb, box_shape &shape)
{
    verb.add_option(
            "--samples", shape.samples,
            fmt::format("Samples in a buffer of a new box, even (default {})", default_samples))
        ->type_name("N");
    verb.add_option("--intervals", shape.intervals,
                    fmt::format("Intervals that sum up a full buffer of a new box, even, dividing "
                                "N (default {} or what divides N below it)",
                                default_intervals))
        ->type_name("M");
}

void add_sync(CLI::App &verb, std::string &when, const char *later)
{
    verb.add_option("--sync", when,
                    fmt::format("When to bring what was written onto the medium, so that it "
                                "survives the loss of power: never, after each vector, at the end, "
                                "or {}",
                                later))
        ->type_name("never|vector|end|TIME")
        ->capture_default_str();
}

// For a box that may not know its own sizes any more.
void add_known_shape(CLI::App &verb, box_shape &shape)
{
    verb.add_option("--samples", shape.samples,
                    "Samples in a buffer of the box, if nothing on the disk tells")
        ->type_name("N");
    verb.add_option("--intervals", shape.intervals,
                    "Intervals that sum up a full buffer, if nothing on the disk tells")
        ->type_name("M");
}

CLI::App *add_verb(CLI::App &app, const char *name, const char *purpose)
{
    return app.add_subcommand(name, purpose)->group("Verbs");
}

CLI::App *add_record(CLI::App &app, record_options &options)
{
    CLI::App *verb = add_verb(app, "record", "Record this machine into a box");
    verb->add_option("BASE", options.base,
                     "Name of the box; its files are BASE.state, BASE.1.cbuf.z, ...")
        ->required();
    verb->add_option("--interval", options.interval,
                     "Time between samples in whole seconds: 1s, 5m, 2h, 1d")
        ->type_name("TIME")
        ->capture_default_str();
    verb->add_option("--for", options.duration, "End after this time (default: at Ctrl-C)")
        ->type_name("TIME");
    add_shape(*verb, options.shape);
    add_sync(*verb, options.sync, "at the next sample after TIME");
    verb->footer(footer("An existing box is resumed, and recovered first if a crash left it "
                        "damaged. One process\n"
                        "at a time writes to a box. When the disk is full, sampling goes on and "
                        "each new sample\n"
                        "is tried. SIGINT, SIGTERM and SIGHUP end the recording cleanly.\n"
                        "\n"
                        "Examples:\n"
                        "  vesk record /var/lib/vesk/box\n"
                        "      One sample a second; the last hours raw, all before in summary.\n"
                        "  vesk record box --interval 10s --for 5m\n"
                        "      Thirty samples, then the end.\n"
                        "  vesk record box --interval 1m --samples 1440 --intervals 24\n"
                        "      A day in each buffer, summarised by the hour.\n"));
    return verb;
}

CLI::App *add_import(CLI::App &app, import_options &options)
{
    CLI::App *verb = add_verb(app, "import", "Read text telemetry into a box");
    verb->add_option("BASE", options.base, "Name of the box")->required();
    verb->add_option("FILE", options.file,
                     "Text telemetry, also with gzip; - or nothing is standard input");
    add_shape(*verb, options.shape);
    verb->add_flag("--utc", options.utc, "Times are in UTC, not in the local time zone");
    add_sync(*verb, options.sync, "at the next vector after TIME");
    verb->add_option("--acknowledge", options.acknowledge,
                     "Tell the time of each vector that is in the box, a line each, to a file or "
                     "to the descriptor of this number")
        ->type_name("FILE|FD");
    verb->footer(footer("A line is a time and one field for each sensor: names in a header line, "
                        "then values.\n"
                        "  20240101:00:00:00,::cpu,::temp\n"
                        "  20240101:00:00:00,12.5,nan\n"
                        "A line that is wrong is refused as FILE:LINE: reason; the lines before it "
                        "are in the box. So are those before the one that a full disk did not "
                        "take.\n"
                        "\n"
                        "Examples:\n"
                        "  vesk import box telemetry.kelt.gz\n"
                        "  vesk dump old | vesk import new\n"
                        "  vesk import box --samples 86400 --intervals 1440 < day.kelt\n"));
    return verb;
}

CLI::App *add_dump(CLI::App &app, dump_options &options)
{
    CLI::App *verb = add_verb(app, "dump", "Print what a box holds, oldest first");
    verb->add_option("BASE|FILE", options.name, "Name of a box, or one of its buffer files")
        ->required();
    verb->add_flag("--history", options.history,
                   "Print the summarised intervals as CSV instead of the raw samples");
    verb->add_flag("--events", options.events, "Print the events as CSV instead of the samples");
    verb->add_flag("--utc", options.utc, "Print times in UTC, not in the local time zone");
    verb->footer(
        footer("Raw samples are printed as text telemetry. Values are the shortest decimals "
               "that read back exactly;\n"
               "nan is a missing value. Files are only read.\n"
               "\n"
               "Examples:\n"
               "  vesk dump box > box.kelt\n"
               "  vesk dump --history box | grep ,::cpu.total.busy_percent,\n"
               "  vesk dump box.3.cbuf.z\n"));
    return verb;
}

CLI::App *add_event(CLI::App &app, event_options &options)
{
    CLI::App *verb = add_verb(app, "event", "Put an event into a box");
    verb->add_option("BASE", options.base, "Name of the box")->required();
    verb->add_option("TYPE", options.type, "A number from 1 to 5; what it means is yours to say")
        ->required();
    verb->add_option("TEXT", options.text, "What happened, up to 10000 bytes")->required();
    verb->footer(footer("The recording that has the box takes the event and answers when it is "
                        "recorded; where nothing\n"
                        "records, it is put into the box at once. The text is kept with the raw "
                        "samples, the history\n"
                        "counts the events of each type.\n"
                        "\n"
                        "Examples:\n"
                        "  vesk event box 1 'database restarted'\n"
                        "  vesk dump --events box\n"));
    return verb;
}

CLI::App *add_check(CLI::App &app, check_options &options)
{
    CLI::App *verb = add_verb(app, "check", "Look for damage in a box");
    verb->add_option("BASE", options.base, "Name of the box")->required();
    add_known_shape(*verb, options.shape);
    verb->add_flag("--json", options.json, "Print JSON");
    verb->footer(footer("Tells file by file what is wrong, and what `vesk repair` would do about "
                        "it. Files are only read.\n"
                        "The exit code is 0 for a healthy box, 3 for one that can be repaired, 4 "
                        "for one that cannot.\n"
                        "\n"
                        "Examples:\n"
                        "  vesk check box || vesk repair box\n"
                        "  vesk check --json box | jq .repair.steps\n"));
    return verb;
}

CLI::App *add_repair(CLI::App &app, repair_options &options)
{
    CLI::App *verb = add_verb(app, "repair", "Bring a damaged box back");
    verb->add_option("BASE", options.base, "Name of the box")->required();
    add_known_shape(*verb, options.shape);
    verb->add_flag("--dry-run", options.dry_run, "Show what would be done and do nothing");
    verb->footer(
        footer("Shows what is wrong, then mends it. What is taken out of a file is kept in "
               "FILE.torn. `record` and\n"
               "`import` do the same when they start. A box that was moved or copied is "
               "made at home where it is.\n"
               "\n"
               "Examples:\n"
               "  vesk repair --dry-run box\n"
               "  vesk repair box --samples 3600 --intervals 60\n"));
    return verb;
}

CLI::App *add_info(CLI::App &app, info_options &options)
{
    CLI::App *verb = add_verb(app, "info", "Tell what a box is made of");
    verb->add_option("BASE|FILE", options.name, "Name of a box, or one of its buffer files")
        ->required();
    verb->add_flag("--json", options.json, "Print JSON, with times in seconds since the epoch");
    verb->add_flag("--utc", options.utc, "Print times in UTC, not in the local time zone");
    verb->footer(footer("Examples:\n"
                        "  vesk info box\n"
                        "  vesk info --json box | jq .raw.samples\n"));
    return verb;
}

// A verb that does not exist is told apart from wrong options of one that does.
bool refuse_unknown_verb(int argc, char **argv)
{
    if (argc < 2 || argv[1][0] == '-' || std::string_view(argv[1]) == "help") {
        return false;
    }
    const std::string_view typed = argv[1];
    for (const std::string_view verb : verb_names) {
        if (typed == verb) {
            return false;
        }
    }
    const std::string_view meant = nearest_word(typed, verb_names);
    complain(fmt::format("there is no verb '{}'{}", printable(typed),
                         meant.empty() ? "" : fmt::format("; did you mean '{}'?", meant)));
    fmt::print(stderr, "Try 'vesk --help'.\n");
    return true;
}

// "vesk help VERB" is "vesk VERB --help".
std::vector<std::string> arguments(int argc, char **argv)
{
    std::vector<std::string> words(argv + 1, argv + argc);
    if (!words.empty() && words[0] == "help") {
        words.erase(words.begin());
        words.emplace_back("--help");
    }
    // CLI11 takes them from the end.
    std::reverse(words.begin(), words.end());
    return words;
}

int run(int argc, char **argv)
{
    CLI::App app(
        "The black box of a computer: records telemetry in bounded space and reads it back.",
        "vesk");
    all_options options;
    app.set_version_flag("--version", "vesk " VESK_VERSION, "Print the version");
    app.require_subcommand(1);
    app.get_formatter()->label("SUBCOMMAND", "VERB");
    app.get_formatter()->label("TEXT", "");
    app.get_formatter()->label("REQUIRED", "");
    app.get_formatter()->column_width(22);
    app.footer(footer("Examples:\n"
                      "  vesk record box              record this machine until Ctrl-C\n"
                      "  vesk info box                what is in it\n"
                      "  vesk dump box                the raw samples as text\n"
                      "  vesk dump --history box      the summaries of what is older\n"
                      "  vesk import box data.kelt    text telemetry into a box\n"
                      "  vesk event box 1 'hello'     an event into a box\n"
                      "  vesk check box               is it healthy?\n"
                      "\n"
                      "'vesk VERB --help' tells more about a verb.\n"));
    const CLI::App *record_verb = add_record(app, options.record);
    const CLI::App *import_verb = add_import(app, options.import);
    const CLI::App *event_verb = add_event(app, options.event);
    const CLI::App *dump_verb = add_dump(app, options.dump);
    const CLI::App *info_verb = add_info(app, options.info);
    const CLI::App *check_verb = add_check(app, options.check);
    const CLI::App *repair_verb = add_repair(app, options.repair);
    if (argc < 2) {
        fmt::print(stderr, "{}", app.help());
        return exit_usage;
    }
    if (refuse_unknown_verb(argc, argv)) {
        return exit_usage;
    }
    try {
        app.parse(arguments(argc, argv));
    } catch (const CLI::Success &asked) {
        return app.exit(asked);
    } catch (const CLI::ParseError &wrong) {
        complain(wrong.what());
        const auto verbs = app.get_subcommands();
        fmt::print(stderr, "Try 'vesk {}--help'.\n",
                   verbs.empty() ? "" : verbs.front()->get_name() + " ");
        return exit_usage;
    }
    // Who writes to a box ends it in order, whatever becomes of those who listen.
    if (record_verb->parsed() || import_verb->parsed()) {
        (void)std::signal(SIGPIPE, SIG_IGN);
    }
    if (record_verb->parsed()) {
        return record(options.record);
    }
    if (import_verb->parsed()) {
        return import_text(options.import);
    }
    if (event_verb->parsed()) {
        return put_event(options.event);
    }
    if (dump_verb->parsed()) {
        return dump(options.dump);
    }
    if (check_verb->parsed()) {
        return check(options.check);
    }
    if (repair_verb->parsed()) {
        return repair(options.repair);
    }
    return info_verb->parsed() ? info(options.info) : exit_usage;
}

int give_up(const failure &reason)
{
    if (dynamic_cast<const bad_input *>(&reason) != nullptr) {
        fmt::print(stderr, "{}\n", reason.what());
    } else {
        complain(reason.what());
    }
    if (!reason.remark().empty()) {
        note(reason.remark());
    }
    return reason.code();
}

} // namespace

int main(int argc, char **argv)
{
    // A file that grows beyond what is allowed is a failed write like any other.
    (void)std::signal(SIGXFSZ, SIG_IGN);
    try {
        return run(argc, argv);
    } catch (const failure &reason) {
        return give_up(reason);
    } catch (const std::exception &error) {
        complain(error.what());
        return exit_failed;
    }
}
