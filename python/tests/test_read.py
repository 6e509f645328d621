import json
import os
import subprocess
import threading
import time

import numpy as np
import pytest
from conftest import HEIGHT, IMAGE_FORMATS, LAYERS, WIDTH, draw, polylines

import vndlp


def runs_of(image):
    """The runs of an image, pixel by pixel: equal greys above 15, down each column."""
    found = []
    for column in range(image.shape[1]):
        for row in range(image.shape[0]):
            grey = image[row, column]
            if grey <= 15:
                continue
            if found and found[-1][1:] == (row - 1, column, grey, 0):
                found[-1] = (found[-1][0], row, column, grey, 0)
            else:
                found.append((row, row, column, grey, 0))
    return np.array([tuple(map(int, run)) for run in found], vndlp.RUN)


def test_layers_are_the_images_written(image_file):
    f = image_file
    assert (f.width, f.height, len(f.layers)) == (WIDTH, HEIGHT, LAYERS)
    for layer, image in enumerate(f.layers):
        assert np.array_equal(image, draw(layer))
        assert image.dtype == np.uint8 and image.flags.writeable and image.flags.c_contiguous
        assert np.array_equal(f.layers.runs(layer), runs_of(image))
        facts = f.layers.facts(layer)
        assert facts.lit_px == np.count_nonzero(image > 15) and facts.runs == len(runs_of(image))
        assert facts.z_mm == pytest.approx(0.05 * (layer + 1)) and facts.index == layer
    assert np.array_equal(f.layers[np.int64(-1)], draw(LAYERS - 1))
    view = f.layers[6:1:-2]
    assert type(view) is type(f.layers) and len(view) == 3
    assert np.array_equal(view[1], draw(4)) and np.array_equal(view[1:][-1], draw(2))
    assert view.facts(0).index == 6


def test_layers_are_decoded_into_any_memory(image_file):
    memory = np.full((2 * HEIGHT, 3 * WIDTH), 7, np.uint8)
    for out in (
        memory[:HEIGHT, :WIDTH],
        memory[1 : HEIGHT + 1, 5 : WIDTH + 5],
        memory[::2, :WIDTH],
        memory[:HEIGHT, ::3],
        memory[HEIGHT - 1 :: -1, :WIDTH],
    ):
        before = memory.copy()
        assert image_file.layers.read(3, out=out) is out
        assert np.array_equal(out, draw(3))
        out[...] = 7
        before[...] = 7
        assert np.array_equal(memory, before), "bytes beside the image were written"


@pytest.mark.parametrize(
    ("out", "error"),
    [
        (np.zeros((HEIGHT, WIDTH), np.int8), TypeError),
        (np.zeros((HEIGHT, WIDTH), bool), TypeError),
        (bytearray(HEIGHT * WIDTH), TypeError),
        (np.zeros((WIDTH, HEIGHT), np.uint8), ValueError),
        (np.zeros((HEIGHT, WIDTH, 1), np.uint8), ValueError),
        (np.broadcast_to(np.uint8(0), (HEIGHT, WIDTH)), ValueError),
    ],
)
def test_memory_that_is_no_image_is_refused(originals, out, error):
    with vndlp.open(originals["ctb"]) as f, pytest.raises(error):
        f.layers.read(0, out=out)


def test_indices_are_those_of_sequences(originals):
    with vndlp.open(originals["ctb"]) as f:
        for index in (LAYERS, -LAYERS - 1, 1 << 70):
            with pytest.raises(IndexError):
                f.layers[index]
        for index in (True, np.bool_(True), "1", 1.0, None):
            for ask in (f.layers.__getitem__, f.layers.facts, f.layers.runs, f.layers.settings, f.layers.beads):
                with pytest.raises(TypeError):
                    ask(index)
        with pytest.raises(TypeError):
            draw(0) in f.layers


def test_line_files_have_shapes_and_no_images(originals):
    with vndlp.open(originals["vnline"]) as f, vndlp.open(originals["ctb"]) as images:
        for layer in range(3):
            read = f.layers.paths(layer)
            assert [path.dtype for path in read] == [np.dtype(np.int32)] * 2
            assert all(np.array_equal(*pair) for pair in zip(read, polylines(layer)))
        for call in (lambda: f.layers[0], lambda: f.layers.runs(0), lambda: images.layers.paths(0)):
            with pytest.raises(vndlp.Error) as caught:
                call()
            assert caught.value.code == "kind"


def test_settings_are_typed_and_absent_ones_are_absent(originals):
    for name, path in originals.items():
        with vndlp.open(path) as f:
            assert f.format == name and f.settings["layer_height_mm"] == 0.05
            for key, value in f.settings.items():
                assert type(value) is vndlp.keys[key].type and name in vndlp.keys[key].formats
                assert vndlp.units[key] == vndlp.keys[key].unit
            with pytest.raises(KeyError):
                f.settings["no such key"]
            with pytest.raises(TypeError):
                f.settings["exposure_s"] = 1
            for field in ("no.such", "", "a\0b", 5):
                with pytest.raises(KeyError):
                    f.raw[field]
            fields = dict(f.raw)
            assert len(fields) == len(f.raw) and list(fields) == list(f.raw)
            data = open(path, "rb").read()
            for field in fields.values():
                assert 0 <= field.offset <= field.offset + field.size <= len(data)
            with vndlp.open(path) as again:
                assert all(again.raw[field] == fields[field] for field in list(fields)[::7])


def test_paths_memory_and_buffers_open_alike(originals, tmp_path):
    for name in IMAGE_FORMATS:
        data = open(originals[name], "rb").read()
        for source in (data, bytearray(data), memoryview(data), np.frombuffer(data, np.uint8)):
            with vndlp.open(source) as f:
                assert f.path is None and f.format == name
                assert np.array_equal(f.layers[5], draw(5))
    growing = bytearray(data)
    f = vndlp.open(growing)
    with pytest.raises(BufferError):
        growing.append(0)
    f.close()
    growing.append(0)


def test_errors_tell_what_and_where(tmp_path, originals):
    (tmp_path / "text.ctb").write_text("not a slice file, but long enough to be looked at")
    with pytest.raises(FileNotFoundError) as missing:
        vndlp.open(tmp_path / "none.ctb")
    assert isinstance(missing.value, vndlp.Error) and missing.value.code == "file"
    assert missing.value.errno == 2 and missing.value.filename == str(tmp_path / "none.ctb")
    for source in (tmp_path / "text.ctb", b"", b"too short"):
        with pytest.raises(vndlp.Error) as caught:
            vndlp.open(source)
        assert caught.value.code == "format" and caught.value.errno is None
    for source in (None, 5, 1.5, ["a"]):
        with pytest.raises(TypeError):
            vndlp.open(source)
    with pytest.raises(ValueError):
        vndlp.open("a\0b")


def test_a_damaged_layer_costs_itself_alone(originals, tmp_path):
    for name in IMAGE_FORMATS:
        data = bytearray(open(originals[name], "rb").read())
        with vndlp.open(bytes(data)) as f:
            facts = f.layers.facts(4)
        data[facts.offset + facts.bytes // 2 : facts.offset + facts.bytes] = b"\xff" * (facts.bytes - facts.bytes // 2)
        path = tmp_path / f"hurt.{name}"
        path.write_bytes(data)
        with vndlp.open(path) as f:
            with pytest.raises(vndlp.Error) as caught:
                f.layers[4]
            assert (caught.value.code, caught.value.layer) == ("damaged", 4)
            assert caught.value.filename == str(path)
            assert np.array_equal(f.layers[3], draw(3))
            assert {finding.severity for finding in f.verify() if finding.layer == 4} == {"error"}


def test_after_close_everything_is_refused(originals):
    f = vndlp.open(originals["vndlp"])
    layers, raw = f.layers, f.raw
    f.close()
    f.close()
    assert f.closed and "closed" in repr(f)
    asked = ["path", "format", "version", "width", "height", "layers", "settings", "raw", "previews", "preview_names"]
    for name in [*asked, "trailer"]:
        with pytest.raises(ValueError):
            getattr(f, name)
    for call in (f.info, f.verify, f.check, f.set, f.__enter__, lambda: layers[0], lambda: len(raw)):
        with pytest.raises(ValueError):
            call()


def test_closing_amid_reading_is_safe(originals):
    for _ in range(20):
        f = vndlp.open(originals["vndlpv4"])
        outcomes = []

        def read():
            try:
                while True:
                    outcomes.append(np.array_equal(f.layers[2], draw(2)))
            except ValueError:
                pass

        threads = [threading.Thread(target=read) for _ in range(3)]
        for thread in threads:
            thread.start()
        time.sleep(0.002)
        f.close()
        for thread in threads:
            thread.join(10)
        assert all(outcomes) and not any(thread.is_alive() for thread in threads)


def test_the_interpreter_goes_on_while_a_layer_is_decoded(tmp_path):
    path = tmp_path / "large.ctb"
    noise = np.random.default_rng(1).integers(0, 2, (3000, 4000), np.uint8) * 255
    with vndlp.create(path, width=4000, height=3000, layers=1) as w:
        w.add(noise)
    with vndlp.open(path) as f:
        out = np.empty_like(noise)
        began = time.perf_counter()
        f.layers.read(0, out)
        alone = time.perf_counter() - began
        stop, steps = threading.Event(), []

        def step():
            while not stop.is_set():
                steps.append(time.perf_counter())

        thread = threading.Thread(target=step)
        thread.start()
        began = time.perf_counter()
        f.layers.read(0, out)
        ended = time.perf_counter()
        stop.set()
        thread.join()
    assert np.array_equal(out, noise)
    # with the lock held there would be none in the middle of the call
    middle = [at for at in steps if began + alone * 0.2 < at < began + alone * 0.6 and at < ended]
    assert len(middle) > 10


def test_info_is_what_the_program_prints(originals):
    program = os.environ.get("VNDLP_PROGRAM")
    if not program:
        pytest.skip("VNDLP_PROGRAM names no program vndlp to compare with")
    for path in originals.values():
        described, with_layers = (
            json.loads(subprocess.run([program, "info", "--json", *extra, path], capture_output=True, check=True).stdout)
            for extra in ([], ["--layers"])
        )
        with vndlp.open(path) as f:
            assert json.loads(json.dumps(f.info())) == described
            assert json.loads(json.dumps(f.info(layers=True)["layer_table"])) == with_layers["layer_table"]


def test_check_finds_what_is_there(tmp_path):
    with vndlp.create(tmp_path / "a.vndlp", width=40, height=30, layers=4, layer_height_mm=0.05, exposure_s=2) as w:
        for layer in range(4):
            image = np.zeros((30, 40), bool)
            image[5:15, 5:15] = True
            image[20:24, 30:33] = layer == 2
            w.add(image)
    with vndlp.open(tmp_path / "a.vndlp") as f:
        (island,) = f.check(only="island")
        assert (island.severity, island.layer, island.last_layer, island.pixels) == ("error", 2, 2, 12)
        assert (island.x_px, island.y_px, island.centre_px) == ((30, 32), (20, 23), (31.0, 21.5))
        assert f.check(only=["island"], min_pixels=13) == []
        assert f.check(only="island", threshold=254) != [] and f.check(only="outside", margin_px=0) == []
        for wrong in ({"only": "isle"}, {"threshold": -1}, {"margin_px": -1}, {"overhang_um": float("nan")}):
            with pytest.raises(ValueError):
                f.check(**wrong)


def test_notebooks_get_a_page_without_other_packages(originals):
    with vndlp.open(originals["ctb"]) as f:
        page = f._repr_html_()
        assert page.count("<img") == len(f.previews) == len(f.preview_names)
        assert "exposure_s" in page and "\n" not in repr(f)
