"""The file of rows: written row by row, and taken up again."""

from __future__ import annotations

import csv
import hashlib
import io
import json
import os
from collections import Counter
from collections.abc import Iterator

from .columns import COLUMNS, Row, whole_row


def digest(name: str) -> bytes:
    """Stands for a name where many must be remembered."""
    return hashlib.blake2b(os.fsencode(name), digest_size=16).digest()


def _csv_line(cells: list[object]) -> bytes:
    line = io.StringIO()
    csv.writer(line, lineterminator="\n").writerow(cells)
    return line.getvalue().encode("utf-8", "surrogateescape")


class Table:
    """Rows as NDJSON or, for a name that ends in .csv, as CSV with a head line.

    Each row is written by one call, so that a file never ends inside one unless the system stops in the middle.
    """

    def __init__(self, path: str, resume: bool) -> None:
        self._csv = path.lower().endswith(".csv")
        self.statuses: Counter[str] = Counter()
        self._done: set[bytes] = set()
        length = self._read(path) if resume and os.path.exists(path) else 0
        self._file = open(path, "ab" if length else "wb", buffering=0)
        if length:
            self._file.truncate(length)
        elif self._csv:
            self._file.write(_csv_line(list(COLUMNS)))

    def is_done(self, file: str) -> bool:
        """Whether the file had a row before."""
        return bool(self._done) and digest(file) in self._done

    def write(self, known: Row) -> None:
        """Adds a row and hands it to the system."""
        row = whole_row(known)
        self.statuses[row["status"]] += 1
        if self._csv:
            self._file.write(_csv_line(list(row.values())))
        else:
            self._file.write(json.dumps(row).encode() + b"\n")

    def close(self) -> None:
        self._file.close()

    def _read(self, path: str) -> int:
        """Notes the rows that are there; returns the bytes they fill, without a row that was cut."""
        length = 0
        with open(path, "rb") as file:
            for number, record in enumerate(_records(file, self._csv)):
                if not self._csv:
                    row = json.loads(record)
                    self._note(row["file"], row["status"])
                elif number == 0:
                    if record != _csv_line(list(COLUMNS)):
                        raise ValueError(f"{path}: not the columns of this version")
                else:
                    cells = next(csv.reader(io.StringIO(record.decode("utf-8", "surrogateescape"), newline="")))
                    self._note(cells[0], cells[1])
                length += len(record)
        return length

    def _note(self, file: str, status: str) -> None:
        self._done.add(digest(file))
        self.statuses[status] += 1


def _records(file: io.BufferedReader, quoted: bool) -> Iterator[bytes]:
    """Whole lines; with `quoted` those whose quotes are closed, since a cell may hold line ends."""
    record = b""
    for line in file:
        record += line
        if line.endswith(b"\n") and not (quoted and record.count(b'"') % 2):
            yield record
            record = b""
