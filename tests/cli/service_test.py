#!/usr/bin/env python3
"""The recording as a service: what it tells its manager, what it reads again, and its unit.

  service_test.py --vesk build/release/cli/vesk notify
      A manager's socket is played: ready, signs of life, reload and end come through it.
  service_test.py --vesk build/release/cli/vesk ticks
      A recording that is stopped for some seconds takes its samples on time again; what it missed is
      told once, counted and marked as a gap.
  service_test.py --vesk build/release/cli/vesk slow_disk --shim libslow_disk.so
      A disk that needs seconds to bring a sample onto the medium costs the samples of these seconds,
      which are told and counted; the others are on time.
  service_test.py --vesk build/release/cli/vesk journal
      What it says has a priority in front where it goes to the journal, and the name of the command
      elsewhere.
  service_test.py --vesk build/release/cli/vesk child
      The program of --from dies with a recording that is killed.
  service_test.py --vesk build/release/cli/vesk unit --unit build/release/vesk-record.service
      systemd finds no fault in the unit and rates its exposure at 2.0 or less.
  service_test.py --vesk build/release/cli/vesk limits --unit build/release/vesk-record.service \
      --manual docs/service.md
      Without systemd, a recording within the limits that the unit states records all that it records
      outside of them. It pushes with what the manual adds to the unit for that, and only with that.
"""

import argparse
import ctypes
import os
import re
import resource
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time
from pathlib import Path

PATIENCE = 60
SKIPPED = 77
MOST_EXPOSURE = 2.0


def wait_until(what, holds):
    end = time.monotonic() + PATIENCE
    while not holds():
        if time.monotonic() > end:
            sys.exit(f"FAILED: not in {PATIENCE} seconds: {what}")
        time.sleep(0.05)


def require(holds, what):
    if not holds:
        sys.exit(f"FAILED: {what}")


class Manager:
    """Takes datagrams as the service manager does."""

    def __init__(self):
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        name = f"vesk-test-{os.getpid()}"
        self.socket.bind("\0" + name)
        self.socket.settimeout(0.05)
        self.address = "@" + name
        self.seen = []

    def has(self, word):
        try:
            while True:
                self.seen.append(self.socket.recv(4096).decode())
        except TimeoutError:
            return any(word in text.split("\n") for text in self.seen)


def notify(arguments, folder):
    manager = Manager()
    config = folder / "record.conf"
    config.write_text("interval 1h\nsensors load\ntop 0\n")
    environment = dict(os.environ, NOTIFY_SOCKET=manager.address, WATCHDOG_USEC="900000")
    said = folder / "said"
    with said.open("w") as messages:
        recorder = subprocess.Popen(
            [arguments.vesk, "record", str(folder / "box"), "--config", str(config)],
            env=environment, stderr=messages)
    try:
        wait_until("ready", lambda: manager.has("READY=1"))
        # The next sample is an hour away: it is the watchdog that wakes the recording.
        manager.seen.clear()
        wait_until("a sign of life", lambda: manager.has("WATCHDOG=1"))
        manager.seen.clear()
        wait_until("another one", lambda: manager.has("WATCHDOG=1"))
        manager.seen.clear()
        config.write_text("interval 2h\nsensors load\n")
        recorder.send_signal(signal.SIGHUP)
        wait_until("the reload", lambda: manager.has("RELOADING=1"))
        wait_until("ready again", lambda: manager.has("READY=1"))
        require("every 2h" in said.read_text(), f"the new interval is not told: {said.read_text()}")
    finally:
        recorder.send_signal(signal.SIGTERM)
        code = recorder.wait(PATIENCE)
    require(code == 0, f"exit code {code}")
    require(manager.has("STOPPING=1"), f"the end is not told: {manager.seen}")


def samples_in(arguments, base):
    told = subprocess.run([arguments.vesk, "dump", base], capture_output=True, text=True,
                          check=False)
    return [line.split(",", 1)[0] for line in told.stdout.splitlines() if "::" not in line]


def require_missed_are_told(arguments, base, said, least):
    """Each second between the first and the last sample has one sample or is told to have none."""
    found = samples_in(arguments, base)
    seconds = [int(text[-2:]) + 60 * int(text[-5:-3]) for text in found]
    require(len(set(found)) == len(found), f"two samples of one second: {found}")
    events = subprocess.run([arguments.vesk, "events", base], capture_output=True, text=True,
                            check=True).stdout
    late = re.findall(r"gap .*reason=late missed=(\d+)", events)
    missed = sum(int(count) for count in late)
    whole = (seconds[-1] - seconds[0]) % 3600 + 1
    require(missed == whole - len(found) and missed >= least,
            f"{missed} told to be missed, {whole - len(found)} are: {events}")
    require(said.read_text().count("samples come too late") == 1,
            f"not said once: {said.read_text()}")


def slow_disk(arguments, folder):
    base = str(folder / "box")
    said = folder / "said"
    pace = folder / "pace"
    pace.write_text("0\n")
    with said.open("w") as messages:
        recorder = subprocess.Popen(
            [arguments.vesk, "record", base, "--sensors", "load", "--top", "0", "--sync", "vector"],
            stderr=messages,
            env=dict(os.environ, LD_PRELOAD=arguments.shim, VESK_TEST_SLOW_DISK=str(pace)))
    try:
        wait_until("two samples", lambda: len(samples_in(arguments, base)) >= 2)
        pace.write_text("2600\n")
        wait_until("samples are missed", lambda: "too late" in said.read_text())
        pace.write_text("0\n")
        before = len(samples_in(arguments, base))
        wait_until("three more", lambda: len(samples_in(arguments, base)) >= before + 3)
    finally:
        recorder.send_signal(signal.SIGTERM)
        code = recorder.wait(PATIENCE)
    require(code == 0, f"exit code {code}")
    require_missed_are_told(arguments, base, said, 2)


def ticks(arguments, folder):
    base = str(folder / "box")
    said = folder / "said"
    with said.open("w") as messages:
        recorder = subprocess.Popen(
            [arguments.vesk, "record", base, "--sensors", "load", "--top", "0"], stderr=messages)

    def samples():
        return samples_in(arguments, base)

    try:
        wait_until("two samples", lambda: len(samples()) >= 2)
        recorder.send_signal(signal.SIGSTOP)
        before = len(samples())
        time.sleep(3.3)
        recorder.send_signal(signal.SIGCONT)
        wait_until("two more", lambda: len(samples()) >= before + 3)
        recorder.send_signal(signal.SIGSTOP)
        before = len(samples())
        time.sleep(2.3)
        recorder.send_signal(signal.SIGCONT)
        wait_until("two more", lambda: len(samples()) >= before + 3)
    finally:
        recorder.send_signal(signal.SIGCONT)
        recorder.send_signal(signal.SIGTERM)
        code = recorder.wait(PATIENCE)
    require(code == 0, f"exit code {code}")
    require_missed_are_told(arguments, base, said, 3)


def journal(arguments, folder):
    """Plays the stream of the journal, which JOURNAL_STREAM names by device and inode."""
    def said_by(*words, is_journal=True):
        ours, theirs = socket.socketpair()
        status = os.fstat(theirs.fileno())
        # Standard error was redirected since: the variable names another stream then.
        inode = status.st_ino if is_journal else status.st_ino + 1
        subprocess.run([arguments.vesk, *words], stderr=theirs, check=False, timeout=PATIENCE,
                       env=dict(os.environ, JOURNAL_STREAM=f"{status.st_dev}:{inode}"))
        theirs.close()
        text = b""
        while piece := ours.recv(4096):
            text += piece
        ours.close()
        return text.decode().splitlines()

    base = str(folder / "box")
    record = ["record", base, "--sensors", "load", "--top", "0", "--no-kernel-log", "--for", "1s"]
    lines = said_by(*record)
    require(len(lines) == 2 and all(line.startswith(f"<5>{base}: ") for line in lines),
            f"no notices: {lines}")
    lines = said_by(*record, is_journal=False)
    require(len(lines) == 2 and all(line.startswith(f"vesk: note: {base}: ") for line in lines),
            f"not as on a terminal: {lines}")
    missing = str(folder / "nowhere" / "box")
    lines = said_by("record", missing)
    require(len(lines) == 1 and lines[0].startswith(f"<3>{missing}: "), f"no error: {lines}")
    lines = said_by("record", missing, is_journal=False)
    require(len(lines) == 1 and lines[0].startswith(f"vesk: {missing}: "), f"no error: {lines}")


def child(arguments, folder):
    base = str(folder / "box")
    program = folder / "program"
    number = folder / "number"
    program.write_text(f"echo $$ > {number}\necho 20240101:00:00:00,::made\n"
                       "while echo 20240101:00:00:00,1; do sleep 0.1; done\n")
    recorder = subprocess.Popen(
        [arguments.vesk, "record", base, "--sensors", "load", "--from", f"exec sh {program}"],
        stderr=subprocess.DEVNULL)

    def recorded():
        told = subprocess.run([arguments.vesk, "dump", base], capture_output=True, text=True,
                              check=False)
        return "::made" in told.stdout

    try:
        wait_until("its sensor", recorded)
    finally:
        recorder.kill()
        recorder.wait(PATIENCE)
    process = Path("/proc", number.read_text().strip())
    # Where nobody reaps orphans it stays as a zombie.
    wait_until("the program's end", lambda: not process.exists() or
               ") Z " in (process / "stat").read_text())


def unit(arguments, folder):
    if not shutil.which("systemd-analyze"):
        print("there is no systemd-analyze here")
        sys.exit(SKIPPED)
    # The command that the unit starts is not installed.
    text = Path(arguments.unit).read_text()
    require("@" not in re.sub("~?@[a-z-]+", "", text), "a place of the unit is not filled in")
    copy = folder / "vesk-record.service"
    copy.write_text(re.sub("^ExecStart=[^ ]+", f"ExecStart={arguments.vesk}", text, flags=re.M))
    told = subprocess.run(["systemd-analyze", "verify", "--man=no", str(copy)],
                          capture_output=True, text=True, check=False)
    own = [line for line in told.stderr.splitlines() if "vesk-record" in line]
    require(told.returncode == 0 and not own, f"verify: {told.stderr}")
    told = subprocess.run(["systemd-analyze", "security", "--offline=yes", "--no-pager", str(copy)],
                          capture_output=True, text=True, check=False)
    exposure = re.search(r"Overall exposure level[^:]*: ([0-9.]+)", told.stdout)
    require(exposure is not None, f"security: {told.stdout}{told.stderr}")
    print(f"exposure {exposure[1]}")
    require(float(exposure[1]) <= MOST_EXPOSURE, f"exposure {exposure[1]}")


# Whom no process of this machine belongs to, so that the limit of processes is about this one only.
USER = 61234
UNISTD = Path("/usr/include/x86_64-linux-gnu/asm/unistd_64.h")
LIBC = ctypes.CDLL(None, use_errno=True)
EPERM, EAFNOSUPPORT = 1, 97
MS_RDONLY, MS_REMOUNT, MS_BIND, MS_REC, MS_PRIVATE = 1, 32, 4096, 16384, 1 << 18
CLONE_NEWNS = 0x20000
PR_SET_SECCOMP, SECCOMP_MODE_FILTER = 22, 2
PR_SET_MDWE = 65


class Unit:
    """What a unit, and what is added to it, says of the limits of its service."""

    def __init__(self, path, added=()):
        self.lines = [*Path(path).read_text().splitlines(), *added]

    def all(self, key):
        return [line.split("=", 1)[1] for line in self.lines if line.startswith(key + "=")]

    def one(self, key):
        found = self.all(key)
        require(len(found) == 1, f"{key} stands {len(found)} times in the unit")
        return found[0]


def calls_of(group):
    """The names of the system calls in a group such as @system-service."""
    told = subprocess.run(["systemd-analyze", "--no-pager", "syscall-filter", group],
                          capture_output=True, text=True, check=True).stdout
    names = set()
    for line in told.splitlines()[1:]:
        word = line.strip()
        if word.startswith("@"):
            names |= calls_of(word)
        elif word and not word.startswith("#"):
            names.add(word)
    return names


def allowed_calls(unit):
    names = set()
    for line in unit.all("SystemCallFilter"):
        for group in line.lstrip("~").split():
            names = names - calls_of(group) if line.startswith("~") else names | calls_of(group)
    require(unit.one("RestrictNamespaces") == "yes", "RestrictNamespaces")
    return names - {"unshare", "setns"}


def filter_of(names, families):
    """The program of the kernel's filter: other calls, and sockets of other families, are errors."""
    numbers = {name: int(number) for name, number in
               re.findall(r"#define __NR_(\w+) (\d+)", UNISTD.read_text())}
    load, equal, give, allow, error = 0x20, 0x15, 0x06, 0x7fff0000, 0x00050000
    steps = [(load, 0, 0, 0),
             (equal, 0, len(families) + 3, numbers["socket"]), (load, 0, 0, 16)]
    steps += [(equal, len(families) - at, 0, getattr(socket, name))
              for at, name in enumerate(families)]
    steps += [(give, 0, 0, error | EAFNOSUPPORT), (give, 0, 0, allow)]
    for name in sorted(names & numbers.keys() - {"socket"}):
        steps += [(equal, 0, 1, numbers[name]), (give, 0, 0, allow)]
    steps.append((give, 0, 0, error | EPERM))
    return b"".join(struct.pack("HBBI", *step) for step in steps)


def confine(arguments, unit, folder):
    """Called in the new process while it may do everything: a view of the files that is read-only
    but for one folder, and limits of resources."""
    def mount(source, target, flags):
        if LIBC.mount(source, target, None, flags, None) != 0:
            raise OSError(ctypes.get_errno(), "mount")

    own = os.fsencode(folder)
    if LIBC.unshare(CLONE_NEWNS) != 0:
        raise OSError(ctypes.get_errno(), "unshare")
    mount(b"none", b"/", MS_REC | MS_PRIVATE)
    mount(own, own, MS_BIND)
    for place in sorted({b"/", b"/tmp", b"/var/tmp", b"/home"}):
        if os.path.ismount(place):
            mount(b"none", place, MS_REMOUNT | MS_BIND | MS_RDONLY)
    files = int(unit.one("LimitNOFILE"))
    tasks = int(unit.one("TasksMax"))
    memory = int(unit.one("MemoryMax").rstrip("M")) << 20
    resource.setrlimit(resource.RLIMIT_NOFILE, (files, files))
    resource.setrlimit(resource.RLIMIT_NPROC, (tasks, tasks))
    # The sanitizers reserve terabytes of addresses.
    if b"__asan_init" not in Path(arguments.vesk).read_bytes():
        resource.setrlimit(resource.RLIMIT_AS, (memory, memory))
    os.umask(int(unit.one("UMask"), 8))


def filtered(arguments, words):
    """The last step before the command: the filter of system calls, and no memory that is both
    written and executed, where the kernel knows that."""
    program = Path(arguments.filter).read_bytes()
    code = ctypes.create_string_buffer(program)
    whole = ctypes.create_string_buffer(struct.pack("HxxxxxxP", len(program) // 8,
                                                    ctypes.addressof(code)))
    LIBC.prctl(PR_SET_MDWE, 1, 0, 0, 0)
    if LIBC.prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, whole, 0, 0) != 0:
        sys.exit("the filter of system calls is refused")
    os.execv(words[0], words)


def within_limits(arguments, unit, folder, *words):
    # The other user may not get to an interpreter in a folder of this one.
    python = "/usr/bin/python3" if Path("/usr/bin/python3").exists() else sys.executable
    capabilities = ",".join(["-all"] + ["+" + name.lower().removeprefix("cap_") for name in
                                        unit.one("CapabilityBoundingSet").split()])
    require(unit.one("NoNewPrivileges") == "yes", "NoNewPrivileges")
    return subprocess.run(
        ["setpriv", f"--reuid={USER}", f"--regid={USER}", "--clear-groups",
         f"--inh-caps={capabilities}", f"--ambient-caps={capabilities}",
         f"--bounding-set={capabilities}", "--no-new-privs",
         python, str(Path(__file__).resolve()), "--vesk", arguments.vesk,
         "--filter", str(folder.parent / "filter"), "filtered", *words],
        preexec_fn=lambda: confine(arguments, unit, folder), cwd=folder, capture_output=True, text=True,
        env=environment_of(folder), timeout=PATIENCE, check=False)


def environment_of(state):
    """A sanitizer's search for leaks traces the process, which the filter does not allow."""
    return {**os.environ, "ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", "") + ":detect_leaks=0",
            "STATE_DIRECTORY": str(state)}


def groups_in(arguments, base):
    """The first words of the names of sensors that have a value."""
    names, *rows = [line.split(",") for line in subprocess.run(
        [arguments.vesk, "dump", base], capture_output=True, text=True, check=True).stdout.splitlines()
        if line]
    return {name.removeprefix("::").split(".")[0] for row in rows for name, value in zip(names, row)
            if name.startswith("::") and not value.startswith("::") and value != "nan"}


def notes_of(ended, base):
    """What does not depend on the number of sensors or on what else the machine does."""
    return [line for line in ended.stderr.replace(base, "BOX").splitlines()
            if "a recording begins" not in line and "come too late" not in line]


def limits(arguments, folder):
    for program in ("systemd-analyze", "setpriv"):
        if not shutil.which(program):
            print(f"there is no {program} here")
            sys.exit(SKIPPED)
    if not UNISTD.exists():
        print("the numbers of system calls are not known here")
        sys.exit(SKIPPED)
    unit_of_service = Unit(arguments.unit)
    folder.chmod(0o755)
    write_filter(folder, unit_of_service)
    state = folder / "state"
    state.mkdir()
    os.chown(state, USER, USER)
    try:
        found = within_limits(arguments, unit_of_service, state, "/usr/bin/true")
    except (subprocess.SubprocessError, OSError) as reason:
        print(f"the limits cannot be set here: {reason}")
        sys.exit(SKIPPED)
    require(found.returncode == 0, f"true: {found}")
    # The limits hold.
    for words, told in [(("/usr/bin/touch", "/var/tmp/vesk-limits"), "Read-only file system"),
                        (("/usr/bin/unshare", "--user", "/usr/bin/true"), "not permitted"),
                        (("/usr/bin/python3", "-c", "import socket; socket.socket()"), "not supported")]:
        found = within_limits(arguments, unit_of_service, state, *words)
        require(found.returncode != 0 and told in found.stderr, f"{words}: {found}")

    record = ["--for", "3s", "--top", "2", "--kernel-log"]
    base = str(state / "box")
    found = within_limits(arguments, unit_of_service, state, arguments.vesk, "record", base, *record)
    require(found.returncode == 0, f"record: {found}")
    free = str(folder / "free")
    outside = subprocess.run([arguments.vesk, "record", free, *record], capture_output=True, text=True,
                             timeout=PATIENCE, check=True)
    checked = subprocess.run([arguments.vesk, "check", base], capture_output=True, text=True,
                             check=False)
    require(checked.returncode == 0, f"check: {checked}")
    require(len(samples_in(arguments, base)) == 3, f"samples: {samples_in(arguments, base)}")
    # Only root may read the energy counters.
    missing = groups_in(arguments, free) - groups_in(arguments, base) - {"rapl"}
    require(not missing, f"without any of {sorted(missing)}")
    said = [notes_of(found, base), notes_of(outside, free)]
    require(said[0] == said[1], f"it says other things: {said}")
    pushes_within_limits(arguments, folder, state)


def write_filter(folder, unit):
    families = [name for line in unit.all("RestrictAddressFamilies") for name in line.split()]
    (folder / "filter").write_bytes(filter_of(allowed_calls(unit), families))


def additions_for_pushes(manual):
    """What a chapter of the manual adds to the unit."""
    chapter = Path(manual).read_text().split("\n## A service that pushes\n")[1].split("\n## ")[0]
    return re.findall(r"^    (\w+=.*)$", chapter.split("    [Service]\n")[1], re.M)


def pushes_within_limits(arguments, folder, state):
    if not Path(arguments.vesk).with_name("vesk-push").exists():
        return
    engine = socket.create_server(("127.0.0.1", 0))
    engine.settimeout(0)
    words = [arguments.vesk, "record", str(state / "pushed"), "--for", "4s", "--sensors", "load", "--push",
             f"clickhouse://127.0.0.1:{engine.getsockname()[1]}/x", "--push-every", "1s"]

    def connected(unit):
        write_filter(folder, unit)
        found = within_limits(arguments, unit, state, *words)
        require(found.returncode == 0, f"record: {found}")
        try:
            engine.accept()[0].close()
            return True
        except BlockingIOError:
            return False

    require(not connected(Unit(arguments.unit)), "the unit lets it into the network")
    require(connected(Unit(arguments.unit, additions_for_pushes(arguments.manual))),
            "it cannot push with what the manual adds")



def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--vesk", required=True, type=lambda text: str(Path(text).resolve()))
    parser.add_argument("--unit")
    parser.add_argument("--manual")
    parser.add_argument("--filter")
    parser.add_argument("--shim", type=lambda text: str(Path(text).resolve()))
    parser.add_argument("what", choices=["notify", "ticks", "slow_disk", "journal", "child", "unit",
                                         "limits", "filtered"])
    arguments, words = parser.parse_known_args()
    if arguments.what == "filtered":
        filtered(arguments, words)
    with tempfile.TemporaryDirectory(prefix="vesk-service-") as folder:
        {"notify": notify, "ticks": ticks, "slow_disk": slow_disk, "journal": journal, "child": child,
         "unit": unit, "limits": limits}[arguments.what](arguments, Path(folder))
    print("ok")


if __name__ == "__main__":
    main()
