"""One gateway: requests and what comes of them, devices, data points, reports, the log."""
from __future__ import annotations

import asyncio
import contextlib
import json
import os
from collections import deque
from dataclasses import dataclass, field
from typing import Any, AsyncIterator, Callable, Deque, Dict, Iterable, List, Optional, Set, Union

from . import _library as c
from ._channel import Channel, Event, Seeds
from .discovery import DISCOVERY_TIME_S, discover
from .errors import BadAnswer, LanError, NotAccepted, Refused, TimedOut, error_of

Progress = Callable[[int, int], None]  # (done, total)
DataPoints = Dict[str, Any]

MAX_KEPT_REPORTS = 4096


@dataclass(frozen=True)
class Device:
    """A device of a gateway. `online` is None when the gateway keeps it in neither of its lists."""

    id: str
    product_id: str
    online: Optional[bool]


@dataclass(frozen=True)
class Report:
    """What a gateway reports by itself. `payload` is JSON, or a text that is none; None when it can't be read."""

    type: int
    name: str
    ret: int
    payload: Any


@dataclass
class _Asked:
    outcome: "asyncio.Future[Event]"
    on_progress: Optional[Progress]


@dataclass(eq=False)
class _Listener:
    kept: Deque[Event] = field(default_factory=lambda: deque(maxlen=MAX_KEPT_REPORTS))
    woken: asyncio.Event = field(default_factory=asyncio.Event)


def _json_or_text(payload: bytes) -> Any:
    text = payload.decode(errors="replace")
    try:
        return json.loads(text)
    except (ValueError, RecursionError):
        return text


def _payload(event: Event) -> bytes:
    if event.error != c.OK:
        raise error_of(c.error_name(event.error), event.detail)
    if event.ret != 0:
        raise Refused(event.ret, event.payload.decode(errors="replace"))
    return event.payload


def _report_of(event: Event) -> Report:
    name = c.library.engr_client_frame_type_name(event.type)
    return Report(event.type, name.decode() if name else f"type {event.type}", event.ret,
                  None if event.error else _json_or_text(event.payload))


class Gateway:
    """A connection to one gateway, made by `async with` or `open`. Keep-alives and their answers go on by themselves.

    `local_key`, 16 characters, belongs to an activated gateway. `timeout` holds for each answer. With `reconnect` a
    connection that was lost is made again, while requests that were under way fail.
    """

    def __init__(self, address: str, *, port: int = 6668, interface: Optional[str] = None,
                 local_key: Optional[str] = None, timeout: float = 5.0, reconnect: bool = False,
                 seeds: Seeds = Seeds()) -> None:
        self.address = address
        self.timeout = timeout
        self._options = {"port": port, "interface": interface, "local_key": local_key, "reconnect": reconnect,
                         "seeds": seeds}
        self._channel: Optional[Channel] = None
        self._asked: Dict[int, _Asked] = {}
        self._listeners: Set[_Listener] = set()
        self._lost: Optional[LanError] = None

    @classmethod
    @contextlib.asynccontextmanager
    async def find(cls, gateway_id: Optional[str] = None, *, interface: Optional[str] = None, seeds: Seeds = Seeds(),
                   wait: float = DISCOVERY_TIME_S, **options: Any) -> AsyncIterator[Gateway]:
        """Finds the gateway of an id, or the first one that announces itself, and connects to it."""
        async with contextlib.aclosing(discover(interface=interface, timeout=wait, seeds=seeds)) as announcements:
            async for found in announcements:
                if gateway_id in (None, found.id):
                    break
            else:
                raise TimedOut("no_gateway", f"no gateway {gateway_id or ''} announced itself in {wait} s")
        async with cls(found.address, interface=interface, seeds=seeds, **options) as gateway:
            yield gateway

    def open(self) -> None:
        """Starts to connect; the first request tells whether that works."""
        if self._channel is None:
            self._lost = None
            self._channel = Channel("gateway", self._on_event, address=self.address, timeout=self.timeout,
                                    **self._options)

    def close(self) -> None:
        """Ends the connection. Requests under way fail, iterators of reports end."""
        if self._channel is not None:
            self._channel.close()
            self._channel = None
            self._end(error_of("cancelled", "the connection was closed"))

    async def __aenter__(self) -> Gateway:
        self.open()
        return self

    async def __aexit__(self, *_: object) -> None:
        self.close()

    def _on_event(self, event: Event) -> None:
        if event.kind == c.ANSWER:
            asked = self._asked.pop(event.request, None)
            if asked and not asked.outcome.done():
                asked.outcome.set_result(event)
        elif event.kind == c.PROGRESS:
            asked = self._asked.get(event.request)
            if asked and asked.on_progress:
                asked.on_progress(event.done, event.total)
        elif event.kind == c.REPORT:
            for listener in self._listeners:
                listener.kept.append(event)
                listener.woken.set()
        elif event.kind == c.DISCONNECTED and event.pause_ms == 0:
            self._end(error_of(c.error_name(event.error), event.detail), requests=False)

    def _end(self, why: LanError, requests: bool = True) -> None:
        self._lost = why
        for listener in self._listeners:
            listener.woken.set()
        for asked in self._asked.values() if requests else ():
            if not asked.outcome.done():
                asked.outcome.set_exception(why)

    def _open_channel(self) -> Channel:
        if self._channel is None:
            raise LanError("cancelled", "the gateway is not open")
        return self._channel

    async def _outcome(self, request: int, on_progress: Optional[Progress] = None) -> Event:
        asked = _Asked(asyncio.get_running_loop().create_future(), on_progress)
        self._asked[request] = asked
        try:
            return await asked.outcome
        finally:
            self._asked.pop(request, None)

    async def request_bytes(self, frame_type: Union[int, str], payload: Any = None, *, timeout: float = 0,
                            on_progress: Optional[Progress] = None) -> bytes:
        """Makes a request; returns the answer's payload as it is.

        `frame_type` is a number or a name such as "FRM_DEV_LIST"; `payload` is bytes or a text as they are, None for
        nothing, or what becomes JSON. A frame type that is accepted in silence yields b"" when `timeout` (that of the
        gateway) has passed without a refusal. Raises Refused, NotAccepted, TimedOut or LanError.
        """
        if payload is None or isinstance(payload, bytes):
            raw = payload or b""
        else:
            raw = (payload if isinstance(payload, str) else json.dumps(payload, ensure_ascii=False)).encode()
        number = frame_type if isinstance(frame_type, int) else c.library.engr_client_frame_type(frame_type.encode())
        if number == 0:
            raise ValueError(f"there is no frame type {frame_type}")
        event = await self._outcome(self._open_channel().request(number, raw, timeout), on_progress)
        if c.error_name(event.error) == "timed_out":
            rule = c.library.engr_client_answer_rule_of(number)
            if rule in (c.ANSWER_ON_FAILURE, c.ANSWER_NEVER):
                return b""
            if rule == c.ANSWER_ON_SUCCESS:
                raise NotAccepted("not_accepted", "gateways refuse this in silence")
        return _payload(event)

    async def request(self, frame_type: Union[int, str], payload: Any = None, *, timeout: float = 0) -> Any:
        """As request_bytes; returns JSON, or a text that is none."""
        return _json_or_text(await self.request_bytes(frame_type, payload, timeout=timeout))

    async def devices(self) -> List[Device]:
        """The devices of the gateway with their online state."""
        listed = json.loads(_payload(await self._outcome(self._open_channel().devices())))
        return [Device(one["cid"], one["pid"], one["online"]) for one in listed]

    async def data_points(self, device_id: str = "") -> DataPoints:
        """What the gateway knows of a device's data points, by their numbers; without an id of its own."""
        return _points(await self.request("FRM_LOCAL_DP_QUERY", {"cid": device_id} if device_id else {}))

    async def set_data_points(self, device_id: str, data_points: DataPoints) -> None:
        """Commands a device. What it then does comes as reports."""
        await self.request("FRM_TP_CMD", {"cid": device_id, "dps": data_points})

    async def query_data_points(self, device_id: str, numbers: Iterable[int] = ()) -> None:
        """Makes a device report data points (all when none is named), which come as reports."""
        wanted: Dict[str, Any] = {"cid": device_id}
        chosen = list(numbers)
        if chosen:
            wanted["dpId"] = chosen
        await self.request("FRM_DP_QUERY", wanted)

    async def log(self, on_progress: Optional[Progress] = None) -> bytes:
        """The gateway's log, which the gateway removes by this. Other apps are held up meanwhile.

        Progress counts bytes.
        """
        return _payload(await self._outcome(self._open_channel().log(), on_progress))

    async def upgrade(self, path: Union[str, "os.PathLike[str]"], version: str, device_id: str = "", *,
                      again: bool = False, on_progress: Optional[Progress] = None) -> str:
        """Brings a firmware image to the gateway, or to one of its devices, and waits until it is installed.

        Returns the version that was installed before; it does nothing when that is `version` already, unless with
        `again`. An upgrade that the gateway gives up is started once more, with `reconnect` also one whose connection
        was lost. Progress counts bytes that the gateway has taken. Raises UpgradeFailed when another version is
        installed in the end or the gateway was busy, UnknownDevice, Refused, TimedOut when the outcome can't be told,
        and LanError. After any of them, and when it is cancelled, the upgrade may go on until the gateway is closed,
        which ends it.
        """
        request = self._open_channel().upgrade(os.fspath(path), version, device_id, again)
        outcome = json.loads(_payload(await self._outcome(request, on_progress)))
        return str(outcome["version_before"])

    def reports(self) -> AsyncIterator[Report]:
        """What the gateway reports from now on, whoever caused it; of more than 4096 the oldest are dropped.

        Ends when the gateway is closed; raises what ended a connection that does not come back.
        """
        listener = _Listener()
        self._listeners.add(listener)
        return self._reports(listener)

    async def _reports(self, listener: _Listener) -> AsyncIterator[Report]:
        try:
            while True:
                while listener.kept:
                    yield _report_of(listener.kept.popleft())
                if self._lost is not None:
                    break
                listener.woken.clear()
                await listener.woken.wait()
            if self._channel is not None:
                raise self._lost
        finally:
            self._listeners.discard(listener)


def _points(state: Any) -> DataPoints:
    if not isinstance(state, dict) or not isinstance(state.get("dps"), dict):
        raise BadAnswer("bad_answer", "the gateway's answer has no data points")
    return dict(state["dps"])
