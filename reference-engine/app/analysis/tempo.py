"""Tempo from the autocorrelation of a spectral-flux onset envelope."""

from __future__ import annotations

from typing import Optional, Tuple

import numpy as np
import scipy.fft
from scipy.ndimage import uniform_filter1d

from ..dsp.stft import Stft
from .mono import mono_at

_MIN_BPM, _MAX_BPM = 50.0, 220.0
_PRIOR_BPM, _PRIOR_OCTAVES = 120.0, 1.0  # log-normal preference that settles octave ambiguity
_MULTIPLES = 4                           # beat-period multiples used to refine the estimate
_MIN_PERIODICITY = 0.25                  # normalised autocorrelation below which there is no pulse


def onset_envelope(samples: np.ndarray, rate: int) -> Tuple[np.ndarray, float]:
    """Half-wave rectified log-magnitude flux per frame, and the frame rate."""
    mono, rate = mono_at(samples, rate)
    stft = Stft(512)
    magnitude = np.abs(stft.forward(mono)[0])
    log_mag = np.log1p(100.0 * magnitude)
    flux = np.maximum(np.diff(log_mag, axis=0), 0.0).sum(axis=1)
    fps = rate / stft.hop
    # Remove the slowly varying part so that loudness changes do not read as a pulse.
    flux = flux - uniform_filter1d(flux, max(3, int(fps)), mode="nearest")
    return np.maximum(flux, 0.0), fps


def _autocorrelation(signal: np.ndarray) -> np.ndarray:
    size = scipy.fft.next_fast_len(2 * signal.size)
    spectrum = scipy.fft.rfft(signal - signal.mean(), size)
    acf = scipy.fft.irfft(np.abs(spectrum) ** 2, size)[:signal.size]
    return acf / acf[0] if acf[0] > 0 else acf * 0.0


def _peak_near(acf: np.ndarray, lag: float, radius: int) -> Optional[float]:
    """Parabolic-interpolated position of the largest value within `radius` of `lag`."""
    low, high = max(1, int(round(lag)) - radius), min(acf.size - 2, int(round(lag)) + radius)
    if high <= low:
        return None
    index = low + int(np.argmax(acf[low:high + 1]))
    left, centre, right = acf[index - 1], acf[index], acf[index + 1]
    curvature = left - 2.0 * centre + right
    offset = 0.5 * (left - right) / curvature if curvature < 0 else 0.0
    return index + float(np.clip(offset, -0.5, 0.5))


def estimate_bpm(samples: np.ndarray, rate: int) -> Optional[float]:
    envelope, fps = onset_envelope(samples, rate)
    min_lag, max_lag = int(60.0 * fps / _MAX_BPM), int(np.ceil(60.0 * fps / _MIN_BPM))
    if envelope.size <= 2 * max_lag or not np.any(envelope > 0):
        return None
    acf = _autocorrelation(envelope)
    lags = np.arange(min_lag, max_lag + 1)
    bpms = 60.0 * fps / lags
    prior = np.exp(-0.5 * (np.log2(bpms / _PRIOR_BPM) / _PRIOR_OCTAVES) ** 2)
    scores = acf[lags] * prior
    best_lag = int(lags[int(np.argmax(scores))])
    if acf[best_lag] < _MIN_PERIODICITY:
        return None
    period = _peak_near(acf, float(best_lag), 1)
    if period is None:
        return None
    # Later peaks sit at whole multiples of the period and pin it down more finely.
    estimates, weights = [period], [1.0]
    for multiple in range(2, _MULTIPLES + 1):
        peak = _peak_near(acf, multiple * period, 2)
        if peak is None or acf[int(round(peak))] <= 0:
            break
        estimates.append(peak / multiple)
        weights.append(float(multiple))
    period = float(np.average(estimates, weights=weights))
    return 60.0 * fps / period
