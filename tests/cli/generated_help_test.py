#!/usr/bin/env python3
"""Shows that manual pages and completions name what the command takes, and that shells use them.

  generated_help_test.py --vesk COMMAND

The help of each verb is compared with its manual page and with the completions. Completion is tried
in bash, also as somebody types; groff, zsh and fish look at what is theirs where they are installed.
"""

import argparse
import os
import pty
import re
import select
import shutil
import subprocess
import tempfile
import time

failures = 0


def check(fact, holds, *details):
    global failures
    if not holds:
        failures += 1
        print(f"FAIL {fact}", *details, sep="\n  ")


class Command:
    def __init__(self, path):
        self.path = os.path.abspath(path)

    def says(self, *words):
        return subprocess.run([self.path, *words], check=True, capture_output=True, text=True).stdout

    def verbs(self):
        table = self.says("--help").split("\nVerbs:\n")[1].split("\n\n")[0]
        return re.findall(r"^  (\w+)", table, re.MULTILINE)

    def options(self, verb):
        """The names of options in the help of a verb."""
        names = re.findall(r"^  (-[^ =]+)", self.says(verb, "--help"), re.MULTILINE)
        return {name for each in names for name in each.split(",")}


def options_in_manual(page):
    lines = re.findall(r"^\.TP\n(\\fB\\-.*)$", page, re.MULTILINE)
    return {name.replace("\\-", "-") for line in lines
            for name in re.findall(r"\\fB(\\-.*?)\\fR", line)}


def options_in_zsh(script, verb):
    branch = re.search(rf"^    {verb}\)\n(.*?)^        ;;$", script, re.MULTILINE | re.DOTALL)[1]
    return set(re.findall(r"'\*?(--?[\w-]+)=?\[", branch))


def options_in_fish(script, verb):
    found = set()
    for line in script.splitlines():
        if line.startswith(f"complete -c vesk -n '__fish_seen_subcommand_from {verb}'"):
            plain = line.split(" -d '")[0]
            found |= {"--" + name for name in re.findall(r" -l ([\w-]+)", plain)}
            found |= {"-" + name for name in re.findall(r" -s (\w)", plain)}
    return found


class Bash:
    """Completes words in a real bash."""

    def __init__(self, script, folder):
        self.script = script
        self.folder = folder

    def completes(self, *words):
        program = ('source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); '
                   '_vesk; printf "%s\\n" "${COMPREPLY[@]}"')
        ran = subprocess.run(["bash", "--norc", "--noprofile", "-c", program, "bash", self.script,
                              "vesk", *words], check=True, capture_output=True, text=True,
                             cwd=self.folder)
        check(f"bash completes {words} without a word of error", not ran.stderr, ran.stderr)
        return set(ran.stdout.split("\n")) - {""}

    def types(self, keys, wanted):
        """Types @keys at a prompt; whether the line becomes @wanted within a while."""
        child, terminal = pty.fork()
        if child == 0:
            os.chdir(self.folder)
            os.execvpe("bash", ["bash", "--norc", "--noprofile", "-i"],
                       {**os.environ, "PS1": "> ", "TERM": "dumb", "INPUTRC": "/dev/null"})
        seen = b""
        os.write(terminal, f"source '{self.script}'; echo rea''dy\n".encode())
        end = time.monotonic() + 60
        sent = False
        while time.monotonic() < end and wanted.encode() not in seen:
            if select.select([terminal], [], [], 0.1)[0]:
                seen += os.read(terminal, 4096)
            if not sent and b"ready" in seen:
                os.write(terminal, keys.encode())
                sent = True
        os.write(terminal, b"\x15exit\n")
        try:
            while os.read(terminal, 4096):
                pass
        except OSError:
            pass
        os.close(terminal)
        os.waitpid(child, 0)
        return wanted.encode() in seen, seen


def compare(command, folder):
    scripts = {}
    for shell in ("bash", "zsh", "fish"):
        scripts[shell] = command.says("help", "--completion", shell)
        path = os.path.join(folder, "vesk." + shell)
        with open(path, "w", encoding="utf-8") as file:
            file.write(scripts[shell])
        if shutil.which(shell):
            ran = subprocess.run([shell, "-n", path], capture_output=True, text=True)
            check(f"{shell} takes its script", ran.returncode == 0 and not ran.stderr, ran.stderr)
    bash = Bash(os.path.join(folder, "vesk.bash"), folder)
    verbs = command.verbs()
    check("there are verbs", len(verbs) > 10, verbs)
    check("verbs are completed", set(verbs) <= bash.completes(""), verbs)
    main = command.says("help", "--man")
    for verb in verbs:
        wanted = command.options(verb)
        page = command.says("help", "--man", verb)
        for what, found in (("manual page", options_in_manual(page)),
                            ("bash", bash.completes(verb, "-")),
                            ("zsh", options_in_zsh(scripts["zsh"], verb)),
                            ("fish", options_in_fish(scripts["fish"], verb))):
            check(f"{verb}: {what} has the options of the help", found == wanted,
                  f"more: {found - wanted}", f"missing: {wanted - found}")
        check(f"{verb} is in the main page", f"vesk\\-{verb} (1)" in main)
        if shutil.which("groff"):
            ran = subprocess.run(["groff", "-man", "-Tutf8", "-ww", "-z"], input=page,
                                 capture_output=True, text=True)
            check(f"{verb}: groff has nothing to say", not ran.stderr, ran.stderr)
    return bash


def complete(bash):
    for name in ("box.state", "box.1.cbuf.z", "a box.state", "other"):
        with open(os.path.join(bash.folder, name), "wb"):
            pass
    os.mkdir(os.path.join(bash.folder, "bottom"))
    for words, wanted in (
            (("fet",), {"fetch"}),
            (("help", "sus"), {"suspects"}),
            (("fetch", "bo"), {"bottom", "box", "box.state", "box.1.cbuf.z"}),
            (("check", "bo"), {"bottom", "box"}),
            (("check", "a"), {"a box"}),
            (("check", "box", "--js"), {"--json"}),
            (("fetch", "box", "--format", ""), {"csv", "tsv", "jsonl"}),
            (("fetch", "box", "--format", "=", "js"), {"jsonl"}),
            (("fetch", "box", "--format", "="), {"csv", "tsv", "jsonl"}),
            (("fetch", "box", "--from", ""), set()),
            (("nothing", ""), set())):
        found = bash.completes(*words)
        check(f"bash completes {words}", found == wanted, found)
    for keys, wanted in (("vesk fet\t", "vesk fetch "), ("vesk check box --js\t", "box --json "),
                         ("vesk check a\t", "vesk check a\\ box ")):
        holds, seen = bash.types(keys, wanted)
        check(f"who types {keys!r} gets {wanted!r}", holds, seen)


def main():
    words = argparse.ArgumentParser()
    words.add_argument("--vesk", required=True)
    command = Command(words.parse_args().vesk)
    if not shutil.which("bash"):
        print("skipped: bash is not installed")
        return 77
    with tempfile.TemporaryDirectory() as folder:
        bash = compare(command, folder)
        complete(bash)
    for wrong in (["--man", "nothing"], ["--completion", "csh"], ["--completion"],
                  ["--man", "dump", "info"]):
        ran = subprocess.run([command.path, "help", *wrong], capture_output=True, text=True)
        check(f"help {wrong} is refused", ran.returncode == 2 and not ran.stdout, ran.stderr)
    return 1 if failures else 0


if __name__ == "__main__":
    raise SystemExit(main())
