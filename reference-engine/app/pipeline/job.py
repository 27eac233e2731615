"""One job from its input to its stems: the stage sequence and the progress it reports.

The pipeline only reports changes (`report(**fields)`); the job store applies them."""

from __future__ import annotations

import logging
from pathlib import Path
from typing import Callable, Optional

from ..analysis import analyze
from ..audio.decode import decode, probe_duration
from ..config import Settings
from ..dsp.separation import Separator
from ..errors import PipelineError
from ..jobs.model import Job, Status
from .fetch import fetch
from .stems import write_stems

log = logging.getLogger("engine")

Report = Callable[..., None]

# Progress range of each stage, in percent.
DOWNLOAD = (1.0, 10.0)
ANALYSIS = (10.0, 25.0)
SEPARATION = (25.0, 85.0)
WRITING = (85.0, 99.0)
_MIN_STEP = 0.5  # smallest progress change worth reporting


def clock_text(seconds: float) -> str:
    seconds = int(round(seconds))
    return f"{seconds // 60}:{seconds % 60:02d}"


class _Stage:
    """Reports progress within one stage's range, at most every half percent."""

    def __init__(self, report: Report, span) -> None:
        self._report = report
        self._start, self._end = span
        self._last = -1.0

    def __call__(self, fraction: float) -> None:
        value = self._start + (self._end - self._start) * max(0.0, min(1.0, fraction))
        if value - self._last >= _MIN_STEP or (fraction >= 1.0 and value > self._last):
            self._last = value
            self._report(progress=round(value, 2))


class JobPipeline:
    def __init__(self, settings: Settings) -> None:
        self.settings = settings
        self.separator = Separator()

    def _check_duration(self, seconds: Optional[float]) -> None:
        limit = self.settings.max_duration_sec
        if limit is not None and seconds is not None and seconds > limit:
            raise PipelineError(
                f"Morceau trop long ({clock_text(seconds)}) : la durée maximale est de "
                f"{clock_text(limit)}.",
                f"durée {seconds:.1f} s > HALVORN_MAX_DURATION_SEC={limit:g}")

    def _input(self, job: Job, folder: Path, report: Report) -> Path:
        if job.source == "url":
            report(status=Status.DOWNLOADING, stage="Téléchargement de l'audio…",
                   progress=DOWNLOAD[0])
            path, title = fetch(job.url, folder, _Stage(report, DOWNLOAD),
                                self.settings.ytdlp)
            # The page's or file's own title replaces the one made from the address.
            report(input_name=path.name, title=title or job.title)
            return path
        path = folder / (job.input_name or "")
        if not job.input_name or not path.is_file():
            raise PipelineError("Le fichier envoyé est introuvable.", str(path))
        return path

    def run(self, job: Job, folder: Path, report: Report) -> None:
        path = self._input(job, folder, report)

        report(status=Status.ANALYZING, stage="Lecture du fichier audio…", progress=ANALYSIS[0])
        if self.settings.max_duration_sec is not None:
            self._check_duration(probe_duration(self.settings.ffprobe, path))
        audio = decode(self.settings.ffmpeg, path)
        self._check_duration(audio.duration)
        report(stage="Analyse du tempo, de la tonalité et du volume…", progress=ANALYSIS[0] + 2)
        report(analysis=analyze(audio.samples, audio.sample_rate), progress=ANALYSIS[1])

        report(status=Status.SEPARATING, stage="Séparation des pistes…", progress=SEPARATION[0])
        stems = self.separator.separate(audio.samples, audio.sample_rate,
                                        progress=_Stage(report, SEPARATION))

        report(status=Status.PROCESSING, stage="Écriture des pistes…", progress=WRITING[0])
        written = write_stems(folder, audio.samples, stems, job.requested_stems,
                              audio.sample_rate, progress=_Stage(report, WRITING))
        report(status=Status.DONE, stage="Terminé", stems=written, progress=100.0)
        log.info("Job %s done: %s", job.id, ", ".join(written))
