"""The C interface (engr_lan_client.h) as ctypes sees it."""
from __future__ import annotations

import ctypes
import os
from ctypes import POINTER, c_bool, c_char_p, c_int, c_int64, c_size_t, c_uint16, c_uint32, c_uint64, c_void_p

OK, BAD_ARGUMENT, WIFI_FAILURE, UNCONFIRMED = 0, 100, 108, 109
CONNECTED, DISCONNECTED, ANSWER, PROGRESS, REPORT, ANNOUNCEMENT, UNREADABLE = range(1, 8)
ANSWER_ALWAYS, ANSWER_ON_FAILURE, ANSWER_ON_SUCCESS, ANSWER_NEVER = range(4)


class Announcement(ctypes.Structure):
    _fields_ = [("id", c_char_p), ("address", c_char_p), ("product_key", c_char_p), ("version", c_char_p),
                ("ability", c_int64), ("activated", c_bool), ("needs_wifi_setup", c_bool), ("interface_name", c_char_p)]


class Event(ctypes.Structure):
    _fields_ = [("kind", c_int), ("dropped", c_uint32), ("error", c_int), ("error_text", c_char_p),
                ("request", c_uint32), ("type", c_uint32), ("ret", c_uint32), ("payload", c_void_p),
                ("payload_bytes", c_size_t), ("done", c_uint64), ("total", c_uint64), ("pause_ms", c_uint32),
                ("result", c_int64), ("address", c_char_p), ("announcement", POINTER(Announcement))]


class Options(ctypes.Structure):
    _fields_ = [("size", c_size_t), ("interface_name", c_char_p), ("address", c_char_p), ("port", c_uint16),
                ("local_key", c_char_p), ("reconnect", c_bool), ("connect_timeout_ms", c_uint32),
                ("request_timeout_ms", c_uint32), ("key1_seed", c_char_p), ("key2_seed", c_char_p),
                ("key3_seed", c_char_p)]


class Network(ctypes.Structure):
    _fields_ = [("size", c_size_t), ("network", c_char_p), ("password", c_char_p), ("token", c_char_p),
                ("gateway_id", c_char_p), ("address", c_char_p), ("new_interface_name", c_char_p), ("plain", c_bool),
                ("force", c_bool), ("times", c_uint32), ("listen_ms", c_uint32), ("timeout_ms", c_uint32)]


library = ctypes.CDLL(os.environ.get("ENGR_LAN_CLIENT_LIBRARY", "libengr_lan_client.so.0"))


def _declare(name: str, result: object, *arguments: object) -> None:
    function = getattr(library, "engr_client_" + name)
    function.restype = result
    function.argtypes = arguments


for _kind in ("gateway", "discovery", "provisioning"):
    _declare("open_" + _kind, c_int, POINTER(Options), POINTER(c_void_p))
_declare("close", None, c_void_p)
_declare("descriptor", c_int, c_void_p)
_declare("next_event", POINTER(Event), c_void_p)
_declare("free_event", None, POINTER(Event))
_declare("request", c_int, c_void_p, c_uint32, c_char_p, c_size_t, c_uint32, POINTER(c_uint32))
_declare("devices", c_int, c_void_p, c_uint32, POINTER(c_uint32))
_declare("log", c_int, c_void_p, POINTER(c_uint32))
_declare("upgrade", c_int, c_void_p, c_char_p, c_char_p, c_char_p, c_bool, POINTER(c_uint32))
_declare("provision", c_int, c_void_p, POINTER(Network), POINTER(c_uint32))
_declare("error_name", c_char_p, c_int)
_declare("frame_type", c_uint32, c_char_p)
_declare("frame_type_name", c_char_p, c_uint32)
_declare("answer_rule_of", c_int, c_uint32)


def error_name(code: int) -> str:
    name: bytes = library.engr_client_error_name(code)
    return name.decode()
