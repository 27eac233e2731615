"""Short-time Fourier transform with exact overlap-add inversion (Hann window, 75 % overlap)."""

from __future__ import annotations

import numpy as np
import scipy.fft
from numpy.lib.stride_tricks import sliding_window_view

OVERLAP = 4  # frames covering each sample


class Stft:
    """Transforms (channels, samples) float arrays to (channels, frames, bins) spectra and back."""

    def __init__(self, n_fft: int = 4096) -> None:
        if n_fft % OVERLAP:
            raise ValueError("n_fft must be a multiple of 4")
        self.n_fft = n_fft
        self.hop = n_fft // OVERLAP
        # Periodic Hann: the squared windows of four overlapping frames sum to 1.5 everywhere.
        n = np.arange(n_fft)
        self.window = (0.5 - 0.5 * np.cos(2.0 * np.pi * n / n_fft)).astype(np.float32)
        self._norm = np.float32(1.0 / 1.5)
        self._lead = n_fft - self.hop

    @property
    def bins(self) -> int:
        return self.n_fft // 2 + 1

    def frame_count(self, length: int) -> int:
        return (self._lead + max(length, 1) - 1) // self.hop + 1

    def frequencies(self, sample_rate: float) -> np.ndarray:
        return np.arange(self.bins) * (sample_rate / self.n_fft)

    def forward(self, signal: np.ndarray) -> np.ndarray:
        signal = np.atleast_2d(np.asarray(signal, dtype=np.float32))
        channels, length = signal.shape
        frames = self.frame_count(length)
        padded = np.zeros((channels, (frames - 1) * self.hop + self.n_fft), dtype=np.float32)
        padded[:, self._lead:self._lead + length] = signal
        windowed = sliding_window_view(padded, self.n_fft, axis=-1)[:, ::self.hop] * self.window
        return scipy.fft.rfft(windowed, axis=-1).astype(np.complex64, copy=False)

    def inverse(self, spectrum: np.ndarray, length: int) -> np.ndarray:
        channels, frames, _ = spectrum.shape
        blocks = scipy.fft.irfft(spectrum, n=self.n_fft, axis=-1).astype(np.float32, copy=False)
        blocks *= self.window
        blocks = blocks.reshape(channels, frames, OVERLAP, self.hop)
        out = np.zeros((channels, frames + OVERLAP - 1, self.hop), dtype=np.float32)
        for part in range(OVERLAP):
            out[:, part:part + frames] += blocks[:, :, part]
        out = out.reshape(channels, -1)[:, self._lead:self._lead + length]
        out *= self._norm
        return out
