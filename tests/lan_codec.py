"""Frames and keys of the protocol for the tests in Python, a codec apart from those of the programs."""
import ctypes
import hashlib
import os
import struct
import zlib

_nettle = ctypes.CDLL("libnettle.so")

FRM_AP_NW_CFG, FRM_TP_CMD, FRM_DP_REPORT, FRM_KEEPALIVE, FRM_LOCAL_DP_QUERY = 1, 7, 8, 9, 10
FRM_TOKEN_BIND, FRM_PERMIT_JOIN, FRM_WIFI_MODIFY, FRM_SCENE_CMD, FRM_DP_QUERY = 12, 14, 15, 17, 18
FRM_COM_SCENE_EXEC = FRM_UDP_DISCOVERY = 19  # the number means another thing on TCP
FRM_RAW_34, FRM_SUBDEVICE_UPDATE_RPT = 34, 233
FRM_GRP_OPER, FRM_GRP_EXEC, FRM_DEV_LINE_STAT, FRM_SCENE_LINKAGE = 208, 209, 224, 226
FRM_DEV_UPGRADE_INFO, FRM_DEV_UPGRADE, FRM_DOWNLOAD_FIRMWARE, FRM_UPGRADE_PERCENT_RPT = 229, 230, 231, 232
FRM_USER_BIND_REQ_ENGR, FRM_DEV_LIST, FRM_DEL_SUB_DEV, FRM_SUB_DEV_BIND_RPT, FRM_SCENE_OPER = 240, 241, 242, 243, 244
FRM_DOWNLOAD_CLOUD_CFG, FRM_DOWNLOAD_APP_CFG, FRM_READ_APP_CFG, FRM_SCENE_PANEL = 245, 246, 247, 248
FRM_GW_UNACTIVE, FRM_CHK_SOFT_VER, FRM_SET_CHANNEL, FRM_GET_CHANNEL, FRM_GET_LOG = 249, 250, 252, 253, 254

# Of the datagrams to an access point, of discovery, and of TCP while a gateway is not activated.
KEYS = {n: hashlib.md5(os.environ.get(f"ENGR_KEY{n}_SEED", f"engr-dev-seed-0{n}").encode()).digest()
        for n in (1, 2, 3)}


def encrypt(key, text):
    """AES-128-ECB with PKCS#7 padding."""
    padding = 16 - len(text) % 16
    data = text + bytes([padding]) * padding
    schedule, out = ctypes.create_string_buffer(256), ctypes.create_string_buffer(len(data))
    _nettle.nettle_aes128_set_encrypt_key(schedule, key)
    _nettle.nettle_aes128_encrypt(schedule, ctypes.c_size_t(len(data)), out, data)
    return out.raw


def decrypt(key, data):
    """The bytes that were encrypted, or None when the padding is wrong."""
    if not data or len(data) % 16:
        return None
    schedule, out = ctypes.create_string_buffer(256), ctypes.create_string_buffer(len(data))
    _nettle.nettle_aes128_set_decrypt_key(schedule, key)
    _nettle.nettle_aes128_decrypt(schedule, ctypes.c_size_t(len(data)), out, data)
    padding = out.raw[-1]
    is_padded = 1 <= padding <= 16 and out.raw.endswith(bytes([padding]) * padding)
    return out.raw[:-padding] if is_padded else None


def request(number, kind, payload=b""):
    """What an app sends."""
    body = struct.pack(">4I", 0x55AA, number, kind, len(payload) + 8) + payload
    return body + struct.pack(">II", zlib.crc32(body), 0xAA55)


def frame(number, kind, ret, payload=b""):
    """What a gateway sends. Its checksum covers the length modulo 65536."""
    body = struct.pack(">5I", 0x55AA, number, kind, len(payload) + 12, ret) + payload
    return body + struct.pack(">II", zlib.crc32(body[:len(body) % 65536]), 0xAA55)
