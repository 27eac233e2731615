"""The job runner: one job at a time, failures mapped to error records, cancel and stop."""

import threading

import pytest

from conftest import wait_for
from app.errors import INTERNAL_ERROR, JobCancelled, PipelineError
from app.jobs.events import JobEvents
from app.jobs.model import Status
from app.jobs.runner import JobRunner
from app.jobs.store import JobStore


@pytest.fixture
def store(tmp_path):
    store = JobStore(tmp_path, False, JobEvents())
    store.load()
    return store


def _job(store):
    job_id, _ = store.reserve()
    store.create(job_id, requested_stems=["bass"], source="file", input_name="in.wav")
    return job_id


def _final(store, job_id):
    return wait_for(lambda: (lambda j: j if j.status.final else None)(store.get(job_id)), 10)


@pytest.mark.parametrize("failure,error,detail", [
    (PipelineError("Fichier illisible.", "ffmpeg: bad"), "Fichier illisible.", "ffmpeg: bad"),
    (PipelineError("Sans détail."), "Sans détail.", "Sans détail."),
    (ZeroDivisionError("division by zero"), INTERNAL_ERROR, "ZeroDivisionError: division by zero"),
])
def test_failures_become_error_records(store, failure, error, detail):
    def work(job_id, token):
        store.update(job_id, status=Status.ANALYZING, progress=12)
        raise failure

    runner = JobRunner(store, work)
    runner.start()
    job_id = _job(store)
    runner.submit(job_id)
    job = _final(store, job_id)
    runner.stop()
    assert (job.status, job.stage, job.error, job.error_detail) == (Status.ERROR, "Échec", error,
                                                                    detail)
    assert job.progress == 12


def test_jobs_run_one_at_a_time_in_order(store):
    running, order, release = [], [], threading.Event()

    def work(job_id, token):
        running.append(job_id)
        assert len(running) == 1
        release.wait(10)
        order.append(job_id)
        running.remove(job_id)
        store.finish(job_id, Status.DONE, "Terminé")

    started = []
    runner = JobRunner(store, work, on_start=lambda: started.append(threading.current_thread()))
    runner.start()
    ids = [_job(store) for _ in range(3)]
    for job_id in ids:
        runner.submit(job_id)
    wait_for(lambda: running)
    assert [store.get(i).status for i in ids[1:]] == [Status.QUEUED, Status.QUEUED]
    release.set()
    for job_id in ids:
        _final(store, job_id)
    runner.stop()
    assert order == ids
    assert started and started[0].name == "job-runner"


def test_cancelled_jobs_are_skipped_and_running_ones_interrupted(store):
    entered = threading.Event()

    def work(job_id, token):
        entered.set()
        wait_for(lambda: token.cancelled, 10)
        token.check()

    runner = JobRunner(store, work)
    runner.start()
    first, second = _job(store), _job(store)
    runner.submit(first)
    runner.submit(second)
    assert entered.wait(10)
    store.finish(second, Status.CANCELLED, "Annulé")
    runner.cancel(second)
    store.finish(first, Status.CANCELLED, "Annulé")
    runner.cancel(first)
    runner.stop()
    assert store.get(first).status == Status.CANCELLED
    assert store.get(second).status == Status.CANCELLED


def test_stop_leaves_the_running_job_for_the_restart_to_report(store):
    entered = threading.Event()

    def work(job_id, token):
        store.update(job_id, status=Status.SEPARATING, progress=40)
        entered.set()
        wait_for(lambda: token.cancelled, 10)
        raise JobCancelled()

    runner = JobRunner(store, work)
    runner.start()
    job_id = _job(store)
    runner.submit(job_id)
    assert entered.wait(10)
    runner.stop(timeout=5)
    assert store.get(job_id).status == Status.SEPARATING
