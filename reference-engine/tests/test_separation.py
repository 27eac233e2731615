"""STFT round trip, mask partition, stem routing and exact stem sums."""

import numpy as np
import pytest

import signals
from conftest import error_db, read_wav
from app.dsp.separation import STEM_ORDER, Separator, band_layout
from app.dsp.stft import Stft
from app.pipeline.stems import exact_pcm, stem_path, write_stems

RATE = signals.RATE


@pytest.fixture(scope="module")
def separator():
    return Separator()


@pytest.fixture(scope="module")
def song():
    return signals.song(6.0)


@pytest.mark.parametrize("channels,length", [(1, 1), (1, 1000), (2, 4096), (2, RATE + 17)])
def test_stft_inverse_restores_the_signal(channels, length):
    signal = np.random.default_rng(length).uniform(-1, 1, (channels, length)).astype(np.float32)
    stft = Stft(4096)
    spectrum = stft.forward(signal)
    assert spectrum.shape == (channels, stft.frame_count(length), 2049)
    assert error_db(signal, stft.inverse(spectrum, length)) < -100


def test_band_layout_is_contiguous_and_covers_every_bin():
    bands = band_layout(Stft(4096).frequencies(RATE))
    assert bands[0] == 0
    assert set(np.diff(bands)) <= {0, 1}
    assert 250 < bands[-1] + 1 < 400  # far fewer bands than the 2049 bins


def test_masks_partition_the_spectrum(separator, song):
    spectrum = separator.stft.forward(song)
    masks, bands = separator.masks(spectrum, RATE)
    total = sum(masks.values())
    assert set(masks) == {"vocals", "drums", "bass", "guitar", "piano"}
    for mask in masks.values():
        assert mask.shape == (spectrum.shape[1], bands.max() + 1)
        assert mask.min() >= 0.0
    assert total.max() <= 1.0 + 1e-5


def test_stems_sum_to_the_original(separator, song):
    stems = separator.separate(song, RATE)
    assert list(stems) == list(STEM_ORDER)
    for stem in stems.values():
        assert stem.shape == song.shape and stem.dtype == np.float32
    assert error_db(song, sum(stems.values())) < -60
    # Every masked stem takes a real share of this song.
    for name in ("vocals", "drums", "bass", "guitar"):
        assert error_db(song, song - stems[name]) > -30, name


def _share(stems, name):
    energy = {key: float(np.sum(value.astype(np.float64) ** 2)) for key, value in stems.items()}
    return energy[name] / sum(energy.values())


def _voice(seconds):
    t = np.arange(int(seconds * RATE)) / RATE
    phase = 2 * np.pi * 440.0 * np.cumsum(1 + 0.01 * np.sin(2 * np.pi * 5.5 * t)) / RATE
    return (0.3 * (np.sin(phase) + 0.5 * np.sin(2 * phase) + 0.25 * np.sin(3 * phase))).astype(
        np.float32)


@pytest.mark.parametrize("case,signal,stem", [
    ("low sine", lambda: signals.stereo(signals.sine(55.0, 3.0, 0.5)), "bass"),
    ("clicks", lambda: signals.stereo(signals.click_track(120, 3.0)), "drums"),
    ("centred voice", lambda: signals.stereo(_voice(3.0)), "vocals"),
    ("left mid tone", lambda: signals.stereo(0.3 * signals.tone(330.0, 3.0, partials=3), -1.0),
     "guitar"),
    ("right high tone", lambda: signals.stereo(signals.sine(2800.0, 3.0, 0.3), 1.0), "piano"),
    ("air", lambda: signals.stereo(signals.sine(15000.0, 3.0, 0.3)), "other"),
])
def test_each_kind_of_sound_lands_in_its_stem(separator, case, signal, stem):
    stems = separator.separate(signal(), RATE)
    assert _share(stems, stem) > 0.9, {name: round(_share(stems, name), 3) for name in stems}


def test_sixteen_bit_stems_add_up_exactly(separator, song):
    stems = separator.separate(song, RATE)
    pcm = exact_pcm(song, stems)
    total = sum(pcm[name].astype(np.int32) for name in STEM_ORDER)
    assert np.array_equal(total, pcm["original"].astype(np.int32))


def test_written_stems_match_the_original(tmp_path, separator):
    song = signals.song(3.0, rate=48000)
    stems = separator.separate(song, 48000)
    written = write_stems(tmp_path, song, stems, ["drums", "vocals"], 48000)
    assert written == ["drums", "vocals"]
    assert sorted(p.name for p in (tmp_path / "stems").iterdir()) == [
        "drums.wav", "original.wav", "vocals.wav"]
    original, rate, width = read_wav(stem_path(tmp_path, "original"))
    assert (rate, width, original.shape) == (48000, 2, song.shape)
    assert error_db(song, original / 32767.0) < -80
