"""Finding gateways by what they announce."""
from __future__ import annotations

import asyncio
from typing import AsyncIterator, Optional

from . import _library as c
from ._channel import Announced as Announcement
from ._channel import Channel, Event, Seeds

# Gateways announce themselves every 5 s.
DISCOVERY_TIME_S = 6.0


async def discover(*, interface: Optional[str] = None, timeout: Optional[float] = DISCOVERY_TIME_S,
                   seeds: Seeds = Seeds(), repeated: bool = False) -> AsyncIterator[Announcement]:
    """Yields each gateway when it is first heard, or with `repeated` each announcement.

    Ends after `timeout` seconds; None listens for ever. Datagrams of gateways with other seeds are passed over.
    """
    events: asyncio.Queue[Event] = asyncio.Queue(maxsize=4096)

    def keep(event: Event) -> None:
        if event.kind == c.ANNOUNCEMENT and not events.full():
            events.put_nowait(event)

    loop = asyncio.get_running_loop()
    end = None if timeout is None else loop.time() + timeout
    channel = Channel("discovery", keep, interface=interface, seeds=seeds)
    seen = set()
    try:
        while True:
            try:
                left = None if end is None else end - loop.time()
                found = (await asyncio.wait_for(events.get(), left)).announced
            except asyncio.TimeoutError:
                return
            if found is not None and (repeated or (found.id, found.address) not in seen):
                seen.add((found.id, found.address))
                yield found
    finally:
        channel.close()
