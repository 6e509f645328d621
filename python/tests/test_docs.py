"""The guide's blocks and the examples do what they say."""

import os
import re
import runpy
import sys
from pathlib import Path

import numpy as np
import pytest
from conftest import WIDTH, draw, write

import vndlp

ROOT = Path(__file__).absolute().parents[2]
GUIDE = Path(os.environ.get("VNDLP_GUIDE", ROOT / "docs" / "python.md"))
EXAMPLES = Path(os.environ.get("VNDLP_PYTHON_EXAMPLES", ROOT / "python" / "examples"))


def test_the_guide_runs_from_top_to_bottom(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    write("tower.vndlp")
    write("tower.ctb")
    data = Path("tower.vndlp").read_bytes()
    Path("cut.vndlp").write_bytes(data[:-40])
    blocks = re.findall(r"^```python\n(.*?)^```$", GUIDE.read_text(encoding="utf-8"), re.M | re.S)
    assert len(blocks) > 8
    names = {}
    before = vndlp.scrambling()
    for block in blocks:
        exec(compile(block, f"{GUIDE}: {block.splitlines()[0]}", "exec"), names)
    assert vndlp.scrambling()[:4] == before[:4]
    with vndlp.open("half.ctb") as f:
        seven_bits = draw(2) // 2 >> 1
        assert np.array_equal(f.layers[2], np.where(seven_bits, 2 * seven_bits + 1, 0))
    assert {path.name for path in tmp_path.iterdir()} >= {"cube.ctb", "copy.ctb", "mended.vndlp"}


@pytest.mark.parametrize(("example", "package"), [("contact_sheet", "PIL"), ("height_plot", "matplotlib")])
def test_pictures_are_drawn(originals, tmp_path, monkeypatch, example, package):
    pytest.importorskip(package)
    picture = tmp_path / "out.png"
    monkeypatch.setattr(sys, "argv", [example, originals["ctb"], str(picture)])
    runpy.run_path(str(EXAMPLES / f"{example}.py"), run_name="__main__")
    assert picture.read_bytes().startswith(b"\x89PNG") and picture.stat().st_size > 1000


def test_thin_walls_are_those_no_square_covers(originals, tmp_path, monkeypatch, capsys):
    image = np.zeros((64, WIDTH), np.uint8)
    image[10:30, 10:30] = 254
    image[40:60, 50:52] = 254  # two pixels thin
    image[10:30, 30:40] = 254
    image[2, 5:9] = 254  # one pixel thin
    with vndlp.create(tmp_path / "a.ctb", width=WIDTH, height=64, layers=1, layer_height_mm=0.05) as w:
        w.add(image)
    monkeypatch.setattr(sys, "argv", ["thin_walls", str(tmp_path / "a.ctb"), "3"])
    runpy.run_path(str(EXAMPLES / "thin_walls.py"), run_name="__main__")
    assert capsys.readouterr().out == "layer 0: 44 pixels in walls thinner than 3\n"
