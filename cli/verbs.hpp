// The verbs of the command. Each takes its options as the command line gave them, returns an exit
// code and throws a failure where it gives up.
#ifndef VESK_CLI_VERBS_HPP
#define VESK_CLI_VERBS_HPP

#include <string>

#include "box_writer.hpp"
#include "exit_codes.hpp"

namespace cli
{

struct record_options {
    std::string base;
    std::string interval = "1s";
    std::string duration; // empty: until a signal ends it
    box_shape shape;
};

struct import_options {
    std::string base;
    std::string file = "-";
    bool utc = false;
    box_shape shape;
};

struct dump_options {
    std::string name;
    bool history = false;
    bool utc = false;
};

struct info_options {
    std::string name;
    bool json = false;
    bool utc = false;
};

exit_code record(const record_options &options);
exit_code import_text(const import_options &options);
exit_code dump(const dump_options &options);
exit_code info(const info_options &options);

} // namespace cli

#endif
