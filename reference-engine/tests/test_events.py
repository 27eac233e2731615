"""The event stream generator and the change hub, driven without a server."""

import asyncio
import json
import threading

from app.api.events import KEEPALIVE, event_text, job_event_stream
from app.jobs.events import JobEvents
from app.jobs.model import Status
from app.jobs.store import JobStore


def _store(tmp_path):
    events = JobEvents()
    store = JobStore(tmp_path, False, events)
    store.load()
    job_id, _ = store.reserve()
    store.create(job_id, requested_stems=["vocals"], source="file", input_name="in.wav")
    return store, events, job_id


def _parse(chunk):
    assert chunk.endswith("\n\n")
    if chunk.startswith(":"):
        return "keep-alive"
    assert chunk.startswith("data: ") and chunk.count("\n") == 2
    return json.loads(chunk[len("data: "):])


async def _collect(stream, actions):
    """Consumes `stream`, running the next action after each chunk; returns the parsed chunks."""
    received = []
    async for chunk in stream:
        received.append(_parse(chunk))
        if actions:
            actions.pop(0)()
    return received


def test_stream_sends_current_record_changes_and_ends_on_a_final_status(tmp_path):
    store, events, job_id = _store(tmp_path)
    store.update(job_id, status=Status.ANALYZING, progress=10)

    async def scenario():
        stream = job_event_stream(store, events, job_id, keepalive_sec=0.05)
        actions = [
            lambda: None,                                                  # after current record
            lambda: store.update(job_id, status=Status.SEPARATING, progress=30),  # after keep-alive
            lambda: threading.Thread(target=store.update, args=(job_id,),
                                     kwargs={"progress": 60}).start(),
            lambda: store.finish(job_id, Status.DONE, "Terminé", progress=100),
            lambda: store.update(job_id, progress=100),
        ]
        return await asyncio.wait_for(_collect(stream, actions), 5)

    received = asyncio.run(scenario())
    assert received[0]["status"] == "analyzing" and received[0]["progress"] == 10
    assert received[1] == "keep-alive"
    records = [item for item in received if item != "keep-alive"]
    assert [r["status"] for r in records] == ["analyzing", "separating", "separating", "done"]
    assert [r["progress"] for r in records] == [10, 30, 60, 100]


def test_stream_of_a_finished_job_is_one_event(tmp_path):
    store, events, job_id = _store(tmp_path)
    store.finish(job_id, Status.ERROR, "Échec", error="boom", error_detail="trace")

    async def scenario():
        return [chunk async for chunk in job_event_stream(store, events, job_id, 0.05)]

    chunks = asyncio.run(scenario())
    assert len(chunks) == 1
    assert _parse(chunks[0])["error"] == "boom"
    assert events.subscriber_count(job_id) == 0


def test_stream_ends_when_the_job_is_trashed(tmp_path):
    store, events, job_id = _store(tmp_path)

    async def scenario():
        stream = job_event_stream(store, events, job_id, 10.0)
        return await asyncio.wait_for(_collect(stream, [lambda: store.trash(job_id)]), 5)

    assert [r["status"] for r in asyncio.run(scenario())] == ["queued"]


def test_changes_older_than_the_first_record_are_skipped(tmp_path):
    store, events, job_id = _store(tmp_path)

    async def scenario():
        stream = job_event_stream(store, events, job_id, 10.0)
        first = await stream.__anext__()
        version = store.snapshot(job_id)[0]
        # A change that was queued before the first record was read must not repeat it.
        events.publish(job_id, (version, {"status": "queued", "stale": True}))
        store.finish(job_id, Status.CANCELLED, "Annulé")
        rest = [chunk async for chunk in stream]
        return [first] + rest

    records = [_parse(chunk) for chunk in asyncio.run(scenario())]
    assert [r["status"] for r in records] == ["queued", "cancelled"]
    assert not any(r.get("stale") for r in records)


def test_unsubscribed_after_the_client_goes_away(tmp_path):
    store, events, job_id = _store(tmp_path)

    async def scenario():
        stream = job_event_stream(store, events, job_id, 10.0)
        await stream.__anext__()
        assert events.subscriber_count(job_id) == 1
        await stream.aclose()
        return events.subscriber_count(job_id)

    assert asyncio.run(scenario()) == 0


def test_event_text_is_one_data_line():
    text = event_text({"job_id": "a", "stage": "Séparation\ndes pistes…"})
    assert text.startswith("data: {") and text.endswith("}\n\n") and text.count("\n") == 2
    assert KEEPALIVE.startswith(":") and KEEPALIVE.endswith("\n\n")
