"""Generated test signals: clicks, chords, sines and a small multi-instrument song."""

from __future__ import annotations

import numpy as np

RATE = 44100
NOTE_NAMES = ("C", "C#", "D", "D#", "E", "F", "F#", "G", "G#", "A", "A#", "B")


def midi_hz(note: float) -> float:
    return 440.0 * 2.0 ** ((note - 69) / 12.0)


def sine(freq: float, seconds: float, amplitude: float = 1.0, rate: int = RATE) -> np.ndarray:
    t = np.arange(int(round(seconds * rate))) / rate
    return (amplitude * np.sin(2 * np.pi * freq * t)).astype(np.float32)


def stereo(mono: np.ndarray, pan: float = 0.0) -> np.ndarray:
    """Pan -1 is left only, 0 the same signal on both sides, 1 right only."""
    return np.stack([mono * min(1.0, 1.0 - pan), mono * min(1.0, 1.0 + pan)]).astype(np.float32)


def click_track(bpm: float, seconds: float, rate: int = RATE) -> np.ndarray:
    """Short decaying noise bursts on every beat, mono."""
    out = np.zeros(int(round(seconds * rate)), dtype=np.float32)
    burst_len = int(0.02 * rate)
    rng = np.random.default_rng(7)
    burst = rng.uniform(-1, 1, burst_len) * np.exp(-np.arange(burst_len) / (0.004 * rate))
    for start in np.arange(0.0, seconds, 60.0 / bpm):
        index = int(round(start * rate))
        end = min(index + burst_len, out.size)
        out[index:end] += 0.8 * burst[:end - index]
    return out


def tone(freq: float, seconds: float, rate: int = RATE, partials: int = 4,
         decay: float = 0.0) -> np.ndarray:
    """A harmonic tone with 1/k partial amplitudes and an optional exponential decay."""
    t = np.arange(int(round(seconds * rate))) / rate
    out = sum(np.sin(2 * np.pi * freq * k * t) / k for k in range(1, partials + 1))
    if decay:
        out = out * np.exp(-t / decay)
    return out.astype(np.float32)


def chord(notes, seconds: float, rate: int = RATE) -> np.ndarray:
    out = sum(tone(midi_hz(n), seconds, rate, partials=3) for n in notes)
    fade = np.minimum(1.0, np.minimum(np.arange(out.size), out.size - np.arange(out.size))
                      / (0.01 * rate))
    return (0.5 * out * fade / len(notes)).astype(np.float32)


def progression(chords, seconds_each: float, repeats: int, rate: int = RATE) -> np.ndarray:
    parts = [chord(notes, seconds_each, rate) for _ in range(repeats) for notes in chords]
    return np.concatenate(parts)


A_MINOR_CADENCE = ((57, 60, 64), (50, 53, 57), (52, 56, 59))   # Am, Dm, E
C_MAJOR_CADENCE = ((48, 52, 55), (53, 57, 60), (55, 59, 62))   # C, F, G


def song(seconds: float, rate: int = RATE, seed: int = 1) -> np.ndarray:
    """A stereo 120 BPM song: kick, snare and hats, bass line, panned chords, a centred melody."""
    rng = np.random.default_rng(seed)
    n = int(round(seconds * rate))
    t = np.arange(n) / rate
    beat = 0.5
    left = np.zeros(n, dtype=np.float64)
    right = np.zeros(n, dtype=np.float64)

    def add(signal, start, pan=0.0, gain=1.0):
        index = int(start * rate)
        if index >= n:
            return
        piece = signal[:n - index] * gain
        left[index:index + piece.size] += piece * (1.0 - max(pan, 0.0))
        right[index:index + piece.size] += piece * (1.0 + min(pan, 0.0))

    kick_t = np.arange(int(0.25 * rate)) / rate
    kick = np.sin(2 * np.pi * (50 * kick_t + 60 * (1 - np.exp(-kick_t * 30)) / 30)) * np.exp(-kick_t * 12)
    snare = rng.uniform(-1, 1, int(0.15 * rate)) * np.exp(-np.arange(int(0.15 * rate)) / (0.03 * rate))
    hat = rng.uniform(-1, 1, int(0.03 * rate)) * np.exp(-np.arange(int(0.03 * rate)) / (0.005 * rate))
    roots = (45, 41, 48, 43)  # A, F, C, G
    for bar, start in enumerate(np.arange(0.0, seconds, 4 * beat)):
        root = roots[bar % len(roots)]
        for step in range(4):
            at = start + step * beat
            add(kick if step % 2 == 0 else snare, at, gain=0.5)
            add(hat, at + beat / 2, pan=0.3, gain=0.15)
            add(tone(midi_hz(root - 12 + (7 if step == 3 else 0)), beat * 0.9, rate, 3, 0.3), at, gain=0.35)
        notes = (root + 12, root + 15 if root in (45,) else root + 16, root + 19)
        pad = chord(notes, 4 * beat, rate)
        add(pad, start, pan=-0.6, gain=0.25)
        add(sum(tone(midi_hz(x + 12), 4 * beat, rate, 6, 0.8) for x in notes) / 3, start, pan=0.6, gain=0.2)
    melody = np.zeros(n)
    vibrato = 1.0 + 0.005 * np.sin(2 * np.pi * 5.5 * t)
    scale = (69, 71, 72, 74, 76, 74, 72, 71)
    for index, start in enumerate(np.arange(0.0, seconds, beat)):
        a, b = int(start * rate), min(int((start + beat) * rate), n)
        freq = midi_hz(scale[index % len(scale)])
        phase = 2 * np.pi * freq * np.cumsum(vibrato[a:b]) / rate
        env = np.minimum(1.0, np.arange(b - a) / (0.02 * rate)) * np.minimum(1.0, (b - a - np.arange(b - a)) / (0.02 * rate))
        melody[a:b] = env * (np.sin(phase) + 0.4 * np.sin(2 * phase) + 0.2 * np.sin(3 * phase))
    left += 0.2 * melody
    right += 0.2 * melody
    out = np.stack([left, right])
    return (out / max(1e-9, np.max(np.abs(out))) * 0.7).astype(np.float32)
