"""Failures of a job, carrying the French message shown to the user."""

from __future__ import annotations

from typing import Optional


class PipelineError(Exception):
    """A job failure: `message` for the user, `detail` for the logs."""

    def __init__(self, message: str, detail: Optional[str] = None) -> None:
        super().__init__(message)
        self.message = message
        self.detail = detail or message


class JobCancelled(Exception):
    """Raised inside a job's work once the job has been cancelled or the engine is stopping."""


INTERNAL_ERROR = "Erreur interne du moteur."
