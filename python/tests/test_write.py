import os
import pickle
import shutil
from concurrent.futures import ThreadPoolExecutor

import numpy as np
import pytest
from conftest import HEIGHT, IMAGE_FORMATS, LAYERS, WIDTH, draw, polylines, write

import vndlp


def start(path, layers=LAYERS, **settings):
    return vndlp.create(path, width=WIDTH, height=HEIGHT, layers=layers, **settings)


@pytest.fixture(params=IMAGE_FORMATS)
def target(request, tmp_path):
    return tmp_path / f"out.{request.param}"


def test_images_of_any_memory_are_the_same_file(target):
    wide = np.full((2 * HEIGHT, 3 * WIDTH), 9, np.uint8)
    fixed = draw(0)
    fixed.flags.writeable = False
    wide[::2, :WIDTH], wide[1::2, ::3] = draw(0), draw(0)
    images = [
        fixed,
        wide[::2, :WIDTH],
        wide[1::2, ::3],
        np.asfortranarray(draw(0)),
        draw(0)[::-1].copy()[::-1],
        draw(0) > 250,
        (draw(0) > 250).T.copy().T,
    ]
    with start(target, len(images)) as w:
        for image in images:
            w.add(image)
    with vndlp.open(target) as f:
        for layer in f.layers[:5]:
            assert np.array_equal(layer, draw(0))
        for layer in f.layers[5:]:
            assert np.array_equal(layer > 250, draw(0) > 250) and set(np.unique(layer)) == {0, 255}


def test_threads_write_layers_in_any_order(target):
    with start(target, 40) as w, ThreadPoolExecutor(4) as pool:
        list(pool.map(lambda i: w.__setitem__(i - 40, draw(i)), reversed(range(40))))
    with vndlp.open(target) as f:
        assert f.verify() == [] or {finding.severity for finding in f.verify()} == {"note"}
        assert all(np.array_equal(image, draw(i)) for i, image in enumerate(f.layers))


@pytest.mark.parametrize(
    ("layer", "error", "words"),
    [
        (draw(0).astype(np.float32), TypeError, "float32"),
        (draw(0).tolist(), TypeError, "int64"),
        (draw(0)[:-1], ValueError, f"({HEIGHT - 1}, {WIDTH})"),
        (draw(0)[..., None], ValueError, f"({HEIGHT}, {WIDTH})"),
    ],
)
def test_layers_that_are_no_images_are_refused(tmp_path, layer, error, words):
    w = start(tmp_path / "a.ctb", 1)
    with pytest.raises(error) as caught:
        w.add(layer)
    assert words in str(caught.value)
    w.add(draw(0))
    w.finish()


def test_wrong_orders_are_named_and_leave_what_was_there(target):
    def fill_badly(work):
        with pytest.raises((ValueError, IndexError)) as caught, start(target, 3) as w:
            work(w)
        return caught.value

    target.write_bytes(b"before")
    for work, words in (
        (lambda w: [w.add(draw(i)) for i in range(4)], "3"),
        (lambda w: w.add(draw(0)), "1"),
        (lambda w: [w.__setitem__(1, draw(0)) for _ in range(2)], "1"),
        (lambda w: (w.add(draw(0)), w.__setitem__(1, draw(1))), "add"),
        (lambda w: (w.__setitem__(1, draw(0)), w.add_runs(np.zeros(0, vndlp.RUN))), "add"),
        (lambda w: w.__setitem__(3, draw(0)), "3"),
        (lambda w: (w.add(draw(0)), setattr(w, "previews", [np.zeros((9, 9, 3), np.uint8)])), ""),
        (lambda w: (w.add(draw(0)), w.layer_settings.__setitem__(0, {"exposure_s": 3})), "exposure_s"),
    ):
        raised = fill_badly(work)
        assert words in str(raised), raised
        assert target.read_bytes() == b"before" and os.listdir(target.parent) == [target.name]
    with pytest.raises(IndexError), start(target, 3) as w:
        w[-4] = draw(0)
    w = start(target, 1)
    w.add(draw(0))
    w.cancel()
    w.cancel()
    with pytest.raises(ValueError):
        w.add(draw(0))
    with start(target, 1) as w:
        w.cancel()
    assert target.read_bytes() == b"before" and os.listdir(target.parent) == [target.name]


@pytest.mark.parametrize(
    ("settings", "words"),
    [
        ({"no_such_key": 1}, "no_such_key"),
        ({"exposure_s": "soon"}, "soon"),
        ({"exposure_s": float("nan")}, "nan"),
        ({"exposure_s": True}, "True"),
        ({"exposure_s": -1}, "-1"),
        ({"exposure_s": 1e300}, "1e+300"),
        ({"machine": 5}, "5"),
    ],
)
def test_settings_without_sense_are_named(tmp_path, originals, settings, words):
    (key,) = settings
    copy = shutil.copy(originals["ctb"], tmp_path)
    for name in IMAGE_FORMATS:
        with pytest.raises(ValueError) as caught:
            start(tmp_path / f"a.{name}", **settings)
        assert all(word in str(caught.value) for word in (key, words, name))
        with pytest.raises(ValueError) as caught:
            vndlp.convert(originals["ctb"], tmp_path / f"b.{name}", **settings)
        assert all(word in str(caught.value) for word in (key, words, name))
    with vndlp.open(copy) as f, pytest.raises(ValueError) as caught:
        f.set(**settings)
    assert key in str(caught.value) and open(copy, "rb").read() == open(originals["ctb"], "rb").read()
    assert os.listdir(tmp_path) == ["tower.ctb"]


def test_sizes_and_places_without_sense_are_refused(tmp_path):
    for change in ({"width": 0}, {"height": -1}, {"layers": 0}, {"layers": 70000, "path": "a.vndlp"}, {"path": "a.stl"}):
        given = {"path": "a.ctb", "width": WIDTH, "height": HEIGHT, "layers": 1, **change}
        with pytest.raises((ValueError, vndlp.Error)):
            vndlp.create(tmp_path / given.pop("path"), **given)
    with pytest.raises(FileNotFoundError):
        start(tmp_path / "none" / "a.ctb")
    assert os.listdir(tmp_path) == []


def test_what_is_like_a_file_has_its_settings_and_layers(target, originals):
    name = target.suffix[1:]
    with vndlp.open(originals[name]) as f:
        with start(target, like=f, exposure_s=7) as w:
            f.close()
            w.previews = [np.full((20, 30, 3), (200, 100, 0), np.uint8)]
            with vndlp.open(originals[name]) as source:
                for layer in range(LAYERS):
                    if layer % 2:
                        w.copy(source, layer)
                    else:
                        w.add_runs(source.layers.runs(layer))
                settings = dict(source.settings)
    with vndlp.open(target) as f:
        assert dict(f.settings) == {**settings, "exposure_s": 7}
        assert all(np.array_equal(image, draw(i)) for i, image in enumerate(f.layers))
        middle = f.previews[0][f.previews[0].shape[0] // 2, f.previews[0].shape[1] // 2]
        assert np.abs(middle.astype(int) - (200, 100, 0)).max() <= 8


def test_runs_and_polylines_without_sense_are_refused(tmp_path):
    with pytest.raises(TypeError), start(tmp_path / "a.ctb", 1) as w:
        w.add_runs(np.zeros(3, np.uint8))
    for run in ((5, 4, 0, 200, 0), (0, HEIGHT, 0, 200, 0), (0, 1, WIDTH, 200, 0)):
        with pytest.raises(ValueError), start(tmp_path / "a.ctb", 1) as w:
            w.add_runs(np.array([run], vndlp.RUN))
    for paths, error in (([np.zeros((2, 2))], TypeError), ([np.zeros((2, 3), int)], ValueError), ([[[1 << 40, 0]]], ValueError)):
        with pytest.raises(error), start(tmp_path / "a.vnline", 1) as w:
            w.add_paths(paths)
    for path, put in (("a.ctb", lambda w: w.add_paths(polylines(0))), ("a.vnline", lambda w: w.add(draw(0)))):
        with pytest.raises(vndlp.Error) as caught, start(tmp_path / path, 1) as w:
            put(w)
        assert caught.value.code == "kind"


def test_set_changes_the_file_and_what_is_shown(originals, tmp_path):
    for name in IMAGE_FORMATS:
        copy = shutil.copy(originals[name], tmp_path)
        with vndlp.open(copy) as f:
            (change, *_) = f.set(exposure_s=4)
            assert (change.key, change.old, change.new) == ("exposure_s", 2.5, 4.0)
            assert f.settings["exposure_s"] == 4 and np.array_equal(f.layers[1], draw(1))
            f.set(output=tmp_path / f"other.{name}", exposure_s=5)
            assert f.path == str(tmp_path / f"other.{name}") and f.settings["exposure_s"] == 5
            with pytest.raises(FileExistsError):
                f.set(output=copy, exposure_s=6)
        with vndlp.open(copy) as f:
            assert f.settings["exposure_s"] == 4
    with vndlp.open(tmp_path / "tower.ctb") as f:
        for layers in ("4-5", slice(4, 6), [4, np.int64(5)], (layer for layer in (-4, -3))):
            f.set(layers=layers, exposure_s=9)
            assert [f.layers.settings(i)["exposure_s"] for i in (3, 4, 5, 6)] == [4, 9, 9, 4]
            f.set(layers="4-5", exposure_s=4)
        for layers in ([LAYERS], f"0-{LAYERS}"):
            with pytest.raises(IndexError):
                f.set(layers=layers, exposure_s=9)
    with vndlp.open(open(originals["ctb"], "rb").read()) as f, pytest.raises(ValueError):
        f.set(exposure_s=4)


def test_convert_keeps_the_job_and_refuses_damage(originals, tmp_path):
    for name in IMAGE_FORMATS:
        out = tmp_path / f"from_v4.{name}"
        notes = vndlp.convert(originals["vndlpv4"], out, exposure_s=3)
        assert all(isinstance(note, str) for note in notes)
        with vndlp.open(out) as f:
            assert f.settings["exposure_s"] == 3
            assert all(np.array_equal(image, draw(i)) for i, image in enumerate(f.layers))
        with pytest.raises(FileExistsError):
            vndlp.convert(originals["vndlp"], out)
        with vndlp.open(originals["vndlp"]) as source:
            vndlp.convert(source, out, force=True)
    with pytest.raises(vndlp.Error) as caught:
        vndlp.convert(originals["vnline"], tmp_path / "lines.ctb")
    assert caught.value.code == "kind"

    data = bytearray(open(originals["vndlp"], "rb").read())
    with vndlp.open(bytes(data)) as f:
        facts = f.layers.facts(4)
    data[facts.offset + 20 : facts.offset + 60] = b"\xff" * 40
    hurt = tmp_path / "hurt.vndlp"
    hurt.write_bytes(data)
    with pytest.raises(vndlp.Error) as caught:
        vndlp.convert(hurt, tmp_path / "no.ctb")
    assert caught.value.code == "damaged" and not (tmp_path / "no.ctb").exists()
    assert pickle.loads(pickle.dumps(caught.value)).layer == caught.value.layer
    for salvage, expected in (("blank", np.zeros_like(draw(4))), ("previous", draw(3))):
        vndlp.convert(hurt, tmp_path / f"{salvage}.ctb", salvage=salvage)
        with vndlp.open(tmp_path / f"{salvage}.ctb") as f:
            assert np.array_equal(f.layers[4], expected) and np.array_equal(f.layers[5], draw(5))
    repaired = vndlp.repair(hurt, tmp_path / "mended.vndlp")
    assert (repaired.layers, repaired.of) == (LAYERS - 1, LAYERS) and repaired.findings
    with vndlp.open(tmp_path / "mended.vndlp") as f:
        assert np.array_equal(f.layers[4], draw(5)) and f.verify() == []
    with pytest.raises(FileExistsError):
        vndlp.repair(hurt, tmp_path / "mended.vndlp")


def test_printers_give_settings_and_must_fit(originals, tmp_path):
    vndlp.convert(originals["ctb"], tmp_path / "a.ctb", printer={"exposure_s": 6, "name": "shop", "resolution_x": WIDTH})
    with vndlp.open(tmp_path / "a.ctb") as f:
        assert f.settings["exposure_s"] == 6
    (tmp_path / "p.json").write_text('{"resolution_x": 5}')
    for printer in (tmp_path / "p.json", {"mirror": "x"}, {"no_such": 1}):
        with pytest.raises(ValueError):
            vndlp.convert(originals["ctb"], tmp_path / "b.ctb", printer=printer)
    assert not (tmp_path / "b.ctb").exists()


def test_constants_belong_to_the_process_and_scramble_the_file(tmp_path):
    before = vndlp.scrambling()
    assert before.illustrative
    path = write(tmp_path / "a.ctb")
    try:
        vndlp.set_scrambling(before.km ^ 2, before.ks, before.lm, before.ls)
        assert not vndlp.scrambling().illustrative
        with vndlp.open(path) as f:
            assert any(finding.severity == "error" for finding in f.verify())
        for wrong in (-1, 1 << 32, True):
            with pytest.raises(ValueError):
                vndlp.set_scrambling(wrong, 0, 0, 0)
    finally:
        vndlp.set_scrambling(*before[:4])
