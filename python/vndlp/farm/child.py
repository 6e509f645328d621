"""A child process of a worker: a task a line on standard input, its row a line on standard output.

The first line, without a row, says that it is ready.
"""

from __future__ import annotations

import json
import os
import queue
import sys
import threading

from .work import Task, work_on


def main() -> None:
    """Works until standard input ends; then at once, even amid a file, since nobody waits for its row any more."""
    rows = os.fdopen(os.dup(1), "w", encoding="utf-8")
    # whatever else is printed in this process must not get between the rows
    os.dup2(2, 1)
    tasks: queue.Queue[Task] = queue.Queue()

    def read() -> None:
        for line in sys.stdin:
            tasks.put(json.loads(line))
        os._exit(0)

    threading.Thread(target=read, daemon=True).start()
    print("{}", file=rows, flush=True)
    while True:
        print(json.dumps(work_on(tasks.get())), file=rows, flush=True)


if __name__ == "__main__":
    main()
