#!/usr/bin/python3
"""Tests kova-simulator's prompt on a pseudo-terminal.

usage: prompt_test.py SIMULATOR, on a private session bus.
"""

import os
import pty
import select
import subprocess
import sys
import tempfile
import termios
import time

LIMIT = 20  # s, for expected output, even on a busy machine
UP, END = "\x1b[A", "\x04"


class Prompt:
    def __init__(self):
        self.process, self.terminal = pty.fork()
        if self.process == 0:
            os.execv(sys.argv[1], sys.argv[1:])
        self.shown = ""

    def type(self, keys, shows):
        """Types, and waits until the text is shown."""
        os.write(self.terminal, keys.encode())
        end = time.monotonic() + LIMIT
        while shows not in self.shown:
            if not select.select([self.terminal], [], [], max(0, end - time.monotonic()))[0]:
                sys.exit(f"{keys!r} does not show {shows!r}: {self.shown!r}")
            self.shown += os.read(self.terminal, 4096).decode()
        self.shown = self.shown.partition(shows)[2]

    def end(self):
        self.type(END, "\r\n")
        if os.waitpid(self.process, 0)[1] != 0 or not termios.tcgetattr(self.terminal)[3] & termios.ECHO:
            sys.exit("the simulator did not end well")


with tempfile.TemporaryDirectory() as folder:
    os.environ.update(XDG_STATE_HOME=folder, TERM="xterm", LC_ALL="C.UTF-8")
    prompt = Prompt()
    prompt.type("hel\t\r", "end the simulator")
    prompt.type("input ünd", "ünd")
    # The device goes on even while the prompt waits for the rest of a key. Its events leave the edited line intact.
    os.write(prompt.terminal, b"\x1b")
    subprocess.run(["dbus-send", "--print-reply", "--dest=com.quillmark.kova.gsmmanager",
                    "/com/quillmark/kova/gsmmanager/gsmobj", "com.quillmark.kova.gsminterface.IsSimPresent"],
                   stdout=subprocess.DEVNULL, check=True)
    prompt.type("", "-> gsm IsSimPresent()\r\n> input ünd")
    prompt.type("[C\r", 'no command "input"')
    prompt.end()

    prompt = Prompt()
    prompt.type("", "> ")
    prompt.type(UP, "input ünd")
    prompt.type("\r", 'no command "input"')
    prompt.end()
