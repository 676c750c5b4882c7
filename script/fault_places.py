"""Where a source may be changed by a small fault, for script/mutants: the places are found by patterns in the text."""
import collections
import difflib
import functools
import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parent.parent
EQUIVALENT = "script/equivalent_mutants.txt"

Change = collections.namedtuple("Change", "file line column kind start end text")


class BadList(Exception):
    """The list of faults that make no difference can't be used."""


SWAPS = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "==", "&&": "||", "||": "&&", "+": "-", "-": "+",
         "+=": "-=", "-=": "+=", "*": "/", "/": "*", "&": "|", "|": "&", "<<": ">>", ">>": "<<"}
COMPARISONS = ("<", "<=", ">", ">=", "==", "!=")
# clang-format puts blanks around binary operators, and around nothing else that looks like one.
OPERATOR = re.compile(r"(?<=\s)(<=|>=|==|!=|&&|\|\||\+=|-=|<<|>>|[<>+*/&|-])(?=\s)")
STEP = re.compile(r"\+\+|--")
NUMBER = re.compile(r"(?<![\w.])(0[xX][0-9A-Fa-f']+|\d[\d']*)([uUlL]*)(?![\w.'])")
NEGATION = re.compile(r"(?<=[\s(])!(?=[\w(])")
TRUTH = re.compile(r"\b(true|false)\b")
CONDITION = re.compile(r"\b(if|while)\s*\(")
RETURN = re.compile(r"\breturn\b\s*([^;{}]*);")
JUMP = re.compile(r"\b(break|continue);")
STATEMENT = re.compile(r"[;{}:]\s*((?!return\b|delete\b|using\b|throw\b|goto\b|static_assert\b)"
                       r"(?:\*|\+\+|--|::)*[A-Za-z_][\w:.>\[\]<*-]*(?:\(|\s[+-]?=\s)[^;{}]*;)")
DECLARATION_LINES = re.compile(r"^\s*(static_assert\b|#|template\b|using\b|extern\b)")
RETURNED = {"0": "-1", "true": "false", "false": "true", "ENGR_OK": "ENGR_ERR_FAILED"}


def blank(match):
    return re.sub(r"[^\n]", " ", match.group())


def without_text(source):
    """The source with comments, literals of text, includes and log calls blanked; every place stays where it is."""
    code = re.sub(r'//[^\n]*|/\*.*?\*/|R"\((?:.|\n)*?\)"|(?<!\w)"(?:\\.|[^"\\\n])*"|(?<!\w)\'(?:\\.|[^\'\\\n])*\'',
                  blank, source, flags=re.DOTALL)
    code = re.sub(r"^[ \t]*#(?:[^\n]*\\\n)*[^\n]*", blank, code, flags=re.MULTILINE)
    for call in reversed(list(re.finditer(r"\b(LAN_LOG|PrintLog)\(", code))):
        end = closing(code, call.end() - 1) + 1
        code = code[:call.start()] + re.sub(r"[^\n;]", " ", code[call.start():end]) + code[end:]
    return code


def closing(code, opening):
    """Where the bracket that opens here is closed."""
    depth = 0
    for at in range(opening, len(code)):
        depth += {"(": 1, ")": -1}.get(code[at], 0)
        if depth == 0:
            return at
    return len(code) - 1


def heads_around(code, start):
    """Yields what stands before each of the braces around a place, from the inside out."""
    depth, at = 0, start
    while at > 0:
        at -= 1
        depth += {"}": 1, "{": -1}.get(code[at], 0)
        if depth < 0:
            yield code[max(code.rfind(";", 0, at), code.rfind("}", 0, at), code.rfind("{", 0, at)) + 1:at].strip()
            depth = 0


def is_statement(code, start):
    """Whether a call or assignment that begins here stands inside a function: directly in a record or a namespace
    such a text declares something."""
    head = next(heads_around(code, start), None)
    if head is None:
        return False
    return not re.search(r"\b(namespace|struct|class|enum|union)\b", head) and ")" in head or \
        re.search(r"\b(else|do)$", head) is not None or head == ""


def is_in_void_function(code, start):
    """Whether the innermost function around a place returns nothing; no for one that does not say it, as a lambda."""
    for head in heads_around(code, start):
        is_lambda = re.search(r"\](\s*\(.*\).*)?$", head, re.DOTALL) is not None
        if is_lambda or ")" in head and not re.match(r"(if|else|for|while|switch|case|catch)\b", head):
            return not is_lambda and re.search(r"\bvoid\s+[\w:~]+\s*\(", head) is not None
    return False


def raw_changes(code):
    """Yields (kind, start, end, new text)."""
    for match in OPERATOR.finditer(code):
        kind = "logic" if match[1] in ("&&", "||") else "compare" if match[1] in COMPARISONS else "arithmetic"
        yield kind, match.start(), match.end(), SWAPS[match[1]]
    for match in STEP.finditer(code):
        yield "arithmetic", match.start(), match.end(), "--" if match[0] == "++" else "++"
    for match in NUMBER.finditer(code):
        digits = match[1].replace("'", "")
        octal = len(digits) > 1 and digits[0] == "0" and digits.isdigit()
        value = int(digits, 8 if octal else 0)
        new = hex(value ^ 1) if digits[:2] in ("0x", "0X") else f"0{value ^ 1:o}" if octal else str(value + 1)
        yield "constant", match.start(), match.end(), new + match[2]
    for match in NEGATION.finditer(code):
        yield "negation", match.start(), match.end(), ""
    for match in TRUTH.finditer(code):
        yield "truth", match.start(), match.end(), "false" if match[0] == "true" else "true"
    for match in CONDITION.finditer(code):
        end = closing(code, match.end() - 1)
        inside = code[match.end():end]
        declares = ";" in inside or re.search(r"[^=!<>]=[^=]", inside)
        told_otherwise = re.fullmatch(r"\s*(true|!?[\w.\[\]>-]+|[^&|]* [=!]= [^&|]*)\s*", inside) and \
            not re.fullmatch(r"\s*[\w.\[\]>-]+\s*", inside)
        if not declares and not told_otherwise:
            yield "condition", match.end(), end, None
    for match in RETURN.finditer(code):
        value = match[1].strip()
        if value and is_in_void_function(code, match.start()):
            yield "return", match.start(1), match.end(1), ""
        elif value != "nullptr":
            new = RETURNED.get(value, "{}" if value else None)
            yield ("return", match.start(1), match.end(1), new) if new else ("jump", match.start(), match.end(), ";")
    for match in JUMP.finditer(code):
        yield "jump", match.start(), match.end(), ";"
    at = 0
    while match := STATEMENT.search(code, at):
        at = match.end() - 1
        if is_statement(code, match.start(1)):
            yield "statement", match.start(1), match.end(1), ";"


@functools.cache
def source_of(file):
    return (ROOT / file).read_text(encoding="utf-8")


@functools.cache
def changes_of(file):
    source = source_of(file)
    code = without_text(source)
    found = {}
    for kind, start, end, text in raw_changes(code):
        line_start = source.rfind("\n", 0, start) + 1
        if DECLARATION_LINES.match(source[line_start:]):
            continue
        if text is None:
            text = "!(" + source[start:end] + ")"
        line = source.count("\n", 0, start) + 1
        found[start, kind] = Change(file, line, start - line_start + 1, kind, start, end, text)
    return [found[key] for key in sorted(found)]


def name_of(change):
    return f"{change.file}:{change.line}:{change.column}:{change.kind}"


def shown(change):
    """The change as lines of a diff."""
    old = source_of(change.file)
    begin, end = old.rfind("\n", 0, change.start) + 1, old.find("\n", change.end)
    new = old[begin:change.start] + change.text + old[change.end:end]
    lines = difflib.unified_diff(old[begin:end].splitlines(), new.splitlines(), n=0, lineterm="")
    return [line for line in lines if not line.startswith(("---", "+++", "@@"))]


def key_of(file, lines):
    """A fault as the list of equivalent ones names it: by its lines, wherever in the file they stand."""
    return file, *(line[0] + line[1:].strip() for line in lines)


def equivalent_faults():
    """The faults that are listed as making no difference, as key_of names them; throws BadList."""
    listed = set()
    for entry in re.split(r"\n\s*\n", (ROOT / EQUIVALENT).read_text(encoding="utf-8")):
        lines = [line for line in entry.splitlines() if not line.startswith("#")]
        if lines:
            difference = [line for line in lines[1:] if line[0] in "+-"]
            if not difference or lines[-1][0] in "+-":
                raise BadList(f"an entry is a file, the lines of a fault and a reason; this is not: {lines[0]}")
            listed.add(key_of(lines[0], difference))
    for file in sorted({key[0] for key in listed}):
        possible = {key_of(file, shown(change)) for change in changes_of(file)} if (ROOT / file).is_file() else set()
        for key in sorted(listed):
            if key[0] == file and key not in possible:
                raise BadList(f"this fault can't be made any more: {' '.join(key)}")
    return listed
