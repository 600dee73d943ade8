"""File systems over the data directory that are absent or read-only."""
import contextlib
import subprocess

from .paths import DATA


@contextlib.contextmanager
def mounted(*arguments, on=DATA):
    subprocess.run(["mount", *arguments, str(on)], check=True)
    try:
        yield
    finally:
        subprocess.run(["umount", "-l", str(on)], check=True)
