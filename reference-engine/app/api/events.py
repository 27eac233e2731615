"""GET /api/jobs/{id}/events: the job's record as server-sent events until a final status."""

from __future__ import annotations

import asyncio
import json
from typing import Any, AsyncIterator, Dict

from fastapi import APIRouter, Depends
from fastapi.responses import StreamingResponse

from ..engine import Engine, get_engine
from ..jobs.events import GONE, JobEvents
from ..jobs.model import Status
from ..jobs.store import JobStore
from .errors import job_not_found

router = APIRouter()

KEEPALIVE = ": keep-alive\n\n"


def event_text(record: Dict[str, Any]) -> str:
    return "data: " + json.dumps(record, ensure_ascii=False, separators=(",", ":")) + "\n\n"


def _final(record: Dict[str, Any]) -> bool:
    return Status(record["status"]).final


async def job_event_stream(store: JobStore, events: JobEvents, job_id: str,
                           keepalive_sec: float) -> AsyncIterator[str]:
    """The current record at once, then every change; a comment after each quiet interval."""
    with events.subscribe(job_id) as changes:
        snapshot = store.snapshot(job_id)
        if snapshot is None:
            return
        sent_version, record = snapshot
        yield event_text(record)
        if _final(record):
            return
        while True:
            try:
                version, record = await asyncio.wait_for(changes.get(), keepalive_sec)
            except asyncio.TimeoutError:
                yield KEEPALIVE
                continue
            if record is GONE:
                return
            if version <= sent_version:
                continue
            sent_version = version
            yield event_text(record)
            if _final(record):
                return


@router.get("/api/jobs/{job_id}/events")
async def job_events(job_id: str, engine: Engine = Depends(get_engine)) -> StreamingResponse:
    if engine.store.get(job_id) is None:
        raise job_not_found(job_id)
    stream = job_event_stream(engine.store, engine.events, job_id, engine.settings.keepalive_sec)
    return StreamingResponse(stream, media_type="text/event-stream",
                             headers={"Cache-Control": "no-cache", "X-Accel-Buffering": "no"})
