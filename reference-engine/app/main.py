"""The ASGI application: `uvicorn app.main:app`."""

from __future__ import annotations

import asyncio
import logging
import sys
from typing import Optional

from fastapi import FastAPI

from . import __version__
from .api import errors, events, health, jobs, stems
from .config import Settings
from .engine import Engine
from .parent import watch_parent
from .pipeline.worker import StageHook

log = logging.getLogger("engine")


def _configure_logging() -> None:
    if not log.handlers:
        handler = logging.StreamHandler(sys.stdout)
        handler.setFormatter(logging.Formatter("[engine] %(levelname)s %(message)s"))
        log.addHandler(handler)
        log.setLevel(logging.INFO)
        log.propagate = False


def create_app(settings: Optional[Settings] = None,
               on_stage: Optional[StageHook] = None) -> FastAPI:
    _configure_logging()
    settings = settings or Settings.from_env()
    engine = Engine.build(settings, on_stage)
    app = FastAPI(title="Reference separation engine", version=__version__)
    app.state.engine = engine
    errors.install(app)
    for module in (health, jobs, stems, events):
        app.include_router(module.router)
    tasks = []

    @app.on_event("startup")
    async def _start() -> None:
        count = engine.store.load()
        engine.runner.start()
        if settings.parent_pid:
            tasks.append(asyncio.create_task(
                watch_parent(settings.parent_pid, settings.parent_poll_sec)))
        log.info("Engine %s ready: %d job(s) in %s, ffmpeg %s", settings.version, count,
                 settings.jobs_dir, settings.ffmpeg or "absent")

    @app.on_event("shutdown")
    async def _stop() -> None:
        for task in tasks:
            task.cancel()
        await asyncio.get_running_loop().run_in_executor(None, engine.runner.stop)

    return app


app = create_app()
