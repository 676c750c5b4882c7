"""Runs engr_gatewayd for tests of whole programs: each in its own directory and on its own loopback address.

    with Gateway(site={"devices": []}, trace=True) as gateway:
        gateway.ctl("set", "gw_id", "abc")              # the parsed answer; a refusal fails the test
        gateway.status()["clients"]
        gateway.wait_for_clients(1)
        talk_to(gateway.address, 6668)
        gateway.trace()                                 # the parsed lines of the trace
"""

import itertools
import json
import os
import selectors
import shutil
import signal
import subprocess
import tempfile
import time

import user_home  # noqa: F401

BIN_DIR = os.environ.get("ENGR_BIN_DIR", "build/dev/bin")
# A bound against hanging, not a measure of speed.
PATIENCE_S = 60

_numbers = itertools.count(1)


def program(name):
    return os.path.join(BIN_DIR, name)


def own_address():
    """A loopback address that no other test uses at the same time."""
    number = (os.getpid() * 16 + next(_numbers)) % (1 << 24)
    return f"127.{number >> 16}.{(number >> 8) & 255}.{number & 255}"


class Gateway:
    """One daemon. `site` and `scenario` are JSON values; other options are given as the daemon takes them.

    With a `host` (hosts.py) it runs there, on the host's first interface instead of lo.
    """

    def __init__(self, *options, site=None, scenario=None, trace=False, address=None, data_dir="data",
                 ready=True, host=None):
        self.directory = tempfile.mkdtemp(prefix="engr-test-")
        self.address = address or (host.address if host else own_address())
        self.data_dir = os.path.join(self.directory, data_dir)
        place = ["--interface", "eth0"] if host else ["--address", self.address]
        self._command = [*(host.enter if host else ()), program("engr_gatewayd"), *place, "--data-dir", self.data_dir]
        for name, value in (("site", site), ("scenario", scenario)):
            if value is not None:
                path = os.path.join(self.directory, name + ".json")
                with open(path, "w", encoding="utf-8") as file:
                    json.dump(value, file)
                self._command += ["--" + name, path]
        self._trace_path = os.path.join(self.directory, "trace.jsonl")
        if trace:
            self._command += ["--trace", self._trace_path]
        self._command += options
        self._stderr_path = os.path.join(self.directory, "stderr")
        self.process = None
        try:
            self.start(ready)
        except BaseException:
            self.close()
            raise

    def start(self, ready=True):
        """Starts the daemon (again) and waits for its ready line."""
        with open(self._stderr_path, "ab") as stderr:
            self.process = subprocess.Popen(self._command, stdout=subprocess.PIPE, stderr=stderr)
        if ready:
            self.ready_line = self.read_line()
            assert self.ready_line.startswith("ready: "), f"no ready line but {self.ready_line!r}: {self.stderr()}"

    def read_line(self):
        """Next line of standard output; an empty text when the daemon ended."""
        with selectors.DefaultSelector() as selector:
            selector.register(self.process.stdout, selectors.EVENT_READ)
            assert selector.select(PATIENCE_S), f"no line on standard output: {self.stderr()}"
        return self.process.stdout.readline().decode().rstrip("\n")

    def stop(self, number=signal.SIGTERM):
        """Ends the daemon by a signal. Returns its status."""
        self.process.send_signal(number)
        return self.wait()

    def wait(self):
        status = self.process.wait(PATIENCE_S)
        self.process.stdout.close()
        return status

    def close(self):
        if self.process is not None and self.process.poll() is None:
            self.process.kill()
            self.wait()
        shutil.rmtree(self.directory, ignore_errors=True)

    def __enter__(self):
        return self

    def __exit__(self, kind, *_):
        status = self.stop() if self.process.poll() is None else self.process.returncode
        errors = self.stderr()
        self.close()
        if kind is None:
            assert status in (0, -signal.SIGKILL), f"the daemon ended with {status}: {errors}"

    def run_ctl(self, *arguments):
        """Runs engr_gatewayctl; the finished process with its texts."""
        return subprocess.run([program("engr_gatewayctl"), "--timeout", "60", "--data-dir", self.data_dir,
                               *map(str, arguments)],
                              capture_output=True, text=True, timeout=PATIENCE_S, check=False)

    def ctl(self, *arguments):
        """The parsed answer of engr_gatewayctl, which must succeed."""
        done = self.run_ctl(*arguments)
        assert done.returncode == 0, f"engr_gatewayctl {arguments}: {done.stderr}"
        return json.loads(done.stdout)

    def run_app(self, *arguments, text=None):
        """Runs engr_app on this gateway, with a text as its standard input; the finished process with its texts."""
        return subprocess.run([program("engr_app"), "--gateway", self.address, *arguments], input=text,
                              capture_output=True, text=True, timeout=PATIENCE_S, check=False)

    def status(self):
        return self.ctl("status")

    def trace(self):
        """The lines so far; one that is being written has no end yet."""
        with open(self._trace_path, encoding="utf-8") as file:
            return [json.loads(line) for line in file if line.endswith("\n")]

    def wait_for(self, what, is_so):
        """Waits until the status is as it shall be. Returns it."""
        bound = time.monotonic() + PATIENCE_S
        while True:
            status = self.status()
            if is_so(status):
                return status
            assert time.monotonic() < bound, f"expected {what}, but the gateway is in {status}"
            time.sleep(0.01)

    def wait_for_clients(self, number):
        self.wait_for(f"{number} clients", lambda status: status["clients"] == number)

    def stderr(self):
        with open(self._stderr_path, encoding="utf-8", errors="replace") as file:
            return file.read()
