"""Files as notebooks show them."""

from __future__ import annotations

import base64
import html
import struct
import zlib
from collections.abc import Iterable, Mapping
from typing import Any

import numpy as np
import numpy.typing as npt

from ._keys import units


def _png(picture: npt.NDArray[np.uint8]) -> bytes:
    """An RGB picture as PNG: one chunk of rows, each behind a filter byte of 0."""
    height, width, _ = picture.shape
    rows = np.zeros((height, 1 + 3 * width), np.uint8)
    rows[:, 1:] = picture.reshape(height, 3 * width)

    def chunk(kind: bytes, data: bytes) -> bytes:
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))

    head = struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)
    return (
        b"\x89PNG\r\n\x1a\n"
        + chunk(b"IHDR", head)
        + chunk(b"IDAT", zlib.compress(rows.tobytes()))
        + chunk(b"IEND", b"")
    )


def paragraph(text: str) -> str:
    """A text as a paragraph."""
    return f"<p>{html.escape(text)}</p>"


def file_page(title: str, previews: Iterable[npt.NDArray[np.uint8]], settings: Mapping[str, Any]) -> str:
    """A file's previews and settings."""
    pictures = "".join(
        f'<img alt="preview" src="data:image/png;base64,{base64.b64encode(_png(picture)).decode()}"> '
        for picture in previews
        if picture.size
    )
    rows = "".join(
        f"<tr><td>{html.escape(key)}</td><td>{html.escape(str(value))} {html.escape(units[key])}</td></tr>"
        for key, value in settings.items()
    )
    return f"{paragraph(title)}{pictures}<table>{rows}</table>"
