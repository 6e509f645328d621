#!/usr/bin/python3
"""Times the Python package on 12K layers: against the C++ decoder into a buffer, and two threads against one.

    PYTHONPATH=python VNDLP_LIBRARY=build/bench/libvndlp.so scripts/bench_python.py build/bench/bench/decode_file
"""

import subprocess
import sys
import tempfile
import time
from concurrent.futures import ThreadPoolExecutor

import numpy as np

import vndlp

WIDTH, HEIGHT, LAYERS, REPEATS = 11520, 5120, 8, 7


def plate(layer):
    """Discs with a lattice inside, as a full plate of models has them."""
    y, x = np.ogrid[:HEIGHT, :WIDTH]
    image = np.zeros((HEIGHT, WIDTH), np.uint8)
    for column in range(4):
        for row in range(2):
            disc = (x - 1500 - 2800 * column) ** 2 + (y - 1280 - 2560 * row) ** 2 < (1100 - 9 * layer) ** 2
            image[disc & (((x + 3 * layer) % 40 < 6) | (y % 40 < 6))] = 255
    return image


def best_of(work):
    times = []
    for _ in range(REPEATS):
        began = time.perf_counter()
        work()
        times.append(time.perf_counter() - began)
    return min(times)


def main(decode_file):
    print("| format | C++, ms a layer | Python | ratio | two threads to one |")
    print("|---|--:|--:|--:|--:|")
    with tempfile.TemporaryDirectory() as folder:
        images = [plate(layer) for layer in range(LAYERS)]
        for name in ("vndlp", "ctb", "vndlpv4"):
            path = f"{folder}/plate.{name}"
            with vndlp.create(path, width=WIDTH, height=HEIGHT, layers=LAYERS, layer_height_mm=0.05) as w:
                for image in images:
                    w.add(image)
            with vndlp.open(path) as f:
                outs = [np.empty((HEIGHT, WIDTH), np.uint8) for _ in range(2)]

                def read(start, step):
                    for layer in range(start, LAYERS, step):
                        f.layers.read(layer, out=outs[start])

                read(0, 1)
                assert np.array_equal(outs[0], images[-1])
                # by turns, so that what else the machine does hits both
                plain = min(
                    float(subprocess.run([decode_file, path, str(REPEATS)], capture_output=True, check=True).stdout)
                    for _ in range(2)
                )
                one = best_of(lambda: read(0, 1))
                with ThreadPoolExecutor(2) as pool:
                    two = best_of(lambda: list(pool.map(read, (0, 1), (2, 2))))
            milliseconds = [1000 * seconds / LAYERS for seconds in (plain, one)]
            print(
                f"| .{name} | {milliseconds[0]:.1f} | {milliseconds[1]:.1f} | {one / plain:.2f} | {two / one:.2f} |",
                flush=True,
            )


if __name__ == "__main__":
    main(sys.argv[1])
