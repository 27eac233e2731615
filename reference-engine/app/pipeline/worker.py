"""Runs a job's pipeline in a child process and applies what it reports to the job store.

A child process keeps long numerical work from stalling the server (some of it holds the
interpreter lock for seconds), lets a cancelled job stop at once, and returns its memory when the
job ends. Children are forked from a server process that has the numerical modules loaded."""

from __future__ import annotations

import multiprocessing
import multiprocessing.forkserver
import os
import threading
import traceback
from pathlib import Path
from typing import Callable, Optional

from ..config import Settings
from ..errors import INTERNAL_ERROR, JobCancelled, PipelineError
from ..jobs.model import Job, Status
from ..jobs.runner import CancelToken
from ..jobs.store import JobStore

StageHook = Callable[[str, Status], None]

_context = multiprocessing.get_context("forkserver")
_context.set_forkserver_preload([f"{__package__}.job"])

UNEXPECTED_END = "Le traitement s'est arrêté de façon inattendue."


class _ParentGone(Exception):
    """The parent stopped listening (job cancelled, engine stopping): the child just ends."""


def child_main(settings: Settings, job: Job, folder: str, connection) -> None:
    from .job import JobPipeline

    def send(message) -> None:
        try:
            connection.send(message)
        except OSError as error:
            raise _ParentGone() from error

    try:
        JobPipeline(settings).run(job, Path(folder), lambda **fields: send(("update", fields)))
    except _ParentGone:
        pass
    except PipelineError as error:
        send(("error", error.message, error.detail))
    except BaseException as error:  # noqa: BLE001 - reported to the parent, then the child ends
        send(("error", INTERNAL_ERROR,
              f"{type(error).__name__}: {error}\n{traceback.format_exc(limit=-4)}"))
    finally:
        connection.close()


_ENGINE_ROOT = str(Path(__file__).resolve().parents[2])
_server_lock = threading.Lock()


def prepare() -> None:
    """Starts the fork server, with the pipeline's modules loaded, unless it runs already.

    The server imports them from its own search path, which holds the engine folder only when it
    is the working folder: it is put on PYTHONPATH for the server's start."""
    with _server_lock:
        previous = os.environ.get("PYTHONPATH")
        os.environ["PYTHONPATH"] = os.pathsep.join(filter(None, [_ENGINE_ROOT, previous]))
        try:
            multiprocessing.forkserver.ensure_running()
        finally:
            if previous is None:
                del os.environ["PYTHONPATH"]
            else:
                os.environ["PYTHONPATH"] = previous


class ProcessExecutor:
    def __init__(self, settings: Settings, store: JobStore,
                 on_stage: Optional[StageHook] = None, poll_sec: float = 0.05) -> None:
        self.settings = settings
        self.store = store
        self.on_stage = on_stage or (lambda job_id, status: None)
        self.poll_sec = poll_sec

    def __call__(self, job_id: str, token: CancelToken) -> None:
        job = self.store.get(job_id)
        if job is None:
            return
        prepare()
        receiver, sender = _context.Pipe(duplex=False)
        child = _context.Process(
            target=child_main, name=f"job-{job_id[:8]}", daemon=True,
            args=(self.settings, job, str(self.store.folder(job_id)), sender))
        child.start()
        sender.close()
        try:
            self._follow(job, token, receiver, child)
        finally:
            if child.is_alive():
                child.kill()
            child.join()
            receiver.close()

    @staticmethod
    def _ended(child) -> PipelineError:
        child.join(1.0)
        return PipelineError(UNEXPECTED_END,
                             f"processus de travail {child.name} terminé (code {child.exitcode})")

    def _follow(self, job: Job, token: CancelToken, receiver, child) -> None:
        status = job.status
        while True:
            token.check()
            if not receiver.poll(self.poll_sec):
                if child.is_alive() or receiver.poll():
                    continue
                raise self._ended(child)
            try:
                message = receiver.recv()
            except EOFError:
                raise self._ended(child) from None
            if message[0] == "error":
                raise PipelineError(message[1], message[2])
            fields = message[1]
            if not self.store.update(job.id, **fields):
                raise JobCancelled()  # cancelled or trashed meanwhile
            if fields.get("status", status) != status:
                status = fields["status"]
                self.on_stage(job.id, status)
            if status.final:
                return
