"""`python -m app.pipeline.warmup`: readies each component once and reports it on one line.

Prints "WARMUP_OK {name}" or "WARMUP_FAILED {name} {reason}" per component; always exits 0."""

from __future__ import annotations

import sys
import tempfile
from pathlib import Path
from typing import Callable, List, Tuple

import numpy as np

from ..analysis import analyze
from ..audio.decode import decode
from ..audio.wav import quantize, write_pcm16
from ..config import Settings
from ..dsp.separation import Separator

_RATE = 44100


def _test_tone(seconds: float = 2.0) -> np.ndarray:
    t = np.arange(int(seconds * _RATE)) / _RATE
    tone = 0.3 * np.sin(2 * np.pi * 220.0 * t) * (1.0 + np.sign(np.sin(2 * np.pi * 2.0 * t))) / 2
    return np.stack([tone, tone]).astype(np.float32)


def _ffmpeg(settings: Settings) -> None:
    with tempfile.TemporaryDirectory(prefix="warmup-") as folder:
        path = Path(folder) / "tone.wav"
        write_pcm16(path, quantize(_test_tone()), _RATE)
        audio = decode(settings.ffmpeg, path)
        if audio.sample_rate != _RATE or audio.samples.shape[0] != 2:
            raise RuntimeError(f"unexpected decode: {audio.samples.shape} at {audio.sample_rate} Hz")


def _separation(settings: Settings) -> None:
    stems = Separator().separate(_test_tone(), _RATE)
    error = np.max(np.abs(sum(stems.values()) - _test_tone()))
    if error > 1e-4:
        raise RuntimeError(f"stems do not sum to the input (max error {error:.2e})")


def _analysis(settings: Settings) -> None:
    if "integrated_lufs" not in analyze(_test_tone(), _RATE):
        raise RuntimeError("no loudness measured")


COMPONENTS: List[Tuple[str, Callable[[Settings], None]]] = [
    ("ffmpeg", _ffmpeg),
    ("separation", _separation),
    ("analysis", _analysis),
]


def main() -> int:
    settings = Settings.from_env()
    for name, ready in COMPONENTS:
        try:
            ready(settings)
        except Exception as error:  # noqa: BLE001 - every failure is reported, none is fatal
            reason = " ".join(str(getattr(error, "message", error)).split()) or type(error).__name__
            print(f"WARMUP_FAILED {name} {reason}", flush=True)
        else:
            print(f"WARMUP_OK {name}", flush=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())
