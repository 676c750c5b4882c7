"""What goes wrong between an app and a gateway."""
from __future__ import annotations


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


def error_of(kind: str, detail: str) -> LanError:
    return TimedOut(kind, detail) if kind == "timed_out" else LanError(kind, detail)
