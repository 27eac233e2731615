"""Ending the engine when the process that launched it is gone."""

from __future__ import annotations

import asyncio
import logging
import os
import signal
from typing import Callable

log = logging.getLogger("engine")


def process_alive(pid: int) -> bool:
    try:
        os.kill(pid, 0)
    except ProcessLookupError:
        return False
    except PermissionError:
        return True
    try:
        with open(f"/proc/{pid}/stat", "rb") as stat:
            state = stat.read().rsplit(b")", 1)[1].split()[0]
        return state not in (b"Z", b"X")  # a zombie has already ended
    except (OSError, IndexError):
        return True


def stop_this_process() -> None:
    """Asks the server for its usual graceful shutdown."""
    os.kill(os.getpid(), signal.SIGTERM)


async def watch_parent(pid: int, interval: float,
                       on_gone: Callable[[], None] = stop_this_process) -> None:
    while process_alive(pid):
        await asyncio.sleep(interval)
    log.info("Parent process %d is gone: stopping", pid)
    on_gone()
