"""Small gateways on loopback addresses, and runs of engr_app against them."""
import contextlib
import json
import os
import socket
import struct
import subprocess
import threading

import user_home  # noqa: F401
from lan_codec import FRM_KEEPALIVE, FRM_TP_CMD, FRM_UDP_DISCOVERY, KEYS, encrypt, frame

APP = os.path.join(os.environ["ENGR_BIN_DIR"], "engr_app")
LOCAL_KEY = "local-key-of-gw1"


class Gateway:
    """Serves one connection after the other with a function (connection) -> None."""

    def __init__(self, serve, address="127.0.0.1", port=0):
        self.listener = socket.create_server((address, port))
        self.name = "%s:%d" % self.listener.getsockname()
        self.serve = serve
        threading.Thread(target=self.run, daemon=True).start()

    def run(self):
        with contextlib.suppress(OSError):
            while True:
                connection, _ = self.listener.accept()
                with connection, contextlib.suppress(OSError):
                    self.serve(connection)


NO_COMMAND_REFUSED = encrypt(KEYS[3], b"data format error")


def all_requests(connection):
    received = b""
    while chunk := connection.recv(65536):
        received += chunk
        while len(received) >= 24:
            _, number, kind, length = struct.unpack(">4I", received[:16])
            if len(received) < length + 16:
                break
            yield number, kind, received[16:8 + length]
            received = received[length + 16:]


def requests(connection, key=None):
    """The requests that come, but for the empty device command with which an app asks before it leaves."""
    no_command = [encrypt(each, b"{}") for each in (KEYS[3], LOCAL_KEY.encode(), key) if each]
    for number, kind, payload in all_requests(connection):
        if kind == FRM_TP_CMD and payload in no_command:
            connection.sendall(frame(number, FRM_TP_CMD, 1, NO_COMMAND_REFUSED))
        else:
            yield number, kind, payload


def answering(answers, key=KEYS[3]):
    """A server that answers each frame type with (ret, text), and keep-alives as gateways do."""
    def serve(connection):
        for number, kind, _ in requests(connection, key):
            if kind == FRM_KEEPALIVE:
                connection.sendall(frame(0, FRM_KEEPALIVE, 0))
            elif kind in answers:
                ret, text = answers[kind]
                connection.sendall(frame(number, kind, ret, encrypt(key, text) if text else b""))
    return serve


def broadcast(address, port, datagram):
    """Sends on lo only, as the gateway of an address."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
        sender.setsockopt(socket.SOL_SOCKET, socket.SO_BINDTODEVICE, b"lo\0")
        sender.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
        sender.bind((address, 0))
        sender.sendto(datagram, ("255.255.255.255", port))


@contextlib.contextmanager
def announced(**gateways):
    """Announces gateways, id = (address, active), as long as it lasts."""
    stop = threading.Event()
    datagrams = []
    for name, (address, active) in gateways.items():
        text = json.dumps({"ip": address, "gwId": name, "active": active, "ablilty": 1,
                           "productKey": "pk", "version": "3.3", "token": True})
        datagrams.append((address, frame(0, FRM_UDP_DISCOVERY, 0, encrypt(KEYS[2], text.encode()))))

    def announce():
        while not stop.wait(0.05):
            for address, datagram in datagrams:
                broadcast(address, 6667, datagram)

    thread = threading.Thread(target=announce)
    thread.start()
    try:
        yield
    finally:
        stop.set()
        thread.join()


def outcome(status):
    """0 for success, 1 for work that failed, in whatever way, 2 for wrong usage."""
    return status if status in (0, 2) else 1


def run(*arguments, environment=None):
    done = subprocess.run([APP, *arguments], capture_output=True, timeout=60,
                          env={**os.environ, **(environment or {})})
    return done.returncode, done.stdout.decode(), done.stderr.decode()
