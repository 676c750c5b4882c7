"""Giving a gateway in access-point mode its Wi-Fi network."""
from __future__ import annotations

import asyncio
from typing import List, Optional

from . import _library as c
from ._channel import Channel, Event, Seeds
from .discovery import Announcement
from .errors import LanError, TimedOut, WifiFailure

# The gateway does not answer, and its network goes away once it has taken the configuration.
REPEAT_S = 1.0


async def provision(gateway_id: str, network: str, password: str, token: str, *, interface: Optional[str] = None,
                    new_interface: Optional[str] = None, address: Optional[str] = None, encrypted: bool = True,
                    timeout: float = 60.0, repeats: int = 10, seeds: Seeds = Seeds()) -> Announcement:
    """Sends the network until the gateway of this id appears on it, and returns its announcement.

    `interface` is on the gateway's own network, `new_interface` (the same when left out) on the one that it is to join.
    `address` None reaches all gateways on the interface. Raises WifiFailure when a gateway reports that it could not
    join, TimedOut when nothing is heard of it.
    """
    loop = asyncio.get_running_loop()
    outcome: asyncio.Future[Announcement] = loop.create_future()

    def on_event(event: Event) -> None:
        if outcome.done():
            return
        found = event.announced
        if event.kind == c.WIFI_FAILURE:
            outcome.set_exception(WifiFailure(event.address, event.result, event.payload.decode(errors="replace")))
        elif found is not None and found.id == gateway_id and not found.needs_wifi_setup:
            outcome.set_result(found)

    channels: List[Channel] = []
    try:
        channels.append(Channel("provisioning", on_event, interface=interface, seeds=seeds))
        channels.append(Channel("discovery", on_event, interface=new_interface or interface, seeds=seeds))
        end = loop.time() + timeout
        for sent in range(repeats + 1):
            try:
                if sent < repeats:
                    channels[0].send_network(network, password, token, address, encrypted)
            except LanError:
                if sent == 0:
                    raise
            pause = end - loop.time() if sent == repeats else min(REPEAT_S, end - loop.time())
            await asyncio.wait([outcome], timeout=max(pause, 0))
            if outcome.done():
                return outcome.result()
        raise TimedOut("timed_out", f"gateway {gateway_id} has neither appeared nor reported a failure")
    finally:
        for channel in channels:
            channel.close()
