#!/usr/bin/env python3
"""Runs a command with its standard error on a terminal of 80 columns and prints what it wrote there,
escape sequences spelt out and every rewritten line on a line of its own.

  on_terminal.py [--stdout] [NAME=VALUE ...] COMMAND [ARGUMENT ...]

With --stdout its standard output is on the terminal, too.
"""

import fcntl
import os
import pty
import struct
import subprocess
import sys
import termios
import threading

END = b"\0end of what the command wrote\0"


def mark_the_end(process, follower):
    """Writes END behind what the command wrote. The kernel may tell the reader of a terminal that the
    other end is closed before it has handed over the last bytes, so the other end stays open."""
    process.wait()
    os.write(follower, END)


def main():
    words = sys.argv[1:]
    both = words[0] == "--stdout"
    words = words[both:]
    environment = dict(os.environ, TERM="xterm")
    while "=" in words[0]:
        name, value = words.pop(0).split("=", 1)
        environment[name] = value
    leader, follower = pty.openpty()
    fcntl.ioctl(follower, termios.TIOCSWINSZ, struct.pack("HHHH", 24, 80, 0, 0))
    process = subprocess.Popen(words, stdout=follower if both else None, stderr=follower,
                               env=environment)
    waiting = threading.Thread(target=mark_the_end, args=(process, follower))
    waiting.start()
    written = b""
    while not written.endswith(END):
        written += os.read(leader, 65536)
    waiting.join()
    code = process.returncode
    text = written.removesuffix(END).decode().replace("\r\n", "\n").replace("\r", "\n").replace("\033", "ESC")
    print(text, end="" if text.endswith("\n") else "\n")
    return code


if __name__ == "__main__":
    sys.exit(main())
