"""Hands tasks to the workers of a Dask scheduler and takes their rows."""

from __future__ import annotations

import importlib
import logging
import queue
import time
import uuid
from collections import deque
from collections.abc import Callable, Iterator
from dataclasses import dataclass
from typing import Any

from .columns import Row
from .work import Task
from .worker import run

# it has no type hints of its own
distributed: Any = importlib.import_module("distributed")
# what workers do when they come and go is told by the rows; importing has set levels of its own
for _name in ("distributed", "distributed.client", "distributed.scheduler", "distributed.nanny"):
    logging.getLogger(_name).setLevel(logging.CRITICAL)

AHEAD = 4
"""Files that a worker has at most, those at work among them."""
PATIENCE_S = 60.0
"""How long there may be no worker."""
_LOOK_S = 1.0
_GATHER_S = 10.0


class NoWorkerError(Exception):
    """No worker came, or all are gone."""


@dataclass
class _Job:
    """A file on its way."""

    task: Task
    attempts: int = 1
    worker: str = ""
    future: Any = None


class Client:
    """Does tasks on a scheduler's workers.

    Each task is bound to one worker: so the client knows what dies with a worker, and counts an attempt only against the
    files that were at work there.
    """

    def __init__(self, client: Any, retries: int, timeout: float | None) -> None:
        self._client = client
        self._retries = retries
        self._timeout = timeout
        self._run_name = f"vndlp-{uuid.uuid4().hex}"
        self._submitted = 0
        self._workers: set[str] = set()
        self._threads: dict[str, int] = {}
        self._jobs: dict[str, _Job] = {}
        self._again: deque[_Job] = deque()
        self._ready: queue.Queue[str] = queue.Queue()

    def rows(self, tasks: Iterator[Task]) -> Iterator[tuple[Task, Row]]:
        """Tasks and their rows as they are ready, in any order.

        Raises:
            NoWorkerError: there was no worker for a minute.
        """
        waiting: Task | None = next(tasks, None)
        looked = last_seen = time.monotonic()
        self._look_for_workers()
        while waiting is not None or self._jobs or self._again:
            while (worker := self._free_worker()) is not None:
                if self._again:
                    self._submit_again(worker)
                elif waiting is not None:
                    self._submit(_Job(waiting), worker)
                    waiting = next(tasks, None)
                else:
                    break
            yield from self._finished()
            now = time.monotonic()
            if self._workers:
                last_seen = now
            elif now - last_seen > PATIENCE_S:
                raise NoWorkerError(f"no worker for {PATIENCE_S:g} s")
            if now - looked >= _LOOK_S:
                looked = now
                self._look_for_workers()
                yield from self._lost()

    def _look_for_workers(self) -> None:
        try:
            found = self._client.scheduler_info()["workers"]
        except (OSError, TimeoutError, RuntimeError):
            found = {}
        self._workers = set(found)
        # kept of those that are gone: what they had begun is told by it
        self._threads.update({address: worker["nthreads"] for address, worker in found.items()})

    def _load(self, worker: str) -> int:
        return sum(job.worker == worker for job in self._jobs.values())

    def _free_worker(self) -> str | None:
        loads = {worker: self._load(worker) for worker in self._workers}
        free = min(loads, key=lambda worker: loads[worker], default=None)
        return free if free is not None and loads[free] < AHEAD else None

    def _submit_again(self, worker: str) -> None:
        job = self._again.popleft()
        # a file that died goes elsewhere where there is an elsewhere
        others = [other for other in self._workers if other != job.worker]
        self._submit(job, min(others, key=self._load) if others and worker == job.worker else worker)

    def _submit(self, job: _Job, worker: str) -> None:
        key = f"{self._run_name}-{self._submitted}"
        self._submitted += 1
        task = {**job.task, "replace": job.task.get("replace", False) or job.attempts > 1}
        job.worker = worker
        self._jobs[key] = job
        # a worker is to begin with what came first, which is what `_lost` takes for begun
        job.future = self._client.submit(
            run,
            task,
            self._timeout,
            key=key,
            workers=[worker],
            allow_other_workers=False,
            pure=False,
            fifo_timeout="0 ms",
        )
        job.future.add_done_callback(self._note)

    def _note(self, future: Any) -> None:
        self._ready.put(future.key)

    def _finished(self) -> Iterator[tuple[Task, Row]]:
        try:
            key = self._ready.get(timeout=_LOOK_S / 4)
        except queue.Empty:
            return
        while True:
            job = self._jobs.get(key)
            row = None if job is None else self._row_of(job)
            if job is not None and row is not None:
                del self._jobs[key]
                job.future.release()
                if row["status"] != "died":
                    yield job.task, {**row, "attempts": job.attempts}
                else:
                    yield from self._died(job, row["error"])
            if self._ready.empty():
                return
            key = self._ready.get()

    def _row_of(self, job: _Job) -> Row | None:
        """The row of a job that is done; None where it was lost with its worker, which `_lost` will see."""
        if job.future.status == "error":
            error = job.future.exception()
            if isinstance(error, distributed.KilledWorker):
                return {"status": "died", "error": "its worker died"}
            return {"status": "failed", "error": f"the worker could not run it: {error!r}"}
        if job.future.status != "finished":
            return None
        try:
            row: Row = job.future.result(timeout=_GATHER_S)
        except (OSError, TimeoutError, RuntimeError, distributed.TimeoutError):
            return None
        return row

    def _lost(self) -> Iterator[tuple[Task, Row]]:
        """Takes up what was on workers that are gone: those at work have lost an attempt, the others have not begun."""
        begun: dict[str, int] = {}
        for key, job in list(self._jobs.items()):
            if job.worker in self._workers:
                continue
            del self._jobs[key]
            job.future.cancel()
            begun[job.worker] = begun.get(job.worker, 0) + 1
            if begun[job.worker] > self._threads[job.worker]:
                self._again.append(job)
            else:
                yield from self._died(job, "its worker died")

    def _died(self, job: _Job, error: str) -> Iterator[tuple[Task, Row]]:
        if job.attempts > self._retries:
            yield job.task, {"status": "crashed", "error": error, "attempts": job.attempts}
            return
        job.attempts += 1
        self._again.append(job)


def connect(
    scheduler: str | None, workers: int, folder: str, done: Callable[[Any], None]
) -> None:
    """Calls `done` with a Dask client: of a running scheduler, or of local workers in processes of their own."""
    if scheduler is not None:
        with distributed.Client(scheduler, set_as_default=False) as client:
            done(client)
        return
    with distributed.LocalCluster(
        n_workers=workers,
        threads_per_worker=1,
        processes=True,
        dashboard_address="127.0.0.1:0",
        memory_limit=0,
        local_directory=folder,
        silence_logs=logging.CRITICAL,
    ) as cluster, distributed.Client(cluster, set_as_default=False) as client:
        done(client)
