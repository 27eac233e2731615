"""Song analysis: tempo, key, loudness and peak, as sent in a job's "analysis" object."""

from __future__ import annotations

from typing import Dict

import numpy as np

from .key import estimate_key
from .loudness import integrated_loudness, sample_peak_db
from .tempo import estimate_bpm


def analyze(samples: np.ndarray, rate: int) -> Dict[str, object]:
    """The analysis record; a value that cannot be measured (silence, too short) is left out."""
    result: Dict[str, object] = {}
    bpm = estimate_bpm(samples, rate)
    if bpm is not None:
        result["bpm"] = round(bpm, 2)
    key = estimate_key(samples, rate)
    if key is not None:
        result.update(key=key.key, scale=key.scale, key_confidence=round(key.confidence, 3))
    lufs = integrated_loudness(samples, rate)
    if lufs is not None:
        result["integrated_lufs"] = round(lufs, 2)
    peak = sample_peak_db(samples)
    if peak is not None:
        result["sample_peak_db"] = round(peak, 2)
    return result
