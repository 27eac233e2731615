"""Shared fixtures: isolated folders, WAV helpers, in-process and real engines."""

import os
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time
import wave
from pathlib import Path

sys.dont_write_bytecode = True

ENGINE_DIR = Path(__file__).resolve().parent.parent
TESTS_DIR = Path(__file__).resolve().parent
for entry in (str(ENGINE_DIR), str(TESTS_DIR)):
    if entry not in sys.path:
        sys.path.insert(0, entry)

# Nothing the tests start may reach the real home folder: importing app.main reads the environment.
_SCRATCH = Path(tempfile.mkdtemp(prefix="engine-tests-"))
for variable in [name for name in os.environ if name.startswith("HALVORN_")]:
    del os.environ[variable]
os.environ["HALVORN_DATA_DIR"] = str(_SCRATCH / "default-data")

import numpy as np  # noqa: E402
import pytest  # noqa: E402

from app.audio.wav import quantize, write_pcm16  # noqa: E402
from app.config import Settings  # noqa: E402

SYSTEM_PYTHON = "/usr/bin/python3"
FFMPEG = shutil.which("ffmpeg")
FFPROBE = shutil.which("ffprobe")
FINAL = ("done", "error", "cancelled", "stopped")


def pytest_sessionfinish(session, exitstatus):
    shutil.rmtree(_SCRATCH, ignore_errors=True)


# Audio files


def write_wav(path, samples, rate=44100):
    path = Path(path)
    path.parent.mkdir(parents=True, exist_ok=True)
    write_pcm16(path, quantize(np.atleast_2d(samples)), rate)
    return path


def read_wav(path_or_bytes):
    """(int16 samples (channels, frames), sample rate, sample width)."""
    import io
    source = io.BytesIO(path_or_bytes) if isinstance(path_or_bytes, bytes) else str(path_or_bytes)
    with wave.open(source, "rb") as reader:
        frames = reader.readframes(reader.getnframes())
        channels, rate, width = reader.getnchannels(), reader.getframerate(), reader.getsampwidth()
    samples = np.frombuffer(frames, dtype="<i2").reshape(-1, channels).T
    return samples, rate, width


def error_db(reference, estimate):
    reference = np.asarray(reference, dtype=np.float64)
    residual = np.asarray(estimate, dtype=np.float64) - reference
    return 10 * np.log10((np.sum(residual ** 2) + 1e-30) / np.sum(reference ** 2))


def make_settings(root, **overrides):
    root = Path(root)
    values = dict(data_dir=root / "data", jobs_dir=root / "jobs", persist_library=True,
                  parent_pid=None, max_duration_sec=None, device="cpu", ffmpeg=FFMPEG,
                  ffprobe=FFPROBE, keepalive_sec=15.0)
    values.update(overrides)
    return Settings(**values)


def wait_for(predicate, timeout=30.0, interval=0.02):
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        value = predicate()
        if value:
            return value
        time.sleep(interval)
    raise AssertionError(f"condition not met within {timeout} s")


@pytest.fixture(scope="session")
def scratch():
    return _SCRATCH


# In-process engine


class StageGate:
    """The engine's stage hook: records every status a job enters and can act at one of them."""

    def __init__(self):
        self.seen = {}
        self.actions = {}
        self.lock = threading.Lock()

    def __call__(self, job_id, status):
        with self.lock:
            self.seen.setdefault(job_id, []).append(status.value)
            action = self.actions.get(status.value)
        if action is not None:
            action(job_id)

    def statuses(self, job_id):
        with self.lock:
            return list(self.seen.get(job_id, []))


class EngineClient:
    """A TestClient around create_app, with helpers for jobs."""

    def __init__(self, settings, gate=None):
        from fastapi.testclient import TestClient
        from app.main import create_app
        self.gate = gate or StageGate()
        self.app = create_app(settings, on_stage=self.gate)
        self.settings = settings
        self.http = TestClient(self.app)

    def __enter__(self):
        self.http.__enter__()
        return self

    def __exit__(self, *exc):
        self.http.__exit__(*exc)

    @property
    def engine(self):
        return self.app.state.engine

    def upload(self, path, stems=None, name=None):
        import json
        data = {} if stems is None else {"stems": json.dumps(stems)}
        with open(path, "rb") as handle:
            answer = self.http.post("/api/jobs", data=data,
                                    files={"file": (name or Path(path).name, handle, "audio/wav")})
        assert answer.status_code == 200, answer.text
        return answer.json()["job_id"]

    def job(self, job_id):
        answer = self.http.get(f"/api/jobs/{job_id}")
        assert answer.status_code == 200, answer.text
        return answer.json()

    def wait_final(self, job_id, timeout=60.0):
        return wait_for(lambda: (lambda j: j if j["status"] in FINAL else None)(self.job(job_id)),
                        timeout)


# Real engine processes


_http = None


def http():
    """One HTTP client for the whole session (creating one per request is slow)."""
    global _http
    if _http is None:
        import httpx
        _http = httpx.Client(timeout=30.0)
    return _http


def free_port():
    with socket.socket(socket.AF_INET, socket.SOCK_STREAM) as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class EngineProcess:
    """The engine launched exactly as the application launches it."""

    def __init__(self, root, **env):
        self.root = Path(root)
        self.env = {key: value for key, value in os.environ.items()
                    if not key.startswith("HALVORN_")}
        self.env.update(HOME=str(self.root / "home"), PYTHONDONTWRITEBYTECODE="1",
                        HALVORN_DATA_DIR=str(self.root / "data"))
        self.env.update({key: str(value) for key, value in env.items()})
        self.process = None
        self.port = None
        self.log_path = self.root / "engine.log"

    @property
    def url(self):
        return f"http://127.0.0.1:{self.port}"

    def start(self, timeout=30.0):
        import httpx
        self.root.mkdir(parents=True, exist_ok=True)
        self.port = free_port()
        log = open(self.log_path, "ab")
        self.process = subprocess.Popen(
            [SYSTEM_PYTHON, "-m", "uvicorn", "app.main:app", "--host", "127.0.0.1",
             "--port", str(self.port), "--timeout-graceful-shutdown", "2"],
            cwd=ENGINE_DIR, env=self.env, stdout=log, stderr=subprocess.STDOUT,
            stdin=subprocess.DEVNULL)
        log.close()

        def healthy():
            if self.process.poll() is not None:
                raise AssertionError(f"engine exited: {self.log()}")
            try:
                return http().get(self.url + "/api/health", timeout=1.0).status_code == 200
            except httpx.HTTPError:
                return False
        wait_for(healthy, timeout, 0.1)
        return self

    def log(self):
        return self.log_path.read_text(errors="replace") if self.log_path.exists() else ""

    def stop(self, sig=signal.SIGTERM, timeout=10.0):
        """Sends `sig` and returns the seconds the engine took to exit."""
        if self.process is None or self.process.poll() is not None:
            return 0.0
        started = time.monotonic()
        self.process.send_signal(sig)
        try:
            self.process.wait(timeout)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
            raise AssertionError(f"engine ignored {sig!r}: {self.log()}")
        return time.monotonic() - started
