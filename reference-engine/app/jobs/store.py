"""Jobs in memory, each mirrored to {jobs folder}/{id}/job.json when the library persists."""

from __future__ import annotations

import json
import logging
import os
import shutil
import threading
import time
import uuid
from pathlib import Path
from typing import Any, Dict, List, Optional, Tuple

from .events import GONE, JobEvents
from .model import DEFAULT_TITLE, FINAL, Job, Status

log = logging.getLogger("engine")

RECORD_FILE = "job.json"
TRASH_FOLDER = ".trash"
STOPPED_STAGE = "Arrêté : le moteur s'est arrêté pendant le traitement"


class JobStore:
    def __init__(self, root: Path, persist: bool, events: JobEvents) -> None:
        self.root = Path(root)
        self.persist = persist
        self.events = events
        self._lock = threading.RLock()
        self._jobs: Dict[str, Job] = {}

    # Folders

    def folder(self, job_id: str) -> Path:
        return self.root / job_id

    @property
    def trash_folder(self) -> Path:
        return self.root / TRASH_FOLDER

    def reserve(self) -> Tuple[str, Path]:
        """A new job identifier and its empty folder, before the job is registered."""
        job_id = uuid.uuid4().hex
        folder = self.folder(job_id)
        folder.mkdir(parents=True, exist_ok=False)
        return job_id, folder

    def release(self, job_id: str) -> None:
        """Drops a reserved folder whose job was never created."""
        with self._lock:
            if job_id not in self._jobs:
                shutil.rmtree(self.folder(job_id), ignore_errors=True)

    # Start-up

    def load(self) -> int:
        """Reads the library; jobs that were running when the engine stopped become "stopped"."""
        with self._lock:
            self._jobs.clear()
            if not self.persist:
                shutil.rmtree(self.root, ignore_errors=True)
            self.root.mkdir(parents=True, exist_ok=True)
            if not self.persist:
                return 0
            for entry in sorted(self.root.iterdir()):
                if entry.name.startswith(".") or not entry.is_dir():
                    continue
                job = self._read(entry / RECORD_FILE)
                if job is None or job.id != entry.name:
                    continue
                if job.status not in FINAL:
                    job.status = Status.STOPPED
                    job.stage = STOPPED_STAGE
                    job.updated_at = time.time()
                    self._write(job)
                self._jobs[job.id] = job
            return len(self._jobs)

    def _read(self, path: Path) -> Optional[Job]:
        try:
            return Job.from_json(json.loads(path.read_text(encoding="utf-8")))
        except (OSError, ValueError, TypeError, KeyError) as error:
            if path.exists():
                log.warning("Unreadable job record %s: %s", path, error)
            return None

    def _write(self, job: Job) -> None:
        if not self.persist:
            return
        path = self.folder(job.id) / RECORD_FILE
        temporary = path.with_name(RECORD_FILE + ".part")
        try:
            temporary.write_text(json.dumps(job.to_json(), ensure_ascii=False, indent=1),
                                 encoding="utf-8")
            os.replace(temporary, path)
        except OSError as error:
            log.warning("Cannot save job %s: %s", job.id, error)

    # Changes

    def _changed(self, job: Job) -> None:
        job.version += 1
        job.updated_at = time.time()
        self._write(job)
        self.events.publish(job.id, (job.version, job.record()))

    def create(self, job_id: str, *, requested_stems: List[str], source: str,
               title: Optional[str] = None, url: Optional[str] = None,
               input_name: Optional[str] = None) -> Job:
        job = Job(id=job_id, created_at=time.time(), requested_stems=list(requested_stems),
                  source=source, title=title or DEFAULT_TITLE, url=url, input_name=input_name)
        with self._lock:
            self._jobs[job_id] = job
            self._changed(job)
            return job.copy()

    def update(self, job_id: str, **fields: Any) -> bool:
        """Applies changes to a running job. Final jobs never change and progress never goes back.

        Returns False when the job is gone or already final."""
        with self._lock:
            job = self._jobs.get(job_id)
            if job is None or job.status in FINAL:
                return False
            if "progress" in fields:
                fields["progress"] = max(job.progress, min(100.0, float(fields["progress"])))
            if all(getattr(job, name) == value for name, value in fields.items()):
                return True
            for name, value in fields.items():
                setattr(job, name, value)
            self._changed(job)
            return True

    def finish(self, job_id: str, status: Status, stage: str, **fields: Any) -> bool:
        if status not in FINAL:
            raise ValueError(f"{status} is not a final status")
        return self.update(job_id, status=status, stage=stage, **fields)

    def trash(self, job_id: str) -> bool:
        with self._lock:
            job = self._jobs.pop(job_id, None)
            if job is None:
                return False
            source = self.folder(job_id)
            if self.persist and source.exists():
                target = self.trash_folder / job_id
                shutil.rmtree(target, ignore_errors=True)
                try:
                    self.trash_folder.mkdir(parents=True, exist_ok=True)
                    os.replace(source, target)
                except OSError as error:
                    log.warning("Cannot move job %s to the trash: %s", job_id, error)
                    shutil.rmtree(source, ignore_errors=True)
            else:
                shutil.rmtree(source, ignore_errors=True)
            self.events.publish(job_id, (0, GONE))
            return True

    # Reading

    def get(self, job_id: str) -> Optional[Job]:
        with self._lock:
            job = self._jobs.get(job_id)
            return job.copy() if job else None

    def snapshot(self, job_id: str) -> Optional[Tuple[int, Dict[str, Any]]]:
        with self._lock:
            job = self._jobs.get(job_id)
            return (job.version, job.record()) if job else None

    def records(self) -> List[Dict[str, Any]]:
        """Every job, newest first."""
        with self._lock:
            jobs = sorted(self._jobs.values(), key=lambda job: job.created_at, reverse=True)
            return [job.record() for job in jobs]
