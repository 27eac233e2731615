"""Mono mix-down at the analysis rate."""

from __future__ import annotations

from math import gcd
from typing import Tuple

import numpy as np
from scipy.signal import resample_poly

ANALYSIS_RATE = 22050


def mono_at(samples: np.ndarray, rate: int, target: int = ANALYSIS_RATE) -> Tuple[np.ndarray, int]:
    mono = np.atleast_2d(np.asarray(samples, dtype=np.float32)).mean(axis=0)
    if rate == target:
        return mono, rate
    common = gcd(int(rate), int(target))
    return resample_poly(mono, target // common, int(rate) // common).astype(np.float32), target
