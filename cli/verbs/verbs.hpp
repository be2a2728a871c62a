// The verbs of the command. Each takes its options as the command line gave them, returns an exit
// code and throws a failure where it gives up.
#ifndef VESK_CLI_VERBS_VERBS_HPP
#define VESK_CLI_VERBS_VERBS_HPP

#include <string>

#include "box/box_writer.hpp"
#include "process/exit_codes.hpp"

namespace cli
{

struct record_options {
    std::string base;
    std::string interval = "1s";
    std::string duration; // empty: until a signal ends it
    std::string sync = "10s";
    box_shape shape;
};

struct import_options {
    std::string base;
    std::string file = "-";
    bool utc = false;
    box_shape shape;
    std::string sync = "end";
    std::string acknowledge; // a file or the number of a descriptor; empty: nowhere
};

struct dump_options {
    std::string name;
    bool history = false;
    bool utc = false;
    bool events = false;
};

struct info_options {
    std::string name;
    bool json = false;
    bool utc = false;
};

struct event_options {
    std::string base;
    std::string type;
    std::string text;
};

struct check_options {
    std::string base;
    box_shape shape;
    bool json = false;
};

struct repair_options {
    std::string base;
    box_shape shape;
    bool dry_run = false;
};

exit_code record(const record_options &options);
exit_code import_text(const import_options &options);
exit_code dump(const dump_options &options);
exit_code info(const info_options &options);
exit_code put_event(const event_options &options);
exit_code check(const check_options &options);
exit_code repair(const repair_options &options);

} // namespace cli

#endif
