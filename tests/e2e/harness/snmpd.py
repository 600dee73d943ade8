"""Debian's snmpd as the supervisor, asked by Debian's snmpget, and network interfaces with traffic."""
import contextlib
import json
import os
import pathlib
import socket
import subprocess

from . import processes
from .paths import REPOSITORY


def get(*names):
    """Values as snmpget prints them, numbers without their type."""
    command = ["snmpget", "-v2c", "-c", "kivrel", "-Onqvt", "-r0", "-t2", "127.0.0.11", *names]
    found = subprocess.run(command, check=False, capture_output=True, text=True, env=dict(os.environ, MIBS=""))
    return found.stdout.split("\n")[:-1] if found.returncode == 0 else None


@contextlib.contextmanager
def running():
    """Serves on its address and port as long as the context lasts."""
    process = subprocess.Popen([REPOSITORY / "scripts" / "snmpd-supervisor"], stdin=subprocess.DEVNULL)
    try:
        processes.wait_until(lambda: get(".1.3.6.1.2.1.1.3.0"))
        yield
    finally:
        process.terminate()
        assert process.wait(processes.PATIENCE) == 0


@contextlib.contextmanager
def cable(left, right):
    """Two interfaces that are the ends of a cable, both up and silent."""
    subprocess.run(["ip", "link", "add", left, "type", "veth", "peer", "name", right], check=True)
    try:
        for name in (left, right):
            with contextlib.suppress(OSError):  # without IPv6 there is nothing to silence
                pathlib.Path(f"/proc/sys/net/ipv6/conf/{name}/disable_ipv6").write_text("1")
            subprocess.run(["ip", "link", "set", name, "up"], check=True)
        yield socket.if_nametoindex(left), socket.if_nametoindex(right)
    finally:
        subprocess.run(["ip", "link", "delete", left], check=True)


def send(name, frames, size):
    """Send unicast frames of this many bytes out of an interface."""
    frame = (b"\2\0\0\0\0\2" + b"\2\0\0\0\0\1" + b"\x88\xb5").ljust(size, b"\0")
    with socket.socket(socket.AF_PACKET, socket.SOCK_RAW) as sock:
        sock.bind((name, 0))
        for _ in range(frames):
            sock.send(frame)


def counters(name):
    """(octets, packets) in and out, as the kernel has them."""
    shown = json.loads(subprocess.check_output(["ip", "-json", "-stats", "link", "show", name]))[0]["stats64"]
    return tuple(shown[way][what] for way in ("rx", "tx") for what in ("bytes", "packets"))
