"""Whole files: converted and repaired."""

from __future__ import annotations

import errno
import json
import os
from collections.abc import Mapping
from typing import Any, NamedTuple, Union

from ._errors import Error
from ._file import File, Finding, Source, finding_of
from ._keys import Value, keys, value_text
from ._library import Callback, checked, ffi, lib, new, path_bytes, sure_text

Printer = Union[str, "os.PathLike[str]", Mapping[str, Any]]
_SALVAGE = {
    None: lib.VNDLP_SALVAGE_NO,
    "blank": lib.VNDLP_SALVAGE_BLANK,
    "previous": lib.VNDLP_SALVAGE_PREVIOUS,
}


class Scrambling(NamedTuple):
    """Constants of the CTB scrambling."""

    km: int
    ks: int
    lm: int
    ls: int
    illustrative: bool
    """Whether they are the library's own, which no machine uses."""


class Repaired(NamedTuple):
    """What became of a repaired file."""

    layers: int
    """Layers kept."""
    of: int | None
    """Layers that the file's head promises; None where it cannot be read."""
    findings: list[Finding]
    """What was left out, and why."""


def scrambling() -> Scrambling:
    """The constants of the CTB scrambling in force."""
    found = new("VndlpScrambling")
    checked(lib.vndlp_scrambling(found))
    return Scrambling(found.km, found.ks, found.lm, found.ls, bool(found.illustrative))


def set_scrambling(km: int, ks: int, lm: int, ls: int) -> None:
    """Sets the constants of the CTB scrambling, for the whole process; before files are opened."""
    constants = new("VndlpScrambling")
    for name, value in (("km", km), ("ks", ks), ("lm", lm), ("ls", ls)):
        if isinstance(value, bool) or not 0 <= value < 1 << 32:
            raise ValueError(f"{name}={value!r}: 0 to 4294967295")
        setattr(constants, name, value)
    checked(lib.vndlp_set_scrambling(constants))


def _refuse_existing(path: str | os.PathLike[str]) -> None:
    if os.path.lexists(path):
        raise FileExistsError(errno.EEXIST, os.strerror(errno.EEXIST), os.fspath(path))


def convert(
    input: Source | File,
    output: str | os.PathLike[str],
    *,
    printer: Printer | None = None,
    salvage: str | None = None,
    force: bool = False,
    **settings: Value,
) -> list[str]:
    """Writes a file anew, in the format of the output's ending; within one format nothing is lost.

    Args:
        input: what `vndlp.open` takes, or an open file.
        output: takes its name when it is complete.
        printer: a printer's file of the program, or what stands in it: settings and constants, and what the job must
            fit.
        salvage: what becomes of hurt layers: None: nothing is written; "blank"; "previous": the layer below once more.
        force: whether an existing output is replaced.
        settings: values by the keys of `vndlp.keys`; they win over the printer's.

    Returns:
        A note a line: what could not be kept, what was rounded, what became of hurt layers.

    Raises:
        FileExistsError: the output exists.
        ValueError: a setting, an ending, or a job that does not fit the printer.
        Error: the input is damaged, the output cannot be written, or one holds images and the other lines ("kind").
    """
    if salvage not in _SALVAGE:
        raise ValueError(f"salvage={salvage!r}: None, 'blank' or 'previous'")
    target = path_bytes(output)
    if not force:
        _refuse_existing(output)
    described = _printer(printer)
    constants = described.pop("ctb_constants", None)
    if constants is not None:
        set_scrambling(**constants)
    file = input if isinstance(input, File) else File(input)
    try:
        # the resolution is the layers', which are not changed: it must fit
        values = {key: value for key, value in described.items() if key in keys and not key.startswith("resolution_")}
        values.update(settings)
        if printer is not None:
            _check_fit(file, described, values)
        return _convert(file, output, target, _SALVAGE[salvage], values)
    finally:
        if file is not input:
            file.close()


def _convert(
    file: File, output: str | os.PathLike[str], target: bytes, salvage: int, values: Mapping[str, Value]
) -> list[str]:
    format_name = os.path.splitext(os.fspath(output))[1][1:].lower()
    keep: list[Any] = []
    changes = ffi.new("VndlpChange[]", max(len(values), 1))
    for change, (key, value) in zip(changes, values.items()):
        keep += [ffi.new("char[]", key.encode("utf-8")), ffi.new("char[]", value_text(key, value, format_name))]
        change.size = ffi.sizeof("VndlpChange")
        change.key, change.value = keep[-2:]
    options = new("VndlpConvertOptions")
    options.salvage = salvage
    options.changes = changes
    options.change_count = len(values)
    notes: list[str] = []
    callback = Callback("VndlpFindingFn", lambda note: notes.append(sure_text(note.text)))
    with file._handle as source:
        callback.checked(
            lib.vndlp_convert(source, target, options, callback.pointer, ffi.NULL),
            file.path,
            ", ".join(f"{key}={value!r}" for key, value in values.items()) + f" in .{format_name}",
        )
    return notes


def _printer(printer: Printer | None) -> dict[str, Any]:
    if printer is None:
        return {}
    if isinstance(printer, Mapping):
        name, described = "printer", dict(printer)
    else:
        name = os.fspath(printer)
        with open(name, encoding="utf-8") as file:
            described = json.load(file)
        if not isinstance(described, dict):
            raise ValueError(f"{name}: no printer: an object of JSON is wanted")
    known = {*keys, "mirror", "ctb_constants", "ctb_key", "previews", "name", "comment"}
    for key in described:
        if key not in known:
            raise ValueError(f"{name}: {key}: no such key")
    for key in ("ctb_key", "previews"):
        if key in described:
            raise ValueError(f"{name}: {key}: only the program vndlp does that")
    return described


def _check_fit(file: File, described: Mapping[str, Any], values: Mapping[str, Value]) -> None:
    """Refuses a job that the printer could not print as it is."""
    info = file._info
    faults = []
    if described.get("mirror"):
        faults.append(f"mirror {described['mirror']}: the printer wants mirrored images")
    for key, had, side in (("resolution_x", file.width, "wide"), ("resolution_y", file.height, "high")):
        if key in described and described[key] != had:
            faults.append(f"{key}: the printer's screen is {described[key]} pixels {side}, the job {had}")
    for axis, side, had_um in (("x", "width", info.pixel_x_um), ("y", "height", info.pixel_y_um)):
        display, resolution = described.get(f"display_{side}_mm"), described.get(f"resolution_{axis}")
        if display and resolution and abs(had_um * resolution / display / 1000 - 1) > 0.01:
            wanted_um = 1000 * display / resolution
            faults.append(f"pixels of the printer are {wanted_um:g} um in {axis}, of the job {had_um:g} um")
    machine, job_machine = described.get("machine"), file.settings.get("machine")
    if machine and job_machine and machine != job_machine and values.get("machine") == machine:
        faults.append(f"the printer is {machine}, the job is for {job_machine}")
    if faults:
        raise ValueError("the job does not fit the printer: " + "; ".join(faults))


def repair(input: str | os.PathLike[str], output: str | os.PathLike[str]) -> Repaired:
    """Writes the whole layers of a cut or damaged file into a new one.

    Args:
        input: the file.
        output: takes its name when it is complete.

    Raises:
        FileExistsError: the output exists.
        Error: there is nothing to keep, or a file cannot be read or written.
    """
    _refuse_existing(output)
    source, target = path_bytes(input), path_bytes(output)
    lost: list[Finding] = []
    callback = Callback("VndlpFindingFn", lambda found: lost.append(finding_of(found)))
    kept = callback.checked(
        lib.vndlp_repair(source, target, callback.pointer, ffi.NULL), os.fspath(input)
    )
    try:
        with File(input) as file:
            promised: int | None = len(file.layers)
    except Error:
        promised = None
    return Repaired(kept, promised, lost)
