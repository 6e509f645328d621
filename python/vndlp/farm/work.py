"""The work on one file, done in a child process."""

from __future__ import annotations

import os
import time
from collections import Counter
from collections.abc import Iterable
from typing import Any

from .. import CheckFinding, Error, File, Finding, convert, open
from .._file import CHECK_KINDS
from .._library import lib
from .columns import Row

Task = Row
"""What a child is told: command, path, and for convert output, printer, salvage, settings, replace."""


def work_on(task: Task) -> Row:
    """Does a task; whatever goes wrong with the file is part of the row."""
    row: Row = {"status": "ok"}
    began = time.monotonic()
    try:
        with open(task["path"]) as file:
            row.update(_describe(file))
            _COMMANDS[task["command"]](file, task, row)
    except Error as error:
        row["status"] = "damaged" if error.code == "damaged" else "failed"
        # the row names the file
        row["error"] = error.strerror
    except (OSError, ValueError) as error:
        row["status"], row["error"] = "failed", str(error)
    row["seconds"] = round(time.monotonic() - began, 3)
    return row


def _describe(file: File) -> Row:
    described = file._summary()
    row: Row = {key: value for key, value in described.items() if not isinstance(value, dict)}
    for group in ("pixel_um", "size_mm", "print_time", "trailer", "settings"):
        row.update({f"{group}.{name}": value for name, value in described[group].items()})
    return row


def _info(file: File, _task: Task, row: Row) -> None:
    errors = [finding for finding in file._findings(lib.vndlp_verify_structure) if finding.severity == "error"]
    if errors:
        row["status"], row["error"] = "damaged", _words(errors[0])


def _words(finding: Finding | CheckFinding) -> str:
    # the texts of a check name their layers themselves
    in_layer = isinstance(finding, Finding) and finding.layer is not None
    return f"layer {finding.layer}: {finding.text}" if in_layer else finding.text


def _count(findings: Iterable[Any], row: Row) -> None:
    found = list(findings)
    severities = Counter(finding.severity for finding in found)
    for severity in ("error", "warning", "note"):
        row[severity + "s"] = severities[severity]
    if found:
        row["first_finding"] = _words(found[0])
    if severities["error"]:
        row["status"] = "findings"


def _verify(file: File, _task: Task, row: Row) -> None:
    _count(file.verify(), row)


def _check(file: File, _task: Task, row: Row) -> None:
    findings = file.check()
    _count(findings, row)
    kinds = Counter(finding.kind for finding in findings)
    row.update({f"check.{kind}": kinds[kind] for kind in CHECK_KINDS})


def _convert(file: File, task: Task, row: Row) -> None:
    os.makedirs(os.path.dirname(task["output"]), exist_ok=True)
    notes = convert(
        file,
        task["output"],
        printer=task["printer"],
        salvage=task["salvage"],
        force=task["replace"],
        **task["settings"],
    )
    row["output"] = task["output"]
    kept = [note.split(": ", 1)[1] for note in notes if note.startswith("not kept in ")]
    row["not_kept"] = ", ".join(kept) or None


_COMMANDS = {"info": _info, "verify": _verify, "check": _check, "convert": _convert}
