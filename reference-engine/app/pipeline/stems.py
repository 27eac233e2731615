"""Writing a job's stems as 16-bit WAV files whose samples add up exactly to the original's."""

from __future__ import annotations

from pathlib import Path
from typing import Callable, Dict, Iterable, List

import numpy as np

from ..audio.wav import quantize, write_pcm16
from ..dsp.separation import RESIDUAL_STEM
from ..kinds import ORIGINAL

STEMS_FOLDER = "stems"


def stem_path(job_folder: Path, kind: str) -> Path:
    return job_folder / STEMS_FOLDER / f"{kind}.wav"


def exact_pcm(original: np.ndarray, stems: Dict[str, np.ndarray]) -> Dict[str, np.ndarray]:
    """int16 stems plus "original"; the residual stem is re-derived in integers so that the
    stems sum to the original sample for sample (unless the residual itself clips)."""
    pcm = {ORIGINAL: quantize(original)}
    total = np.zeros(pcm[ORIGINAL].shape, dtype=np.int32)
    for kind, samples in stems.items():
        if kind == RESIDUAL_STEM:
            continue
        pcm[kind] = quantize(samples)
        total += pcm[kind]
    residual = pcm[ORIGINAL].astype(np.int32) - total
    pcm[RESIDUAL_STEM] = np.clip(residual, -32768, 32767).astype(np.int16)
    return pcm


def write_stems(job_folder: Path, original: np.ndarray, stems: Dict[str, np.ndarray],
                wanted: Iterable[str], sample_rate: int,
                progress: Callable[[float], None] = lambda fraction: None) -> List[str]:
    """Writes the original and the wanted stems; returns the wanted stems in the given order."""
    folder = job_folder / STEMS_FOLDER
    folder.mkdir(parents=True, exist_ok=True)
    pcm = exact_pcm(original, stems)
    wanted = [kind for kind in wanted if kind in pcm]
    kinds = [ORIGINAL] + wanted
    for index, kind in enumerate(kinds):
        write_pcm16(stem_path(job_folder, kind), pcm[kind], sample_rate)
        progress((index + 1) / len(kinds))
    return wanted
