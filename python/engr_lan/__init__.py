"""Zigbee gateways in engineering mode, over the LAN.

    async with Gateway("192.0.2.7") as gateway:
        for device in await gateway.devices():
            print(device.id, device.online)

Everything happens on the running asyncio loop; an object belongs to the loop that it was opened on. The package needs
the shared library libengr_lan_client.so.0; ENGR_LAN_CLIENT_LIBRARY names another file.
"""
from ._channel import Seeds
from .discovery import Announcement, discover
from .errors import (BadAnswer, LanError, NotAccepted, Refused, TimedOut, Unconfirmed, UnknownDevice, UpgradeFailed,
                     WifiFailure)
from .gateway import DataPoints, Device, Gateway, Report
from .provisioning import provision

__all__ = ["Announcement", "BadAnswer", "DataPoints", "Device", "Gateway", "LanError", "NotAccepted", "Refused",
           "Report", "Seeds", "TimedOut", "Unconfirmed", "UnknownDevice", "UpgradeFailed", "WifiFailure", "discover",
           "provision"]
