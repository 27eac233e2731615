"""Key and scale from a time-averaged chroma vector matched against Krumhansl-Kessler profiles."""

from __future__ import annotations

from typing import NamedTuple, Optional

import numpy as np

from ..dsp.stft import Stft
from .mono import mono_at

PITCH_CLASSES = ("C", "C#", "D", "D#", "E", "F", "F#", "G", "G#", "A", "A#", "B")
_MAJOR = np.array([6.35, 2.23, 3.48, 2.33, 4.38, 4.09, 2.52, 5.19, 2.39, 3.66, 2.29, 2.88])
_MINOR = np.array([6.33, 2.68, 3.52, 5.38, 2.60, 3.53, 2.54, 4.75, 3.98, 2.69, 3.34, 3.17])
_LOWEST_HZ, _HIGHEST_HZ = 55.0, 2000.0
_QUIET_FRAME = 1e-3  # frames this far below the loudest one carry no key information


class KeyEstimate(NamedTuple):
    key: str
    scale: str
    confidence: float


def _chroma_weights(freqs: np.ndarray) -> np.ndarray:
    """(bins, 12) weights: a triangle of one semitone around each pitch of the range."""
    weights = np.zeros((freqs.size, 12))
    usable = (freqs >= _LOWEST_HZ) & (freqs <= _HIGHEST_HZ)
    midi = 69.0 + 12.0 * np.log2(freqs[usable] / 440.0)
    nearest = np.rint(midi)
    weights[np.flatnonzero(usable), nearest.astype(int) % 12] = 1.0 - 2.0 * np.abs(midi - nearest)
    return weights


def chroma(samples: np.ndarray, rate: int) -> Optional[np.ndarray]:
    mono, rate = mono_at(samples, rate)
    stft = Stft(8192)
    magnitude = np.abs(stft.forward(mono)[0])
    frames = magnitude @ _chroma_weights(stft.frequencies(rate))
    strength = frames.max(axis=1)
    if strength.max() <= 0:
        return None
    loud = strength > _QUIET_FRAME * strength.max()
    return (frames[loud] / strength[loud, None]).mean(axis=0)


def estimate_key(samples: np.ndarray, rate: int) -> Optional[KeyEstimate]:
    profile = chroma(samples, rate)
    if profile is None or np.allclose(profile, profile[0]):
        return None
    best = None
    for scale, template in (("major", _MAJOR), ("minor", _MINOR)):
        for tonic in range(12):
            r = float(np.corrcoef(profile, np.roll(template, tonic))[0, 1])
            if best is None or r > best[0]:
                best = (r, tonic, scale)
    r, tonic, scale = best
    return KeyEstimate(PITCH_CLASSES[tonic], scale, max(0.0, min(1.0, r)))
