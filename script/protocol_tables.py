#!/usr/bin/env python3
"""Writes the tables of docs/protocol.md and of the dissector that come from the source, or checks them; checks that the
pages of the protocol name every failure text that the agent can answer."""
import argparse
import ast
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
AGENT = ROOT / "svc_engineering_mode/src/app_agent_engr"
APP_TYPES = ROOT / "app/lan_client/include/lan_client/frame_types.h"
DOCUMENT = ROOT / "docs/protocol.md"
DISSECTOR = ROOT / "tools/wireshark/engr_lan.lua"
ROW = re.compile(r"X\((\d+), (\w+), (\w+), (\w+), (\w+),\s*\"([^\"]*)\"\)")
APP_ROW = re.compile(r"X\(\d+, \w+, (\w+), (\w+), (\w+),")
ANSWERS = {"always": "always", "never": "never", "not_a_request": "", "on_failure_only": "failure only",
           "on_success_only": "success only"}
# The datagrams, which neither list says more of: who sends them to which port, and how they are encrypted.
DATAGRAMS = {"FRM_AP_NW_CFG": ("app, UDP 6669", "plain"), "FRM_UDP_DISCOVERY": ("gateway, UDP 6667", "key 2"),
             "FRM_UDP_WIFI_ERR": ("app, UDP 6669; gateway, UDP 6670", "key 1")}
# What is limited, the value with the constants in braces, the file with the constants, and what happens beyond.
LIMITS = (
    ("apps connected", "{lan_client_max}", "clients/lan_pro_cntl.h", "one more is closed at once, without a word"),
    ("silence of an app", "{idle_limit_s} s", "clients/client_table.cpp", "closed, up to 10 s later"),
    ("size of a request frame", "less than {ENGR_FRAME_LIMIT} bytes", "cmake/build_options.cmake",
     "no answer; the gateway looks for the next head"),
    ("bytes read at once", "{lan_recv_buf_size}", "clients/lan_pro_cntl.h", "see [Connections](#connections)"),
    ("silence inside a frame", "{pause_budget} times {pause_ms} ms", "service_core/exact_read.cpp",
     "the frame is given up; nobody else is served meanwhile"),
    ("an app that takes nothing", "{longest} s", "platform/common/include/common/send_patience.h",
     "closed; while it takes 64 KiB a second it stays"),
    ("levels of arrays and objects", "{nesting_limit}", "base/json_request.cpp", "`data format error`"),
    ("values in a text", "{json_value_limit}", "svc_engineering_mode/CMakeLists.txt",
     "`data format error`; counted are commas and opening brackets outside of texts"),
    ("device id, bytes", "{DEV_ID_SIZE} - 1", "platform/include/gateway/records.h", "cut in 229 and 230"),
    ("version in an announcement, bytes", "{UPGRADE_SW_VER_SIZE}", "upgrade/upgrade_state.h", "cut in silence"),
    ("piece of an image, bytes asked for", "{default_chunk_size}", "upgrade/start_transfer.cpp",
     "a gateway may ask for less at once, and for more if its application says so"),
    ("time for a piece", "{chunk_watchdog_ms} ms", "upgrade/upgrade_state.h", "the upgrade fails in silence"),
    ("time for an installation", "{outcome_watchdog_ms} ms", "upgrade/upgrade_state.h",
     "the upgrade counts as ended; the installation may go on"),
    ("progress that the agent reports", "0 to {most_percent} %", "upgrade/upgrade_progress.cpp",
     "99 and 100 are the application's"),
    ("segment of the log, bytes", "{segment_size}", "transport/tcp_send.cpp", "the last one has fewer, maybe none"),
    ("pause behind a segment", "{segment_pause_ms} ms", "transport/tcp_send.cpp", "nobody is served meanwhile"),
    ("pause before the answer to 249", "{deactivation_pause_ms} ms", "command/gateway_commands.cpp",
     "nobody is served meanwhile"),
    ("discovery period", "{discovery_period_ms} ms", "service_core/lifecycle.cpp", ""),
    ("discovery text and its ciphertext, bytes", "{discovery_buffer_size} - 1", "udp/discovery.cpp",
     "nothing is sent"),
    ("configuration datagram, bytes", "{ap_datagram_size}", "udp/ap_datagram.h", "dropped in silence"),
    ("copies of a Wi-Fi failure", "{report_copies}, {report_pause_ms} ms apart", "udp/wifi_failure_report.cpp", ""),
    ("text of a notice (227, 228, 243), bytes", "{notice_size} - 1", "transport/report.cpp", "cut, so no longer JSON"),
    ("failure text of 248, bytes", "{panel_text_size} - 1", "command/scene_commands.cpp", "cut, so no longer JSON"),
)
# Text behind a call that refuses, or returned as the reason of a refusal.
FAILURE = re.compile(r'(?:\brefuse(?:_panel)?\([^;"]*|reply_failure, |because\(|return )"([^"]+)"')


def frame_types():
    """(number, name, from, payload, answer, meaning) of each frame type."""
    source = (AGENT / "transport/frame_types.h").read_text().replace("\\\n", " ")
    rows = ROW.findall(source)
    if len(rows) != source.count("X(") - 1:
        sys.exit("frame_types.h: a row is not of the form X(number, name, way, payload, handler, \"meaning\")")
    app = {name: (coding, ANSWERS[answer]) for name, coding, answer in APP_ROW.findall(APP_TYPES.read_text())}
    for number, name, way, _, _, meaning in rows:
        if way != "datagram" and name not in app:
            sys.exit(f"{APP_TYPES.relative_to(ROOT)}: {name} is missing; it says how {name} is answered")
        if way == "datagram":
            (origin, coding), answer = DATAGRAMS[name], ""
        else:
            origin, (coding, answer) = "gateway" if way == "report" else "app", app[name]
        if name == "FRM_DOWNLOAD_FIRMWARE":
            origin, coding = "app, gateway", "plain; the gateway's encrypted"
        yield number, name, origin, coding, answer, meaning


def frame_type_lines():
    """The table of frame types as Markdown lines."""
    yield "| Type | Name | From | Payload | Answer | Meaning |"
    yield "| --- | --- | --- | --- | --- | --- |"
    for number, name, *rest in frame_types():
        yield f"| {number} | `{name}` | {' | '.join(rest)} |"


def dissector_lines():
    """The frame types of the TCP channel as members of a table in Lua."""
    for number, name, origin, coding, _, _ in frame_types():
        if "UDP" not in origin:
            yield f'    [{number}] = {{"{name}", "{coding.split(";")[0]}"}},'


def constant(file, name):
    """A number that a source file defines."""
    path = ROOT / file if file.startswith(("platform/", "cmake/", "svc_engineering_mode/")) else AGENT / file
    found = re.search(rf"\b{name} (?:= )?(?:std::chrono::seconds\()?(\d[\w']*)", path.read_text())
    if not found:
        sys.exit(f"{file}: there is no constant {name}")
    return ast.literal_eval(found[1].replace("'", "_"))


def limits():
    """The table of limits as Markdown lines."""
    yield "| Limit | Value | Beyond it |"
    yield "| --- | --- | --- |"
    for what, value, file, beyond in LIMITS:
        shown = re.sub(r"\{(\w+)\}", lambda name, file=file: str(constant(file, name[1])), value)
        shown = re.sub(r"(\d+) - 1", lambda size: str(int(size[1]) - 1), shown)
        yield f"| {what} | {shown} | {beyond} |"


def with_table(text, begin, lines, end):
    """A file's text with what stands between two markers as the source has it."""
    table = "".join(line + "\n" for line in lines)
    parts = re.fullmatch(rf"(.*{begin}[^\n]*\n+).*?(\n* *{end}.*)", text, re.DOTALL)
    if not parts:
        sys.exit(f"there is no marker {begin}")
    return parts[1] + table + parts[2].lstrip("\n")


def missing_failures():
    """Failure texts of the agent that no page names."""
    pages = "".join(path.read_text() for path in sorted(DOCUMENT.parent.glob("protocol*.md")))
    for path in sorted(AGENT.glob("*/*.cpp")):
        if path.parent.name not in ("command", "transport"):
            continue
        for text in FAILURE.findall(path.read_text()):
            if f"`{text}`" not in pages and f'"{text}"' not in pages:
                yield f"{path.relative_to(ROOT)}: no page of the protocol names the failure text \"{text}\""


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--write", action="store_true", help="write the tables instead of checking them")
    arguments = parser.parse_args()
    page, script = DOCUMENT.read_text(), DISSECTOR.read_text()
    wanted = with_table(page, "<!-- frame types:", frame_type_lines(), "<!-- end of frame types -->")
    wanted = with_table(wanted, "<!-- limits:", limits(), "<!-- end of limits -->")
    wanted_script = with_table(script, "-- frame types:", dissector_lines(), "-- end of frame types")
    for path, text, right in ((DOCUMENT, page, wanted), (DISSECTOR, script, wanted_script)):
        if arguments.write:
            path.write_text(right)
        elif text != right:
            sys.exit(f"{path.relative_to(ROOT)} is out of date: run script/protocol_tables.py --write")
    sys.exit("\n".join(missing_failures()) or None)


if __name__ == "__main__":
    main()
