"""Files of every format with known layers, written once."""

import numpy as np
import pytest

import vndlp

WIDTH, HEIGHT, LAYERS = 96, 64, 8
IMAGE_FORMATS = ("vndlp", "ctb", "vndlpv4")


def draw(layer):
    """A square that gets smaller, a grey beside it, a noisy corner: every layer another image, of greys all formats keep."""
    image = np.zeros((HEIGHT, WIDTH), np.uint8)
    image[5 : 40 - layer, 10:50] = 255
    image[45:50, 10 : 20 + layer] = 129
    noise = np.random.default_rng(layer).integers(0, 128, (12, 16), np.uint8) * 2 + 1
    image[50:62, 70:86] = np.where(noise > 15, noise, 0)
    return image


def write(path, **settings):
    values = {"layer_height_mm": 0.05, "exposure_s": 2.5, "bottom_exposure_s": 30, "bottom_layers": 2, **settings}
    with vndlp.create(path, width=WIDTH, height=HEIGHT, layers=LAYERS, machine="M01", **values) as w:
        for layer in range(LAYERS):
            w.add(draw(layer))
    return str(path)


def polylines(layer):
    return [np.array([[0, 0], [5000, 0], [5000, 4000 + layer], [0, 0]]), np.array([[-7, 9], [1 << 30, -(1 << 30)]])]


@pytest.fixture(scope="session")
def originals(tmp_path_factory):
    folder = tmp_path_factory.mktemp("originals")
    paths = {name: write(folder / f"tower.{name}") for name in IMAGE_FORMATS}
    paths["vnline"] = str(folder / "tower.vnline")
    with vndlp.create(paths["vnline"], width=WIDTH, height=HEIGHT, layers=3, layer_height_mm=0.05) as w:
        for layer in range(3):
            w.add_paths(polylines(layer))
    return paths


@pytest.fixture(params=IMAGE_FORMATS)
def image_file(request, originals):
    with vndlp.open(originals[request.param]) as f:
        yield f
