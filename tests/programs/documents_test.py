"""The documents: what they show happens so, and what they name exists."""
import functools
import glob
import os
import re
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "..", "script"))
from documents import COMMANDS, ROOT, Player, blocks, pages, prose, read_page
from gateway import program
from tidy import TOKENS

# Pages whose commands another program runs.
PLAYED_BY = {"docs/commissioning.md": "tests/programs/commissioning_test.py",
             "docs/console.md": "tests/programs/console_page_test.py", "docs/porting.md": "packaging/walk_guide"}
NEEDS_LIBRARY = "docs/client.md"
PROGRAMS = ("engr_app", "engr_gatewayd", "engr_gatewayctl", "engr_replay", "engr_session")


@functools.lru_cache(None)
def help_of(*command):
    return subprocess.run([program(command[0]), *command[1:], "--help"], capture_output=True, text=True,
                          check=False).stdout


@functools.lru_cache(None)
def program_texts():
    """The texts in the sources of the programs, each as the compiler joins its pieces."""
    texts = []
    for part in ("app", "gateway", "replay", "support"):
        for path in glob.glob(f"{part}/**/*.cpp", root_dir=ROOT, recursive=True):
            with open(os.path.join(ROOT, path), encoding="utf-8") as file:
                source = file.read()
            end = None
            for token in TOKENS.finditer(source):
                if token[0].startswith('"'):
                    if end is None or source[end:token.start()].strip():
                        texts.append("")
                    texts[-1] += token[0][1:-1].replace('\\"', '"')
                    end = token.end()
    return texts


def is_said(piece):
    """Whether a program has this text, as a whole or, at a colon or semicolon, in two pieces."""
    return any(piece in each for each in program_texts()) or any(
        is_said(piece[:seam.start()]) and is_said(piece[seam.end():]) for seam in re.finditer("[:;] ", piece))


def unknown_pieces(message):
    """What a message says between its gaps and no program does; the name of a gateway belongs to its gap."""
    text = re.sub(r"^engr_\w+: ", "", " ".join(message.split())).replace("gateway ...", "...")
    return [piece for piece in re.split(r" *\.\.\. *", text) if not is_said(piece)]


def slug(heading):
    """The anchor of a heading."""
    return re.sub(r"[^\w -]", "", heading.lower()).replace(" ", "-")


def wrong_names(span):
    """Verbs and options in a command that the program does not know; placeholders are in capitals."""
    name, *words = span.split()
    verbs = []
    while words and re.fullmatch(r"[a-z]+", words[0]) and len(verbs) < 2:
        text = help_of(name, *verbs) if name == "engr_app" else help_of(name)
        if not re.search(rf"^\s+{words[0]}\b", text, re.MULTILINE):
            # The verbs of a gateway and those of engr_app that have none of their own take other words.
            if not verbs or re.search(r"SUBCOMMAND|COMMAND", text):
                yield words[0]
            break
        verbs.append(words.pop(0))
    known = help_of(name) + (help_of(name, *verbs) if name == "engr_app" else "")
    for option in re.findall(r"(?<=\s)--[a-z-]+", span):
        if not re.search(rf"{option}(?![\w-])", known):
            yield option


class Documents(unittest.TestCase):
    def test_what_pages_show_happens(self):
        library = os.environ.get("ENGR_LAN_CLIENT_LIBRARY")
        for path in pages():
            text = read_page(path)
            if path in PLAYED_BY or not any(block.is_played() for block in blocks(text)):
                continue
            if path == NEEDS_LIBRARY and not library:
                continue
            with self.subTest(path), tempfile.TemporaryDirectory(prefix="engr-page-") as directory:
                player = Player(directory, {"PYTHONPATH": os.path.join(ROOT, "python"),
                                            "ENGR_LAN_CLIENT_LIBRARY": library or ""})
                player.make_tree()
                player.play(text)

    def test_each_block_says_what_it_is_and_commands_are_played(self):
        for path in pages():
            for block in blocks(read_page(path)):
                with self.subTest(path, line=block.line):
                    self.assertTrue(block.language, "name the language behind the fence, or text")
                    self.assertNotIn(block.language, ("bash", "shell", "shell-session"), "call commands sh or console")
                    if block.language not in COMMANDS and block.language != "exchange":
                        self.assertNotRegex(block.text, r"(?m)^\$ ", "commands stand in a block sh or console")
        for path, played_by in PLAYED_BY.items():
            with open(os.path.join(ROOT, played_by), encoding="utf-8") as file:
                self.assertIn(os.path.basename(path), file.read(), f"expected {played_by} to play {path}")

    def test_commands_in_the_text_exist(self):
        for path in pages():
            for span in re.findall(r"`((?:%s) [^`]*)`" % "|".join(PROGRAMS), prose(read_page(path))):
                with self.subTest(path, command=span):
                    self.assertEqual(list(wrong_names(" ".join(span.split()))), [])

    def test_messages_are_those_of_the_programs(self):
        messages = [block.text for block in blocks(read_page("docs/troubleshooting.md")) if block.language == "message"]
        for message in messages:
            with self.subTest(message=message):
                self.assertEqual(unknown_pieces(message), [])
        self.assertTrue(messages, "expected messages on the page")

    def test_links_lead_somewhere(self):
        for path in pages():
            for target in re.findall(r"\]\(([^)\s]+)\)", prose(read_page(path))):
                file, _, anchor = target.partition("#")
                there = os.path.normpath(os.path.join(os.path.dirname(path), file)) if file else path
                with self.subTest(path, link=target):
                    self.assertTrue(os.path.exists(os.path.join(ROOT, there)), f"there is no {there}")
                    if anchor:
                        headings = re.findall(r"^#+ (.*)$", prose(read_page(there)), re.MULTILINE)
                        self.assertIn(anchor, map(slug, headings))


if __name__ == "__main__":
    unittest.main()
