"""The job store: monotone progress, final statuses, persistence across restarts, trash."""

import json

import pytest

from app.jobs.events import GONE
from app.jobs.model import Job, Status
from app.jobs.store import RECORD_FILE, STOPPED_STAGE, JobStore


class Recorder:
    """Stands in for the event hub."""

    def __init__(self):
        self.changes = []

    def publish(self, job_id, change):
        self.changes.append((job_id, change))


def _store(root, persist=True):
    store = JobStore(root, persist, Recorder())
    store.load()
    return store


def _new(store, **fields):
    job_id, _ = store.reserve()
    return store.create(job_id, requested_stems=["vocals", "drums"], source="file",
                        title="Song", input_name="input.wav", **fields)


def test_progress_never_goes_back(tmp_path):
    store = _store(tmp_path)
    job = _new(store)
    seen = []
    for value in (10, 5, 20, 19.5, 150):
        assert store.update(job.id, progress=value)
        seen.append(store.get(job.id).progress)
    assert seen == [10, 10, 20, 20, 100]


def test_unchanged_updates_publish_nothing(tmp_path):
    store = _store(tmp_path)
    job = _new(store)
    store.update(job.id, status=Status.ANALYZING, progress=10)
    count = len(store.events.changes)
    store.update(job.id, status=Status.ANALYZING, progress=9)
    assert len(store.events.changes) == count
    versions = [change[0] for _, change in store.events.changes]
    assert versions == sorted(versions) and len(set(versions)) == len(versions)


@pytest.mark.parametrize("final", [Status.DONE, Status.ERROR, Status.CANCELLED, Status.STOPPED])
def test_final_statuses_never_change(tmp_path, final):
    store = _store(tmp_path)
    job = _new(store)
    assert store.finish(job.id, final, "fin")
    before = store.snapshot(job.id)
    assert not store.update(job.id, status=Status.SEPARATING, progress=50)
    assert not store.finish(job.id, Status.DONE, "Terminé")
    assert store.snapshot(job.id) == before


def test_finish_takes_final_statuses_only(tmp_path):
    store = _store(tmp_path)
    with pytest.raises(ValueError):
        store.finish(_new(store).id, Status.SEPARATING, "x")


def test_unknown_jobs(tmp_path):
    store = _store(tmp_path)
    assert store.get("nope") is None and store.snapshot("nope") is None
    assert not store.update("nope", progress=1)
    assert not store.trash("nope")


@pytest.mark.parametrize("status,after", [
    (Status.QUEUED, Status.STOPPED), (Status.DOWNLOADING, Status.STOPPED),
    (Status.ANALYZING, Status.STOPPED), (Status.SEPARATING, Status.STOPPED),
    (Status.PROCESSING, Status.STOPPED), (Status.DONE, Status.DONE),
    (Status.ERROR, Status.ERROR), (Status.CANCELLED, Status.CANCELLED),
])
def test_restart_keeps_jobs_and_stops_running_ones(tmp_path, status, after):
    store = _store(tmp_path)
    job = _new(store)
    store.update(job.id, status=status, progress=42, analysis={"bpm": 120.0}, stems=["vocals"])
    reloaded = _store(tmp_path)
    again = reloaded.get(job.id)
    assert again.status == after
    assert again.progress == 42 and again.analysis == {"bpm": 120.0}
    assert again.title == "Song" and again.created_at == job.created_at
    if after == Status.STOPPED:
        assert again.stage == STOPPED_STAGE
        # The change is saved: a second restart reads "stopped" from disk.
        data = json.loads((tmp_path / job.id / RECORD_FILE).read_text())
        assert data["status"] == "stopped"


def test_without_persistence_nothing_survives(tmp_path):
    store = _store(tmp_path, persist=False)
    job = _new(store)
    assert not (tmp_path / job.id / RECORD_FILE).exists()
    assert (tmp_path / job.id).is_dir()
    reloaded = _store(tmp_path, persist=False)
    assert reloaded.records() == []
    assert not (tmp_path / job.id).exists()


def test_unreadable_records_are_skipped(tmp_path):
    store = _store(tmp_path)
    good = _new(store)
    (tmp_path / "broken").mkdir()
    (tmp_path / "broken" / RECORD_FILE).write_text("{not json")
    (tmp_path / "elsewhere").mkdir()
    (tmp_path / "elsewhere" / RECORD_FILE).write_text(json.dumps(good.to_json()))
    (tmp_path / "empty").mkdir()
    assert [record["job_id"] for record in _store(tmp_path).records()] == [good.id]


def test_records_are_newest_first(tmp_path):
    store = _store(tmp_path)
    ids = [_new(store).id for _ in range(4)]
    for index, job_id in enumerate(ids):
        store._jobs[job_id].created_at = 1000.0 + [3, 1, 4, 2][index]
    assert [record["job_id"] for record in store.records()] == [ids[2], ids[0], ids[3], ids[1]]


def test_trash_moves_the_folder_and_ends_streams(tmp_path):
    store = _store(tmp_path)
    job = _new(store)
    (tmp_path / job.id / "input.wav").write_bytes(b"x")
    assert store.trash(job.id)
    assert store.get(job.id) is None and store.records() == []
    assert not (tmp_path / job.id).exists()
    assert (tmp_path / ".trash" / job.id / "input.wav").read_bytes() == b"x"
    assert store.events.changes[-1] == (job.id, (0, GONE))
    assert _store(tmp_path).records() == []


def test_release_drops_an_unused_reservation(tmp_path):
    store = _store(tmp_path)
    job_id, folder = store.reserve()
    store.release(job_id)
    assert not folder.exists()
    job = _new(store)
    store.release(job.id)
    assert (tmp_path / job.id).exists()


def test_record_keys():
    job = Job(id="abc", created_at=1.5, requested_stems=["bass"], source="url",
              url="http://x/y.wav")
    record = job.record()
    assert record["job_id"] == "abc" and record["status"] == "queued"
    assert record["stems"] == [] and record["analysis"] is None and record["favorite"] is False
    assert Job.from_json(json.loads(json.dumps(job.to_json()))) == job
