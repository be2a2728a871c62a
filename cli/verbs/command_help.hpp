// What the help of the command says beside its verbs. The manual pages say the same.
#ifndef VESK_CLI_VERBS_COMMAND_HELP_HPP
#define VESK_CLI_VERBS_COMMAND_HELP_HPP

namespace cli
{

inline constexpr const char *command_purpose =
    "The black box of a computer: records telemetry in bounded space and reads it back.";

inline constexpr const char *exit_codes_text = "Exit codes:\n"
                                               "  0  done\n"
                                               "  1  failed\n"
                                               "  2  wrong usage\n"
                                               "  3  damaged, but readable or repairable\n"
                                               "  4  unreadable or not repairable\n";

inline constexpr const char *examples_text =
    "Examples:\n"
    "  vesk record box              record this machine until Ctrl-C\n"
    "  vesk show box                what happened, on one page\n"
    "  vesk plot box load.1min      a sensor over time\n"
    "  vesk info box                what is in it\n"
    "  vesk stats box --last 10m    what each sensor did before the end\n"
    "  vesk fetch box --last 1m     the values of that time as a table\n"
    "  vesk events box              what happened\n"
    "  vesk dump box                the raw samples as text\n"
    "  vesk dump --history box      the summaries of what is older\n"
    "  vesk import box data.kelt    text telemetry into a box\n"
    "  vesk event box 1 'hello'     an event into a box\n"
    "  vesk check box               is it healthy?\n"
    "\n"
    "'vesk VERB --help' tells more about a verb.\n";

} // namespace cli

#endif
