# Shared by the scripts beside it: `. "$(dirname "$0")/common.sh"`.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

jobs=${VESK_JOBS:-$(nproc)}

say() { printf '%s\n' "$*" >&2; }

# step WORDS...: says what begins and how long the step before it took.
step_began=0
step()
{
    if [ "$step_began" -ne 0 ]; then
        say "   ($((SECONDS - step_began)) s)"
    fi
    step_began=$SECONDS
    say "== $*"
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
