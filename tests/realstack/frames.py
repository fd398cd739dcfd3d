"""The readers' characteristics, and commands with their answers."""

from __future__ import annotations

import binascii

STANDARD_TX = "BA821001-3B5B-4654-85FE-E998B123ADEA"
STANDARD_RX = "BA821002-3B5B-4654-85FE-E998B123ADEA"
Q62T_RX = "FFF1"
Q62T_TX = "FFF2"

GET_READER_INFO = bytes.fromhex("bb00030001b17e6597")
# Commands of 45 bytes, which leave as 20, 20 and 5, and the answers of the readers' script: message type
# 01, the same code and payload. The second payload holds a preamble and an end mark.
STANDARD_COMMAND = bytes.fromhex(
    "bb00220025101112131415161718191a1b1c1d1e1f202122232425262728292a2b2c2d2e2f30313233347e8ae5"
)
STANDARD_ANSWER = (
    "bb01220025101112131415161718191a1b1c1d1e1f202122232425262728292a2b2c2d2e2f30313233347e4c36"
)
Q62T_COMMAND = bytes.fromhex(
    "bb00290025bb7e808182838485868788898a8b8c8d8e8f909192939495969798999a9b9c9d9e9fa0a1a27e9bd9"
)
Q62T_ANSWER = (
    "bb01290025bb7e808182838485868788898a8b8c8d8e8f909192939495969798999a9b9c9d9e9fa0a1a27e5d0a"
)


def pieces(size: int, answer: str) -> list[str]:
    """An answer as a KVR-Q62T reader's comes: cut into values of `size` bytes and a shorter last one."""
    return [answer[at : at + 2 * size] for at in range(0, len(answer), 2 * size)]


def build_frame(type: int, code: int, payload: bytes) -> bytes:
    """Not with the library, which builds and checks them as well."""
    body = bytes([type, code]) + len(payload).to_bytes(2, "big") + payload + b"\x7e"
    return b"\xbb" + body + binascii.crc_hqx(body, 0xFFFF).to_bytes(2, "big")


def exchange(code: int, length: int, start: int) -> tuple[bytes, str]:
    """A command of `length` bytes in all, whose payload counts up from `start`, and its answer."""
    payload = bytes((start + at) & 0xFF for at in range(length - 8))
    return build_frame(0x00, code, payload), build_frame(0x01, code, payload).hex()
