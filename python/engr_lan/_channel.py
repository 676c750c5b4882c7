"""A handle of the C interface on the running asyncio loop: its events as Python values, given to one function."""
from __future__ import annotations

import asyncio
import ctypes
import os
from dataclasses import dataclass
from typing import Callable, Optional

from . import _library as c
from .errors import error_of


@dataclass(frozen=True)
class Seeds:
    """Seeds of the built-in keys, 16 characters each; None: the one that the library was built with."""

    key1: Optional[str] = None  # of Wi-Fi configurations
    key2: Optional[str] = None  # of announcements
    key3: Optional[str] = None  # of connections to a gateway that is not activated


@dataclass(frozen=True)
class Announced:
    """The announcement of an event."""

    id: str
    address: str
    product_key: str
    version: str
    ability: int
    activated: bool
    needs_wifi_setup: bool
    interface: str  # that it was heard on


@dataclass(frozen=True)
class Wifi:
    """What engr_client_network holds; times in seconds."""

    network: str
    password: str
    token: str
    gateway_id: Optional[str]
    address: Optional[str]
    new_interface: Optional[str]
    plain: bool
    force: bool
    times: int
    listen: float
    timeout: float


@dataclass(frozen=True)
class Event:
    """A copy of an event of the C interface; see engr_lan_client.h for what each kind sets."""

    kind: int
    error: int
    detail: str
    request: int
    type: int
    ret: int
    payload: bytes
    done: int
    total: int
    pause_ms: int
    result: int
    address: str
    announced: Optional[Announced]


def _text(raw: bytes) -> str:
    return raw.decode(errors="replace")


def _copy(raw: c.Event) -> Event:
    announced = None
    if raw.announcement:
        found = raw.announcement.contents
        announced = Announced(_text(found.id), _text(found.address), _text(found.product_key), _text(found.version),
                              found.ability, found.activated, found.needs_wifi_setup, _text(found.interface_name))
    return Event(raw.kind, raw.error, _text(raw.error_text), raw.request, raw.type, raw.ret,
                 ctypes.string_at(raw.payload, raw.payload_bytes), raw.done, raw.total, raw.pause_ms, raw.result,
                 _text(raw.address), announced)


def _bytes(text: Optional[str]) -> Optional[bytes]:
    return None if text is None else text.encode()


def _milliseconds(seconds: float) -> int:
    """At least 1, since 0 stands for the default."""
    return max(1, round(seconds * 1000))


class Channel:
    """Opens a handle ("gateway", "discovery" or "provisioning"), and calls `on_event` from the loop."""

    def __init__(self, kind: str, on_event: Callable[[Event], None], *, interface: Optional[str], seeds: Seeds,
                 address: Optional[str] = None, port: int = 0, local_key: Optional[str] = None, reconnect: bool = False,
                 timeout: float = 0) -> None:
        options = c.Options(size=ctypes.sizeof(c.Options), interface_name=_bytes(interface), address=_bytes(address),
                            port=port, local_key=_bytes(local_key), reconnect=reconnect,
                            request_timeout_ms=round(timeout * 1000), key1_seed=_bytes(seeds.key1),
                            key2_seed=_bytes(seeds.key2), key3_seed=_bytes(seeds.key3))
        self._on_event = on_event
        self._loop = asyncio.get_running_loop()
        self._handle: Optional[ctypes.c_void_p] = ctypes.c_void_p()
        check(getattr(c.library, "engr_client_open_" + kind)(options, ctypes.byref(self._handle)))
        self._descriptor = c.library.engr_client_descriptor(self._handle)
        self._loop.add_reader(self._descriptor, self._take_events)

    def _take_events(self) -> None:
        # A bounded number, so that a flood of reports leaves the loop to others.
        for _ in range(64):
            raw = c.library.engr_client_next_event(self._handle) if self._handle else None
            if not raw:
                return
            try:
                event = _copy(raw.contents)
            finally:
                c.library.engr_client_free_event(raw)
            self._on_event(event)

    def request(self, frame_type: int, payload: bytes, timeout: float) -> int:
        return self._begin("request", frame_type, payload, len(payload), round(timeout * 1000))

    def devices(self) -> int:
        return self._begin("devices", 0)

    def log(self) -> int:
        return self._begin("log")

    def upgrade(self, path: str, version: str, device_id: str, again: bool) -> int:
        return self._begin("upgrade", os.fsencode(path), version.encode(), device_id.encode(), again)

    def provision(self, wifi: Wifi) -> int:
        return self._begin("provision", ctypes.byref(c.Network(
            size=ctypes.sizeof(c.Network), network=wifi.network.encode(), password=wifi.password.encode(),
            token=wifi.token.encode(), gateway_id=_bytes(wifi.gateway_id), address=_bytes(wifi.address),
            new_interface_name=_bytes(wifi.new_interface), plain=wifi.plain, force=wifi.force, times=wifi.times,
            listen_ms=_milliseconds(wifi.listen), timeout_ms=_milliseconds(wifi.timeout))))

    def _begin(self, name: str, *arguments: object) -> int:
        made = ctypes.c_uint32()
        check(getattr(c.library, "engr_client_" + name)(self._open(), *arguments, ctypes.byref(made)))
        return made.value

    def _open(self) -> ctypes.c_void_p:
        if self._handle is None:
            raise error_of("cancelled", "it is closed")
        return self._handle

    def close(self) -> None:
        if self._handle is not None:
            self._loop.remove_reader(self._descriptor)
            c.library.engr_client_close(self._handle)
            self._handle = None


def check(code: int) -> None:
    """Raises what an error code of the C interface means."""
    if code == c.BAD_ARGUMENT:
        raise ValueError("an argument can't be right: an address is dotted decimal, a key or seed has 16 bytes")
    if code != c.OK:
        raise error_of(c.error_name(code), "")
