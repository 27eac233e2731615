"""The engine as the application runs it: a real uvicorn on a free port.

Event stream on the wire, graceful stop with an open stream, persistence across restarts, jobs
left running, the library switch, and the exit when the parent process is gone."""

import json
import signal
import subprocess
import time

import pytest

import signals
from conftest import FINAL, EngineProcess, http, wait_for, write_wav

ORDER = ["queued", "downloading", "analyzing", "separating", "processing", "done"]


@pytest.fixture(scope="module")
def media(tmp_path_factory):
    folder = tmp_path_factory.mktemp("server-media")
    write_wav(folder / "song.wav", signals.song(3.0), 44100)
    write_wav(folder / "long.wav", signals.song(20.0), 44100)
    return folder


@pytest.fixture(scope="module")
def library(tmp_path_factory):
    root = tmp_path_factory.mktemp("server")
    return {"root": root, "HALVORN_PERSIST_LIBRARY": "1",
            "HALVORN_DEFAULT_JOBS_DIR": root / "Documents" / "jobs",
            "HALVORN_SSE_KEEPALIVE_SEC": "0.2", "HALVORN_ENGINE_VERSION": "3.2.1-test",
            "HALVORN_DEMUCS_DEVICE": "cpu"}


@pytest.fixture(scope="module")
def engine(library):
    settings = dict(library)
    process = EngineProcess(settings.pop("root") / "engine", **settings).start()
    yield process
    process.stop()


def _upload(base, path, stems=("vocals", "drums")):
    with open(path, "rb") as handle:
        answer = http().post(f"{base}/api/jobs", data={"stems": json.dumps(list(stems))},
                            files={"file": (path.name, handle, "audio/wav")})
    assert answer.status_code == 200, answer.text
    return answer.json()["job_id"]


def _job(base, job_id):
    return http().get(f"{base}/api/jobs/{job_id}", timeout=10).json()


def _wait_final(base, job_id, timeout=60):
    return wait_for(lambda: (lambda j: j if j["status"] in FINAL else None)(_job(base, job_id)),
                    timeout, 0.1)


def _read_stream(base, job_id, timeout=60):
    """Every block of the job's event stream, until the engine closes it: ("data", record) or
    ("comment", text)."""
    blocks, buffer = [], ""
    with http().stream("GET", f"{base}/api/jobs/{job_id}/events", timeout=timeout,
                      headers={"Accept": "text/event-stream"}) as answer:
        assert answer.status_code == 200
        assert answer.headers["content-type"].startswith("text/event-stream")
        assert answer.headers["cache-control"] == "no-cache"
        for text in answer.iter_text():
            buffer += text
            while "\n\n" in buffer:
                block, buffer = buffer.split("\n\n", 1)
                if block.startswith(":"):
                    blocks.append(("comment", block))
                else:
                    lines = block.split("\n")
                    assert all(line.startswith("data: ") for line in lines), block
                    blocks.append(("data", json.loads("\n".join(l[6:] for l in lines))))
    assert buffer == ""
    return blocks


def test_health_reports_the_environment(engine):
    assert http().get(f"{engine.url}/api/health").json() == {
        "status": "ok", "version": "3.2.1-test", "ffmpeg_configured": True,
        "demucs_device": "cpu"}


def test_event_stream_follows_a_job_to_its_end(engine, media):
    first = _upload(engine.url, media / "long.wav")  # keeps the runner busy
    job_id = _upload(engine.url, media / "song.wav")
    started = time.monotonic()
    blocks = _read_stream(engine.url, job_id)
    records = [body for kind, body in blocks if kind == "data"]
    comments = [body for kind, body in blocks if kind == "comment"]

    assert records[0]["job_id"] == job_id and records[0]["status"] == "queued"
    assert comments and all(c == ": keep-alive" for c in comments)  # while queued behind the first
    statuses = [record["status"] for record in records]
    assert [ORDER.index(s) for s in statuses] == sorted(ORDER.index(s) for s in statuses)
    assert {"analyzing", "separating", "processing"} <= set(statuses)
    progress = [record["progress"] for record in records]
    assert progress == sorted(progress) and progress[-1] == 100.0
    assert records[-1]["status"] == "done" and records[-1]["stems"] == ["vocals", "drums"]
    assert all(record["status"] != "done" for record in records[:-1])
    assert all(set(record) >= {"job_id", "status", "progress", "stage", "title", "created_at"}
               for record in records)
    assert time.monotonic() - started < 60
    assert _wait_final(engine.url, first)["status"] == "done"


def test_event_stream_of_a_finished_job_is_its_record(engine, media):
    job_id = _upload(engine.url, media / "song.wav")
    done = _wait_final(engine.url, job_id)
    assert _read_stream(engine.url, job_id, timeout=10) == [("data", done)]


def test_event_stream_of_an_unknown_job(engine):
    answer = http().get(f"{engine.url}/api/jobs/ffff/events")
    assert answer.status_code == 404 and answer.json() == {"detail": "Job introuvable : ffff"}


def test_library_survives_restarts_and_running_jobs_become_stopped(engine, library, media):
    done_id = _upload(engine.url, media / "song.wav", ["bass"])
    assert _wait_final(engine.url, done_id)["status"] == "done"
    assert engine.stop() < 4.0

    engine.start()
    running_id = _upload(engine.url, media / "long.wav", ["bass"])
    assert _job(engine.url, running_id)["status"] not in FINAL
    engine.stop(signal.SIGKILL)

    engine.start()
    listed = {job["job_id"]: job for job in http().get(f"{engine.url}/api/jobs").json()}
    assert listed[done_id]["status"] == "done" and listed[done_id]["stems"] == ["bass"]
    assert listed[running_id]["status"] == "stopped"
    assert listed[running_id]["stage"].startswith("Arrêté")
    stem = http().get(f"{engine.url}/api/jobs/{done_id}/stems/bass.wav")
    assert stem.status_code == 200 and stem.content[:4] == b"RIFF"
    jobs_dir = library["HALVORN_DEFAULT_JOBS_DIR"]
    assert (jobs_dir / done_id / "job.json").is_file()


def test_a_stop_with_an_open_stream_and_a_session_without_library(library, media):
    process = EngineProcess(library["root"] / "session", HALVORN_SSE_KEEPALIVE_SEC="0.2").start()
    try:
        done_id = _upload(process.url, media / "song.wav", ["bass"])
        assert _wait_final(process.url, done_id)["status"] == "done"
        _upload(process.url, media / "long.wav")
        waiting_id = _upload(process.url, media / "long.wav")  # its stream would last long
        with http().stream("GET", f"{process.url}/api/jobs/{waiting_id}/events") as answer:
            chunks = answer.iter_text()  # held: dropping it would close the stream
            assert next(chunks).startswith("data: ")
            seconds = process.stop(signal.SIGTERM)
        # The open stream is closed after the 2 s grace (the application waits 4 s before it
        # kills the engine; the margin is for loaded test machines).
        assert 1.5 < seconds < 5.0, process.log()
        assert process.process.returncode == 0
        assert "Traceback" not in process.log()

        process.start()
        assert http().get(f"{process.url}/api/jobs").json() == []
        assert http().get(f"{process.url}/api/jobs/{done_id}").status_code == 404
    finally:
        process.stop(signal.SIGKILL)


def test_the_engine_exits_when_its_parent_is_gone(library):
    parent = subprocess.Popen(["sleep", "600"])
    process = EngineProcess(library["root"] / "orphan", HALVORN_PARENT_PID=parent.pid,
                            HALVORN_PARENT_POLL_SEC="0.1").start()
    try:
        time.sleep(0.3)
        assert process.process.poll() is None  # the parent is alive: the engine stays
        parent.kill()
        parent.wait()
        process.process.wait(8)
    finally:
        parent.kill()
        process.stop(signal.SIGKILL)
    assert process.process.returncode == 0
    assert "is gone" in process.log()
