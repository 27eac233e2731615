"""The job record and its statuses."""

from __future__ import annotations

import dataclasses
from dataclasses import dataclass, field
from enum import Enum
from typing import Any, Dict, List, Optional


class Status(str, Enum):
    QUEUED = "queued"
    DOWNLOADING = "downloading"
    ANALYZING = "analyzing"
    SEPARATING = "separating"
    PROCESSING = "processing"
    DONE = "done"
    ERROR = "error"
    CANCELLED = "cancelled"
    STOPPED = "stopped"

    @property
    def final(self) -> bool:
        return self in FINAL


FINAL = frozenset({Status.DONE, Status.ERROR, Status.CANCELLED, Status.STOPPED})

DEFAULT_TITLE = "Sans titre"


@dataclass
class Job:
    id: str
    created_at: float
    requested_stems: List[str]
    source: str                       # "file" or "url"
    title: str = DEFAULT_TITLE
    url: Optional[str] = None
    input_name: Optional[str] = None  # file name of the input inside the job folder
    status: Status = Status.QUEUED
    progress: float = 0.0
    stage: str = "En file d'attente…"
    updated_at: float = 0.0
    error: Optional[str] = None
    error_detail: Optional[str] = None
    favorite: bool = False
    stems: List[str] = field(default_factory=list)  # separated stems ready for download
    analysis: Optional[Dict[str, Any]] = None
    version: int = 0                  # bumped on every change; orders change events

    def record(self) -> Dict[str, Any]:
        """The job as the HTTP API sends it."""
        return {
            "job_id": self.id,
            "status": self.status.value,
            "progress": round(self.progress, 1),
            "stage": self.stage,
            "title": self.title,
            "created_at": self.created_at,
            "updated_at": self.updated_at,
            "stems": list(self.stems),
            "requested_stems": list(self.requested_stems),
            "analysis": dict(self.analysis) if self.analysis is not None else None,
            "error": self.error,
            "error_detail": self.error_detail,
            "favorite": self.favorite,
            "source": self.source,
            "url": self.url,
        }

    def to_json(self) -> Dict[str, Any]:
        data = dataclasses.asdict(self)
        data["status"] = self.status.value
        return data

    @classmethod
    def from_json(cls, data: Dict[str, Any]) -> "Job":
        known = {f.name for f in dataclasses.fields(cls)}
        values = {key: value for key, value in data.items() if key in known}
        values["status"] = Status(values.get("status", Status.QUEUED.value))
        return cls(**values)

    def copy(self) -> "Job":
        return dataclasses.replace(self, requested_stems=list(self.requested_stems),
                                   stems=list(self.stems),
                                   analysis=dict(self.analysis) if self.analysis else self.analysis)
