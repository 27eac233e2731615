"""GET /api/health."""

from __future__ import annotations

from typing import Any, Dict

from fastapi import APIRouter, Depends

from ..engine import Engine, get_engine

router = APIRouter()


@router.get("/api/health")
async def health(engine: Engine = Depends(get_engine)) -> Dict[str, Any]:
    settings = engine.settings
    return {
        "status": "ok",
        "version": settings.version,
        "ffmpeg_configured": settings.ffmpeg_configured(),
        "demucs_device": settings.device,
    }
