"""How smooth the console's page stays while frames pass: the times between the pictures that the browser draws.

    cmake --preset release && ninja -C build/release
    unshare --net sh -c 'ip link set lo up; python3 bench/console_page.py'
    ... --rates 0,1000,4000 --seconds 20

Four apps send so many requests a second to the reference gateway, and each is answered: two frames. Rates are frames a
second. The page is in Debian's Chromium, which draws 60 pictures a second without a graphics card; "late" are pictures
that came more than 33 ms after the one before. The times of work are those that the DevTools protocol counts for the
page's main thread, in percent of the time.
"""

import argparse
import os
import re
import socket
import sys
import threading
import time

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..")
sys.path[:0] = [os.path.join(ROOT, "tests"), os.path.join(ROOT, "tests", "programs")]
os.environ.setdefault("ENGR_BIN_DIR", os.path.join(ROOT, "build", "release", "bin"))

from browser import Browser  # noqa: E402  (the path is set above)
from gateway import Gateway  # noqa: E402
from lan_codec import FRM_GET_CHANNEL, request  # noqa: E402

REPLY_BYTES = 44
APPS = 4
PICTURES = """new Promise((resolve) => {
    const times = [];
    const end = performance.now() + %d;
    const look = (time) => { times.push(time); if (time < end) requestAnimationFrame(look); else resolve(times); };
    requestAnimationFrame(look);
})"""


class Load:
    """An app that asks at an even rate, and reads every answer; when the gateway is slow it catches up."""

    def __init__(self, gateway, requests_per_second):
        self._socket = socket.create_connection((gateway.address, 6668))
        self._interval = 1 / requests_per_second
        self._is_over = threading.Event()
        self.answered = 0
        self._thread = threading.Thread(target=self._run)
        self._thread.start()

    def _run(self):
        due = time.monotonic()
        while not self._is_over.is_set():
            self._socket.sendall(request(self.answered + 1, FRM_GET_CHANNEL))
            got = 0
            while got < REPLY_BYTES:
                got += len(self._socket.recv(REPLY_BYTES - got))
            self.answered += 1
            due += self._interval
            time.sleep(max(0, due - time.monotonic()))

    def end(self):
        self._is_over.set()
        self._thread.join()
        self._socket.close()


def metrics(browser):
    return {each["name"]: each["value"] for each in browser.call("Performance.getMetrics")["metrics"]}


def measure(browser, gateway, rate, seconds):
    """One line of the table."""
    loads = [Load(gateway, rate / 2 / APPS) for _ in range(APPS)] if rate else []
    browser.wait("document.querySelectorAll('.canvas .row').length > 0 || " + ("false" if rate else "true"))
    answered, before = sum(load.answered for load in loads), metrics(browser)
    times = browser.run(PICTURES % (seconds * 1000))
    after = metrics(browser)
    passed = (sum(load.answered for load in loads) - answered) * 2 / seconds
    for load in loads:
        load.end()
    gaps = sorted(later - earlier for earlier, later in zip(times, times[1:]))
    share = {name: 100 * (after[name] - before[name]) / seconds
             for name in ("TaskDuration", "ScriptDuration", "LayoutDuration", "RecalcStyleDuration")}
    print(f"{passed:9.0f} {len(gaps) / seconds:9.1f} {gaps[len(gaps) // 2]:8.1f} {gaps[len(gaps) * 99 // 100]:8.1f} "
          f"{gaps[-1]:8.1f} {100 * sum(gap > 33.4 for gap in gaps) / len(gaps):6.1f} {share['TaskDuration']:7.1f} "
          f"{share['ScriptDuration']:8.1f} {share['LayoutDuration'] + share['RecalcStyleDuration']:8.1f} "
          f"{after['JSHeapUsedSize'] / 1e6:8.1f}  {browser.text('#dropped') or '-'}", flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--rates", default="0,200,1000,2000", help="frames a second (default: %(default)s)")
    parser.add_argument("--seconds", type=int, default=15, help="for each rate (default: %(default)s)")
    given = parser.parse_args()
    print("frames/s  pictures    p50 ms   p99 ms   max ms late %  work % script % layout %  heap MB  dropped")
    with Gateway("--console", "0", "--quiet") as gateway, Browser(1280, 800) as browser:
        browser.call("Performance.enable")
        browser.open(re.search(r"console (\S+)", gateway.ready_line)[1])
        browser.wait("document.querySelector('#connection').className === 'good'")
        for rate in (int(text) for text in given.rates.split(",")):
            measure(browser, gateway, rate, given.seconds)


if __name__ == "__main__":
    main()
