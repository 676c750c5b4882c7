"""Giving a gateway in access-point mode its Wi-Fi network."""
from __future__ import annotations

import asyncio
from typing import Callable, Optional

from . import _library as c
from ._channel import Announced as Announcement
from ._channel import Channel, Event, Seeds, Wifi
from .discovery import DISCOVERY_TIME_S
from .errors import Unconfirmed, WifiFailure, error_of


def _outcome(event: Event) -> Announcement:
    if event.error == c.WIFI_FAILURE:
        raise WifiFailure(event.address, event.result, event.payload.decode(errors="replace"))
    if event.error == c.UNCONFIRMED and event.announced is not None:
        raise Unconfirmed(event.announced.id, event.announced.address)
    if event.error != c.OK or event.announced is None:
        raise error_of(c.error_name(event.error), event.detail)
    return event.announced


async def provision(gateway_id: Optional[str], network: str, password: str, token: str, *,
                    interface: Optional[str] = None, new_interface: Optional[str] = None,
                    address: Optional[str] = None, encrypted: bool = True, force: bool = False,
                    listen: float = DISCOVERY_TIME_S, timeout: float = 60.0, repeats: int = 10, seeds: Seeds = Seeds(),
                    on_progress: Optional[Callable[[int, int], None]] = None) -> Announcement:
    """Sends the network until the gateway appears on it, and returns its announcement.

    `gateway_id` None means the gateways that say that they need Wi-Fi; an empty `password`, an open network.
    `interface` is on the gateway's own network; None: the only one where it is heard. `new_interface` is on the network
    that it is to join; None: the same, or any. For `listen` seconds it listens for the gateway, and sends nothing when
    that does not say that it needs Wi-Fi, unless with `force`. `address` None reaches all gateways on the interface. It
    is sent every second, `repeats` times at most, which progress counts; `timeout` seconds after the first nothing more
    is waited for.

    Raises WifiFailure when a gateway reports that it could not join, Unconfirmed when one appears that may be another,
    TimedOut when nothing is heard, ValueError for a text that can't be sent, and LanError: with the kind "not_waiting"
    nothing was sent.
    """
    outcome: asyncio.Future[Event] = asyncio.get_running_loop().create_future()

    def on_event(event: Event) -> None:
        if event.kind == c.PROGRESS and on_progress is not None:
            on_progress(event.done, event.total)
        elif event.kind == c.ANSWER and not outcome.done():
            outcome.set_result(event)

    channel = Channel("provisioning", on_event, interface=interface, seeds=seeds)
    try:
        channel.provision(Wifi(network, password, token, gateway_id, address, new_interface, not encrypted, force,
                               repeats, listen, timeout))
        return _outcome(await outcome)
    finally:
        channel.close()
