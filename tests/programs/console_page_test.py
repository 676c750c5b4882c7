"""The console's page in a real browser, against the real gateway with real apps."""

import os
import re
import signal
import socket
import struct
import tempfile
import unittest

import lan_codec
from browser import Browser
from documents import Player, read_page
from gateway import PATIENCE_S, Gateway

SITE = {
    "gateway": {"gw_id": "pagegw%d" % os.getpid(), "gw_sw_ver": "1.0.0"},
    "products": {"switch": {"1": {"kind": "bool"}, "2": {"kind": "value", "min": 0, "max": 9},
                            "3": {"kind": "text"}}},
    "devices": [{"dev_id": "lamp", "pid": "switch", "online": True, "dps": {"1": True, "2": 4, "3": ""}},
                {"dev_id": "door", "pid": "switch", "online": False, "dps": {"1": False, "2": 0, "3": ""}}],
}
ROWS = "[...document.querySelectorAll('.canvas .row:not([hidden])')]"
NAMED_ROLES = {"button", "link", "textbox", "searchbox", "combobox", "checkbox", "radio", "tab", "tabpanel", "grid",
               "dialog", "image", "region", "search", "form", "tablist", "progressIndicator"}
PANELS = ("upgrade", "devices", "gateway", "commands")


class App:
    """An app that sends and reads frames."""

    def __init__(self, gateway):
        self._socket = socket.create_connection((gateway.address, 6668), timeout=PATIENCE_S)
        self._stream = self._socket.makefile("rb")
        self._number = 0

    def send(self, kind, text="", plain=b""):
        """Sends a request; its number."""
        self._number += 1
        payload = lan_codec.encrypt(lan_codec.KEYS[3], text.encode()) if text else plain
        self._socket.sendall(lan_codec.request(self._number, kind, payload))
        return self._number

    def read(self, kind):
        """The ret and the text of the next frame of a type."""
        while True:
            _, _, got, length = struct.unpack(">4I", self._stream.read(16))
            body = self._stream.read(length)
            if got == kind:
                text = lan_codec.decrypt(lan_codec.KEYS[3], body[4:-8]) or b""
                return struct.unpack(">I", body[:4])[0], text.decode()

    def ask(self, kind, text=""):
        self.send(kind, text)
        return self.read(kind)

    def close(self):
        self._stream.close()
        self._socket.close()


class Page(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.browser = Browser()
        cls.addClassCleanup(cls.browser.close)
        cls.browser.call("Page.addScriptToEvaluateOnNewDocument", source="""
            window.sockets = [];
            window.WebSocket = class extends WebSocket {
                constructor(...all) { super(...all); window.sockets.push(this); }
            };""")

    def open(self, *options, scenario=None, site=None):
        """A gateway whose console is open in the browser."""
        gateway = Gateway("--console", "0", *options, site=site or SITE, scenario=scenario)
        self.addCleanup(gateway.close)
        browser = self.browser
        browser.resize(1280, 800)
        browser.open(re.search(r"console (\S+)", gateway.ready_line)[1])
        browser.wait("document.querySelector('#connection').className === 'good'"
                     " && document.querySelector('#gateway-name').textContent")
        return gateway

    def app(self, gateway):
        app = App(gateway)
        self.addCleanup(app.close)
        return app

    def rows(self, pattern):
        """The rows whose text matches."""
        return [text for text in self.browser.run(f"{ROWS}.map((row) => row.innerText.replace(/\\n/g, ' '))")
                if re.search(pattern, text)]

    def wait_for_rows(self, number, pattern="."):
        """Waits until so many rows match; a pattern for both languages."""
        self.browser.wait(f"{ROWS}.filter((row) => /{pattern}/.test(row.innerText.replace(/\\n/g, ' '))).length"
                          f" === {number}", f"{number} rows that match {pattern}")

    def nameless(self):
        """What a screen reader finds without a name."""
        nodes = self.browser.call("Accessibility.getFullAXTree")["nodes"]
        found = [node["role"]["value"] for node in nodes if not node["ignored"] and not node["name"].get("value")]
        self.assertGreater(len(nodes), 100)
        return [role for role in found if role in NAMED_ROLES]

    def open_row(self, pattern):
        """Opens the first row that matches."""
        self.browser.wait(f"(() => {{ const row = {ROWS}.find((each) => /{pattern}/s.test(each.innerText));"
                          " row?.click(); return row; })() !== undefined", f"a row that matches {pattern}")

    def send_command(self, name, *texts):
        """Fills in a command's form and sends it; the line for a terminal that the page showed."""
        self.browser.click("#tab-commands")
        self.browser.click(f"#command-choice input[value='{name}']")
        for i, text in enumerate(texts):
            self.fill(f"#command-field-{i}", text)
        line = self.browser.text("#command-line")
        self.browser.click("#command-form .main")
        return line

    def fill(self, selector, text):
        if self.browser.run(f"document.querySelector('{selector}').tagName") == "SELECT":
            self.browser.wait(f"document.querySelector('{selector} option[value=\"{text}\"]')")
            self.browser.run(f"(() => {{ const field = document.querySelector('{selector}'); field.value = '{text}';"
                             " for (const kind of ['input', 'change'])"
                             " field.dispatchEvent(new Event(kind, { bubbles: true })); })()")
        else:
            self.browser.click(selector)
            self.browser.type(text)

    def answer(self):
        """The newest answer to a command, when it has come."""
        self.browser.wait("document.querySelector('#answers li:first-child:not(.waiting)')")
        return self.browser.text("#answers li:first-child pre")

    def tearDown(self):
        problems = self.browser.problems()
        self.browser.open("about:blank")  # nobody there is a problem, too
        self.assertEqual(problems, [], "expected that the browser finds nothing wrong")

    def test_a_frame_of_an_app_is_shown_in_words_and_bytes_and_leads_to_its_reply_and_back(self):
        browser = self.browser
        app = self.app(self.open())
        self.assertEqual(app.ask(lan_codec.FRM_TP_CMD, '{"cid":"lamp","dps":{"1":false}}')[0], 0)
        app.send(lan_codec.FRM_TP_CMD, '{"cid":"nobody","dps":{"1":false}}')
        app.ask(lan_codec.FRM_KEEPALIVE)
        self.wait_for_rows(1, "→ app FRM_TP_CMD.*lamp")
        self.wait_for_rows(1, "→ app FRM_TP_CMD.*! refused in silence.*nobody")
        self.wait_for_rows(1, "← gateway FRM_DP_REPORT.*\"1\":false")
        self.open_row("FRM_TP_CMD.*lamp")
        details = browser.text("#details")
        self.assertIn('"dps": {\n    "1": false\n  }', details, "expected JSON in lines")
        wanted = lan_codec.request(1, lan_codec.FRM_TP_CMD,
                                   lan_codec.encrypt(lan_codec.KEYS[3], b'{"cid":"lamp","dps":{"1":false}}'))
        self.assertIn("00 00 55 aa 00 00 00 01", details)
        self.assertIn(f"payload {len(wanted) - 24} bytes", details)
        self.assertRegex(details, r"Reply\nafter [0-9.]+ m?s")
        browser.click(".ways .way")
        browser.wait("document.querySelector('#details h2').textContent.startsWith('FRM_TP_CMD 7 #1')"
                     " && /← gateway/.test(document.querySelector('#details').innerText)")
        self.assertIn("ret 0 success", browser.text("#details").replace("\n", " "))
        browser.click(".ways .way")
        browser.wait("/→ app/.test(document.querySelector('#details').innerText)")

    def test_filter_search_and_hold_choose_what_is_shown(self):
        browser = self.browser
        gateway = self.open()
        app, other = self.app(gateway), self.app(gateway)
        for _ in range(3):
            app.ask(lan_codec.FRM_GET_CHANNEL)
        self.assertEqual(other.ask(lan_codec.FRM_SET_CHANNEL, '{"channel":99}')[0], 1)
        self.wait_for_rows(1, "← gateway FRM_SET_CHANNEL")
        self.fill("#filter-type", "253")
        self.wait_for_rows(6)
        self.fill("#filter-from", "gateway")
        self.wait_for_rows(3, "← gateway FRM_GET_CHANNEL 253 #[123] 0 .*channel")
        self.fill("#filter-from", "")
        self.fill("#filter-type", "")
        self.fill("#filter-client", "2")
        self.wait_for_rows(0, "GET_CHANNEL")
        browser.click("#filter-failures")
        self.wait_for_rows(1)
        self.assertRegex(self.rows(".")[0], "FRM_SET_CHANNEL 252 #1 1 ")
        browser.click("#filter-reset")
        browser.click("#filter-search")
        browser.type("\"CHANNEL\":99")
        self.wait_for_rows(1)
        browser.click("#filter-reset")
        browser.click(".toggle.frames", shift=True)
        self.wait_for_rows(10)  # who came, and four requests with their replies
        browser.click("#hold")
        for _ in range(5):
            app.ask(lan_codec.FRM_GET_CHANNEL)
        browser.wait("document.querySelector('#hold').textContent === 'Go on (10 new)'")
        self.assertEqual(len(self.rows(".")), 10, "expected that nothing moves while it is held")
        self.fill("#filter-from", "gateway")
        self.wait_for_rows(4)
        browser.wait("document.querySelector('#hold').textContent === 'Go on (5 new)'")
        self.fill("#filter-from", "")
        browser.click("#hold")
        self.wait_for_rows(20)

    def test_a_fault_set_by_click_changes_the_next_answer_until_it_is_taken_back(self):
        browser = self.browser
        app = self.app(self.open())
        self.assertEqual(self.send_command("fault", "gw_set_channel", "x"),
                         "engr_gatewayctl fault gw_set_channel x")
        browser.wait("document.querySelector('#command-field-1').ariaInvalid === 'true'")
        self.assertIn("is not a whole number", browser.text("#command-form"))
        self.send_command("fault", "gw_set_channel", "-5")
        browser.wait("/gw_set_channel returns -5/.test(document.querySelector('#in-force').innerText)")
        self.assertEqual(app.ask(lan_codec.FRM_SET_CHANNEL, '{"channel":20}')[0], 1)
        browser.wait("/reached 1 time /.test(document.querySelector('#in-force').innerText)")
        browser.click(".toggle.calls")
        self.wait_for_rows(1, "call gw_set_channel -5 ")
        self.wait_for_rows(1, "← gateway FRM_SET_CHANNEL 252 #1 1 ")
        browser.click("#in-force button")
        browser.wait("document.querySelector('#in-force').innerText === ''")
        self.assertEqual(app.ask(lan_codec.FRM_SET_CHANNEL, '{"channel":20}')[0], 0)

    def test_a_device_reports_by_click_and_is_seen_to_change(self):
        browser = self.browser
        app = self.app(self.open())
        app.ask(lan_codec.FRM_KEEPALIVE)
        browser.click("#tab-devices")
        browser.click("#device-list .point")
        self.assertEqual(browser.text("#command-line"), "engr_gatewayctl report lamp 1=false")
        browser.press("Enter")
        self.assertEqual(app.read(lan_codec.FRM_DP_REPORT), (0, '{"cid":"lamp","dps":{"1":false}}'))
        self.send_command("report", "lamp", "2=10")
        self.assertIn("data point 2 may be 0 to 9", browser.text("#command-form"))
        browser.click("#tab-devices")
        browser.wait("document.querySelector('#device-list .point').innerText === '1 false'")
        browser.click("#device-list tr:nth-child(2) button")
        browser.wait("document.querySelector('#device-list tr:nth-child(2) button').innerText === 'online'")

    def test_what_apps_made_of_the_devices_is_listed(self):
        actions = [{"cid": "lamp", "dps": {"1": True}}]
        self.open(site={**SITE, "groups": [{"gid": "hall", "cids": ["lamp", "door"]}],
                        "scenes": [{"gid": "hall", "sid": "evening", "actions": actions}],
                        "panels": [{"cid": "door", "buttons": [{"button": 2, "gid": "hall", "sid": "evening"}]}],
                        "linkage": {"modified": 7, "scenes": [{"sceneId": "dusk", "name": "At dusk",
                                                               "actions": actions}]}})
        self.browser.click("#tab-gateway")
        text = self.browser.wait("/dusk/.test(document.querySelector('#gateway').innerText)"
                                 " && document.querySelector('#gateway').innerText")
        for words in (r"Group hall\s+lamp door", r"Scene evening of group hall\s+lamp \{\"1\":true\}",
                      r"door\s+button 2: scene evening of group hall", r"dusk At dusk\s+lamp"):
            self.assertRegex(text, words)

    def test_every_command_has_a_form_and_a_free_line_takes_them_all(self):
        browser = self.browser
        gateway = self.open()
        names = browser.run("[...document.querySelectorAll('#command-choice input')].map((input) => input.value)")
        verbs = re.findall(r"^  ([a-z-]+) ", gateway.run_ctl("--help").stdout.split("Verbs:")[1], re.MULTILINE)
        self.assertEqual(names, [*verbs, "unbind"])
        self.app(gateway).ask(lan_codec.FRM_KEEPALIVE)
        for name, texts, line, answer in (
                ("set", ("channel", "20"), "set channel 20", '"ok": true'),
                ("device", ("lamp", "sw_ver", ""), "device lamp sw_ver ''", '"ok": true'),
                ("report", ("lamp", "3='it is' 1=true"), "report lamp '3=it is' 1=true", '"result": 0'),
                ("join", ("new", "switch"), "join new switch", "joining"),
                ("network", ("up",), "network up", '"ok": true'),
                ("ip", ("auto",), "ip auto", '"ok": true'),
                ("wifi-config-needed", ("0",), "wifi-config-needed 0", '"ok": true'),
                ("wifi-mode", ("1",), "wifi-mode 1", '"ok": true'),
                ("airkiss", ("4", "1"), "airkiss 4 1", '"ok": true'),
                ("callback", ("scene_exec", "absent"), "callback scene_exec absent", '"ok": true'),
                ("register", ("77", "0"), "register 77 0", '"result": 0'),
                ("upgrade", ("start", "lamp", "9"), "upgrade start --cid lamp --file-size 9", '"result": 0'),
                ("call", ("engr_lan_pro_cntl_get_valid_connect_cnt",), "call engr_lan_pro_cntl_get_valid_connect_cnt",
                 '"result": 1'),
                ("unbind", ("lamp",), "call engr_lan_sub_dev_unbind_report lamp", '"result": 0'),
                ("status", (), "status", '"listening": true'), ("devices", (), "devices", '"dev_id": "lamp"')):
            with self.subTest(name):
                self.assertEqual(self.send_command(name, *texts), "engr_gatewayctl " + line)
                self.assertIn(answer, self.answer())
        browser.click("#free-line")
        browser.type("engr_gatewayctl report lamp '{\"3\": \"a b\"}'")
        browser.press("Enter")
        browser.wait("/report lamp/.test(document.querySelector('#answers li').innerText)")
        self.assertIn('"result": 0', self.answer())
        self.assertEqual(gateway.ctl("devices")[0]["dps"]["3"], "a b")

    def test_hostile_texts_stay_texts(self):
        browser = self.browser
        hostile = "<img src=x onerror='document.title=1'>\u202egnp.exe\u0007\u200b"
        app = self.app(self.open())
        app.send(lan_codec.FRM_RAW_34, '{"x":"' + hostile.replace("\u0007", "") + '"}')
        self.assertEqual(app.ask(lan_codec.FRM_GRP_OPER, f'{{"gid":"{hostile}","devIds":["lamp"]}}')[0], 1)
        self.wait_for_rows(1, "FRM_RAW_34.*<img src=x.*u.202e.gnp.exe.u.200b.")
        self.open_row("FRM_GRP_OPER.*gid")
        browser.wait("/\\\\u\\{202e\\}gnp\\.exe\\\\u\\{0007\\}/.test(document.querySelector('#details pre').innerText)")
        self.send_command("report", "lamp", f"'3={hostile[:-2]}'")
        browser.click("#tab-devices")
        browser.wait("/<img src=x.*u.202e.gnp/.test(document.querySelector('#device-list').innerText)")
        self.assertEqual(browser.run("document.querySelectorAll('img, main script').length"), 0)
        self.assertIn(SITE["gateway"]["gw_id"], browser.run("document.title"))

    def test_the_keyboard_alone_finds_opens_holds_and_closes(self):
        browser = self.browser
        app = self.app(self.open())
        app.ask(lan_codec.FRM_GET_CHANNEL)
        self.wait_for_rows(1, "← gateway FRM_GET_CHANNEL")
        for key, condition in (
                ("Tab", "document.activeElement.className === 'skip'"),
                ("Enter", "location.hash === '#list'"),
                ("/", "document.activeElement.id === 'filter-search'"),
                ("GET_CHANNEL", f"{ROWS}.length === 2"),
                ("Enter", "document.activeElement.id === 'list'"),
                ("Home", f"{ROWS}[0].ariaSelected === 'true' && document.querySelector('#details').hidden"),
                ("ArrowDown", f"{ROWS}[1].ariaSelected === 'true'"),
                ("ArrowUp", "document.getElementById(document.querySelector('#list').getAttribute("
                            "'aria-activedescendant')).innerText.includes('→ app')"),
                ("Enter", "!document.querySelector('#details').hidden"),
                ("Escape", "document.querySelector('#details').hidden && document.activeElement.id === 'list'"),
                (" ", "document.querySelector('#hold').ariaPressed === 'true'"),
                (" ", "document.querySelector('#hold').ariaPressed === 'false'"),
                ("?", "document.querySelector('#help').open"),
                ("Escape", "!document.querySelector('#help').open")):
            if len(key) > 1 and key.isupper() and "_" in key:
                browser.type(key)
            else:
                browser.press(key)
            browser.wait(condition, f"{condition} after {key}")

    def test_a_lost_connection_is_told_and_comes_back_without_losing_or_doubling_events(self):
        browser = self.browser
        gateway = self.open()
        app = self.app(gateway)
        app.ask(lan_codec.FRM_GET_CHANNEL)
        self.wait_for_rows(2, "FRM_GET_CHANNEL")
        browser.run("sockets.at(-1).close()")
        browser.wait("sockets.length === 2 && document.querySelector('#connection').className === 'good'")
        app.ask(lan_codec.FRM_GET_CHANNEL)
        self.wait_for_rows(2, "FRM_GET_CHANNEL 253 #2")
        self.assertEqual(len(self.rows("FRM_GET_CHANNEL")), 4)
        gateway.stop(signal.SIGKILL)
        browser.wait("/connection lost/.test(document.querySelector('#connection').innerText)")
        browser.open("about:blank")
        browser.problems()  # every refused connection is one, and there are no more of them

    def test_windows_of_all_widths_and_both_schemes_are_readable_and_name_their_controls(self):
        browser = self.browser
        app = self.app(self.open())
        app.ask(lan_codec.FRM_SET_CHANNEL, '{"channel":99}')
        self.wait_for_rows(1, "← gateway FRM_SET_CHANNEL")
        self.addCleanup(browser.prefer, "light")
        for width in (360, 800, 1280):
            browser.resize(width, 720)
            for colours in ("light", "dark"):
                browser.prefer(colours)
                for panel in (("timeline",) if width < 1080 else ()) + PANELS:
                    with self.subTest(width=width, colours=colours, panel=panel):
                        browser.click(f"#tab-{panel}")
                        if panel == "timeline":
                            self.open_row('"channel":99')
                        self.assertEqual(browser.run("document.documentElement.scrollWidth"), width)
                        self.assertEqual(self.nameless(), [], "expected that each control has a name")
                        self.assertEqual(browser.run(WIDE_ELEMENTS), [])
                        self.assertEqual(browser.run(FAINT_TEXTS), [])

    def test_the_walk_through_a_failed_upgrade_shows_what_the_document_says(self):
        page = read_page("docs/console.md")
        walk = page[page.index("## Find out why"):].split("\n## ")[0]
        with tempfile.TemporaryDirectory(prefix="engr-page-") as directory:
            Walk(directory, self, re.findall(r"\*\*(.+?)\*\*", " ".join(walk.split()))).play(page)

    def test_the_story_of_an_upgrade_names_the_app_that_ended_it_by_leaving_and_a_hole(self):
        browser = self.browser
        gateway = self.open(scenario={"upgrade": {"chunk_size": 32768}})
        size = 100_000
        announcement = f'{{"fileSize":{size},"swVer":"2.0.1","fileMd5":"{32 * "0"}"}}'
        start = f'{{"firmwareType":0,"cid":"{SITE["gateway"]["gw_id"]}"}}'
        app, guest = self.app(gateway), self.app(gateway)
        for apps_end, words in ((guest.close, r"Client 2 closed its connection\. Any app that leaves"),
                                (None, "a hole: bytes from 32768 on were asked for, the piece begins at 40000")):
            app.ask(lan_codec.FRM_CHK_SOFT_VER, announcement)
            self.assertEqual(app.ask(lan_codec.FRM_DEV_UPGRADE, start)[0], 0)
            app.read(lan_codec.FRM_DOWNLOAD_FIRMWARE)
            app.send(lan_codec.FRM_DOWNLOAD_FIRMWARE, plain=struct.pack(">I", 0) + bytes(32768))
            app.read(lan_codec.FRM_DOWNLOAD_FIRMWARE)
            if apps_end:
                apps_end()
            else:
                app.send(lan_codec.FRM_DOWNLOAD_FIRMWARE, plain=struct.pack(">I", 40000) + bytes(100))
            browser.wait("/^Failed/.test(document.querySelector('.verdict')?.innerText)"
                         f" && /{words}/.test(document.querySelector('#upgrade').innerText.replaceAll('\\u202f', ''))",
                         words)
        self.assertRegex(browser.text("#upgrade").replace("\u202f", ""), r"Holes\s+32768 to 39999")


class Walk(Player):
    """Plays the page, and looks at the story in the browser when the app has failed."""

    def __init__(self, directory, test, shown):
        super().__init__(directory)
        self.test, self.shown = test, shown

    def play_console(self, block):
        super().play_console(block)
        browser = self.test.browser
        if "background" in block.options:
            browser.resize(1280, 800)
            browser.open(re.search(r"console (\S+)", self.running[-1].output)[1])
        elif "engr_app" in block.text:
            browser.click("#tab-upgrade")
            browser.wait("/^Failed/.test(document.querySelector('.verdict')?.innerText)")
            story = browser.text("#upgrade").replace("\u202f", "")
            self.test.assertGreater(len(self.shown), 5)
            for words in self.shown:
                self.test.assertIn(words, story)
            browser.click(".verdict .way")
            browser.wait("!document.querySelector('#details').hidden")
            browser.click("#upgrade-frames")
            self.test.wait_for_rows(0, "FRM_DEV_LIST|FRM_KEEPALIVE")
            self.test.open_row("→ app.*not taken: byte 70000")
            browser.open("about:blank")


# Elements that stick out of the window, unless they lie in something that scrolls.
WIDE_ELEMENTS = """[...document.body.querySelectorAll('*')].filter((each) => {
        const box = each.getBoundingClientRect();
        return box.width > 1 && box.right > innerWidth + 1 && !each.closest('pre, .tabs, .skip');
    }).map((each) => each.outerHTML.slice(0, 100))"""
# Texts whose contrast to what is behind them is below 4.5.
FAINT_TEXTS = """(() => {
    const canvas = document.createElement('canvas').getContext('2d', { willReadFrequently: true });
    const rgba = (colour) => {
        canvas.clearRect(0, 0, 1, 1);
        canvas.fillStyle = colour;
        canvas.fillRect(0, 0, 1, 1);
        return [...canvas.getImageData(0, 0, 1, 1).data];
    };
    const light = ([r, g, b]) => [[r, 0.2126], [g, 0.7152], [b, 0.0722]].reduce((sum, [value, share]) => {
        const part = value / 255;
        return sum + share * (part <= 0.04045 ? part / 12.92 : ((part + 0.055) / 1.055) ** 2.4);
    }, 0);
    const behind = (element) => {
        for (let each = element; each; each = each.parentElement) {
            const colour = rgba(getComputedStyle(each).backgroundColor);
            if (colour[3] > 250) return colour;
        }
        return [255, 255, 255, 255];
    };
    const walker = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT);
    const found = [];
    while (walker.nextNode()) {
        const element = walker.currentNode.parentElement;
        if (!walker.currentNode.data.trim() || !element.checkVisibility()) continue;
        if (element.closest('.unseen, option')) continue;
        const [text, back] = [light(rgba(getComputedStyle(element).color)), light(behind(element))];
        const contrast = (Math.max(text, back) + 0.05) / (Math.min(text, back) + 0.05);
        if (contrast < 4.5) found.push(`${contrast.toFixed(2)} ${element.outerHTML.slice(0, 100)}`);
    }
    return found;
})()"""


if __name__ == "__main__":
    unittest.main()
