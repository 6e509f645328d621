import csv
import json
import os
import shutil
import signal
import subprocess
import sys
import time
from pathlib import Path

import numpy as np
import pytest
from conftest import HEIGHT, LAYERS, WIDTH

import vndlp
from vndlp.farm.columns import COLUMNS

pytest.importorskip("distributed", reason="python3-distributed is not installed")

WAIT_S = 60


def start(*arguments, **options):
    return subprocess.Popen(
        [sys.executable, "-m", "vndlp.farm", *map(str, arguments)], stderr=subprocess.PIPE, text=True, **options
    )


def farm(*arguments, **options):
    """Exit code, last line on standard error and all of it."""
    process = start(*arguments, **options)
    _, errors = process.communicate(timeout=WAIT_S)
    return process.returncode, (errors.splitlines() or [""])[-1], errors


def rows_of(path):
    with open(path, newline="") as file:
        if path.suffix == ".csv":
            return {row["file"]: row for row in csv.DictReader(file)}
        return {row["file"]: row for row in map(json.loads, file)}


def until(condition):
    end = time.monotonic() + WAIT_S
    while not (found := condition()):
        assert time.monotonic() < end
        time.sleep(0.01)
    return found


def children_of(pid):
    found = []
    for entry in Path(f"/proc/{pid}/task").glob("*/children"):
        for child in map(int, entry.read_text().split()):
            found += [child, *children_of(child)]
    return found


def farm_children(pid):
    """Processes below one that are at work on files."""
    return [child for child in children_of(pid) if b"vndlp.farm.child" in Path(f"/proc/{child}/cmdline").read_bytes()]


@pytest.fixture
def jobs(originals, tmp_path):
    folder = tmp_path / "jobs"
    (folder / "below").mkdir(parents=True)
    for name in ("vndlp", "ctb", "vndlpv4", "vnline"):
        shutil.copy(originals[name], folder / "below" / f"a {name}.{name.upper()}")
    data = Path(originals["vndlp"]).read_bytes()
    (folder / "cut.vndlp").write_bytes(data[: len(data) // 2])
    (folder / "text.ctb").write_text("no slice file")
    (folder / "notes.txt").write_text("not looked at")
    return folder


def test_every_file_has_a_row(jobs, tmp_path):
    code, last, _ = farm("info", jobs, "-o", tmp_path / "i.ndjson", "--workers", 2)
    rows = rows_of(tmp_path / "i.ndjson")
    assert (code, last) == (1, "6 files: 4 ok, 1 damaged, 1 failed, 0 crashed")
    assert {tuple(row) for row in rows.values()} == {COLUMNS}
    row = rows[str(jobs / "below" / "a ctb.CTB")]
    with vndlp.open(row["file"]) as f:
        info = f.info()
    for column in COLUMNS[5:]:
        value = info
        for part in column.split(".", 1):
            value = value.get(part) if isinstance(value, dict) else None
        if column not in ("notes", "errors", "warnings"):
            assert row[column] == value, column
    assert (row["status"], row["error"], row["attempts"], row["output"]) == ("ok", None, 1, None)

    code, last, _ = farm("verify", jobs, "-o", tmp_path / "v.csv", "--workers", 1)
    cells = rows_of(tmp_path / "v.csv")
    assert code == 1 and set(cells) == set(rows) and tuple(next(iter(cells.values()))) == COLUMNS
    cut = cells[str(jobs / "cut.vndlp")]
    assert cut["status"] in ("findings", "damaged") and (int(cut["errors"] or 0) > 0 or cut["error"])
    assert cells[row["file"]]["errors"] == "0" and cells[row["file"]]["check.island"] == ""

    # what has a row is left out; a cut row is dropped, and its file done again
    for path, ends in ((tmp_path / "i.ndjson", b"\n"), (tmp_path / "v.csv", b"\n")):
        whole = path.read_bytes()
        path.write_bytes(whole[: whole.rstrip().rfind(ends) + 30])
        before = set(rows_of(path)) if path.suffix == ".csv" else None
        command = "info" if path.suffix == ".ndjson" else "verify"
        code, last, _ = farm(command, jobs, "-o", path, "--resume", "--workers", 1)
        assert code == 1 and last.startswith("6 files: ") and set(rows_of(path)) == set(rows), before
    assert farm("info", jobs, "-o", tmp_path / "i.ndjson")[0] == 2


def test_convert_writes_below_its_folder(jobs, tmp_path):
    out = tmp_path / "out"
    (jobs / "below" / "a vnline.VNLINE").unlink()
    listed = tmp_path / "list"
    listed.write_text(f"{jobs / 'below'}\n")
    options = ("--to", "vndlp", "--out-dir", out, "--set", "exposure_s=4", "--workers", 1)
    code, last, _ = farm("convert", jobs, "-o", tmp_path / "c.ndjson", *options, "--salvage")
    rows = rows_of(tmp_path / "c.ndjson")
    good = [row for row in rows.values() if row["status"] == "ok"]
    assert code == 1 and len(rows) == 5 and len(good) >= 3
    for row in good:
        assert row["output"] == str(out / os.path.relpath(row["file"], jobs).rsplit(".", 1)[0]) + ".vndlp"
        with vndlp.open(row["output"]) as f:
            assert f.settings["exposure_s"] == 4 and len(f.layers) == LAYERS and f.verify() == []
    # outputs that exist are no accident; from a list the paths are as below their folder
    code, _, _ = farm("convert", "-", "-o", tmp_path / "d.ndjson", *options, stdin=listed.open())
    assert code == 0 and (out / "a ctb.vndlp").exists()
    code, _, errors = farm("convert", f"@{listed}", "-o", tmp_path / "e.ndjson", *options)
    assert code == 1 and {row["status"] for row in rows_of(tmp_path / "e.ndjson").values()} == {"failed"}
    code, _, errors = farm("convert", f"@{listed}", jobs / "below", "-o", tmp_path / "f.csv", *options)
    assert code == 2 and "two files" in errors and not (tmp_path / "f.csv").exists()


def test_check_has_an_exit_code_of_its_own(tmp_path):
    settings = {"layer_height_mm": 0.05, "exposure_s": 2, "bottom_layers": 1}
    with vndlp.create(tmp_path / "fine.vndlp", width=WIDTH, height=HEIGHT, layers=2, **settings) as w:
        for _ in range(2):
            w.add(np.pad(np.ones((HEIGHT - 10, WIDTH - 10), bool), 5))
    with vndlp.create(tmp_path / "island.vndlp", width=WIDTH, height=HEIGHT, layers=2, **settings) as w:
        w.add(np.pad(np.ones((20, 20), bool), ((5, HEIGHT - 25), (5, WIDTH - 25))))
        w.add(np.pad(np.ones((20, 20), bool), ((30, HEIGHT - 50), (50, WIDTH - 70))))
    code, last, _ = farm("check", tmp_path / "fine.vndlp", "-o", tmp_path / "a.ndjson", "--workers", 1)
    assert (code, last) == (0, "1 file: 1 ok, 0 damaged, 0 crashed")
    code, last, _ = farm("check", tmp_path, "-o", tmp_path / "b.ndjson", "--workers", 1)
    (row,) = [row for row in rows_of(tmp_path / "b.ndjson").values() if row["status"] == "findings"]
    assert code == 3 and row["file"].endswith("island.vndlp") and row["errors"] > 0 and row["check.island"] > 0


@pytest.mark.parametrize(
    "arguments",
    [
        ("info", "x", "-o", "a.txt"),
        ("info", "x", "-o", "none/a.csv"),
        ("info", "@none", "-o", "a.csv"),
        ("info", "x", "-o", "a.csv", "--scheduler", "tcp://a:1", "--workers", "2"),
        ("info", "x", "-o", "a.csv", "--workers", "0"),
        ("info", "x", "-o", "a.csv", "--timeout", "-1"),
        ("info", "-o", "a.csv"),
        ("convert", "x", "-o", "a.csv", "--out-dir", "d"),
        ("convert", "x", "-o", "a.csv", "--out-dir", "d", "--to", "stl"),
        ("convert", "x", "-o", "a.csv", "--out-dir", "d", "--to", "ctb", "--set", "no_such=1"),
        ("convert", "x", "-o", "a.csv", "--out-dir", "d", "--to", "ctb", "--set", "exposure_s=x"),
        ("convert", "x", "-o", "a.csv", "--out-dir", "d", "--to", "ctb", "--printer", "none.json"),
        ("draw", "x", "-o", "a.csv"),
    ],
)
def test_wrong_use_does_nothing(arguments, tmp_path):
    code, _, errors = farm(*arguments, cwd=tmp_path)
    assert code == 2 and errors and os.listdir(tmp_path) == []


def test_a_file_that_kills_or_hangs_costs_itself(originals, tmp_path):
    # opening a pipe without a writer hangs; the process that does so is killed here, as by a fault of its own
    jobs = tmp_path / "jobs"
    jobs.mkdir()
    for number in range(6):
        shutil.copy(originals["ctb"], jobs / f"{number}.ctb")
    os.mkfifo(jobs / "2 hangs.ctb")
    process = start("info", jobs, "-o", tmp_path / "a.ndjson", "--workers", 1)

    table = tmp_path / "a.ndjson"
    killed = set()
    # one worker takes the files in their order, the second try behind the three that it had already
    for done in (2, 5):
        until(lambda: table.exists() and table.read_bytes().count(b"\n") == done)
        (child,) = until(lambda: set(farm_children(process.pid)) - killed)
        os.kill(child, signal.SIGSEGV)
        killed.add(child)
    _, errors = process.communicate(timeout=WAIT_S)
    rows = rows_of(tmp_path / "a.ndjson")
    crashed = rows[str(jobs / "2 hangs.ctb")]
    assert (crashed["status"], crashed["attempts"]) == ("crashed", 2) and "signal 11" in crashed["error"]
    assert process.returncode == 1 and errors.splitlines()[-1] == "7 files: 6 ok, 0 damaged, 1 crashed"
    code, last, _ = farm("info", jobs, "-o", tmp_path / "b.ndjson", "--workers", 2, "--timeout", 4)
    assert (code, last) == (1, "7 files: 6 ok, 0 damaged, 0 crashed, 1 timeout")


def test_a_worker_that_dies_midway_costs_nothing(originals, tmp_path):
    jobs = tmp_path / "jobs"
    jobs.mkdir()
    for number in range(300):
        os.link(originals["vndlpv4"], jobs / f"{number}.vndlpv4")
    scheduler_file = tmp_path / "scheduler.json"
    common = {"cwd": tmp_path, "stderr": subprocess.DEVNULL, "stdout": subprocess.DEVNULL}
    cli = [sys.executable, "-m"]
    dask = [
        subprocess.Popen(
            [*cli, "distributed.cli.dask_scheduler", "--port", "0", "--no-dashboard", "--host", "127.0.0.1"]
            + ["--scheduler-file", str(scheduler_file)],
            **common,
        )
    ]
    try:
        until(scheduler_file.exists)
        address = json.loads(scheduler_file.read_text())["address"]
        worker = ["distributed.cli.dask_worker", address, "--nthreads", "1", "--no-nanny", "--no-dashboard"]
        dask += [subprocess.Popen([*cli, *worker, "--local-directory", str(tmp_path)], **common) for _ in range(2)]
        process = start("verify", jobs, "-o", tmp_path / "a.ndjson", "--scheduler", address)

        def rows():
            return (tmp_path / "a.ndjson").read_bytes().count(b"\n") if (tmp_path / "a.ndjson").exists() else 0

        until(lambda: rows() > 40)
        children = children_of(dask[1].pid)
        dask[1].kill()
        killed_at = rows()
        _, errors = process.communicate(timeout=WAIT_S)
        assert killed_at < 300, "the worker died too late to matter"
        assert (process.returncode, errors.splitlines()[-1]) == (0, "300 files: 300 ok, 0 damaged, 0 crashed")
        found = (tmp_path / "a.ndjson").read_text().splitlines()
        assert len(found) == len(rows_of(tmp_path / "a.ndjson")) == 300
        assert children and until(lambda: not any(Path(f"/proc/{child}").exists() for child in children))
    finally:
        for started in dask:
            started.kill()
            started.wait()


def test_an_interrupted_run_leaves_whole_rows(originals, tmp_path):
    jobs = tmp_path / "jobs"
    jobs.mkdir()
    for number in range(400):
        os.link(originals["vndlp"], jobs / f"{number}.vndlp")
    table = tmp_path / "a.csv"
    process = start("verify", jobs, "-o", table, "--workers", 1)
    until(lambda: table.exists() and table.read_bytes().count(b"\n") > 3)
    process.send_signal(signal.SIGINT)
    process.communicate(timeout=WAIT_S)
    assert process.returncode == 130
    rows = rows_of(table)
    assert 3 <= len(rows) < 400 and all(row["status"] == "ok" for row in rows.values())
