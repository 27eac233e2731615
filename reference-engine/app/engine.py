"""The engine's parts, built once per application."""

from __future__ import annotations

from dataclasses import dataclass
from typing import Optional

from fastapi import Request

from .config import Settings
from .jobs.events import JobEvents
from .jobs.runner import JobRunner
from .jobs.store import JobStore
from .pipeline.worker import ProcessExecutor, StageHook, prepare


@dataclass
class Engine:
    settings: Settings
    events: JobEvents
    store: JobStore
    runner: JobRunner

    @classmethod
    def build(cls, settings: Settings, on_stage: Optional[StageHook] = None) -> "Engine":
        events = JobEvents()
        store = JobStore(settings.jobs_dir, settings.persist_library, events)
        runner = JobRunner(store, ProcessExecutor(settings, store, on_stage), on_start=prepare)
        return cls(settings, events, store, runner)


def get_engine(request: Request) -> Engine:
    """Route dependency: the engine of the application serving the request."""
    return request.app.state.engine
