"""Integrated loudness (ITU-R BS.1770-4, gated) and sample peak."""

from __future__ import annotations

import math
from typing import List, Optional, Tuple

import numpy as np
from scipy.signal import lfilter

_BLOCK_SECONDS = 0.4
_STEP_SECONDS = 0.1
_ABSOLUTE_GATE = -70.0
_RELATIVE_GATE = -10.0
_OFFSET = -0.691

# The K-weighting pre-filter (a high shelf) and RLB high-pass, as analog prototypes that give the
# Recommendation's published 48 kHz coefficients and carry them to any sample rate.
_SHELF_HZ, _SHELF_GAIN_DB, _SHELF_Q = 1681.974450955533, 3.999843853973347, 0.7071752369554196
_SHELF_BANDWIDTH_EXP = 0.4996667741545416
_HIGHPASS_HZ, _HIGHPASS_Q = 38.13547087602444, 0.5003270373238773

Biquad = Tuple[np.ndarray, np.ndarray]


def k_weighting(rate: float) -> List[Biquad]:
    k = math.tan(math.pi * _SHELF_HZ / rate)
    vh = 10.0 ** (_SHELF_GAIN_DB / 20.0)
    vb = vh ** _SHELF_BANDWIDTH_EXP
    a0 = 1.0 + k / _SHELF_Q + k * k
    shelf = (np.array([(vh + vb * k / _SHELF_Q + k * k) / a0, 2.0 * (k * k - vh) / a0,
                       (vh - vb * k / _SHELF_Q + k * k) / a0]),
             np.array([1.0, 2.0 * (k * k - 1.0) / a0, (1.0 - k / _SHELF_Q + k * k) / a0]))
    k = math.tan(math.pi * _HIGHPASS_HZ / rate)
    a0 = 1.0 + k / _HIGHPASS_Q + k * k
    highpass = (np.array([1.0, -2.0, 1.0]),
                np.array([1.0, 2.0 * (k * k - 1.0) / a0, (1.0 - k / _HIGHPASS_Q + k * k) / a0]))
    return [shelf, highpass]


def block_powers(samples: np.ndarray, rate: float) -> np.ndarray:
    """Mean square of the K-weighted signal per 400 ms block (75 % overlap), summed over channels."""
    filtered = np.atleast_2d(np.asarray(samples, dtype=np.float64))
    for b, a in k_weighting(rate):
        filtered = lfilter(b, a, filtered, axis=-1)
    block = int(round(_BLOCK_SECONDS * rate))
    step = int(round(_STEP_SECONDS * rate))
    length = filtered.shape[1]
    if length < block:
        return np.zeros(0)
    energy = np.zeros((filtered.shape[0], length + 1))
    np.cumsum(filtered ** 2, axis=1, out=energy[:, 1:])
    starts = np.arange(0, length - block + 1, step)
    return ((energy[:, starts + block] - energy[:, starts]) / block).sum(axis=0)


def _loudness(power):
    return _OFFSET + 10.0 * np.log10(power)


def integrated_loudness(samples: np.ndarray, rate: float) -> Optional[float]:
    """Gated integrated loudness in LUFS; None for silence or less than one block."""
    powers = block_powers(samples, rate)
    with np.errstate(divide="ignore"):
        levels = _loudness(powers)
    above_absolute = powers[levels > _ABSOLUTE_GATE]
    if above_absolute.size == 0:
        return None
    relative_gate = _loudness(above_absolute.mean()) + _RELATIVE_GATE
    gated = powers[(levels > _ABSOLUTE_GATE) & (levels > relative_gate)]
    return float(_loudness(gated.mean()))


def sample_peak_db(samples: np.ndarray) -> Optional[float]:
    """Largest absolute sample in dBFS; None for digital silence."""
    peak = float(np.max(np.abs(samples))) if np.size(samples) else 0.0
    return 20.0 * math.log10(peak) if peak > 0.0 else None
