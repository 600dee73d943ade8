"""The control pipe: 12-byte messages of three little-endian 32-bit words, as the web pages send
them. Opening it never waits: without a daemon behind it, that is an error (ENXIO)."""
import os
import struct

from .paths import PIPE

TERMINATE, INTERVAL, VIEWING, CREATE, DESTROY, RELOAD, RESCAN, IGNORED = range(8)


def message(kind, word=0, index=0):
    return struct.pack("<III", kind, word & 0xFFFFFFFF, index)


def send_bytes(data):
    """Write these bytes with one write, or with as few as keep messages whole: the kernel may cut
    what is longer than 4,096 bytes anywhere, and the daemon would read the rest as other messages."""
    pipe = os.open(PIPE, os.O_WRONLY | os.O_NONBLOCK)
    try:
        os.set_blocking(pipe, True)
        for at in range(0, len(data), 4092):
            assert os.write(pipe, data[at:at + 4092]) == len(data[at:at + 4092])
    finally:
        os.close(pipe)


def send(kind, word=0, index=0):
    send_bytes(message(kind, word, index))
