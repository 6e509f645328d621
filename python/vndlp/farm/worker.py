"""What runs on a worker: tasks handed on to the child process of the thread."""

from __future__ import annotations

import json
import os
import select
import subprocess
import sys
import threading
from typing import cast

from .columns import Row
from .work import Task

_of_thread = threading.local()


class _Child:
    """A child process that does one task after the other."""

    def __init__(self) -> None:
        # a child that dies has told its reason by its signal; what it prints belongs to nobody
        self._process = subprocess.Popen(
            [sys.executable, "-m", "vndlp.farm.child"],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            stderr=subprocess.DEVNULL,
            bufsize=0,
        )
        self._is_ready = False

    def do(self, task: Task, timeout: float | None) -> Row:
        """The task's row; status "died" or "timeout" where the child is no more."""
        assert self._process.stdin is not None
        try:
            # its first line says that it has begun: a file's time does not count what the interpreter takes to start
            if not self._is_ready:
                self._is_ready = self._line(None) is not None
            self._process.stdin.write(json.dumps(task).encode() + b"\n")
            line = self._line(timeout)
        except BrokenPipeError:
            line = None
        except TimeoutError:
            return {"status": "timeout", "error": f"took longer than {timeout:g} s"}
        if line is not None:
            return cast(Row, json.loads(line))
        code = self._process.wait()
        reason = f"signal {-code}" if code < 0 else f"exit status {code}"
        return {"status": "died", "error": f"the process at work on it ended by {reason}"}

    def _line(self, timeout: float | None) -> bytes | None:
        """The next whole line of the child; None where it has ended."""
        assert self._process.stdout is not None
        line = b""
        while not line.endswith(b"\n"):
            ready, _, _ = select.select([self._process.stdout], [], [], timeout)
            if not ready:
                raise TimeoutError
            piece = os.read(self._process.stdout.fileno(), 1 << 16)
            if not piece:
                return None
            line += piece
        return line

    def end(self) -> None:
        self._process.kill()
        self._process.wait()
        for pipe in (self._process.stdin, self._process.stdout):
            if pipe is not None:
                pipe.close()


def run(task: Task, timeout: float | None) -> Row:
    """Does a task in this thread's child, which is started for the first one and after one that died."""
    child = cast("_Child | None", getattr(_of_thread, "child", None))
    if child is None:
        child = _of_thread.child = _Child()
    row = child.do(task, timeout)
    if row["status"] in ("died", "timeout"):
        _of_thread.child = None
        child.end()
    return row
