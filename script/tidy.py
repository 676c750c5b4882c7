#!/usr/bin/env python3
"""The tidy rules: what a compiler does not check and a reader should not have to.

tidy.py              checks every file of the repository; one line a fault: FILE:LINE: RULE: WHAT TO DO
tidy.py --self-test  checks the rules themselves: each has to catch a bad example of its own
"""
import os
import re
import subprocess
import sys

AGENT = "svc_engineering_mode/src/app_agent_engr/"
PUBLIC = "svc_engineering_mode/include/"
CONTRACTS = "platform/include/"

# The page whose picture of the house says which folder lies above which.
PICTURE_PAGE = "docs/tour.md"
PICTURE = re.compile(r"^```text\n(platform/.*?)^```$", re.MULTILINE | re.DOTALL)


def read_picture(page):
    """(folder, folders whose files it may include), from the picture in the tour; the longest folder comes first.

    A line that begins at the margin is a part: its folder, and after "on" the folders outside of it that it uses. The
    indented lines below are its floors, from the top down: FOLDER | FOLDER  what it has. Folders of one floor do not
    know each other. What stands nowhere in the picture (tests, fuzz, bench) may include all.
    """
    parts = []
    for line in filter(None, PICTURE.search(page)[1].splitlines()):
        if not line.startswith(" "):
            name, _, ground = line.partition(" on ")
            parts.append((name.strip(), ground.replace(",", " ").split(), []))
        else:
            parts[-1][2].append(re.split(r"  +", line.strip())[0].split(" | "))
    directions = []
    for part, ground, floors in parts:
        below = tuple(ground)
        for floor in reversed(floors):
            rooms = tuple(part + room + "/" for room in floor)
            directions += [(room, (room, *below)) for room in rooms]
            below += rooms
        if not floors:
            directions.append((part, (part, *below)))
    return sorted(directions, key=lambda direction: -len(direction[0])), [part for part, _, floors in parts if floors]


# What the agent may include of others: the C library, and C++ headers that do not allocate.
AGENT_SYSTEM_HEADERS = set("""
    algorithm array atomic bit cerrno cinttypes climits concepts cstdarg cstddef cstdint cstdio cstdlib cstring
    strings.h     initializer_list iterator limits new span string_view tuple type_traits utility
    ctype.h errno.h inttypes.h limits.h stdarg.h stdbool.h stddef.h stdint.h stdio.h stdlib.h string.h
    fcntl.h sys/stat.h unistd.h cjson/cJSON.h key_seeds.h""".split())

# Headers that take seconds to compile stay out of headers of ours.
HEAVY_HEADERS = re.compile(r"nlohmann/json\.hpp|CLI/|asio|boost/|spdlog/|gmock/|benchmark/")

CXX = r"\.(c|cc|cpp|h|hpp)$"
IN_AGENT = "^" + re.escape(AGENT) + ".*" + CXX
ANY = r""
ONE_HAND = r"^(platform|svc_engineering_mode|support|gateway|app)/.*" + CXX

# Rules of one line: name, paths, text seen (code: without comments and strings), pattern, what to do.
LINE_RULES = (
    ("banned_allocation", IN_AGENT, "code",
     r"\b(m|c|re)alloc\s*\(|\bfree\s*\(|\bnew\b(?!\s*\()|(?<!= )\bdelete\b|\balloca\s*\(|\bstrdup\s*\(",
     "take memory with Malloc and hold it by an owner"),
    ("banned_library", IN_AGENT, "code",
     r"\bstd::(string(?!_view)|vector|function|list|deque|(unordered_)?(multi)?(map|set)|any|(shared|unique)_ptr"
     r"|make_(shared|unique)|thread|mutex|regex|format|(io|[io]f?|string)stream|cout|cerr|to_string)\b",
     "use fixed buffers, the contracts and the small owners"),
    ("banned_exception", IN_AGENT, "code", r"\b(throw|try|catch|dynamic_cast|typeid|thread_local)\b",
     "return a result code; the agent has no exceptions, no RTTI and no thread-local state"),
    ("banned_unbounded", IN_AGENT, "code", r"\b(v?sprintf|strcpy|strcat|strtok|gets|stpcpy)\s*\(",
     "use a call that knows the size of its buffer"),
    ("assert_side_effect", CXX, "code", r"\bassert\s*\(.*(\+\+|--|[^=!<>]=[^=])",
     "move the effect out of the assertion; a release build drops it"),
    ("preprocessor", r"^(?!(platform|tests)/sim/).*" + CXX, "code",
     r"^\s*#\s*(if|ifdef|ifndef|elif)\b(?! __cplusplus$)",
     "let the linker choose; only __cplusplus may be asked for"),
    ("preprocessor", r"^(platform|tests)/sim/.*" + CXX, "code",
     r"^\s*#\s*(if|ifdef|ifndef|elif)\b(?! __cplusplus$)(?!.*(SANITIZE|__has_feature|_UNWINDER__))",
     "let the linker choose; only __cplusplus, the sanitizers and the unwinder may be asked for"),
    ("relative_include", CXX, "raw", r'^\s*#\s*include\s+"[^"]*\.\./', "name the file from an include root"),
    ("leftover", ANY, "raw", r"\b(T[O]DO|F[I]XME|X[X]X|H[A]CK)\b", "do it, or write it into an issue"),
    ("disabled_code", CXX, "raw", r"^\s*#\s*if\s+0\b|^\s*//.*(\);|\{)\s*$", "delete it; the history keeps it"),
    ("developer_path", ANY, "raw", r"(?<![\w.])/(home|root|Users|work)/", "name no path of one machine"),
    ("outside_address", r"^(?!.*\.json$)", "raw",
     r"https?://(?!([a-z]+\.)?example\b|127\.|\{|www\.w3\.org/(2000/svg|1999/xlink)\")",
     "the project needs no address of the web but its own and the names of a picture's format"),
    ("postfix", ONE_HAND, "code", r"^\s*[\w.]+(\+\+|--);|; \w+(\+\+|--)\)",
     "write ++i where the old value is not used"),
    ("integer_spelling", ONE_HAND, "code", r"\bstd::u?int\d+_t\b", "write uint32_t, without std::"),
    ("doc_comment", ONE_HAND, "raw", r"^\s*///|///<", "write /** */"),
    ("tag_inside_line", ONE_HAND, "raw", r"[^\s/*].*@(param|return)\b",
     "begin a line with the tag"),
    ("tab", r"^(?!packaging/debian/rules$)", "raw", r"\t", "indent with blanks"),
    ("trailing_blank", ANY, "raw", r"[ \r]+$", "delete the blanks at the end"),
    ("long_line", CXX, "raw", r"^.{101}", "break the line at 100 columns"),
    ("long_line", r"^(?!.*\.(jsonl?|md|svg)$)(?!.*" + CXX + ")", "raw", r"^.{121}", "break the line at 120 columns"),
    ("long_line", r"\.md$", "raw", r"^(?!\|).{121}", "break the line at 120 columns; only tables may be wider"),
)

FILE_LINES_MAX = 500
FUNCTION_LINES_MAX = 70
SHARE_EXPECTED = (0.27, 0.36)

TOKENS = re.compile(r'//[^\n]*|/\*.*?\*/|R"(\w*)\(.*?\)\1"|"(?:\\.|[^"\\\n])*"'
                    r"|(?<![0-9A-Za-z_])'(?:\\.|[^'\\\n])+'", re.DOTALL)
INCLUDE = re.compile(r'^\s*#\s*include\s+([<"])([^>"]+)[>"]')


def code_only(text):
    """The text with comments and literals blanked out, line by line as before; what is included stays."""
    def blank(match):
        line_start = text.rfind("\n", 0, match.start()) + 1
        if match[0].startswith('"') and INCLUDE.match(text[line_start:match.end()]):
            return match[0]
        return re.sub(r"[^\n]", " ", match[0])
    return TOKENS.sub(blank, text)


def resolve(includer, bracket, name, files):
    """The file of ours that an include means, or None."""
    beside = os.path.normpath(os.path.join(os.path.dirname(includer), name))
    if bracket == '"' and beside in files:
        return beside
    ending = ("include/" if bracket == "<" else "/") + name
    candidates = [path for path in files if path.endswith(ending)]
    return max(candidates, key=lambda path: len(os.path.commonprefix([path, includer])), default=None)


def check_includes(files):
    graph = {}
    directions, parts = read_picture(files[PICTURE_PAGE])
    for folder, _ in directions:
        if not any(path.startswith(folder) for path in files):
            yield PICTURE_PAGE, 1, "floor", f"the picture shows {folder}, which is not there"
    for path, text in files.items():
        if not re.search(CXX, path):
            continue
        allowed = next((to for origin, to in directions if path.startswith(origin)), None)
        if allowed is None and path.startswith(tuple(parts)):
            yield path, 1, "floor", f"put it into one of the folders of the picture in {PICTURE_PAGE}"
        for number, line in enumerate(text.splitlines(), start=1):
            match = INCLUDE.match(line)
            if not match:
                continue
            target = resolve(path, match[1], match[2], files)
            if target:
                graph.setdefault(path, {})[target] = number
            if target and allowed is not None and not target.startswith(tuple(allowed)):
                yield path, number, "direction", f"{target} lies above, beside or outside; includes point down only"
            if not target and path.startswith((AGENT, PUBLIC)) and match[2] not in AGENT_SYSTEM_HEADERS:
                yield path, number, "agent_header", f"the agent does not use {match[2]}"
            if path.endswith((".h", ".hpp")) and HEAVY_HEADERS.match(match[2]) and not path.startswith("tests/"):
                yield path, number, "heavy_header", f"include {match[2]} in .cpp files only"
    yield from check_cycles(graph)


def check_cycles(graph):
    done, trail = set(), []

    def visit(path):
        if path in done:
            return
        trail.append(path)
        for target, number in graph.get(path, {}).items():
            if target in trail:
                circle = " -> ".join(trail[trail.index(target):] + [target])
                yield path, number, "cycle", "includes go in a circle: " + circle
            else:
                yield from visit(target)
        trail.pop()
        done.add(path)

    for path in graph:
        yield from visit(path)


def functions(code):
    """(first line, number of lines) of each function body in C++ code without comments and literals."""
    code = re.sub(r"^[ \t]*#.*$", "", code, flags=re.MULTILINE)
    open_braces, head_start = [], 0
    for match in re.finditer(r"[{};]", code):
        if match[0] == "{":
            head = code[head_start:match.start()]
            kind = re.match(r"\s*(template\s*<.*>\s*)?(namespace|extern|struct|class|enum|union)\b", head, re.DOTALL)
            inside = any(brace is not None for brace in open_braces)
            is_function = not kind and not inside and ")" in head
            start = head_start + len(head) - len(head.lstrip())
            open_braces.append(code.count("\n", 0, start) + 1 if is_function else None)
        elif match[0] == "}" and open_braces:
            first = open_braces.pop()
            if first is not None:
                yield first, code.count("\n", 0, match.start()) + 2 - first
        head_start = match.end()


def check_shape(path, text, code):
    lines = text.splitlines()
    if re.search(CXX, path):
        stem = os.path.splitext(os.path.basename(path))[0]
        if not text.startswith(("//", "/*")) and not re.match(rf'#include "(\w+/)?{stem}\.h"', text):
            yield path, 1, "first_comment", "say at the top what the file is for"
        if path.endswith((".h", ".hpp")) and not re.search(r"^#pragma once$", text, re.MULTILINE):
            yield path, 1, "pragma_once", "guard the header with #pragma once"
        if path.startswith(("svc_engineering_mode/", "platform/")):
            for first, length in functions(code):
                if length > FUNCTION_LINES_MAX:
                    yield path, first, "long_function", f"{length} lines; at most {FUNCTION_LINES_MAX}"
    elif re.search(r"\.(py|cmake|bash|sh)$|CMakeLists\.txt$|^script/|^\.ci/", path):
        if not re.match(r'(#!.*\n)?(#|"""|r""")', text) or re.fullmatch(r"#!.*\n[^#\"]*", text):
            yield path, 1, "first_comment", "say at the top what the file is for"
    if is_code(path) and len(lines) > FILE_LINES_MAX:
        yield path, len(lines), "long_file", f"{len(lines)} lines; at most {FILE_LINES_MAX}: one file, one subject"
    if text and not text.endswith("\n"):
        yield path, len(lines), "last_newline", "end the file with a newline"


def check(files):
    """Every fault in files (path: text) as (path, line, rule, what to do), in order."""
    faults = list(check_includes(files))
    for path, text in files.items():
        code = code_only(text) if re.search(CXX, path) else text
        faults += check_shape(path, text, code)
        seen = {"raw": text.split("\n"), "code": code.split("\n")}
        for rule, paths, kind, pattern, advice in LINE_RULES:
            if re.search(paths, path):
                faults += [(path, number, rule, advice) for number, line in enumerate(seen[kind], start=1)
                           if re.search(pattern, line)]
    return sorted(set(faults))


def is_code(path):
    return bool(re.search(r"\.(c|cc|cpp|h|hpp|py|sh|bash|cmake|js|lua)$|^script/|^\.ci/run$", path))


def share_of_tests(files):
    """Lines of test code, lines of other code; blank ones left out."""
    tests = others = 0
    for path, text in files.items():
        if is_code(path):
            count = sum(1 for line in text.splitlines() if line.strip())
            if path.startswith(("tests/", "fuzz/")):
                tests += count
            else:
                others += count
    return tests, others


def project_files():
    listing = subprocess.run(["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
                             check=True, capture_output=True).stdout.decode()
    files = {}
    for path in sorted(set(listing.split("\0"))):
        if not os.path.isfile(path) or path.startswith("fuzz/corpus/"):
            continue
        with open(path, "rb") as file:
            content = file.read()
        if b"\0" not in content:
            files[path] = content.decode("utf-8", errors="replace")
    return files


def self_test():
    """One bad example a rule, and one sound file that uses what is allowed."""
    top = "// Purpose.\n"
    agent, header = AGENT + "transport/a.cpp", AGENT + "transport/a.h"
    bad = (
        ("direction", agent, top + '#include "command/c.h"\n'),
        ("direction", AGENT + "udp/a.cpp", top + '#include "upgrade/u.h"\n'),
        ("direction", "app/a.cpp", top + '#include "platform/log.h"\n'),
        ("direction", "gateway/a.cpp", top + '#include "command/c.h"\n'),
        ("direction", "platform/linux/a.cpp", top + '#include <engr_lan_agent.h>\n'),
        ("agent_header", agent, top + "#include <vector>\n"),
        ("agent_header", agent, top + "#include <sys/socket.h>\n"),
        ("heavy_header", "gateway/a.h", top + "#pragma once\n#include <nlohmann/json.hpp>\n"),
        ("cycle", AGENT + "command/c.h", top + '#pragma once\n#include "command/d.h"\n'),
        ("floor", AGENT + "a.cpp", top),
        ("floor", PICTURE_PAGE, "# Tour\n\n```text\nplatform/\n  cellar\n```\n"),
        ("banned_allocation", agent, top + "int *p = new int;\n"),
        ("banned_allocation", agent, top + "void f() { free(p); }\n"),
        ("banned_allocation", agent, top + "void f() { delete p; }\n"),
        ("banned_library", agent, top + "std::string name;\n"),
        ("banned_library", agent, top + "std::function<void()> f;\n"),
        ("banned_exception", agent, top + "void f() { throw 1; }\n"),
        ("banned_unbounded", agent, top + "void f() { sprintf(a, b); }\n"),
        ("assert_side_effect", agent, top + "void f() { assert(++i); }\n"),
        ("preprocessor", agent, top + "#ifdef __linux__\n#endif\n"),
        ("preprocessor", "platform/sim/a.cpp", top + "#ifdef __linux__\n#endif\n"),
        ("relative_include", agent, top + '#include "../a.h"\n'),
        ("leftover", agent, top + "// TO" "DO later\n"),
        ("disabled_code", agent, top + "// send(frame);\n"),
        ("developer_path", "docs/a.md", "# A\n\nlies in /ho" "me/me/a\n"),
        ("outside_address", "cmake/a.cmake", "# Purpose: ht" "tp://host/\n"),
        ("postfix", agent, top + "void f() { for (int i = 0; i < 2; i++) { g(); } }\n"),
        ("postfix", agent, top + "void f() {\n    count++;\n}\n"),
        ("integer_spelling", agent, top + "std::uint32_t count;\n"),
        ("doc_comment", header, top + "#pragma once\n/// Sends.\nint send();\n"),
        ("tag_inside_line", header, top + "#pragma once\n/** Sends. @return 0 */\nint send();\n"),
        ("tag_inside_line", header, top + "#pragma once\n/**\n * @param a  one @param b  two\n */\n"),
        ("tab", agent, top + "\tint a;\n"),
        ("trailing_blank", agent, top + "int a; \n"),
        ("long_line", agent, top + "//" + "x" * 99 + "\n"),
        ("long_line", "docs/a.md", "# A\n" + "x" * 121 + "\n"),
        ("first_comment", agent, "int a;\n"),
        ("first_comment", "script/a", "#!/bin/sh\ntrue\n"),
        ("pragma_once", header, top),
        ("long_function", agent, top + "namespace n {\nint f(int a)\n{\n" + "    a++;\n" * 70 + "}\n}\n"),
        ("long_file", "tests/a.py", "# Purpose.\n" * 501),
        ("last_newline", agent, top + "int a;"),
    )
    picture = f"""# Tour\n\n```text
platform/
  linux
  include
svc_engineering_mode/ on platform/include
  src/app_agent_engr/command     what a client asks for
  src/app_agent_engr/udp | src/app_agent_engr/upgrade
  src/app_agent_engr/transport
  src/app_agent_engr/base
  include
gateway/ on {PUBLIC}, {CONTRACTS}
app/
```\n"""
    headers = (AGENT + "base/l.h", AGENT + "transport/t.h", AGENT + "udp/a.h", AGENT + "upgrade/u.h",
               AGENT + "command/c.h", CONTRACTS + "platform/log.h", "platform/linux/p.h", "gateway/g.h", "app/a.h")
    house = {PICTURE_PAGE: picture, **{name: top + "#pragma once\n" for name in headers},
             AGENT + "command/d.h": top + '#pragma once\n#include "command/c.h"\n',
             PUBLIC + "engr_lan_agent.h": top + "#pragma once\n#ifdef __cplusplus\n#endif\n"}
    sound = (top + '#include "transport/a.h"\n\n/**\n * @param a  one\n * @return two\n */\n/** @return 0 */\n'
             '#include "base/l.h"\n#include "platform/log.h"\n#include <cstring>\n'
             '/* free(p); new */\nconst char *t = "throw new std::string";\nstruct s { s(const s &) = delete; };\n'
             "void f() { assert(a == b && c <= d); g(new (room) int, 1'000, '\"'); }\n")
    failures = []
    for rule, path, text in bad:
        if rule not in [fault[2] for fault in check({**house, path: text}) if fault[0] == path or rule == "cycle"]:
            failures.append(f"a bad example of {rule} in {path} passed: {text[:60]!r}")
    for fault in check({**house, header: top + "#pragma once\n", agent: sound}):
        failures.append(f"a sound file was refused: {fault}")
    unproved = {rule[0] for rule in LINE_RULES} - {rule for rule, _, _ in bad}
    failures += [f"no bad example for {rule}" for rule in sorted(unproved)]
    print("\n".join(failures) if failures else f"{len(bad)} bad examples caught")
    return 1 if failures else 0


def main(arguments):
    if arguments == ["--self-test"]:
        return self_test()
    if arguments:
        print(__doc__, file=sys.stderr)
        return 2
    files = project_files()
    faults = check(files)
    for path, number, rule, advice in faults:
        print(f"{path}:{number}: {rule}: {advice}")
    tests, others = share_of_tests(files)
    share = tests / others if others else 0.0
    print(f"{len(files)} files, {len(faults)} faults; test code {tests} lines, other code {others}, share {share:.2f}")
    if not SHARE_EXPECTED[0] <= share <= SHARE_EXPECTED[1]:
        print(f"warning: the share of test code should lie between {SHARE_EXPECTED[0]} and {SHARE_EXPECTED[1]}")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
