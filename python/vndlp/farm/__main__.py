"""The command line of the farm."""

from __future__ import annotations

import argparse
import contextlib
import importlib.util
import json
import os
import signal
import sys
import tempfile
from collections.abc import Iterator
from typing import Any

from .. import keys
from .._keys import value_text
from .columns import STATUSES, Row
from .sources import ENDINGS, Found, find
from .table import Table, digest
from .work import Task

INTERRUPTED = 130


class UsageError(Exception):
    """The command line is wrong; nothing has been done."""


def _parser() -> argparse.ArgumentParser:
    parser = argparse.ArgumentParser(
        prog="python3 -m vndlp.farm",
        description="Describes, verifies, checks or converts slice files by the thousand, on local workers or those of a "
        "Dask scheduler. A row a file.",
    )
    commands = parser.add_subparsers(dest="command", required=True, metavar="info|verify|check|convert")
    for name in ("info", "verify", "check", "convert"):
        command = commands.add_parser(name)
        command.add_argument("source", nargs="+", metavar="SOURCE", help="a folder, a slice file, @LIST, or -: a path a line")
        command.add_argument("-o", dest="output", required=True, metavar="FILE.ndjson|FILE.csv", help="where the rows go")
        command.add_argument("--scheduler", metavar="ADDRESS", help="a running scheduler, as tcp://host:8786")
        command.add_argument("--workers", type=_count, metavar="N", help="local workers; default: one a processor")
        command.add_argument("--resume", action="store_true", help="leave out files that have a row in FILE")
        command.add_argument("--force", action="store_true", help="replace FILE, and outputs that exist")
        command.add_argument("--retries", type=_count_or_none, default=1, metavar="N", help="more tries of a file that died")
        command.add_argument("--timeout", type=_seconds, metavar="S", help="seconds a file may take")
        command.add_argument("--quiet", action="store_true", help="no progress, no closing line")
        if name == "convert":
            command.add_argument("--to", required=True, metavar=".ctb", help="the new ending")
            command.add_argument("--out-dir", required=True, metavar="DIR", help="where the new files go")
            command.add_argument("--printer", metavar="FILE.json", help="a printer's settings and constants")
            command.add_argument("--set", action="append", default=[], metavar="KEY=VALUE", help="a setting")
            command.add_argument("--salvage", choices=("blank", "previous"), help="what becomes of hurt layers")
    return parser


def _count(text: str) -> int:
    if not text.isdigit() or int(text) < 1:
        raise argparse.ArgumentTypeError(f"{text}: 1 or more")
    return int(text)


def _count_or_none(text: str) -> int:
    return 0 if text == "0" else _count(text)


def _seconds(text: str) -> float:
    try:
        seconds = float(text)
    except ValueError:
        seconds = 0
    if not 0 < seconds < float("inf"):
        raise argparse.ArgumentTypeError(f"{text}: seconds above 0")
    return seconds


def _check(options: argparse.Namespace) -> None:
    if not options.output.lower().endswith((".ndjson", ".csv")):
        raise UsageError(f"-o {options.output}: the name must end in .ndjson or .csv")
    if options.resume and options.force:
        raise UsageError("--resume and --force exclude each other")
    if options.scheduler is not None and options.workers is not None:
        raise UsageError("--workers are local ones, which --scheduler does without")
    if os.path.lexists(options.output) and not (options.resume or options.force):
        raise UsageError(f"{options.output} exists; --resume goes on with it, --force replaces it")
    folder = os.path.dirname(options.output) or "."
    if not os.path.isdir(folder):
        raise UsageError(f"{folder}: no such folder")
    if sum(source == "-" for source in options.source) > 1:
        raise UsageError("- can stand once")
    for source in options.source:
        if source.startswith("@") and not os.access(source[1:], os.R_OK):
            raise UsageError(f"{source[1:]}: cannot be read")


def _conversion(options: argparse.Namespace) -> Task:
    """What all tasks of a conversion have in common."""
    ending = "." + options.to.lower().lstrip(".")
    if ending not in ENDINGS:
        raise UsageError(f"--to {options.to}: one of {' '.join(ENDINGS)}")
    settings: dict[str, str] = {}
    for entry in options.set:
        key, equals, value = entry.partition("=")
        if not equals:
            raise UsageError(f"--set {entry}: KEY=VALUE")
        if key not in keys or ending[1:] not in keys[key].formats:
            raise UsageError(f"--set {entry}: {ending} has no such key to set")
        try:
            value_text(key, value, ending[1:])
        except ValueError as error:
            raise UsageError(f"--set {error}") from None
        settings[key] = value
    printer = None
    if options.printer is not None:
        try:
            with open(options.printer, encoding="utf-8") as file:
                printer = json.load(file)
        except (OSError, ValueError) as error:
            raise UsageError(f"--printer {options.printer}: {error}") from None
        if not isinstance(printer, dict):
            raise UsageError(f"--printer {options.printer}: no printer: an object of JSON is wanted")
    return {
        "command": "convert",
        "ending": ending,
        "settings": settings,
        "printer": printer,
        "salvage": options.salvage,
        # what has no row although its output exists was cut off behind the conversion
        "replace": options.force or options.resume,
    }


def _output(options: argparse.Namespace, common: Task, found: Found) -> str:
    return os.path.join(options.out_dir, os.path.splitext(found.below)[0] + str(common["ending"]))


def _refuse_collisions(options: argparse.Namespace, common: Task) -> None:
    taken = set()
    for found in find(options.source):
        output = _output(options, common, found)
        if (name := digest(os.path.normpath(output))) in taken:
            raise UsageError(f"two files would become {output}")
        taken.add(name)
        if os.path.abspath(output) == os.path.abspath(found.file):
            raise UsageError(f"{output} would replace its own source")


def _tasks(options: argparse.Namespace, common: Task, table: Table) -> Iterator[Task]:
    for found in find(options.source):
        if table.is_done(found.file):
            continue
        # a worker's current folder is its own
        task = {**common, "file": found.file, "path": os.path.abspath(found.file)}
        if "ending" in common:
            task["output_as_given"] = _output(options, common, found)
            task["output"] = os.path.abspath(task["output_as_given"])
        yield task


def _row(task: Task, row: Row) -> Row:
    shown = {**row, "file": task["file"]}
    if shown.get("output") is not None:
        shown["output"] = task["output_as_given"]
    return shown


def _exit_code(command: str, table: Table) -> int:
    others = {status for status, count in table.statuses.items() if count and status != "ok"}
    if not others:
        return 0
    return 3 if command == "check" and others == {"findings"} else 1


def _closing_line(table: Table) -> str:
    counts = [
        f"{table.statuses[status]} {status}"
        for status in STATUSES
        if table.statuses[status] or status in ("ok", "damaged", "crashed")
    ]
    files = sum(table.statuses.values())
    return f"{files} file{'' if files == 1 else 's'}: " + ", ".join(counts)


class _Progress:
    """A count on a terminal, over itself."""

    def __init__(self, quiet: bool) -> None:
        self._shown = not quiet and sys.stderr.isatty()

    def show(self, table: Table) -> None:
        if self._shown:
            print(f"\r\x1b[K{sum(table.statuses.values())} files", end="", file=sys.stderr, flush=True)

    def clear(self) -> None:
        if self._shown:
            print("\r\x1b[K", end="", file=sys.stderr, flush=True)


def _run(options: argparse.Namespace, common: Task, table: Table, folder: str) -> None:
    from .client import Client, connect

    progress = _Progress(options.quiet)

    def work(dask_client: Any) -> None:
        client = Client(dask_client, options.retries, options.timeout)
        for task, row in client.rows(_tasks(options, common, table)):
            table.write(_row(task, row))
            progress.show(table)

    try:
        connect(options.scheduler, options.workers or os.cpu_count() or 1, folder, work)
    finally:
        progress.clear()


def _spool_standard_input(sources: list[str], folder: str) -> list[str]:
    """A conversion looks at its sources twice, so that a list on standard input is kept in a file."""
    spooled = os.path.join(folder, "standard-input")
    if "-" in sources:
        with open(spooled, "wb") as file:
            for line in sys.stdin.buffer:
                file.write(line)
    return ["@" + spooled if source == "-" else source for source in sources]


def _stop(_number: int, _frame: object) -> None:
    raise KeyboardInterrupt


def main(arguments: list[str]) -> int:
    """Runs the farm; returns the exit code."""
    # an option whose value may be left out would take the source behind it
    arguments = ["--salvage=blank" if argument == "--salvage" else argument for argument in arguments]
    options = _parser().parse_args(arguments)
    with contextlib.ExitStack() as stack:
        code = _farm(options, stack)
    return code


def _farm(options: argparse.Namespace, stack: contextlib.ExitStack) -> int:
    try:
        if importlib.util.find_spec("distributed") is None:
            raise UsageError("this needs Dask's scheduler: install python3-distributed")
        _check(options)
        folder = stack.enter_context(tempfile.TemporaryDirectory(prefix="vndlp-farm-"))
        common: Task = {"command": options.command}
        if options.command == "convert":
            common = _conversion(options)
            options.source = _spool_standard_input(options.source, folder)
            _refuse_collisions(options, common)
        table = Table(options.output, options.resume)
        stack.callback(table.close)
    except (UsageError, OSError, ValueError) as error:
        print(f"vndlp.farm: {error}", file=sys.stderr)
        return 2
    signal.signal(signal.SIGTERM, _stop)
    failed = False
    try:
        _run(options, common, table, folder)
    except KeyboardInterrupt:
        print("vndlp.farm: interrupted", file=sys.stderr)
        return INTERRUPTED
    except Exception as error:
        print(f"vndlp.farm: {str(error) or type(error).__name__}", file=sys.stderr)
        failed = True
    if not options.quiet:
        print(_closing_line(table), file=sys.stderr)
    return 1 if failed else _exit_code(options.command, table)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
