# Shared by the scripts beside it: `. "$(dirname "$0")/common.sh"`.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

jobs=${VESK_JOBS:-$(nproc)}
# Many tests wait for half of their time: for recorders, browsers and disks.
tests_at_once=$((2 * jobs))

say() { printf '%s\n' "$*" >&2; }

# step WORDS...: says what begins and how long the step before it took, also in seconds of processors.
# steps_done says how long each of them took.
step_began=0
step_processor_began=0
step_name=
step_table=
step()
{
    end_of_step
    step_began=$SECONDS
    step_processor_began=$(processor_seconds)
    step_name=$*
    say "== $*"
}
end_of_step()
{
    [ -n "$step_name" ] || return 0
    local elapsed=$((SECONDS - step_began)) used=$(($(processor_seconds) - step_processor_began))
    say "   ($elapsed s, $used s of processors)"
    step_table+=$(printf '%6d s %6d s of processors  %s' "$elapsed" "$used" "$step_name")$'\n'
    step_name=
}
steps_done()
{
    end_of_step
    say "$step_table$(printf '%6d s %6d s of processors  altogether' "$SECONDS" "$(processor_seconds)")"
}

# What the programs that this script ran and waited for have used.
processor_seconds()
{
    local fields
    # Behind the name of the program, which may hold blanks, the 14th and 15th are those of its children.
    fields=$(<"/proc/$$/stat")
    read -ra fields <<<"${fields##*) }"
    echo $(((fields[13] + fields[14]) / $(getconf CLK_TCK)))
}

# configure PRESET: makes ready to build below build/PRESET.
configure()
{
    mkdir -p build
    cmake --preset "$1" >"build/$1.log" 2>&1 || { cat "build/$1.log" >&2; exit 1; }
}

# build PRESET [TARGET...]: configures and builds below build/PRESET.
build()
{
    local preset=$1
    shift
    configure "$preset"
    cmake --build --preset "$preset" -j "$jobs" ${1+--target "$@"}
}
