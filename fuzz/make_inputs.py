#!/usr/bin/env python3
"""Makes the first inputs of the fuzz targets and their dictionaries: fuzz/make_inputs.py

Frames, requests and answers are those of the examples in docs/. fuzz/corpus/TARGET and fuzz/dictionaries/TARGET.dict
are written anew. What a target has found is added as an input of its own, so that it stays mended.
"""
import json
import os
import re
import shutil
import sys

import yaml

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path[:0] = [os.path.join(HERE, "..", "tests"), os.path.join(HERE, "..", "tests", "programs")]

from documents import read_page  # noqa: E402
from lan_codec import KEYS, encrypt, frame, request  # noqa: E402
from protocol_pages import PAGES, Protocol, blocks  # noqa: E402

PROTOCOL = Protocol()
TYPES = {name: number for name, (number, _, _) in PROTOCOL.types.items()}
MOST_FILES = 30

SITE = "\n".join(blocks(read_page(PAGES[0]), "json")[0][1])
LOG = ('2026-01-31T12:00:00.123Z 3 request.cpp:12 parse Rev Data:{"ssid":"home","passwd":"a \\"b\\""} end\n'
       'dev id a1 can\'t be found; cid:a1 {"cid":"a1"} gid:kitchen from a4:c1:38:00:00:01\n'
       'on:["a1","b2"] off:["c3"] local_key = ab cd, ef; set password hunter2 now\n')
REPORT = {"site_report": 1, "time": "t", "channel": 15, "app_config": {"bytes": 3, "sha256": "x"}, "notes": ["n"],
          "gateway": {"id": "g", "address": "127.0.0.1", "version": "3.3", "activated": False},
          "devices": [{"cid": "a1", "pid": "p", "online": True, "dps": {"1": True}, "sw_ver": "1"}]}
SCENARIO = {"services": {"gw_get_channel": -7}, "callbacks": {"scene_exec": "absent", "permit_join": 0},
            "upgrade": {"chunk_size": 8, "rpt_percent": True, "remain_len": 1, "fail_at": 9, "install_ms": 1}}
SESSION = "\n".join([
    '{"session":1,"program":"p","version":"1","started":"2026-01-31T12:00:00.123Z","side":"gateway","secrets":false,'
    '"key":"0123456789abcdef","seeds":{"key1":"00"},"options":{"new":true},"site":{"gateway":{"local_key":"k"}}}',
    '{"at":1,"event":"connected","client":1,"peer":"127.0.0.1:9"}',
    '{"at":2,"event":"frame","client":1,"from":"app","type":12,"number":1,"began":1,"text":"{\\"token\\":\\"t\\"}"}',
    '{"at":3,"event":"frame","client":1,"from":"gateway","type":254,"number":1,"ret":0,"segment":[2,1],"hex":"00ff"}',
    '{"at":4,"event":"frame","client":1,"from":"app","type":9,"number":2,"coding":"built-in","crc":false}',
    '{"at":5,"event":"bytes","client":1,"from":"app","hex":"000055aa"}',
    '{"at":6,"event":"datagram","from":"gateway","port":6667,"peer":"255.255.255.255","type":19,"number":0,"ret":0}',
    '{"at":6,"event":"datagram","from":"app","port":6669,"peer":"127.0.0.1:9","hex":"00"}',
    '{"at":7,"event":"call","name":"gw_get_channel","arguments":{"a":1},"result":15}',
    '{"at":8,"event":"control","began":7,"line":["set","wf_passwd","x"],"answer":{"ok":true}}',
    '{"at":9,"event":"log","level":3,"text":"t"}', '{"at":9,"event":"activity","text":"t"}',
    '{"at":9,"event":"closed","client":1,"by":"app"}', '{"at":9,"event":"lost","events":2}',
    '{"at":9,"event":"ended"}', ""])

PLAN_SETTINGS = {
    "channel": b"channel: 11, address: 127.0.0.1:6668, name: flat, key: {env: KEY}",
    "devices": b"devices: [{id: a1, product: p, name: lamp, room: hall}], other_devices: remove, join_seconds: 9",
    "scenes": b"scenes: [{group: g, id: s, actions: [{device: a1, set: {1: true, 2: 1.5, 3: x}}]}]",
    "panels": b"panels: [{device: a1, buttons: [{button: 1, group: g, scene: s}]}]",
    "linkage": b"linkage: [{id: l, name: n, actions: [{device: a1, set: {1: false}}]}], token: {file: t}",
    "configuration": b'configuration: {app: {json: {a: "$${x"}}, cloud: {text: "{}"}}',
    "firmware": b'firmware: {gateway: {image: f, version: "1.0"}, devices: {p: {image: f, version: "2"}}}',
}

# Answers of a gateway as lines of fuzz/support/hostile_gateway.h, for verbs and for clients.
DEVICES = ['={"products":[{"cid":"a1","pid":"p"},{"cid":"b2","pid":"q"}]}', '={"online":["a1"],"offline":["b2"]}']
STATUS = '={"updateStatus":0,"updateCid":"","cid":"gw1","softVer":"1"}'
PIECES = ['!231 0 {"firmwareType":0,"cid":"gw1","offset":0,"downloadSize":2000}',
          '!232 0 {"firmwareType":0,"cid":"gw1","progress":66}',
          '!231 0 {"firmwareType":0,"cid":"gw1","offset":2000,"downloadSize":1000}',
          '!231 0 {"firmwareType":0,"cid":"gw1","offset":3000,"downloadSize":0}']
SEGMENTS = ["#2 1 a log line\tof a1", '#2 2 {"passwd":"x"}']
SCRIPTS = {
    "devices": DEVICES,
    "refusals": ["=1 devid not found", "=1 parse data error", '=1 {"cid":"a1","reason":"set panel cmd error"}'],
    "report": ['!8 0 {"cid":"a1","dps":{"1":true,"2":"text"}}', "=0"],
    "bound": ['!243 0 {"products":[{"cid":"a1","pid":"p"}]}', '!228 0 {"cid":"a1"}', '!227 0 {"cid":"gw1"}'],
    "log": SEGMENTS,
    "log_breaks_off": [SEGMENTS[0], SEGMENTS[0]],
    "upgrade": [STATUS, "=0", *PIECES, '!233 0 {"firmwareType":0,"cid":"gw1","softVer":"2"}', STATUS],
    "channel": ['={"channel":15}', "=0"],
    "other_keys": ['b0 {"channel":15}', "p0 plain", "c0 {}", "xnoise"],
    "damaged_report": ["#2 2 a segment before the first", "c0 {}"],
    "silence": ["w9000", "=0", "d", "w400000"],
}

# Each verb by its place in fuzz_app_verbs.cpp, with what its gateway does.
VERBS = {
    0: ("info", [STATUS, *DEVICES]), 1: ("devices", [*DEVICES, STATUS, STATUS, STATUS]), 2: ("online", [DEVICES[1]]),
    3: ("watch", SCRIPTS["report"] + SCRIPTS["bound"]), 4: ("dp_get", ['={"cid":"a1","dps":{"1":true}}']),
    5: ("dp_set", SCRIPTS["report"][::-1]), 7: ("channel", SCRIPTS["channel"]),
    9: ("group", ['!208 0 {"gid":"g","op":"add"}']), 13: ("unbind", [DEVICES[0], "={}", "={}", '={"products":[]}']),
    14: ("token", SCRIPTS["channel"]), 15: ("wifi", SCRIPTS["channel"]), 16: ("join", ["=0", *SCRIPTS["bound"]]),
    17: ("config", ["={}"]), 18: ("log", SEGMENTS), 19: ("log_sanitized", [DEVICES[0], *SEGMENTS]),
    20: ("upgrade", SCRIPTS["upgrade"]), 21: ("upgrade_device", SCRIPTS["upgrade"]), 22: ("deactivate", ["=0"]),
    23: ("site", [*DEVICES, *SCRIPTS["channel"], STATUS, STATUS, "={}"]), 24: ("keepalive", ["=0"] * 3),
    25: ("raw", ["=1 no", "!8 0 {}"]), 26: ("discover", ["@{}"]),
}
CONTROL_LINES = (
    ["status"], ["devices"], ["set", "gw_id", "x"], ["device", "lamp1", "pid", "p"], ["report", "lamp1", '{"1":true}'],
    ["report", "lamp2", "2=20"], ["join", "new1", "p"], ["network", "down"], ["ip", "127.0.0.9"],
    ["wifi-config-needed", "1"], ["wifi-mode", "4"], ["airkiss", "4", "1"], ["fault", "gw_get_channel", "-7"],
    ["callback", "permit_join", "absent"], ["register", "34", "0"],
    ["upgrade", "start", "--file-size", "9", "--cid", "lamp1"], ["call", "engr_lan_data_report_cb", "8", "0", "{}"])


def examples():
    """(name, [(type, payload, frame)]) of the requests of each example; the first one gives the name."""
    names = set()
    for page in PAGES:
        for _, lines in blocks(read_page(page), "exchange"):
            found = []
            first = ""
            for at, line in enumerate(lines):
                match = re.match(r">+ (\d+) (FRM_\w+) ?(.*)", line)
                if match and not re.match(r">+ \d+=", line):
                    number, name, text = int(match[1]), match[2], match[3]
                    first = first or name.removeprefix("FRM_").lower()
                    for rest in lines[at + 1:]:
                        if not re.match(r"    \S", rest):
                            break
                        text += rest.strip()
                    payload = bytes.fromhex(text[4:]) if text.startswith("hex ") else text.encode()
                    plain = PROTOCOL.types[name][1].startswith("plain") or not payload
                    whole = request(number, TYPES[name], payload if plain else encrypt(KEYS[3], payload))
                    found.append((TYPES[name], payload, whole))
            while first in names:
                first += "_more"
            names.add(first)
            if found:
                yield first, found


def lines_of(*lines):
    return "\n".join(lines).encode()


def gateway_inputs():
    """(target, name, content) of the targets around a gateway."""
    keepalive = request(1, 9)
    for name, content in {"one_by_one": b"\1" + keepalive, "half": b"\0" + keepalive[:-5],
                          "noise": b"\0noise" + keepalive, "long": b"\0" + request(1, 251, bytes(1500))}.items():
        yield "fuzz_server", name, content
    for name, requests in examples():
        yield "fuzz_server", name, b"\0" + b"".join(whole for _, _, whole in requests)
        yield "fuzz_commands", name, b"\n".join(str(kind).encode() + b" " + payload for kind, payload, _ in requests)
    text = b'{"ssid":"net","token":"t","passwd":"p"}'
    for name, content in {"plain": b"r" + request(1, 1, text), "encrypted": b"t" + text, "short": b"rx",
                          "genuine": b"Nnet\0token\0password", "genuine_plain": b"nn\xc3\xa9t\0t\0"}.items():
        yield "fuzz_access_point", name, content
    for verb, *arguments in CONTROL_LINES:
        line = json.dumps({"verb": verb, "args": arguments}).encode()
        yield "fuzz_control", "_".join([verb, *arguments[:1]]).replace("-", "_"), line


def app_inputs():
    """The same of the targets around an app."""
    announced = (b'{"ip":"127.0.0.1","gwId":"gw1","active":2,"ablilty":0,"encrypt":true,"productKey":"p",'
                 b'"version":"3.3","token":true,"wf_cfg":true}')
    failed = b'{"result":-5,"desc":"no such network"}'
    for name, content in {"announcement": b"\0" + announced, "failure": b"\2" + failed,
                          "announcement_frame": b"\1" + frame(0, 19, 0, encrypt(KEYS[2], announced)),
                          "failure_frame": b"\3" + frame(0, 20, 0, encrypt(KEYS[1], failed))}.items():
        yield "fuzz_app_datagrams", name, content
    yield "fuzz_c_interface", "announcement", b"a" + announced
    yield "fuzz_c_interface", "failure", b"f" + failed
    yield "fuzz_c_interface", "needs_network", b"n" + announced
    for name, piece, stream in [("replies", 255, frame(1, 241, 0, encrypt(KEYS[3], b"{}")) + frame(2, 9, 0)),
                                ("segments", 7, frame(1, 254, 0, b"\0\0\0\2\0\0\0\1text")),
                                ("noise", 0, b"x\0\0" + frame(0, 8, 0, encrypt(KEYS[3], b"text")) + b"\0\0U\xaa")]:
        yield "fuzz_app_frames", name, bytes([piece]) + stream
    asked = {"devices": ["?241 ", "?224 "], "log": ["?254 "], "log_breaks_off": ["?254 "], "damaged_report": ["?254 "],
             "upgrade": ["?250 {}", "?230 {}", "?231 "]}
    for name, script in SCRIPTS.items():
        lines = lines_of(*asked.get(name, ["?10 {}", "?9 ", "?253 "]), *script)
        yield "fuzz_app_client", name, lines
        yield "fuzz_c_interface", name, b"g" + lines
    # The C interface asks by itself what an upgrade needs, and the gateway answers each question after a while.
    status = '={"updateStatus":0,"updateCid":"","cid":"gw1","softVer":"%s"}'
    pieces = ['!231 0 {"firmwareType":0,"cid":"gw1","offset":%d,"downloadSize":%d}' % each
              for each in ((0, 2000), (2000, 1000), (3000, 0))]
    before = ["?231 ", "w10", status % "1.0", "w10", status % "1.0", "w10", "=0", "w10"]
    for name, rest in {"upgraded": [*pieces, "w10", status % "2.0"],
                       "not_upgraded": [*pieces, "w10", status % "1.0"],
                       "given_up": [pieces[0], "w6000", *2 * [status % "1.0", "w10"], "=0", *pieces]}.items():
        yield "fuzz_c_interface", name, b"g" + lines_of(*before, *rest)
    for verb, (name, script) in VERBS.items():
        yield "fuzz_app_verbs", name, bytes([verb]) + lines_of(*script)
        if name in ("devices", "info", "site", "discover"):
            yield "fuzz_app_verbs", name + "_json", bytes([0x80 + verb]) + lines_of(*script)


def file_inputs():
    """The same of files that people give."""
    later = json.loads(json.dumps(REPORT).replace('"a1"', '"a2"').replace("15", "20"))
    both = [json.dumps(one).encode() for one in (REPORT, later)]
    yield "fuzz_app_files", "reports", b"r" + b"\0".join(both)
    yield "fuzz_app_files", "reports_of_several", b'r[{"result":' + both[0] + b'},{"error":{}}]\0' + both[1]
    yield "fuzz_app_files", "key_lines", b"k# keys\ngw1 0123456789abcdef\n127.0.0.1\tABCDEFGHIJKLMNOP\n"
    yield "fuzz_app_files", "key_json", b'k{"gw1": "0123456789abcdef"}'
    with open(os.path.join(HERE, "..", "examples", "plans", "flats.yaml"), "rb") as file:
        example = file.read()
    yield "fuzz_app_plans", "example", b"y" + example
    plan = yaml.safe_load(example)
    yield "fuzz_app_plans", "example_json", b"j" + json.dumps(plan).encode()
    for name, setting in PLAN_SETTINGS.items():
        yield "fuzz_app_plans", name, b"yplan: 1\ngateways: [{id: gw1, " + setting + b"}]\n"
    yield "fuzz_app_plans", "pattern", b'yplan: 1\ngateways: [{match: "g*", variables: {a: "${id}"}, name: "f ${a}"}]\n'
    yield "fuzz_app_plans", "endless_documents", b"y, a]}\n"
    yield "fuzz_app_plans", "aliases", b"yplan: 1\ntemplates: {t: {groups: &g [{id: a, devices: &d [x, y]}]}}\n" \
        b"gateways: [{id: gw1, groups: *g, scenes: []}]\n"
    yield "fuzz_log_sanitizer", "lines", LOG.encode()
    for number, line in enumerate(LOG.splitlines()):
        yield "fuzz_log_sanitizer", f"line_{number}", line.encode()
    yield "fuzz_log_sanitizer", "list_with_odd_quotes", b'off:["c3"x "]'
    for name, content in {"file": b"f" + SESSION.encode(), "password": b"p" + LOG.encode(),
                          "of_gateway": b"g\7" + frame(1, 254, 0, b"\0\0\0\2\0\0\0\1text") + frame(2, 9, 0),
                          "of_app": b"a\5" + request(1, 12, encrypt(KEYS[3], b"{}")) + b"x\0\0" + request(2, 9)
                          }.items():
        yield "fuzz_session_files", name, content
    yield "fuzz_gateway_files", "site", b"s" + SITE.encode()
    yield "fuzz_gateway_files", "scenario", b"c" + json.dumps(SCENARIO).encode()


def words(contents):
    """What is worth putting in: names, texts with their quotes, and what encloses them."""
    found = set()
    for content in contents:
        found |= set(re.findall(rb'"[\w.-]{1,24}"', content)) | set(re.findall(rb"\b[A-Za-z_]{3,24}\b", content))
    return sorted(found)[:200]


def dictionary(target, contents):
    binary = [bytes([0, 0, 0x55, 0xAA]), bytes([0, 0, 0xAA, 0x55]), bytes([0, 0, 0, 8]), bytes([0, 0, 0, 12]),
              bytes([0, 0x20, 4, 0]), bytes([0xFF] * 4), bytes([0x80, 0, 0, 0])]
    text = [rb'":', rb"{}", rb"[]", rb'"},{"', rb"null", rb"true", rb"-1", rb"4294967296", rb"1e99", rb"\u0000",
            rb"\ud800", rb"\u202e", b"\x1b[2J", b"\xc2\x9b"]
    types = [b"\n%d " % number for number in sorted(set(TYPES.values()))] if target == "fuzz_commands" else []
    some = binary if target in ("fuzz_server", "fuzz_app_frames", "fuzz_access_point", "fuzz_app_datagrams") else types
    return "".join('"' + "".join(f"\\x{byte:02X}" if not 32 <= byte < 127 or byte in b'"\\' else chr(byte)
                                 for byte in word) + '"\n' for word in some + text + words(contents))


def main():
    for directory in ("corpus", "dictionaries"):
        shutil.rmtree(os.path.join(HERE, directory), ignore_errors=True)
        os.makedirs(os.path.join(HERE, directory))
    inputs = {}
    for target, name, content in (*gateway_inputs(), *app_inputs(), *file_inputs()):
        if len(inputs.setdefault(target, {})) < MOST_FILES:
            inputs[target][name] = content
    for target, contents in inputs.items():
        os.makedirs(os.path.join(HERE, "corpus", target))
        for name, content in contents.items():
            with open(os.path.join(HERE, "corpus", target, name), "wb") as file:
                file.write(content)
        with open(os.path.join(HERE, "dictionaries", target + ".dict"), "w", encoding="ascii") as file:
            file.write(dictionary(target, contents.values()))
        print(f"{target}: {len(contents)} inputs")


if __name__ == "__main__":
    main()
