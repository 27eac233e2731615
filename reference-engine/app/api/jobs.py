"""Job routes: create, list, read, cancel, trash."""

from __future__ import annotations

import shutil
from typing import Any, Dict, List

from fastapi import APIRouter, Depends, Request
from starlette.concurrency import run_in_threadpool

from ..engine import Engine, get_engine
from ..jobs.model import Status
from ..names import safe_extension, title_from_file_name, title_from_url
from .create_request import read_create_request
from .errors import RequestInvalid, invalid, job_not_found

router = APIRouter(prefix="/api/jobs")

CANCELLED_STAGE = "Annulé"


def _save_upload(upload, path) -> int:
    with open(path, "wb") as out:
        shutil.copyfileobj(upload.file, out, 1 << 20)
        return out.tell()


@router.post("")
async def create_job(request: Request, engine: Engine = Depends(get_engine)) -> Dict[str, Any]:
    body = await read_create_request(request)
    store = engine.store
    job_id, folder = store.reserve()
    try:
        if body.upload is not None:
            name = "input" + (safe_extension(body.upload.filename or "") or ".audio")
            size = await run_in_threadpool(_save_upload, body.upload, folder / name)
            if size == 0:
                raise RequestInvalid([invalid(("body", "file"), "le fichier envoyé est vide")])
            job = store.create(job_id, requested_stems=body.stems, source="file",
                               title=title_from_file_name(body.upload.filename or ""),
                               input_name=name)
        else:
            job = store.create(job_id, requested_stems=body.stems, source="url",
                               title=title_from_url(body.url), url=body.url)
    except BaseException:
        store.release(job_id)
        raise
    finally:
        if body.upload is not None:
            await body.upload.close()
    engine.runner.submit(job_id)
    return {"job_id": job.id, "status": job.status.value}


@router.get("")
async def list_jobs(engine: Engine = Depends(get_engine)) -> List[Dict[str, Any]]:
    return engine.store.records()


@router.get("/{job_id}")
async def read_job(job_id: str, engine: Engine = Depends(get_engine)) -> Dict[str, Any]:
    snapshot = engine.store.snapshot(job_id)
    if snapshot is None:
        raise job_not_found(job_id)
    return snapshot[1]


@router.post("/{job_id}/cancel")
async def cancel_job(job_id: str, engine: Engine = Depends(get_engine)) -> Dict[str, Any]:
    if engine.store.get(job_id) is None:
        raise job_not_found(job_id)
    engine.store.finish(job_id, Status.CANCELLED, CANCELLED_STAGE)
    engine.runner.cancel(job_id)
    snapshot = engine.store.snapshot(job_id)
    if snapshot is None:
        raise job_not_found(job_id)
    return snapshot[1]


@router.post("/{job_id}/trash")
async def trash_job(job_id: str, engine: Engine = Depends(get_engine)) -> Dict[str, Any]:
    job = engine.store.get(job_id)
    if job is None:
        raise job_not_found(job_id)
    if not job.status.final:
        engine.store.finish(job_id, Status.CANCELLED, CANCELLED_STAGE)
        engine.runner.cancel(job_id)
    if not engine.store.trash(job_id):
        raise job_not_found(job_id)
    return {"job_id": job_id, "trashed": True}
