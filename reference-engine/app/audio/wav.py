"""16-bit PCM WAV output."""

from __future__ import annotations

import os
import wave
from pathlib import Path

import numpy as np

_FULL_SCALE = 32767.0


def quantize(samples: np.ndarray) -> np.ndarray:
    """float samples in [-1, 1] → int16, rounded, clipped."""
    scaled = np.rint(np.asarray(samples, dtype=np.float64) * _FULL_SCALE)
    return np.clip(scaled, -32768, 32767).astype(np.int16)


def write_pcm16(path: Path, pcm: np.ndarray, sample_rate: int) -> None:
    """Writes int16 samples of shape (channels, frames) atomically."""
    if pcm.dtype != np.int16:
        raise TypeError("write_pcm16 expects int16 samples")
    temporary = path.with_name(path.name + ".part")
    with wave.open(str(temporary), "wb") as out:
        out.setnchannels(pcm.shape[0])
        out.setsampwidth(2)
        out.setframerate(int(sample_rate))
        out.writeframes(np.ascontiguousarray(pcm.T).astype("<i2").tobytes())
    os.replace(temporary, path)
