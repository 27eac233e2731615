"""Six-stem separation by time-frequency masks.

Masks are estimated on a band grid (single bins up to 700 Hz, 48 bands per octave above) from the
stereo power spectrogram:

- drums: the percussive part of a median-filter harmonic/percussive split;
- bass: harmonic content below about 160-320 Hz;
- vocals: harmonic content of the voice band, weighted by how centre-panned it is;
- guitar and piano: the remaining harmonic content of the low-mid and upper-mid bands;
- other: whatever is left, taken as the difference to the original so that the stems sum back to it.
"""

from __future__ import annotations

from typing import Callable, Dict, Optional, Tuple

import numpy as np
from scipy.ndimage import median_filter, uniform_filter1d

from ..kinds import SEPARABLE_STEMS as STEM_ORDER
from .stft import Stft

RESIDUAL_STEM = STEM_ORDER[-1]  # "other": what the masks leave
MASKED_STEMS = STEM_ORDER[:-1]

_EPS = 1e-12
_LINEAR_LIMIT_HZ = 700.0
_BANDS_PER_OCTAVE = 48
_HARMONIC_SECONDS = 0.4  # time span of the harmonic median filter
_PERCUSSIVE_BANDS = 17   # band span of the percussive median filter
_CENTRE_FLOOR = 0.85     # mid share at and below which content is not centre-panned

Progress = Callable[[float], None]


def _rise(freq: np.ndarray, start: float, end: float) -> np.ndarray:
    """0 below `start`, 1 above `end`, a raised cosine in log-frequency between."""
    position = (np.log2(np.maximum(freq, 1.0)) - np.log2(start)) / (np.log2(end) - np.log2(start))
    position = np.clip(position, 0.0, 1.0)
    return 0.5 - 0.5 * np.cos(np.pi * position)


def band_layout(freqs: np.ndarray) -> np.ndarray:
    """Band index of every bin: contiguous, non-decreasing, starting at 0."""
    linear_bins = int(np.searchsorted(freqs, _LINEAR_LIMIT_HZ))
    index = np.arange(freqs.size, dtype=np.float64)
    above = freqs >= _LINEAR_LIMIT_HZ
    index[above] = linear_bins + np.floor(
        _BANDS_PER_OCTAVE * np.log2(freqs[above] / _LINEAR_LIMIT_HZ))
    _, band_of_bin = np.unique(index, return_inverse=True)
    return band_of_bin


class Separator:
    def __init__(self, n_fft: int = 4096) -> None:
        self.stft = Stft(n_fft)

    def _band_weights(self, centres: np.ndarray) -> Dict[str, np.ndarray]:
        low = 1.0 - _rise(centres, 160.0, 320.0)
        upper = _rise(centres, 1200.0, 2400.0)
        return {
            "bass": low,
            "voice": (1.0 - low) * (1.0 - _rise(centres, 6000.0, 12000.0)),
            "guitar": 1.0 - upper,
            "piano": upper * (1.0 - _rise(centres, 5000.0, 10000.0)),
        }

    def masks(self, spectrum: np.ndarray,
              sample_rate: int) -> Tuple[Dict[str, np.ndarray], np.ndarray]:
        """Band masks (frames, bands) per masked stem, and the band of every bin."""
        freqs = self.stft.frequencies(sample_rate)
        band_of_bin = band_layout(freqs)
        starts = np.flatnonzero(np.diff(band_of_bin, prepend=-1))
        centres = np.add.reduceat(freqs, starts) / np.diff(np.append(starts, freqs.size))

        left, right = spectrum[0], spectrum[-1]
        power = np.add.reduceat(np.abs(left) ** 2 + np.abs(right) ** 2, starts, axis=1)
        mid = np.add.reduceat(np.abs(left + right) ** 2, starts, axis=1)
        side = np.add.reduceat(np.abs(left - right) ** 2, starts, axis=1)

        time_span = max(3, int(round(_HARMONIC_SECONDS * sample_rate / self.stft.hop)) | 1)
        harmonic_env = median_filter(power, size=(time_span, 1), mode="nearest")
        percussive_env = median_filter(power, size=(1, _PERCUSSIVE_BANDS), mode="nearest")
        h2, p2 = harmonic_env ** 2, percussive_env ** 2
        percussive = p2 / (h2 + p2 + _EPS)
        harmonic = 1.0 - percussive

        # Mid share of the power: 1 for a source identical in both channels, 0.5 for uncorrelated
        # channels; only nearly-centred content counts as centre-panned.
        ratio = uniform_filter1d(mid, 3, axis=0) / (
            uniform_filter1d(mid + side, 3, axis=0) + _EPS)
        centre = np.clip((ratio - _CENTRE_FLOOR) / (1.0 - _CENTRE_FLOOR), 0.0, 1.0) ** 2

        weights = self._band_weights(centres)
        bass = harmonic * weights["bass"]
        vocals = harmonic * weights["voice"] * centre
        rest = harmonic - bass - vocals  # harmonic content above the bass, not taken by the voice
        result = {
            "drums": percussive,
            "bass": bass,
            "vocals": vocals,
            "guitar": rest * weights["guitar"],
            "piano": rest * weights["piano"],
        }
        return {name: mask.astype(np.float32) for name, mask in result.items()}, band_of_bin

    def separate(self, samples: np.ndarray, sample_rate: int,
                 progress: Optional[Progress] = None) -> Dict[str, np.ndarray]:
        """Stems of `samples` (channels, frames), float32, in STEM_ORDER; they sum to the input."""
        progress = progress or (lambda fraction: None)
        samples = np.asarray(samples, dtype=np.float32)
        length = samples.shape[1]

        spectrum = self.stft.forward(samples)
        progress(0.15)
        masks, band_of_bin = self.masks(spectrum, sample_rate)
        progress(0.3)

        stems: Dict[str, np.ndarray] = {}
        residual = samples.copy()
        for index, name in enumerate(MASKED_STEMS):
            gain = masks.pop(name)[:, band_of_bin]
            stem = self.stft.inverse(spectrum * gain, length)
            residual -= stem
            stems[name] = stem
            progress(0.3 + 0.7 * (index + 1) / len(MASKED_STEMS))
        stems[RESIDUAL_STEM] = residual
        return {name: stems[name] for name in STEM_ORDER}
