"""The columns of a row; every command has them all."""

from __future__ import annotations

from typing import Any, Dict

from .. import keys
from .._file import CHECK_KINDS

Row = Dict[str, Any]

COLUMNS: tuple[str, ...] = (
    "file",
    "status",
    "error",
    "attempts",
    "seconds",
    "bytes",
    "format",
    "version",
    "layers",
    "width_px",
    "height_px",
    "pixel_um.x",
    "pixel_um.y",
    "size_mm.x",
    "size_mm.y",
    "size_mm.z",
    "volume_ml",
    "print_time.file_s",
    "print_time.estimate_s",
    "print_time.model",
    "trailer.kind",
    "trailer.stored",
    "trailer.computed",
    "trailer.state",
    *(f"settings.{key}" for key in keys),
    "errors",
    "warnings",
    "notes",
    "first_finding",
    *(f"check.{kind}" for kind in CHECK_KINDS),
    "output",
    "not_kept",
)

STATUSES = ("ok", "findings", "damaged", "failed", "crashed", "timeout")


def whole_row(known: Row) -> Row:
    """A row with all columns in their order, None where nothing is known."""
    return {column: known.get(column) for column in COLUMNS}
