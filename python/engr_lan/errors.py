"""What goes wrong between an app and a gateway."""
from __future__ import annotations

from typing import Dict, Type


class LanError(Exception):
    """Something on the way to the gateway failed. `kind` is a short name such as "connection_lost"."""

    def __init__(self, kind: str, detail: str = "") -> None:
        super().__init__(f"{kind}: {detail}" if detail else kind)
        self.kind = kind
        self.detail = detail


class TimedOut(LanError):
    """No answer in time, or nothing that was waited for."""


class NotAccepted(TimedOut):
    """No answer to a request that gateways refuse in silence, such as a command to a device that they don't know."""


class BadAnswer(LanError):
    """The gateway's answer is not what was asked for."""


class UpgradeFailed(LanError):
    """The new version is not installed: the gateway was busy, gave up, or could not use the image."""


class UnknownDevice(LanError):
    """The gateway has no device of this id."""


class Refused(LanError):
    """The gateway did not do what it was asked for. `reason` is what it says, `ret` its number."""

    def __init__(self, ret: int, reason: str) -> None:
        super().__init__("refused_by_gateway", reason)
        self.ret = ret
        self.reason = reason


class WifiFailure(LanError):
    """A gateway could not join its Wi-Fi network. `result` is its number for the failure."""

    def __init__(self, address: str, result: int, reason: str) -> None:
        super().__init__("wifi_failure", f"gateway {address}: {reason} ({result})")
        self.address = address
        self.result = result
        self.reason = reason


class Unconfirmed(LanError):
    """A gateway appeared that had not said before that it needs Wi-Fi, so it may be another one."""

    def __init__(self, gateway_id: str, address: str) -> None:
        super().__init__("unconfirmed", f"gateway {gateway_id} appeared at {address}")
        self.gateway_id = gateway_id
        self.address = address


_CLASSES: Dict[str, Type[LanError]] = {
    "timed_out": TimedOut, "outcome_unknown": TimedOut, "bad_answer": BadAnswer, "busy": UpgradeFailed,
    "upgrade_failed": UpgradeFailed, "unknown_device": UnknownDevice}


def error_of(kind: str, detail: str) -> LanError:
    return _CLASSES.get(kind, LanError)(kind, detail)
