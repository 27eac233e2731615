"""Every route of the engine, in process: job life, validation, errors, cancel, trash, addresses."""

import functools
import http.server
import json
import threading

import numpy as np
import pytest

import signals
from conftest import EngineClient, error_db, free_port, make_settings, read_wav, write_wav

SIX = ["vocals", "drums", "bass", "guitar", "piano", "other"]


@pytest.fixture(scope="module")
def media(tmp_path_factory):
    folder = tmp_path_factory.mktemp("media")
    write_wav(folder / "song.wav", signals.song(3.0, rate=48000), 48000)
    write_wav(folder / "short.wav", signals.song(1.5), 44100)
    (folder / "page.html").write_text("<html><body>a video page</body></html>")
    (folder / "garbage.mp3").write_bytes(b"this is not audio\n" * 100)
    fake = folder / "yt-dlp"
    fake.write_text(f"""#!/usr/bin/python3
import shutil, sys
args = sys.argv[1:]
template = args[args.index("-o") + 1]
print("[youtube] fake: Downloading webpage", flush=True)
for percent in ("10.0", "55.5", "100.0"):
    print(f"[download]  {{percent}}% of 1.00MiB", flush=True)
target = template.replace("%(ext)s", "wav")
shutil.copyfile({str(folder / "short.wav")!r}, target)
print("Fake Page Title")
print(target)
""")
    fake.chmod(0o755)
    return folder


@pytest.fixture(scope="module")
def web(media):
    class Quiet(http.server.SimpleHTTPRequestHandler):
        def log_message(self, *args):
            pass

    server = http.server.ThreadingHTTPServer(
        ("127.0.0.1", 0), functools.partial(Quiet, directory=str(media)))
    thread = threading.Thread(target=server.serve_forever, daemon=True)
    thread.start()
    yield f"http://127.0.0.1:{server.server_address[1]}"
    server.shutdown()
    server.server_close()


@pytest.fixture(scope="module")
def engine(tmp_path_factory):
    settings = make_settings(tmp_path_factory.mktemp("api"), version="7.7.7-test", device="cuda",
                             ytdlp="/nonexistent/yt-dlp")
    with EngineClient(settings) as client:
        yield client


@pytest.fixture
def gate(engine):
    engine.gate.actions.clear()
    yield engine.gate
    engine.gate.actions.clear()


@pytest.fixture(scope="module")
def finished(engine, media):
    """A finished job that asked for the vocals only."""
    return engine.wait_final(engine.upload(media / "short.wav", ["vocals"]))


def _held(gate, status):
    """Makes the runner wait when a job enters `status`; returns (entered, release) events."""
    entered, release = threading.Event(), threading.Event()

    def hold(job_id):
        entered.set()
        release.wait(30)
    gate.actions[status] = hold
    return entered, release


# Health


def test_health(engine):
    answer = engine.http.get("/api/health")
    assert answer.status_code == 200
    assert answer.json() == {"status": "ok", "version": "7.7.7-test", "ffmpeg_configured": True,
                             "demucs_device": "cuda"}


def test_health_without_ffmpeg(tmp_path):
    client = EngineClient(make_settings(tmp_path, ffmpeg="/nonexistent/ffmpeg"))
    body = client.http.get("/api/health").json()
    assert body["ffmpeg_configured"] is False and body["status"] == "ok"
    assert body["demucs_device"] == "cpu"


# A job from start to end


def test_upload_runs_to_done_and_serves_its_stems(engine, gate, media):
    job_id = engine.upload(media / "song.wav", SIX)
    job = engine.wait_final(job_id)
    assert (job["status"], job["progress"], job["stage"]) == ("done", 100.0, "Terminé")
    assert job["stems"] == SIX and job["title"] == "song"
    assert job["error"] is None and job["error_detail"] is None and job["favorite"] is False
    assert gate.statuses(job_id) == ["analyzing", "separating", "processing", "done"]
    assert set(job["analysis"]) == {"bpm", "key", "scale", "key_confidence", "integrated_lufs",
                                    "sample_peak_db"}
    assert job["analysis"]["bpm"] == pytest.approx(120, abs=1)

    stems = {}
    for kind in SIX + ["original"]:
        answer = engine.http.get(f"/api/jobs/{job_id}/stems/{kind}.wav")
        assert answer.status_code == 200, kind
        assert answer.headers["content-type"] == "audio/wav"
        samples, rate, width = read_wav(answer.content)
        assert (rate, width, samples.shape[0]) == (48000, 2, 2)
        stems[kind] = samples.astype(np.float64) / 32767
    source = signals.song(3.0, rate=48000)
    assert error_db(source, stems["original"]) < -80
    assert error_db(stems["original"], sum(stems[kind] for kind in SIX)) < -60


def test_only_requested_stems_are_listed_and_served(engine, media):
    job_id = engine.upload(media / "short.wav", ["bass", "vocals", "bass"])
    job = engine.wait_final(job_id)
    assert job["status"] == "done" and job["stems"] == ["bass", "vocals"]
    assert job["requested_stems"] == ["bass", "vocals"]
    assert engine.http.get(f"/api/jobs/{job_id}/stems/original.wav").status_code == 200
    missing = engine.http.get(f"/api/jobs/{job_id}/stems/drums.wav")
    assert missing.status_code == 404 and isinstance(missing.json()["detail"], str)


def test_all_six_stems_when_none_are_named(engine, media):
    job = engine.wait_final(engine.upload(media / "short.wav"))
    assert job["stems"] == SIX


def test_created_record_is_queued_then_listed_newest_first(engine, media):
    with open(media / "short.wav", "rb") as handle:
        answer = engine.http.post("/api/jobs", data={"stems": '["drums"]'},
                                  files={"file": ("Ma chanson.wav", handle, "audio/wav")})
    assert answer.status_code == 200
    assert answer.json()["status"] == "queued"
    job_id = answer.json()["job_id"]
    assert engine.job(job_id)["title"] == "Ma chanson"
    listed = engine.http.get("/api/jobs").json()
    assert listed[0]["job_id"] == job_id
    created = [job["created_at"] for job in listed]
    assert created == sorted(created, reverse=True)
    engine.wait_final(job_id)


# Bad requests


def _multipart(engine, data, files):
    return engine.http.post("/api/jobs", data=data, files=files)


@pytest.mark.parametrize("send,field", [
    (lambda e: _multipart(e, {"stems": '["vocals"]'}, {"other": ("a.txt", b"x")}), "file"),
    (lambda e: _multipart(e, {"stems": "vocals"}, {"file": ("a.wav", b"RIFF")}), "stems"),
    (lambda e: _multipart(e, {"stems": '["voice"]'}, {"file": ("a.wav", b"RIFF")}), "stems"),
    (lambda e: _multipart(e, {"stems": '["original"]'}, {"file": ("a.wav", b"RIFF")}), "stems"),
    (lambda e: _multipart(e, {"stems": "[]"}, {"file": ("a.wav", b"RIFF")}), "stems"),
    (lambda e: _multipart(e, {"stems": '{"a": 1}'}, {"file": ("a.wav", b"RIFF")}), "stems"),
    (lambda e: _multipart(e, {"stems": '["vocals"]'}, {"file": ("a.wav", b"")}), "file"),
    (lambda e: e.http.post("/api/jobs", json={"stems": ["vocals"]}), "url"),
    (lambda e: e.http.post("/api/jobs", json={"url": "ftp://host/a.mp3", "stems": ["vocals"]}),
     "url"),
    (lambda e: e.http.post("/api/jobs", json={"url": "not an address"}), "url"),
    (lambda e: e.http.post("/api/jobs", json={"url": 42, "stems": ["vocals"]}), "url"),
    (lambda e: e.http.post("/api/jobs", json={"url": "http://h/a.mp3", "stems": [1, 2]}),
     "stems"),
    (lambda e: e.http.post("/api/jobs", json=["http://h/a.mp3"]), None),
    (lambda e: e.http.post("/api/jobs", content=b"{broken",
                           headers={"content-type": "application/json"}), None),
    (lambda e: e.http.post("/api/jobs", content=b"hello",
                           headers={"content-type": "text/plain"}), None),
    (lambda e: e.http.post("/api/jobs"), None),
], ids=["no file", "stems not JSON", "unknown stem", "original is not separable", "no stems",
        "stems object", "empty file", "no url", "ftp url", "not an address", "url number",
        "stem numbers", "JSON array", "broken JSON", "plain text", "no body"])
def test_bad_requests_get_a_validation_list(engine, send, field):
    before = len(engine.http.get("/api/jobs").json())
    answer = send(engine)
    assert answer.status_code == 422, answer.text
    detail = answer.json()["detail"]
    assert isinstance(detail, list) and detail
    for item in detail:
        assert set(item) == {"loc", "msg", "type"} and item["msg"] and item["loc"][0] == "body"
    if field is not None:
        assert field in [item["loc"][-1] for item in detail]
    assert len(engine.http.get("/api/jobs").json()) == before
    assert not [p for p in engine.settings.jobs_dir.iterdir()
                if not p.name.startswith(".") and not (p / "job.json").exists()]


@pytest.mark.parametrize("method,path", [
    ("get", "/api/jobs/{id}"), ("post", "/api/jobs/{id}/cancel"), ("post", "/api/jobs/{id}/trash"),
    ("get", "/api/jobs/{id}/events"), ("get", "/api/jobs/{id}/stems/vocals.wav"),
    ("get", "/api/jobs/{id}/stems/original.wav"),
])
def test_unknown_jobs_get_404_with_a_detail_text(engine, method, path):
    answer = getattr(engine.http, method)(path.format(id="0123456789abcdef"))
    assert answer.status_code == 404
    assert answer.json() == {"detail": "Job introuvable : 0123456789abcdef"}


@pytest.mark.parametrize("name", ["vocals.mp3", "mix.wav", "vocals", "..%2Fjob.json", "wav",
                                  "drums.wav"])
def test_unknown_stem_files_get_404(engine, finished, name):
    answer = engine.http.get(f"/api/jobs/{finished['job_id']}/stems/{name}")
    assert answer.status_code == 404 and isinstance(answer.json()["detail"], str)


# Cancel, failures, trash


def test_cancel_a_queued_job(engine, gate, media):
    entered, release = _held(gate, "analyzing")
    first = engine.upload(media / "short.wav", ["drums"])
    assert entered.wait(30)
    gate.actions.clear()
    second = engine.upload(media / "short.wav", ["drums"])
    assert engine.job(second)["status"] == "queued"
    answer = engine.http.post(f"/api/jobs/{second}/cancel")
    assert answer.status_code == 200
    assert (answer.json()["status"], answer.json()["stage"]) == ("cancelled", "Annulé")
    release.set()
    assert engine.wait_final(first)["status"] == "done"
    assert engine.job(second)["status"] == "cancelled"
    assert gate.statuses(second) == []


def test_cancel_while_separating(engine, gate, media):
    entered, release = _held(gate, "separating")
    job_id = engine.upload(media / "song.wav", SIX)
    assert entered.wait(30)
    progress = engine.job(job_id)["progress"]
    answer = engine.http.post(f"/api/jobs/{job_id}/cancel")
    release.set()
    assert answer.json()["status"] == "cancelled"
    job = engine.wait_final(job_id)
    assert job["status"] == "cancelled" and job["stems"] == []
    assert job["progress"] >= progress >= 25
    assert gate.statuses(job_id) == ["analyzing", "separating"]
    assert engine.http.get(f"/api/jobs/{job_id}/stems/vocals.wav").status_code == 404
    # The runner goes on with the next job.
    assert engine.wait_final(engine.upload(media / "short.wav", ["bass"]))["status"] == "done"


def test_cancel_a_finished_job_changes_nothing(engine, finished):
    answer = engine.http.post(f"/api/jobs/{finished['job_id']}/cancel")
    assert answer.status_code == 200 and answer.json() == finished


def test_unreadable_upload_fails_with_error_and_detail(engine, media):
    job = engine.wait_final(engine.upload(media / "garbage.mp3", ["vocals"]))
    assert (job["status"], job["stage"]) == ("error", "Échec")
    assert job["error"].startswith("Fichier audio illisible")
    assert job["error_detail"] and job["stems"] == []


def test_a_worker_that_dies_fails_its_job(tmp_path, media):
    killer = tmp_path / "ffmpeg"
    killer.write_text("#!/bin/sh\nkill -9 $PPID\n")  # takes the job's worker process down
    killer.chmod(0o755)
    with EngineClient(make_settings(tmp_path, ffmpeg=str(killer))) as client:
        job = client.wait_final(client.upload(media / "short.wav", ["vocals"]))
        assert job["status"] == "error"
        assert job["error"] == "Le traitement s'est arrêté de façon inattendue."
        assert "code -9" in job["error_detail"]
        assert client.http.get("/api/health").json()["status"] == "ok"


def test_songs_over_the_duration_limit_fail(tmp_path, media):
    with EngineClient(make_settings(tmp_path, max_duration_sec=1.0)) as client:
        job = client.wait_final(client.upload(media / "short.wav", ["vocals"]))
    assert job["status"] == "error"
    assert job["error"] == "Morceau trop long (0:02) : la durée maximale est de 0:01."
    assert "HALVORN_MAX_DURATION_SEC" in job["error_detail"]


def test_trash_a_finished_job(engine, media):
    job_id = engine.upload(media / "short.wav", ["bass"])
    engine.wait_final(job_id)
    answer = engine.http.post(f"/api/jobs/{job_id}/trash")
    assert answer.status_code == 200 and answer.json() == {"job_id": job_id, "trashed": True}
    assert engine.http.get(f"/api/jobs/{job_id}").status_code == 404
    assert job_id not in [job["job_id"] for job in engine.http.get("/api/jobs").json()]
    assert (engine.settings.jobs_dir / ".trash" / job_id / "stems" / "bass.wav").is_file()
    assert engine.http.post(f"/api/jobs/{job_id}/trash").status_code == 404


def test_trash_a_running_job(engine, gate, media):
    entered, release = _held(gate, "analyzing")
    job_id = engine.upload(media / "short.wav", ["bass"])
    assert entered.wait(30)
    assert engine.http.post(f"/api/jobs/{job_id}/trash").status_code == 200
    release.set()
    assert engine.http.get(f"/api/jobs/{job_id}").status_code == 404
    assert engine.wait_final(engine.upload(media / "short.wav", ["bass"]))["status"] == "done"


# Addresses


def test_an_audio_address_is_downloaded(engine, gate, web):
    answer = engine.http.post("/api/jobs", json={"url": f"{web}/song.wav", "stems": ["drums"]})
    assert answer.status_code == 200
    job_id = answer.json()["job_id"]
    job = engine.wait_final(job_id)
    assert job["status"] == "done", job
    assert gate.statuses(job_id) == ["downloading", "analyzing", "separating", "processing",
                                     "done"]
    assert (job["title"], job["url"], job["stems"]) == ("song", f"{web}/song.wav", ["drums"])


@pytest.mark.parametrize("path,message", [
    ("/page.html", "yt-dlp est nécessaire"),
    ("/missing.wav", "le serveur a répondu 404"),
    (None, "adresse injoignable"),
])
def test_failing_addresses(engine, web, path, message):
    url = f"{web}{path}" if path else f"http://127.0.0.1:{free_port()}/song.wav"
    job_id = engine.http.post("/api/jobs", json={"url": url, "stems": ["vocals"]}).json()["job_id"]
    job = engine.wait_final(job_id)
    assert job["status"] == "error" and message in job["error"], job
    assert job["error_detail"]


def test_a_page_address_goes_through_ytdlp(tmp_path, media, web):
    with EngineClient(make_settings(tmp_path, ytdlp=str(media / "yt-dlp"))) as client:
        answer = client.http.post("/api/jobs", json={"url": f"{web}/page.html",
                                                     "stems": ["vocals"]})
        job = client.wait_final(answer.json()["job_id"])
    assert job["status"] == "done", job
    assert job["title"] == "Fake Page Title" and job["stems"] == ["vocals"]


def test_job_records_are_json_with_the_wire_keys(finished):
    job = finished
    for key, kind in [("job_id", str), ("status", str), ("progress", float), ("stage", str),
                      ("title", str), ("created_at", float), ("stems", list),
                      ("favorite", bool), ("analysis", dict)]:
        assert isinstance(job[key], kind), key
    json.dumps(job)
