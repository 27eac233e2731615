"""16-bit PCM WAV output."""

from __future__ import annotations

import os
import wave
from pathlib import Path

import numpy as np

_FULL_SCALE = 32767.0


def quantize(samples: np.ndarray) -> np.ndarray:
    """float samples in [-1, 1] → int16, rounded, clipped."""
    samples = np.asarray(samples)
    if samples.dtype != np.float32:  # float32 holds every 16-bit value exactly
        samples = samples.astype(np.float64)
    scaled = np.rint(samples * samples.dtype.type(_FULL_SCALE))
    return np.clip(scaled, -32768, 32767, out=scaled).astype(np.int16)


def write_pcm16(path: Path, pcm: np.ndarray, sample_rate: int) -> None:
    """Writes int16 samples of shape (channels, frames) atomically."""
    if pcm.dtype != np.int16:
        raise TypeError("write_pcm16 expects int16 samples")
    temporary = path.with_name(path.name + ".part")
    with wave.open(str(temporary), "wb") as out:
        out.setnchannels(pcm.shape[0])
        out.setsampwidth(2)
        out.setframerate(int(sample_rate))
        out.writeframes(np.ascontiguousarray(pcm.T, dtype="<i2").tobytes())
    os.replace(temporary, path)
