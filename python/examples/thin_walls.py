"""Tells which layers have walls thinner than N pixels: thin_walls.py FILE [N]."""

import sys

import numpy as np

import vndlp


def thin_pixels(image: np.ndarray, least: int) -> int:
    """Lit pixels that no lit square of `least` pixels a side covers: an opening, by sliding sums."""
    lit = np.pad(image > 15, least)
    sums = np.pad(lit.cumsum(0, dtype=np.int32).cumsum(1, dtype=np.int32), ((1, 0), (1, 0)))

    def full(of, wanted):
        return of[least:, least:] - of[:-least, least:] - of[least:, :-least] + of[:-least, :-least] >= wanted

    squares = np.pad(full(sums, least * least), least - 1).cumsum(0, dtype=np.int32).cumsum(1, dtype=np.int32)
    covered = full(np.pad(squares, ((1, 0), (1, 0))), 1)
    return int(np.count_nonzero(lit & ~covered))


def main(path: str, least: int = 3) -> None:
    with vndlp.open(path) as f:
        for i, image in enumerate(f.layers):
            if count := thin_pixels(image, least):
                print(f"layer {i}: {count} pixels in walls thinner than {least}")


if __name__ == "__main__":
    main(sys.argv[1], *map(int, sys.argv[2:]))
