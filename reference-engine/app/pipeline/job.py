"""One job from its input to its stems: the stage sequence and the progress it reports."""

from __future__ import annotations

import logging
from pathlib import Path
from typing import Callable, Optional

from ..analysis import analyze
from ..audio.decode import decode, probe_duration
from ..config import Settings
from ..dsp.separation import Separator
from ..errors import JobCancelled, PipelineError
from ..jobs.model import DEFAULT_TITLE, Status
from ..jobs.runner import CancelToken
from ..jobs.store import JobStore
from .fetch import fetch
from .stems import write_stems

log = logging.getLogger("engine")

StageHook = Callable[[str, Status], None]

# Progress range of each stage, in percent.
_DOWNLOAD = (1.0, 10.0)
_ANALYSIS = (10.0, 25.0)
_SEPARATION = (25.0, 85.0)
_WRITING = (85.0, 99.0)
_MIN_STEP = 0.5  # smallest progress change worth an event


def clock_text(seconds: float) -> str:
    seconds = int(round(seconds))
    return f"{seconds // 60}:{seconds % 60:02d}"


class _Stage:
    """Reports progress within one stage's range, at most every half percent."""

    def __init__(self, store: JobStore, job_id: str, span) -> None:
        self._store, self._job_id = store, job_id
        self._start, self._end = span
        self._last = -1.0

    def __call__(self, fraction: float) -> None:
        value = self._start + (self._end - self._start) * max(0.0, min(1.0, fraction))
        if value - self._last >= _MIN_STEP or (fraction >= 1.0 and value > self._last):
            self._last = value
            self._store.update(self._job_id, progress=value)


class JobPipeline:
    def __init__(self, settings: Settings, store: JobStore,
                 on_stage: Optional[StageHook] = None) -> None:
        self.settings = settings
        self.store = store
        self.on_stage = on_stage or (lambda job_id, status: None)
        self.separator = Separator()

    def _enter(self, job_id: str, token: CancelToken, status: Status, stage: str,
               progress: float) -> None:
        token.check()
        if not self.store.update(job_id, status=status, stage=stage, progress=progress):
            raise JobCancelled()  # cancelled or trashed meanwhile
        self.on_stage(job_id, status)
        token.check()

    def _check_duration(self, seconds: Optional[float]) -> None:
        limit = self.settings.max_duration_sec
        if limit is not None and seconds is not None and seconds > limit + 0.5:
            raise PipelineError(
                f"Morceau trop long ({clock_text(seconds)}) : la durée maximale est de "
                f"{clock_text(limit)}.",
                f"durée {seconds:.1f} s > HALVORN_MAX_DURATION_SEC={limit:g}")

    def __call__(self, job_id: str, token: CancelToken) -> None:
        job = self.store.get(job_id)
        if job is None:
            return
        folder = self.store.folder(job_id)

        if job.source == "url":
            self._enter(job_id, token, Status.DOWNLOADING, "Téléchargement de l'audio…",
                        _DOWNLOAD[0])
            path, title = fetch(job.url, folder, _Stage(self.store, job_id, _DOWNLOAD),
                                token.check)
            changes = {"input_name": path.name}
            if title and job.title in (DEFAULT_TITLE, ""):
                changes["title"] = title
            self.store.update(job_id, **changes)
        else:
            path = folder / (job.input_name or "")
            if not job.input_name or not path.is_file():
                raise PipelineError("Le fichier envoyé est introuvable.", str(path))

        self._enter(job_id, token, Status.ANALYZING, "Lecture du fichier audio…", _ANALYSIS[0])
        self._check_duration(probe_duration(self.settings.ffprobe, path))
        audio = decode(self.settings.ffmpeg, Path(path))
        self._check_duration(audio.duration)
        token.check()
        self.store.update(job_id, stage="Analyse du tempo, de la tonalité et du volume…",
                          progress=_ANALYSIS[0] + 2.0)
        analysis = analyze(audio.samples, audio.sample_rate)
        self.store.update(job_id, analysis=analysis, progress=_ANALYSIS[1])

        self._enter(job_id, token, Status.SEPARATING, "Séparation des pistes…", _SEPARATION[0])
        stems = self.separator.separate(audio.samples, audio.sample_rate,
                                        progress=_Stage(self.store, job_id, _SEPARATION),
                                        check=token.check)

        self._enter(job_id, token, Status.PROCESSING, "Écriture des pistes…", _WRITING[0])
        written = write_stems(folder, audio.samples, stems, job.requested_stems,
                              audio.sample_rate, progress=_Stage(self.store, job_id, _WRITING))
        token.check()
        self.store.finish(job_id, Status.DONE, "Terminé", stems=written, progress=100.0)
        log.info("Job %s done: %s", job_id, ", ".join(written))
