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
    os.close(follower)
    written = b""
    try:
        while piece := os.read(leader, 65536):
            written += piece
    except OSError:
        pass  # the other end is closed
    code = process.wait()
    text = written.decode().replace("\r\n", "\n").replace("\r", "\n").replace("\033", "ESC")
    print(text, end="" if text.endswith("\n") else "\n")
    return code


if __name__ == "__main__":
    sys.exit(main())
