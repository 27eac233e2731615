"""Fan-out of job changes from any thread to the asyncio tasks streaming them."""

from __future__ import annotations

import asyncio
import threading
from contextlib import contextmanager
from typing import Any, Dict, Iterator, List, Tuple

GONE = object()  # published when a job leaves the store (trashed)

Change = Tuple[int, Any]  # (job version, wire record) or (0, GONE)


class JobEvents:
    def __init__(self) -> None:
        self._lock = threading.Lock()
        self._subscribers: Dict[str, List[Tuple[asyncio.AbstractEventLoop, asyncio.Queue]]] = {}

    @contextmanager
    def subscribe(self, job_id: str) -> Iterator[asyncio.Queue]:
        """A queue receiving every later change of the job; call from a running event loop."""
        entry = (asyncio.get_running_loop(), asyncio.Queue())
        with self._lock:
            self._subscribers.setdefault(job_id, []).append(entry)
        try:
            yield entry[1]
        finally:
            with self._lock:
                remaining = [e for e in self._subscribers.get(job_id, []) if e is not entry]
                if remaining:
                    self._subscribers[job_id] = remaining
                else:
                    self._subscribers.pop(job_id, None)

    def publish(self, job_id: str, change: Change) -> None:
        with self._lock:
            targets = list(self._subscribers.get(job_id, ()))
        for loop, queue in targets:
            try:
                loop.call_soon_threadsafe(queue.put_nowait, change)
            except RuntimeError:  # that loop has closed
                pass

    def subscriber_count(self, job_id: str) -> int:
        with self._lock:
            return len(self._subscribers.get(job_id, ()))
