"""Runs queued jobs one at a time on a background thread."""

from __future__ import annotations

import logging
import queue
import threading
import traceback
from typing import Callable, Dict, Optional

from ..errors import INTERNAL_ERROR, JobCancelled, PipelineError
from .model import Status
from .store import JobStore

log = logging.getLogger("engine")


class CancelToken:
    def __init__(self) -> None:
        self._event = threading.Event()

    def cancel(self) -> None:
        self._event.set()

    @property
    def cancelled(self) -> bool:
        return self._event.is_set()

    def check(self) -> None:
        if self._event.is_set():
            raise JobCancelled()


Work = Callable[[str, CancelToken], None]


class JobRunner:
    def __init__(self, store: JobStore, work: Work,
                 on_start: Callable[[], None] = lambda: None) -> None:
        self._store = store
        self._work = work
        self._on_start = on_start  # run first on the runner's thread
        self._queue: "queue.Queue[Optional[str]]" = queue.Queue()
        self._tokens: Dict[str, CancelToken] = {}
        self._lock = threading.Lock()
        self._stopping = False
        self._thread: Optional[threading.Thread] = None

    def start(self) -> None:
        self._thread = threading.Thread(target=self._loop, name="job-runner", daemon=True)
        self._thread.start()

    def stop(self, timeout: float = 0.5) -> None:
        """Interrupts the running job (left as it is, so that a restart reports it stopped)."""
        with self._lock:
            self._stopping = True
            for token in self._tokens.values():
                token.cancel()
        self._queue.put(None)
        if self._thread is not None:
            self._thread.join(timeout)

    def submit(self, job_id: str) -> None:
        with self._lock:
            self._tokens[job_id] = CancelToken()
        self._queue.put(job_id)

    def cancel(self, job_id: str) -> None:
        with self._lock:
            token = self._tokens.get(job_id)
        if token is not None:
            token.cancel()

    def _loop(self) -> None:
        self._on_start()
        while True:
            job_id = self._queue.get()
            if job_id is None or self._stopping:
                return
            with self._lock:
                token = self._tokens.get(job_id)
            job = self._store.get(job_id)
            try:
                if token is None or token.cancelled or job is None or job.status != Status.QUEUED:
                    continue
                self._run(job_id, token)
            finally:
                with self._lock:
                    self._tokens.pop(job_id, None)

    def _run(self, job_id: str, token: CancelToken) -> None:
        try:
            self._work(job_id, token)
        except JobCancelled:
            pass
        except PipelineError as error:
            log.error("Job %s failed: %s (%s)", job_id, error.message, error.detail)
            self._store.finish(job_id, Status.ERROR, "Échec", error=error.message,
                               error_detail=error.detail)
        except Exception as error:  # noqa: BLE001 - a job must never take the runner down
            if token.cancelled:  # its folder may have gone with it (trash, shutdown)
                return
            detail = f"{type(error).__name__}: {error}"
            log.error("Job %s crashed:\n%s", job_id, traceback.format_exc())
            self._store.finish(job_id, Status.ERROR, "Échec", error=INTERNAL_ERROR,
                               error_detail=detail)
