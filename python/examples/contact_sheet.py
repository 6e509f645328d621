"""Draws layers of a slice file as thumbnails on one sheet: contact_sheet.py FILE SHEET.png [COUNT]."""

import sys

from PIL import Image

import vndlp

COLUMNS, SIDE, GAP = 6, 160, 8


def main(path: str, sheet_path: str, count: int = 24) -> None:
    with vndlp.open(path) as f:
        step = max(1, len(f.layers) // count)
        layers = f.layers[::step]
        rows = -(-len(layers) // COLUMNS)
        sheet = Image.new("L", (COLUMNS * (SIDE + GAP) + GAP, rows * (SIDE + GAP) + GAP), 40)
        for place, image in enumerate(layers):
            thumbnail = Image.fromarray(image)
            thumbnail.thumbnail((SIDE, SIDE), Image.BOX)
            row, column = divmod(place, COLUMNS)
            sheet.paste(thumbnail, (GAP + column * (SIDE + GAP), GAP + row * (SIDE + GAP)))
    sheet.save(sheet_path)


if __name__ == "__main__":
    main(sys.argv[1], sys.argv[2], *map(int, sys.argv[3:]))
