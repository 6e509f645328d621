"""Which files a command works on."""

from __future__ import annotations

import os
import sys
from collections.abc import Iterable, Iterator
from typing import NamedTuple

ENDINGS = (".vndlp", ".vnline", ".ctb", ".vndlpv4")


class Found(NamedTuple):
    """A file, and its path below the source it was found in."""

    file: str
    below: str


def _walk(folder: str) -> Iterator[str]:
    with os.scandir(folder) as scan:
        entries = sorted(scan, key=lambda entry: entry.name)
    for entry in entries:
        if entry.is_dir(follow_symlinks=False):
            yield from _walk(entry.path)
        elif entry.name.lower().endswith(ENDINGS):
            yield entry.path


def _from(path: str) -> Iterator[Found]:
    if not os.path.isdir(path):
        yield Found(path, os.path.basename(path))
        return
    for file in _walk(path):
        yield Found(file, os.path.relpath(file, path))


def _lines(stream: Iterable[bytes]) -> Iterator[Found]:
    for line in stream:
        path = os.fsdecode(line.rstrip(b"\r\n"))
        if path:
            yield from _from(path)


def find(sources: Iterable[str]) -> Iterator[Found]:
    """The files of all sources, one after the other; no list of them is ever held.

    Args:
        sources: folders, files, "@LIST" or "-" for standard input, both with a path a line.
    """
    for source in sources:
        if source == "-":
            yield from _lines(sys.stdin.buffer)
        elif source.startswith("@"):
            with open(source[1:], "rb") as lines:
                yield from _lines(lines)
        else:
            yield from _from(source)
