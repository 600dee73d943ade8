"""File systems over the data directory that are small, absent or read-only."""
import contextlib
import subprocess

from .paths import DATA

PAGE = 4096


@contextlib.contextmanager
def mounted(*arguments, on=DATA):
    subprocess.run(["mount", *arguments, str(on)], check=True)
    try:
        yield
    finally:
        subprocess.run(["umount", "-l", str(on)], check=True)


def small():
    """A file system of a mebibyte, to be resized."""
    return mounted("-t", "tmpfs", "-o", "mode=777,size=1m", "tmpfs")


def resize(pages):
    """Of `small`. At least one page: 0 would lift the limit."""
    # Naming the source changes only the size: an ordinary user may not repeat the owner.
    subprocess.run(["mount", "-o", f"remount,size={pages * PAGE}", "tmpfs", str(DATA)], check=True)


def pages(data):
    return -(-len(data) // PAGE)
