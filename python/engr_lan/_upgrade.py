"""An upgrade step by step: announce, start, serve the pieces, ask how it ended."""
from __future__ import annotations

import asyncio
import hashlib
from dataclasses import dataclass
from typing import TYPE_CHECKING, Any, Awaitable, Callable, Dict, Optional

from .errors import BadAnswer, TimedOut, UpgradeFailed

if TYPE_CHECKING:
    from .gateway import Gateway, Progress

GATEWAY_FIRMWARE, DEVICE_FIRMWARE = 0, 10
# An installation may take 120 s.
INSTALLING_S = 150.0
POLL_FIRST_S, POLL_LAST_S = 0.05, 1.0
MAX_VERSION_BYTES = 11  # gateways cut longer ones
BLOCK_BYTES = 64 * 1024

ServeImage = Callable[[str, str, str, "Optional[Progress]"], Awaitable[None]]


@dataclass(frozen=True)
class _Status:
    running: bool
    gateway_id: str  # empty in the status of a device
    version: str


def _digest(path: str) -> "tuple[int, str]":
    size, digest = 0, hashlib.md5()
    with open(path, "rb") as file:
        while block := file.read(BLOCK_BYTES):
            size += len(block)
            digest.update(block)
    return size, digest.hexdigest()


async def _announce(gateway: Gateway, device_id: str, version: str = "", size: int = 0, md5: str = "") -> _Status:
    """An image of 0 bytes only asks for the status."""
    image: Dict[str, Any] = {"swVer": version, "fileSize": size, "fileMd5": md5}
    if device_id:
        image.update(firmwareType=DEVICE_FIRMWARE, cid=device_id)
    answer = await gateway.request("FRM_DEV_UPGRADE_INFO" if device_id else "FRM_CHK_SOFT_VER", image)
    if not isinstance(answer, dict) or not {"updateStatus", "softVer"} <= answer.keys():
        raise BadAnswer("bad_answer", "the gateway's answer to an announcement is none")
    return _Status(str(answer["updateStatus"]) != "0", str(answer.get("cid", "")), str(answer["softVer"]))


async def _ask(gateway: Gateway, device_id: str) -> _Status:
    """The status. An announcement for a device would change an upgrade under way, so the gateway's comes first."""
    own = await _announce(gateway, "")
    return await _announce(gateway, device_id) if device_id and not own.running else own


async def upgrade(gateway: Gateway, serve_image: ServeImage, path: str, version: str, device_id: str,
                  on_progress: Optional[Progress]) -> str:
    if not 1 <= len(version.encode()) <= MAX_VERSION_BYTES:
        raise ValueError(f"a version has 1 to {MAX_VERSION_BYTES} bytes")
    size, md5 = await asyncio.to_thread(_digest, path)
    own = await _announce(gateway, "")
    if own.running:
        raise UpgradeFailed("busy", "another upgrade is under way")
    before = await _announce(gateway, device_id, version, size, md5)
    if before.version.lower() == version.lower():
        await _announce(gateway, device_id)  # withdraws it
        return before.version
    serving = asyncio.ensure_future(serve_image(path, device_id or own.gateway_id, own.gateway_id, on_progress))
    try:
        await gateway.request("FRM_DEV_UPGRADE",
                              {"cid": device_id or own.gateway_id,
                               "firmwareType": DEVICE_FIRMWARE if device_id else GATEWAY_FIRMWARE})
        while not serving.done():
            await asyncio.wait([serving], timeout=gateway.timeout)
            if not serving.done() and not (await _ask(gateway, device_id)).running and not serving.done():
                raise UpgradeFailed("upgrade_failed", "the gateway gave up before it had the whole image")
        serving.result()
    finally:
        serving.cancel()
    await _await_installation(gateway, device_id, version)
    return before.version


async def _await_installation(gateway: Gateway, device_id: str, version: str) -> None:
    loop = asyncio.get_running_loop()
    end, pause = loop.time() + INSTALLING_S, POLL_FIRST_S
    while loop.time() < end:
        status = await _ask(gateway, device_id)
        if not status.running:
            if status.version.lower() == version.lower():
                return
            raise UpgradeFailed("upgrade_failed", f"version {status.version} is installed")
        await asyncio.sleep(pause)
        pause = min(2 * pause, POLL_LAST_S)
    raise TimedOut("outcome_unknown", "the gateway has the whole image, but is still busy")
