"""Reads the fenced blocks of the documents, and plays the commands of a page as a reader would type them.

CONTRIBUTING.md says what may stand behind a fence. A page is played from its top, in an empty directory that has the
programs where a build of the sources leaves them, by one shell: `cd` and `export` last.
"""
import glob
import os
import re
import signal
import subprocess
import tempfile
import threading
from typing import NamedTuple

import user_home
from gateway import BIN_DIR, PATIENCE_S

ROOT = os.path.realpath(os.path.join(os.path.dirname(__file__), "..", ".."))
COMMANDS = ("console", "sh")
# A bound against hanging, for commands that build something.
BUILD_PATIENCE_S = 30 * PATIENCE_S
FENCED = re.compile(r"^```(.*)\n((?:.*\n)*?)^```$", re.MULTILINE)
# What a slow machine adds, so that no page has it: in a pipe a bar shows a line every few seconds, and a gateway that
# does not answer at once is listened for.
SLOW = re.compile(r"^(?:firmware|installing)[^\n]*: +\d+ %[^\n]*\n"
                  r"|^gateway \S+ does not answer at \S+, where it was heard last: listening for it anew\n",
                  re.MULTILINE)
CONSOLE = re.compile(r"^\$ ((?:.*\\\n)*.*)\n((?:(?!\$ ).*\n)*)", re.MULTILINE)
# Runs $COMMAND where the one before it has left directory and environment, with patience.
STEP = r"""command=$COMMAND
unset COMMAND
if [ -e "$STATE" ]; then . "$STATE"; fi
set -e
trap '{ declare -px; printf "cd %q\n" "$PWD"; } >"$STATE"' EXIT
engr_gatewayctl() { command engr_gatewayctl --timeout 60 "$@"; }
eval "$command"
"""


class Block(NamedTuple):
    """A fenced block."""

    language: str
    options: list  # the other words behind the fence
    text: str
    line: int  # of the fence

    def is_played(self):
        return self.language in COMMANDS and "by-hand" not in self.options


def pages():
    """The documents of the project, as paths below its root."""
    patterns = ("*.md", "docs/**/*.md", "examples/**/*.md", "python/**/*.md")
    return sorted(path for each in patterns for path in glob.glob(each, root_dir=ROOT, recursive=True))


def read_page(path):
    with open(os.path.join(ROOT, path), encoding="utf-8") as file:
        return file.read()


def blocks(text):
    """The fenced blocks of a page."""
    found = []
    for match in FENCED.finditer(text):
        language, *options = match[1].split() or [""]
        found.append(Block(language, options, match[2], text.count("\n", 0, match.start()) + 1))
    return found


def prose(text):
    """The page without its fenced blocks."""
    return FENCED.sub("", text)


def even(text):
    """Text with the space between columns as two blanks: tabs in a pipe, as many blanks as fit on a terminal."""
    return re.sub(r" *\t *| {2,}", "  ", text)


def line_pattern(line):
    return r"(?:.*\n)*" if line == "..." else ".*".join(map(re.escape, even(line).split("..."))) + "\n"


class Background:
    """A program that runs until the end of the page, or until a block wants it stopped."""

    def __init__(self, process, expected):
        self.process, self.expected = process, expected
        self.output, self.ended, self.has_more = "", False, threading.Condition()
        self.reader = threading.Thread(target=self.read)
        self.reader.start()

    def wait_for_start(self):
        first = re.compile("^" + line_pattern(self.expected[0]), re.MULTILINE)
        with self.has_more:
            shown = self.has_more.wait_for(lambda: first.search(self.output) or self.ended, PATIENCE_S)
        assert shown and first.search(self.output), f"expected {self.expected[0]!r}, got {self.output}"

    def read(self):
        for line in self.process.stdout:
            with self.has_more:
                self.output += even(line)
                self.has_more.notify()
        with self.has_more:
            self.ended = True
            self.has_more.notify()

    def stop(self, number=signal.SIGINT):
        if self.process.poll() is None:
            os.killpg(self.process.pid, number)
            self.process.wait(PATIENCE_S)
        self.reader.join(PATIENCE_S)
        self.process.stdout.close()

    def end(self):
        """Ends it as Ctrl-C does. It has printed what was expected, perhaps with other lines in between."""
        self.stop()
        pattern = "".join("(?:.*\n)*?" + line_pattern(line) for line in self.expected)
        assert re.match(pattern, self.output), f"expected in this order {self.expected}, got {self.output}"


class Player:
    """Plays the blocks of one page in a directory, which exists; `edit` changes the text of blocks."""

    def __init__(self, directory, variables=(), edit=lambda text: text):
        self.directory, self.edit, self.running = directory, edit, []
        self.scratch = tempfile.TemporaryDirectory(prefix="engr-page-")
        self.state = os.path.join(self.scratch.name, "state")
        kept = {name: value for name, value in os.environ.items() if not name.startswith(("ENGR_", "XDG_"))}
        self.environment = {**kept, "HOME": self.scratch.name, "STATE": self.state,
                            "PATH": os.path.abspath(BIN_DIR) + os.pathsep + os.environ["PATH"], **dict(variables)}
        user_home.write_config(config_home=os.path.join(self.scratch.name, ".config"))

    def make_tree(self):
        """What a reader of README.md has after the first build."""
        os.makedirs(os.path.join(self.directory, "build", "release"))
        os.symlink(os.path.abspath(BIN_DIR), os.path.join(self.directory, "build", "release", "bin"))
        os.symlink(os.path.join(ROOT, "examples"), os.path.join(self.directory, "examples"))
        os.makedirs(os.path.join(self.directory, "script"))
        run = os.path.join(self.directory, "script", "run")
        with open(run, "w", encoding="utf-8") as file:
            file.write('#!/bin/sh\nexec engr_gatewayd "$@"\n')
        os.chmod(run, 0o755)

    def start(self, command):
        # A process group of its own, which Ctrl-C reaches and no other program.
        return subprocess.Popen(["bash", "-c", STEP], env={**self.environment, "COMMAND": command}, text=True,
                                cwd=self.directory, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, start_new_session=True)

    def run(self, command):
        """Status and output."""
        with self.start(command) as process:
            try:
                output, _ = process.communicate(timeout=BUILD_PATIENCE_S)
            finally:
                if process.poll() is None:
                    os.killpg(process.pid, signal.SIGKILL)
        return process.returncode, output

    def play_console(self, block):
        text = self.edit(block.text)
        for before, after in (option.split("=") for option in block.options if "=" in option):
            assert re.search(rf"\b{before}\b", text), f"expected {before} in the block of line {block.line}"
            text = re.sub(rf"\b{before}\b", after, text)
        for command, expected in CONSOLE.findall(text):
            if "background" in block.options:
                self.running.append(Background(self.start("exec " + command), expected.splitlines()))
                self.running[-1].wait_for_start()
                continue
            _, output = self.run(command)
            output = SLOW.sub("", output)
            pattern = "".join(map(line_pattern, expected.splitlines()))
            assert re.fullmatch(pattern, even(output)), \
                f"line {block.line}: {command}\nexpected\n{expected}got\n{output}"

    def end_running(self):
        while self.running:
            self.running.pop().end()

    def play(self, text):
        """Number of blocks of commands that were run."""
        played = 0
        try:
            for block in blocks(text):
                if "stopped" in block.options:
                    self.end_running()
                if block.language == "console" and block.is_played():
                    self.play_console(block)
                elif block.is_played():
                    status, output = self.run(self.edit(block.text))
                    assert status == 0, f"line {block.line}: ended with {status}\n{block.text}{output[-4000:]}"
                elif block.options and block.language not in COMMANDS:
                    with open(os.path.join(self.directory, block.options[0]), "w", encoding="utf-8") as file:
                        file.write(self.edit(block.text))
                played += block.is_played()
            self.end_running()
        finally:
            for each in self.running:
                each.stop(signal.SIGKILL)
            self.scratch.cleanup()
        return played
