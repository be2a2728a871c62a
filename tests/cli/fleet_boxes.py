"""The boxes of the page about many machines: made and pushed as the page says, of recorded telemetry
in the folder that VESK_TEST_DATA names.
"""

import os
import re
import subprocess
from pathlib import Path

from verdict import Skip, require

TELEMETRY = "smd-machine-2-8.kelt.gz"
MAKE_LIMIT = 300


def blocks(page, language):
    """The texts of the page in fences of this language."""
    return re.findall(rf"^```{language}\n(.*?)^```", page, re.MULTILINE | re.DOTALL)


def run_shell(text, folder, vesk):
    """Runs lines of the shell in which "vesk" is this program; returns what they print."""
    programs = Path(folder) / "programs"
    programs.mkdir(exist_ok=True)
    for name in ("vesk", "vesk-push"):
        link = programs / name
        if not link.is_symlink():
            link.symlink_to(Path(vesk).parent / name)
    done = subprocess.run(["bash", "-euo", "pipefail", "-c", text], cwd=folder, timeout=MAKE_LIMIT,
                          env={**os.environ, "PATH": f"{programs}:{os.environ['PATH']}", "HOME": str(folder),
                               "XDG_STATE_HOME": str(Path(folder) / "home")},
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False)
    require(done.returncode == 0, f"{text} ended with {done.returncode}: "
            f"{(done.stdout + done.stderr).decode(errors='replace')}")
    return done.stdout.decode(errors="replace")


def bring_telemetry(folder):
    """Puts the telemetry beside what is to be made of it."""
    place = os.environ.get("VESK_TEST_DATA")
    if not place or not (Path(place) / TELEMETRY).is_file():
        raise Skip(f"VESK_TEST_DATA names no folder with {TELEMETRY}")
    (Path(folder) / TELEMETRY).symlink_to(Path(place).resolve() / TELEMETRY)


def make_boxes(page, folder, vesk, replaced):
    """Runs the first lines of the shell on the page, with @p replaced, pairs of texts, in them."""
    text = blocks(page, "sh")[0]
    for old, new in replaced:
        require(old in text, f"{old} is not in what the page makes boxes with")
        text = text.replace(old, new)
    run_shell(text, folder, vesk)
