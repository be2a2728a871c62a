// vesk push BASE... --to URL: brings boxes into an engine for many machines. What does it is a
// program of its own, vesk-push: this verb checks what is asked for and becomes that program.
#include <memory>

#include "push/push_program.hpp"
#include "push/push_request.hpp"
#include "verbs/verb.hpp"

namespace cli
{
namespace
{

exit_code push(const push_request &request)
{
    request.check();
    become_push_program(request);
}

action prepare(option_list &options)
{
    const auto chosen = std::make_shared<push_request>();
    options.words("BASE", chosen->boxes, "Names of boxes");
    options.text("--to", "URL", chosen->url, "Where to, such as clickhouse://HOST/DATABASE");
    options.text("--all", "DIR", chosen->folder, "Every box below this folder instead");
    options.text("--raw", "none|all|last:LENGTH", chosen->raw,
                 "Which raw samples go along; intervals and events always do");
    options.texts("--label", "KEY=VALUE", chosen->labels,
                  "What the box is called there: box=, host=, site=, firmware=; may be repeated");
    options.flag("--create", chosen->create, "Make the tables first, where they are missing");
    options.text("--cluster", "NAME", chosen->cluster,
                 "With --create: tables that spread boxes over this cluster of the server");
    options.flag("--again", chosen->again, "As if nothing had been pushed yet");
    options.text("--credentials", "FILE", chosen->credentials,
                 "Lines 'user NAME' and 'password TEXT'; only its owner may read it");
    options.text("--ca-file", "FILE", chosen->ca_file,
                 "Certificates to trust instead of those of the system");
    options.text("--retry-for", "LENGTH", chosen->retry_for,
                 "Go on trying for so long when the engine cannot be reached; 0 for one attempt");
    options.text("--state", "DIR", chosen->state,
                 "Where to keep in mind how far each box is pushed");
    options.flag("--json", chosen->json, "Print one JSON object for each box");
    options.flag("--quiet", chosen->quiet, "Print nothing but what fails");
    return [chosen] { return push(*chosen); };
}

constexpr const char *more =
    "A push sends what the engine does not have yet, and nothing is counted twice there, whatever\n"
    "ends it: rows have keys, and a push that begins anew asks the engine what it has. It reads "
    "the\n"
    "box as any other verb does, also while it is recorded to.\n"
    "\n"
    "  clickhouse://[USER@]HOST[:PORT]/DATABASE   ClickHouse over HTTP (8123)\n"
    "  clickhouses://...                          the same over TLS (8443)\n"
    "  remote-write+http[s]://HOST[:PORT]/PATH    a store of metrics, such as VictoriaMetrics\n"
    "\n"
    "Each box needs a name of its own there: NAME OF THIS MACHINE/BASE, with --all the path below\n"
    "the folder, or what --label box= says. With --raw last:2h, the usual, a first push of an old\n"
    "box does not flood the engine, a box that is pushed every hour loses nothing, and a dead one\n"
    "brings what went before its end. A password is taken from --credentials or from the "
    "variables\n"
    "VESK_PUSH_USER and VESK_PUSH_PASSWORD. How far each box is pushed is kept in the folder of\n"
    "--state; without it in $STATE_DIRECTORY, $XDG_STATE_HOME or ~/.local/state. It may be lost.\n"
    "\n"
    "Examples:\n"
    "  vesk push box --to clickhouse://fleet.example/fleet --create --label site=north\n"
    "  vesk push box --to remote-write+http://fleet.example:8428/api/v1/write\n"
    "  vesk push --all /srv/boxes --to clickhouses://push@fleet.example/fleet --raw all\n";

const registration registered({46, "push", "Bring boxes into an engine for many machines", more,
                               prepare});

} // namespace
} // namespace cli
