"""Small gateways on loopback addresses, and runs of engr_app against them."""
import contextlib
import hashlib
import json
import os
import socket
import struct
import subprocess
import threading
import zlib

APP = os.path.join(os.environ["ENGR_BIN_DIR"], "engr_app")
KEYS = {n: hashlib.md5(os.environ.get(f"ENGR_KEY{n}_SEED", f"engr-dev-seed-0{n}").encode()).digest()
        for n in (1, 2, 3)}
LOCAL_KEY = "local-key-of-gw1"


def multiply(left, right):
    product = 0
    while right:
        product ^= left if right & 1 else 0
        left = (left << 1) ^ (0x11B if left & 0x80 else 0)
        right >>= 1
    return product


def substitute(byte):
    inverse = next((x for x in range(256) if multiply(byte, x) == 1), 0)
    turned = [(inverse << n | inverse >> (8 - n)) & 0xFF for n in range(5)]
    return turned[0] ^ turned[1] ^ turned[2] ^ turned[3] ^ turned[4] ^ 0x63


SBOX = [substitute(byte) for byte in range(256)]


def encrypt(key, text):
    """AES-128-ECB with PKCS#7 padding, slow and small."""
    words, round_constant = [list(key[n:n + 4]) for n in range(0, 16, 4)], 1
    while len(words) < 44:
        word = list(words[-1])
        if len(words) % 4 == 0:
            word = [SBOX[byte] for byte in word[1:] + word[:1]]
            word[0] ^= round_constant
            round_constant = multiply(round_constant, 2)
        words.append([a ^ b for a, b in zip(word, words[-4])])
    round_keys = [sum(words[n:n + 4], []) for n in range(0, 44, 4)]
    padding = 16 - len(text) % 16
    data, out = text + bytes([padding]) * padding, b""
    for start in range(0, len(data), 16):
        state = [a ^ b for a, b in zip(data[start:start + 16], round_keys[0])]
        for number in range(1, 11):
            state = [SBOX[state[(n + 4 * (n % 4)) % 16]] for n in range(16)]
            if number < 10:
                state = [multiply(state[n], 2) ^ multiply(state[n // 4 * 4 + (n + 1) % 4], 3)
                         ^ state[n // 4 * 4 + (n + 2) % 4] ^ state[n // 4 * 4 + (n + 3) % 4]
                         for n in range(16)]
            state = [a ^ b for a, b in zip(state, round_keys[number])]
        out += bytes(state)
    return out


def frame(number, kind, ret, payload=b""):
    body = struct.pack(">5I", 0x55AA, number, kind, len(payload) + 12, ret) + payload
    return body + struct.pack(">II", zlib.crc32(body[:len(body) % 65536]), 0xAA55)


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


def requests(connection):
    received = b""
    while chunk := connection.recv(65536):
        received += chunk
        while len(received) >= 24:
            _, number, kind, length = struct.unpack(">4I", received[:16])
            if len(received) < length + 16:
                break
            yield number, kind, received[16:8 + length]
            received = received[length + 16:]


def answering(answers, key=KEYS[3]):
    """A server that answers each frame type with (ret, text), and keep-alives as gateways do."""
    def serve(connection):
        for number, kind, _ in requests(connection):
            if kind == 9:
                connection.sendall(frame(0, 9, 0))
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
        datagrams.append((address, frame(0, 19, 0, encrypt(KEYS[2], text.encode()))))

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


def run(*arguments, environment=None):
    done = subprocess.run([APP, *arguments], capture_output=True, timeout=60,
                          env={**os.environ, **(environment or {})})
    return done.returncode, done.stdout.decode(), done.stderr.decode()
