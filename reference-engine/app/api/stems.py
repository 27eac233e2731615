"""GET /api/jobs/{id}/stems/{kind}.wav."""

from __future__ import annotations

from fastapi import APIRouter, Depends, HTTPException
from fastapi.responses import FileResponse

from ..kinds import DOWNLOADABLE_STEMS, ORIGINAL
from ..engine import Engine, get_engine
from ..pipeline.stems import stem_path
from .errors import job_not_found

router = APIRouter()


@router.get("/api/jobs/{job_id}/stems/{file_name}")
async def download_stem(job_id: str, file_name: str,
                        engine: Engine = Depends(get_engine)) -> FileResponse:
    job = engine.store.get(job_id)
    if job is None:
        raise job_not_found(job_id)
    kind, dot, extension = file_name.rpartition(".")
    if not dot or extension != "wav" or kind not in DOWNLOADABLE_STEMS:
        raise HTTPException(status_code=404, detail=f"Piste inconnue : {file_name}")
    path = stem_path(engine.store.folder(job_id), kind)
    if (kind != ORIGINAL and kind not in job.stems) or not path.is_file():
        raise HTTPException(status_code=404, detail=f"Piste {kind} indisponible pour ce job")
    return FileResponse(path, media_type="audio/wav", filename=f"{kind}.wav")
