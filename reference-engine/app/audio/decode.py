"""Decoding any container ffmpeg reads into float32 stereo samples."""

from __future__ import annotations

import struct
import subprocess
from dataclasses import dataclass
from pathlib import Path
from typing import Optional

import numpy as np

from ..errors import PipelineError

_FLOAT = 3
_EXTENSIBLE = 0xFFFE


@dataclass(frozen=True)
class Audio:
    samples: np.ndarray  # float32, shape (2, frames)
    sample_rate: int

    @property
    def duration(self) -> float:
        return self.samples.shape[1] / float(self.sample_rate)


def _tail(text: bytes, lines: int = 6) -> str:
    kept = [line for line in text.decode("utf-8", "replace").splitlines() if line.strip()]
    return "\n".join(kept[-lines:])


def _require(tool: Optional[str], name: str) -> str:
    if not tool:
        raise PipelineError(f"{name} introuvable : installez-le (sudo apt install ffmpeg).")
    return tool


def probe_duration(ffprobe: Optional[str], path: Path) -> Optional[float]:
    """Container duration in seconds, or None when ffprobe cannot tell."""
    if not ffprobe:
        return None
    try:
        done = subprocess.run(
            [ffprobe, "-v", "error", "-show_entries", "format=duration",
             "-of", "default=noprint_wrappers=1:nokey=1", str(path)],
            capture_output=True, timeout=60, check=False)
    except (OSError, subprocess.TimeoutExpired):
        return None
    try:
        return float(done.stdout.decode().strip().splitlines()[0])
    except (ValueError, IndexError):
        return None


def parse_float_wav(data: bytes) -> Audio:
    """Reads the 32-bit float WAV that ffmpeg writes to a pipe (its sizes may be placeholders)."""
    if len(data) < 12 or data[:4] != b"RIFF" or data[8:12] != b"WAVE":
        raise ValueError("not a RIFF/WAVE stream")
    position, channels, rate = 12, 0, 0
    while position + 8 <= len(data):
        chunk_id = data[position:position + 4]
        size = struct.unpack_from("<I", data, position + 4)[0]
        body = position + 8
        if chunk_id == b"fmt ":
            tag, channels, rate = struct.unpack_from("<HHI", data, body)
            bits = struct.unpack_from("<H", data, body + 14)[0]
            if tag == _EXTENSIBLE:
                tag = struct.unpack_from("<H", data, body + 24)[0]
            if tag != _FLOAT or bits != 32:
                raise ValueError("expected 32-bit float samples")
        elif chunk_id == b"data":
            if not channels:
                raise ValueError("data before format")
            remaining = len(data) - body
            if size == 0 or size > remaining:
                size = remaining
            size -= size % (4 * channels)
            frames = np.frombuffer(data, dtype="<f4", count=size // 4, offset=body)
            samples = frames.reshape(-1, channels).T.astype(np.float32)
            return Audio(np.ascontiguousarray(samples), int(rate))
        position = body + size + (size & 1)
    raise ValueError("no data chunk")


def decode(ffmpeg: Optional[str], path: Path) -> Audio:
    """Decodes the first audio stream of `path` to stereo float32 at its own sample rate."""
    command = [_require(ffmpeg, "ffmpeg"), "-nostdin", "-hide_banner", "-v", "error",
               "-i", str(path), "-map", "0:a:0", "-vn", "-ac", "2",
               "-c:a", "pcm_f32le", "-f", "wav", "pipe:1"]
    try:
        done = subprocess.run(command, capture_output=True, check=False)
    except OSError as error:
        raise PipelineError("Impossible de lancer ffmpeg.", str(error)) from error
    if done.returncode != 0:
        raise PipelineError("Fichier audio illisible : ffmpeg n'a pas pu le décoder.",
                            _tail(done.stderr) or f"ffmpeg (code {done.returncode})")
    try:
        audio = parse_float_wav(done.stdout)
    except (ValueError, struct.error) as error:
        raise PipelineError("Fichier audio illisible : sortie de ffmpeg inattendue.", str(error))
    if audio.samples.shape[1] == 0:
        raise PipelineError("Le fichier ne contient aucun son.", "0 échantillon décodé")
    return audio
