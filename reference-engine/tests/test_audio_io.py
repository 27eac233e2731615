"""Decoding through ffmpeg, the float WAV reader, 16-bit output, names and titles."""

import struct
import subprocess

import numpy as np
import pytest

from conftest import FFMPEG, FFPROBE, error_db, read_wav
from app.audio.decode import decode, parse_float_wav, probe_duration
from app.audio.wav import quantize, write_pcm16
from app.errors import PipelineError
from app.names import safe_extension, title_from_file_name, title_from_url


def _encode(folder, name, rate, channels, seconds=2.0, extra=()):
    path = folder / name
    subprocess.run([FFMPEG, "-nostdin", "-v", "error", "-y", "-f", "lavfi", "-i",
                    f"sine=frequency=440:sample_rate={rate}:duration={seconds}",
                    "-ac", str(channels), *extra, str(path)], check=True)
    return path


@pytest.mark.parametrize("name,rate,channels,extra", [
    ("tone.wav", 44100, 2, ()),
    ("tone.flac", 48000, 1, ()),
    ("tone.mp3", 44100, 2, ("-codec:a", "libmp3lame")),
    ("tone.ogg", 48000, 2, ("-codec:a", "libvorbis")),
    ("tone.m4a", 44100, 1, ("-codec:a", "aac")),
    ("tone.mkv", 32000, 6, ("-codec:a", "pcm_s24le")),
])
def test_any_container_decodes_to_stereo_at_its_rate(tmp_path, name, rate, channels, extra):
    path = _encode(tmp_path, name, rate, channels, extra=extra)
    audio = decode(FFMPEG, path)
    assert audio.samples.dtype == np.float32 and audio.samples.shape[0] == 2
    assert audio.sample_rate == rate
    assert audio.duration == pytest.approx(2.0, abs=0.1)
    assert 0.05 < np.max(np.abs(audio.samples)) <= 1.0
    assert probe_duration(FFPROBE, path) == pytest.approx(2.0, abs=0.1)


@pytest.mark.parametrize("content", [b"", b"not audio at all\n" * 50,
                                     bytes(range(256)) * 40, b"RIFF\x00\x00\x00\x00WAVEjunk"],
                         ids=["empty", "text", "binary", "broken wav"])
def test_garbage_fails_with_a_clear_message(tmp_path, content):
    path = tmp_path / "garbage.mp3"
    path.write_bytes(content)
    with pytest.raises(PipelineError) as failure:
        decode(FFMPEG, path)
    assert failure.value.message.startswith("Fichier audio illisible")
    assert failure.value.detail
    assert probe_duration(FFPROBE, path) is None


def test_a_file_without_audio_fails(tmp_path):
    path = tmp_path / "video.mkv"
    subprocess.run([FFMPEG, "-nostdin", "-v", "error", "-y", "-f", "lavfi", "-i",
                    "color=c=black:s=32x32:d=1", "-codec:v", "ffv1", str(path)], check=True)
    with pytest.raises(PipelineError):
        decode(FFMPEG, path)


@pytest.mark.parametrize("tool", [None, "/nonexistent/ffmpeg"])
def test_missing_ffmpeg(tmp_path, tool):
    path = _encode(tmp_path, "tone.wav", 44100, 2)
    with pytest.raises(PipelineError) as failure:
        decode(tool, path)
    assert "ffmpeg" in failure.value.message
    assert probe_duration(tool, path) is None


def _float_wav(samples, rate, data_size=None, extensible=False):
    frames = np.ascontiguousarray(samples.T, dtype="<f4").tobytes()
    channels = samples.shape[0]
    if extensible:
        fmt = struct.pack("<HHIIHHHHIH14s", 0xFFFE, channels, rate, rate * 4 * channels,
                          4 * channels, 32, 22, 32, 0, 3, b"\x00" * 14)
    else:
        fmt = struct.pack("<HHIIHH", 3, channels, rate, rate * 4 * channels, 4 * channels, 32)
    size = len(frames) if data_size is None else data_size
    return (b"RIFF" + struct.pack("<I", 0xFFFFFFFF) + b"WAVE" + b"fmt " + struct.pack("<I", len(fmt))
            + fmt + b"LIST" + struct.pack("<I", 4) + b"INFO" + b"data" + struct.pack("<I", size)
            + frames)


@pytest.mark.parametrize("data_size,extensible", [(None, False), (0, False), (0xFFFFFFFF, False),
                                                  (None, True)])
def test_float_wav_reader(data_size, extensible):
    samples = np.random.default_rng(1).uniform(-1, 1, (2, 1000)).astype(np.float32)
    audio = parse_float_wav(_float_wav(samples, 22050, data_size, extensible))
    assert audio.sample_rate == 22050
    np.testing.assert_array_equal(audio.samples, samples)


@pytest.mark.parametrize("data", [b"", b"RIFF1234WAVX", b"RIFF\x00\x00\x00\x00WAVE"])
def test_float_wav_reader_rejects_other_streams(data):
    with pytest.raises(ValueError):
        parse_float_wav(data)


def test_quantize_rounds_and_clips():
    values = np.array([[0.0, 1.0, -1.0, 2.0, -2.0, 0.6 / 32767, 1.49 / 32767]])
    assert quantize(values).tolist() == [[0, 32767, -32767, 32767, -32768, 1, 1]]


def test_pcm16_writer(tmp_path):
    samples = np.random.default_rng(2).uniform(-0.9, 0.9, (2, 4410))
    path = tmp_path / "out.wav"
    write_pcm16(path, quantize(samples), 44100)
    read, rate, width = read_wav(path)
    assert (rate, width, read.shape) == (44100, 2, (2, 4410))
    assert error_db(samples, read / 32767.0) < -85
    assert not list(tmp_path.glob("*.part"))
    with pytest.raises(TypeError):
        write_pcm16(path, samples, 44100)


@pytest.mark.parametrize("name,extension,title", [
    ("Song.MP3", ".mp3", "Song"),
    ("C:\\Users\\me\\Mix final.flac", ".flac", "Mix final"),
    ("../../etc/passwd", "", "passwd"),
    ("no extension", "", "no extension"),
    ("weird.ext with space", "", "weird"),
    (".wav", "", ".wav"),
    ("", "", "Sans titre"),
])
def test_names_from_uploads(name, extension, title):
    assert safe_extension(name) == extension
    assert title_from_file_name(name) == title


@pytest.mark.parametrize("url,title", [
    ("http://example.org/music/My%20Song.mp3?x=1", "My Song"),
    ("https://example.org/", "example.org"),
    ("https://example.org/watch?v=abc", "watch"),
])
def test_titles_from_addresses(url, title):
    assert title_from_url(url) == title
