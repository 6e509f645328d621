"""Runs the command lines of README.md, docs/guide.md and docs/vndlp.1 as they stand, beside the sample job as tower.sl1,
and compares what they print with what README.md shows. Arguments: the program, the source folder."""

import os
import re
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

program, source = Path(sys.argv[1]).resolve(), Path(sys.argv[2])
environment = {**os.environ, "PATH": f"{program.parent}{os.pathsep}{os.environ['PATH']}"}


def shown_in_readme():
    for block in re.findall(r"^```\n(.*?)^```", (source / "README.md").read_text(), re.M | re.S):
        for part in re.split(r"^\$ ", block, flags=re.M)[1:]:
            yield tuple(text.strip() for text in part.partition("\n")[::2])


def in_guide():
    yield "vndlp convert tower.sl1 tower.vndlp", None
    for line in re.findall(r"^    (vndlp .*)$", (source / "docs/guide.md").read_text(), re.M):
        # forms have names in capitals, and what comes behind a pipe is not ours
        if not re.search(r"\b[A-Z]{3,}|\.\.\.|\[", line):
            yield line.partition(" | ")[0], None


def in_manual():
    page = (source / "docs/vndlp.1").read_text()
    for line in re.search(r"^\.SH EXAMPLES\n\.nf\n(.*?)^\.fi", page, re.M | re.S)[1].splitlines():
        yield line.replace("\\-", "-"), None


failed = 0
for page in (shown_in_readme, in_guide, in_manual):
    commands = list(page())
    assert len(commands) >= 3, page.__name__
    with tempfile.TemporaryDirectory() as folder:
        shutil.copy(source / "examples/lattice_tower.sl1", Path(folder) / "tower.sl1")
        for command, shown in commands:
            run = subprocess.run(command, shell=True, cwd=folder, env=environment, text=True,
                                 stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
            if run.returncode != 0 or shown not in (None, run.stdout.strip()):
                failed += 1
                print(f"{page.__name__}: {command}\nexit status {run.returncode}\n{run.stdout}instead of\n{shown}")
sys.exit(failed > 0)
