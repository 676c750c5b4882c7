"""Drives Debian's Chromium for tests of pages, over the DevTools protocol on a pipe: no port, no driver, no library.

    with Browser(width=1280, height=800) as browser:
        browser.open(address)
        browser.wait("document.title")          # until the expression is true; its value
        browser.click("#hold")                  # as with a mouse: what lies above it is a failure
        browser.press("Enter"); browser.type("text")
        browser.problems()                      # what the page complained about: exceptions, refused contents
"""

import base64
import fcntl
import json
import os
import selectors
import shutil
import subprocess
import tempfile

# A bound against hanging, not a measure of speed.
PATIENCE_S = 120
KEY_CODES = {"Enter": 13, "Escape": 27, "End": 35, "Home": 36, "ArrowLeft": 37, "ArrowUp": 38, "ArrowRight": 39,
             "ArrowDown": 40, "PageUp": 33, "PageDown": 34, "Tab": 9}
SHIFT = 8


def _high_descriptor(descriptor):
    """The same pipe by a number that is not in the way of 3 and 4."""
    high = fcntl.fcntl(descriptor, fcntl.F_DUPFD, 20)
    os.close(descriptor)
    return high


class Browser:
    """One Chromium with one page."""

    def __init__(self, width=1280, height=800):
        self._profile = tempfile.mkdtemp(prefix="engr-browser-")
        self._next_id = 0
        self._buffer = b""
        self._problems = []
        self._session = None
        read, self._write = (_high_descriptor(each) for each in os.pipe())
        self._read, write = (_high_descriptor(each) for each in os.pipe())

        def give_pipes():
            os.dup2(read, 3)
            os.dup2(write, 4)

        self._process = subprocess.Popen(  # pylint: disable=subprocess-popen-preexec-fn
            ["chromium", "--headless=new", "--no-sandbox", "--remote-debugging-pipe",
             "--user-data-dir=" + self._profile, "--no-first-run", "--disable-gpu", "--disable-dev-shm-usage",
             "--disable-background-networking", "--disable-component-update", "--disable-sync", "--no-proxy-server",
             "about:blank"],
            env=self._environment(), preexec_fn=give_pipes, pass_fds=(3, 4), stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True)
        os.close(read)
        os.close(write)
        try:
            target = self.call("Target.createTarget", url="about:blank")["targetId"]
            self._session = self.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
            for domain in ("Page", "Runtime", "Log"):
                self.call(domain + ".enable")
            self.resize(width, height)
        except BaseException:
            self.close()
            raise

    def _environment(self):
        """What it keeps beside its profile lies there, too."""
        places = ("HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_DATA_HOME", "XDG_STATE_HOME")
        return {**os.environ, **dict.fromkeys(places, self._profile)}

    def call(self, method, **parameters):
        """Has the browser do something; the result."""
        self._next_id += 1
        wanted = self._next_id
        message = {"id": wanted, "method": method, "params": parameters}
        if self._session:
            message["sessionId"] = self._session
        os.write(self._write, json.dumps(message).encode() + b"\0")
        while True:
            reply = self._message()
            if reply.get("id") == wanted:
                assert "error" not in reply, f"{method}: {reply['error']}"
                return reply["result"]
            self._note(reply)

    def _message(self):
        while b"\0" not in self._buffer:
            with selectors.DefaultSelector() as selector:
                selector.register(self._read, selectors.EVENT_READ)
                assert selector.select(PATIENCE_S), "the browser is silent"
            part = os.read(self._read, 1 << 20)
            assert part, "the browser has ended"
            self._buffer += part
        line, _, self._buffer = self._buffer.partition(b"\0")
        return json.loads(line)

    def _note(self, event):
        if event.get("method") == "Runtime.exceptionThrown":
            details = event["params"]["exceptionDetails"]
            self._problems.append(details.get("exception", {}).get("description", details["text"]))
        elif event.get("method") == "Log.entryAdded":
            self._problems.append(event["params"]["entry"]["text"])

    def problems(self):
        """What the page has complained about since this was asked last."""
        self.run("0")
        found, self._problems = self._problems, []
        return found

    def open(self, address):
        """Opens a page, and waits until it is loaded."""
        result = self.call("Page.navigate", url=address)
        assert not result.get("errorText"), f"{address}: {result['errorText']}"
        self.wait(f"document.readyState === 'complete' && location.href.startsWith({json.dumps(address)})")

    def run(self, expression):
        """The value of an expression in the page; a promise is waited for."""
        result = self.call("Runtime.evaluate", expression=expression, returnByValue=True, awaitPromise=True,
                           userGesture=True)
        assert "exceptionDetails" not in result, f"{expression}: {result['exceptionDetails']}"
        return result["result"].get("value")

    def wait(self, expression, what=None):
        """Looks at an expression with each picture of the screen until it is true; its value."""
        value = self.run(f"""new Promise((resolve) => {{
            const end = performance.now() + {PATIENCE_S * 500};
            const look = () => {{
                let value = null;
                try {{ value = {expression}; }} catch {{ value = null; }}
                if (!value && performance.now() < end) requestAnimationFrame(look);
                else resolve(value instanceof Node || value || null);
            }};
            look();
        }})""")
        assert value, f"expected {what or expression}; the page shows: {self.run('document.body.innerText')[:2000]}"
        return value

    def text(self, selector):
        """The text of an element as it can be seen."""
        return self.run(f"document.querySelector({json.dumps(selector)}).innerText")

    def click(self, selector, shift=False):
        """Presses the mouse on an element that can be seen; nothing may lie above it."""
        quoted = json.dumps(selector)
        place = self.wait(f"""(() => {{
            const element = document.querySelector({quoted});
            element.scrollIntoView({{ block: 'nearest', inline: 'nearest' }});
            const box = element.getBoundingClientRect();
            const x = box.left + box.width / 2, y = box.top + box.height / 2;
            const hit = document.elementFromPoint(x, y);
            return box.width > 0 && (element.contains(hit) || hit?.contains(element) && hit.tagName === 'LABEL')
                && {{ x, y }};
        }})()""", f"{selector} to be where the mouse reaches it")
        for kind in ("mousePressed", "mouseReleased"):
            self.call("Input.dispatchMouseEvent", type=kind, button="left", clickCount=1,
                      modifiers=SHIFT if shift else 0, **place)

    def press(self, key):
        """Presses a key of the keyboard, wherever the focus is."""
        is_text = len(key) == 1
        names = {"key": key, "code": key if not is_text else "", "modifiers": SHIFT if key == "?" else 0,
                 "windowsVirtualKeyCode": KEY_CODES.get(key, ord(key[0]))}
        text = {"text": key} if is_text else {"text": "\r"} if key == "Enter" else {}
        self.call("Input.dispatchKeyEvent", type="keyDown", **names, **text)
        self.call("Input.dispatchKeyEvent", type="keyUp", **names)

    def type(self, text):
        """Types a text into the control that has the focus, in place of what is there."""
        self.run("document.activeElement.select?.()")
        self.call("Input.insertText", text=text)

    def resize(self, width, height):
        """Makes the window that large."""
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1, mobile=False)

    def prefer(self, colours):
        """Has the system prefer light or dark colours."""
        self.call("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": colours}])

    def picture(self, path):
        """Writes what can be seen as a PNG file."""
        data = self.call("Page.captureScreenshot", format="png")["data"]
        with open(path, "wb") as file:
            file.write(base64.b64decode(data))

    def close(self):
        """Ends the browser."""
        self._session = None
        if self._process.poll() is None:
            try:
                self.call("Browser.close")
            except (AssertionError, OSError):
                self._process.kill()
            self._process.wait(PATIENCE_S)
        os.close(self._read)
        os.close(self._write)
        shutil.rmtree(self._profile, ignore_errors=True)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()
