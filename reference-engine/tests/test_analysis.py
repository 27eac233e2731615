"""Tempo, key, loudness and peak of generated signals, against known values and ffmpeg's ebur128."""

import re
import subprocess

import numpy as np
import pytest

import signals
from conftest import FFMPEG, write_wav
from app.analysis import analyze
from app.analysis.key import estimate_key
from app.analysis.loudness import integrated_loudness, k_weighting, sample_peak_db
from app.analysis.tempo import estimate_bpm

RATE = signals.RATE


@pytest.mark.parametrize("bpm,rate", [(120, 44100), (120, 48000), (90, 44100), (100, 44100),
                                      (140, 44100)])
def test_click_track_tempo(bpm, rate):
    clicks = signals.stereo(signals.click_track(bpm, 10.0, rate))
    assert estimate_bpm(clicks, rate) == pytest.approx(bpm, abs=1.0)


def test_song_tempo():
    assert estimate_bpm(signals.song(12.0), RATE) == pytest.approx(120, abs=1.0)


@pytest.mark.parametrize("signal", [
    np.zeros((2, RATE * 5), dtype=np.float32),
    signals.stereo(signals.sine(440.0, 5.0, 0.5)),
    signals.stereo(signals.click_track(120, 0.5)),
], ids=["silence", "steady sine", "too short"])
def test_no_tempo_without_a_pulse(signal):
    assert estimate_bpm(signal, RATE) is None


def _transposed(chords, semitones):
    return tuple(tuple(note + semitones for note in chord) for chord in chords)


@pytest.mark.parametrize("chords,key,scale", [
    (signals.A_MINOR_CADENCE, "A", "minor"),                          # Am Dm E
    (_transposed(signals.A_MINOR_CADENCE, 7), "E", "minor"),          # Em Am B
    (signals.C_MAJOR_CADENCE + signals.C_MAJOR_CADENCE[:1], "C", "major"),   # C F G C
    (_transposed(signals.C_MAJOR_CADENCE + signals.C_MAJOR_CADENCE[:1], 2), "D", "major"),
], ids=["Am-Dm-E", "Em-Am-B", "C-F-G-C", "D-G-A-D"])
def test_key_of_chord_progressions(chords, key, scale):
    estimate = estimate_key(signals.stereo(signals.progression(chords, 1.0, 3)), RATE)
    assert (estimate.key, estimate.scale) == (key, scale)
    assert 0.5 < estimate.confidence <= 1.0


def test_no_key_in_silence():
    assert estimate_key(np.zeros((2, RATE * 3), dtype=np.float32), RATE) is None


def test_k_weighting_matches_the_published_48k_coefficients():
    (shelf_b, shelf_a), (high_b, high_a) = k_weighting(48000)
    np.testing.assert_allclose(shelf_b, [1.53512485958697, -2.69169618940638, 1.19839281085285],
                               atol=1e-8)
    np.testing.assert_allclose(shelf_a, [1.0, -1.69065929318241, 0.73248077421585], atol=1e-8)
    np.testing.assert_allclose(high_b, [1.0, -2.0, 1.0])
    np.testing.assert_allclose(high_a, [1.0, -1.99004745483398, 0.99007225036621], atol=1e-8)


@pytest.mark.parametrize("level,rate", [(-23.0, 44100), (-23.0, 48000), (-14.0, 44100),
                                        (-36.0, 48000)])
def test_stereo_1k_sine_reads_its_level(level, rate):
    # A 1 kHz sine at L dBFS in both channels measures L LUFS.
    sine = signals.stereo(signals.sine(1000.0, 6.0, 10 ** (level / 20), rate))
    assert integrated_loudness(sine, rate) == pytest.approx(level, abs=0.5)


def test_full_scale_sine_in_one_channel_is_minus_3_lufs():
    left_only = np.stack([signals.sine(1000.0, 5.0), np.zeros(5 * RATE, dtype=np.float32)])
    assert integrated_loudness(left_only, RATE) == pytest.approx(-3.01, abs=0.1)


def test_gates_drop_silence_and_quiet_passages():
    loud = signals.stereo(signals.sine(1000.0, 8.0, 10 ** (-23 / 20)))
    quiet = signals.stereo(signals.sine(1000.0, 8.0, 10 ** (-40 / 20)))
    silence = np.zeros_like(loud)
    assert integrated_loudness(np.concatenate([loud, silence], axis=1), RATE) == pytest.approx(
        -23.0, abs=0.1)                                   # absolute gate
    assert integrated_loudness(np.concatenate([loud, quiet], axis=1), RATE) == pytest.approx(
        -23.0, abs=0.1)                                   # relative gate; ungated it would be -26
    assert integrated_loudness(silence, RATE) is None
    assert integrated_loudness(loud[:, :1000], RATE) is None


def _ffmpeg_integrated(path):
    done = subprocess.run([FFMPEG, "-nostats", "-hide_banner", "-i", str(path), "-af", "ebur128",
                           "-f", "null", "-"], capture_output=True, text=True, check=True)
    return float(re.findall(r"I:\s+(-?[\d.]+) LUFS", done.stderr)[-1])


@pytest.mark.parametrize("rate", [44100, 48000])
def test_loudness_agrees_with_ffmpeg_ebur128(tmp_path, rate):
    rng = np.random.default_rng(rate)
    noise = rng.normal(0, 0.05, (2, rate * 8)).astype(np.float32)
    music = signals.song(8.0, rate) if rate == RATE else noise
    mixture = 0.5 * music + noise
    mixture[:, rate * 3:rate * 4] *= 0.05  # a quiet second for the gates
    path = write_wav(tmp_path / "mixture.wav", mixture, rate)
    assert integrated_loudness(mixture, rate) == pytest.approx(_ffmpeg_integrated(path), abs=0.3)


@pytest.mark.parametrize("peak,expected", [(1.0, 0.0), (0.5, -6.0206), (0.1, -20.0)])
def test_sample_peak(peak, expected):
    signal = np.zeros((2, 100), dtype=np.float32)
    signal[1, 40] = -peak
    assert sample_peak_db(signal) == pytest.approx(expected, abs=1e-3)


def test_analysis_record():
    result = analyze(signals.stereo(signals.progression(signals.A_MINOR_CADENCE, 0.5, 4)), RATE)
    assert set(result) == {"bpm", "key", "scale", "key_confidence", "integrated_lufs",
                           "sample_peak_db"}
    assert (result["key"], result["scale"]) == ("A", "minor")
    assert analyze(np.zeros((2, RATE), dtype=np.float32), RATE) == {}
