"""Error answers: 422 with a validation list, 404 with a "detail" text."""

from __future__ import annotations

from typing import Any, Dict, List, Sequence

from fastapi import FastAPI, HTTPException, Request
from fastapi.responses import JSONResponse


class RequestInvalid(Exception):
    """A request that fails validation; answered 422 like FastAPI's own validation errors."""

    def __init__(self, errors: List[Dict[str, Any]]) -> None:
        super().__init__("; ".join(error["msg"] for error in errors))
        self.errors = errors


def invalid(loc: Sequence[str], msg: str, kind: str = "value_error") -> Dict[str, Any]:
    return {"loc": list(loc), "msg": msg, "type": kind}


def job_not_found(job_id: str) -> HTTPException:
    return HTTPException(status_code=404, detail=f"Job introuvable : {job_id}")


def install(app: FastAPI) -> None:
    @app.exception_handler(RequestInvalid)
    async def _request_invalid(request: Request, error: RequestInvalid) -> JSONResponse:
        return JSONResponse(status_code=422, content={"detail": error.errors})
