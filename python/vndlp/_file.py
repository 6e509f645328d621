"""Slice files, read."""

from __future__ import annotations

import math
import operator
import os
from collections.abc import Iterable, Iterator, Mapping, Sequence
from dataclasses import asdict, dataclass
from types import MappingProxyType, TracebackType
from typing import Any, NamedTuple, SupportsIndex, Union, overload

import numpy as np
import numpy.typing as npt

from . import _html
from ._errors import Error
from ._keys import Change, Value, settings_of, typed, value_text
from ._library import (
    FORMATS,
    SEVERITIES,
    Callback,
    Handle,
    checked,
    count_or_none,
    ffi,
    lib,
    new,
    number_or_none,
    sum_or_none,
    path_bytes,
    sure_text,
    text,
)

Image = npt.NDArray[np.uint8]
Source = Union[str, "os.PathLike[str]", bytes, bytearray, memoryview]

RUN = np.dtype(
    [("first_row", "<u2"), ("last_row", "<u2"), ("column", "<u2"), ("grey", "u1"), ("reserved", "u1")]
)
"""Consecutive rows of one column with one grey; both rows are lit."""

CHECK_KINDS = ("island", "trap", "cup", "empty", "overhang", "outside", "peak", "settings")
_TRAILERS = {lib.VNDLP_TRAILER_NONE: "none", lib.VNDLP_TRAILER_XOR: "xor", lib.VNDLP_TRAILER_CRC32: "crc32"}
_STATES = {
    lib.VNDLP_STATE_NONE: "none",
    lib.VNDLP_STATE_OK: "ok",
    lib.VNDLP_STATE_WRONG: "wrong",
    lib.VNDLP_STATE_MISSING: "missing",
}


class Trailer(NamedTuple):
    """A file's checksum trailer."""

    kind: str
    """"none", "xor" or "crc32"."""
    stored: int | None
    computed: int | None
    state: str
    """"none" (the format has no trailer), "ok", "wrong" or "missing"."""


class Raw(NamedTuple):
    """A field of a record, as it stands in the file."""

    value: Value
    unit: str
    offset: int
    """Byte of the file."""
    size: int
    """Bytes in the file."""
    fixed: bool
    """Whether the format fixes the value."""


@dataclass(frozen=True)
class Facts:
    """Facts of a layer, had without making its image; None where there is none."""

    index: int
    z_mm: float | None
    """Top of the layer above the plate."""
    offset: int | None
    """Of its whole record."""
    bytes: int | None
    """Of its whole record."""
    runs: int | None
    lit_px: int | None
    """Pixels of grey above 15."""
    area_mm2: float | None


class Finding(NamedTuple):
    """What verifying found."""

    severity: str
    """"error", "warning" or "note"."""
    offset: int | None
    layer: int | None
    text: str


class CheckFinding(NamedTuple):
    """What checking found; boxes hold their first and last pixel."""

    kind: str
    severity: str
    layer: int | None
    last_layer: int | None
    pixels: int | None
    area_mm2: float | None
    voxels: int | None
    volume_ml: float | None
    x_px: tuple[int, int] | None
    y_px: tuple[int, int] | None
    centre_px: tuple[float, float] | None
    text: str


def _without_nan(field: Raw) -> dict[str, Any]:
    """A raw field as JSON has it, which knows finite numbers only."""
    is_unknown = isinstance(field.value, float) and not math.isfinite(field.value)
    return {**field._asdict(), "value": None if is_unknown else field.value}


def _box(pair: Any) -> tuple[int, int] | None:
    return None if pair[0] < 0 else (int(pair[0]), int(pair[1]))


def finding_of(found: Any) -> Finding:
    """A finding of the library."""
    return Finding(
        SEVERITIES[found.severity], count_or_none(found.offset), count_or_none(found.layer), sure_text(found.text)
    )


def _check_finding_of(found: Any) -> CheckFinding:
    centre = number_or_none(found.centre_px[0])
    return CheckFinding(
        sure_text(found.kind),
        SEVERITIES[found.severity],
        count_or_none(found.layer),
        count_or_none(found.last_layer),
        count_or_none(found.pixels),
        number_or_none(found.area_mm2),
        count_or_none(found.voxels),
        number_or_none(found.volume_ml),
        _box(found.x_px),
        _box(found.y_px),
        None if centre is None else (centre, float(found.centre_px[1])),
        sure_text(found.text),
    )


def pixel_pointer(pixels: npt.NDArray[Any]) -> Any:
    """The first byte of an array, for the library."""
    return ffi.cast("uint8_t*", pixels.__array_interface__["data"][0])


def rows_are_plain(pixels: npt.NDArray[Any]) -> bool:
    """Whether the library can use an image array in place: bytes side by side, rows one below the other."""
    height, width = pixels.shape
    return pixels.strides[1] == 1 and (height == 1 or pixels.strides[0] >= width)


def image_memory(pixels: npt.NDArray[Any]) -> tuple[int, int]:
    """Stride and bytes behind the pointer of an image array that is plain."""
    height, width = pixels.shape
    stride = width if height == 1 else pixels.strides[0]
    return stride, (height - 1) * stride + width


def _index(value: object) -> int:
    if isinstance(value, (bool, np.bool_, str)) or not hasattr(value, "__index__"):
        raise TypeError(f"a layer is an integer, not {type(value).__name__}")
    return operator.index(value)


class Layers:
    """Layers of a file, or a slice of them. `layers[i]` is a layer's image; what else belongs to it is asked here.

    Indices may be negative; one outside is an `IndexError`. All calls may run in several threads at once.
    """

    def __init__(self, file: File, indices: range) -> None:
        self._file = file
        self._indices = indices

    def __len__(self) -> int:
        return len(self._indices)

    def __iter__(self) -> Iterator[Image]:
        for layer in self._indices:
            yield self._read(layer, None)

    def __contains__(self, _image: object) -> bool:
        raise TypeError("layers cannot be searched for an image")

    @overload
    def __getitem__(self, index: slice) -> Layers: ...

    @overload
    def __getitem__(self, index: SupportsIndex) -> Image: ...

    def __getitem__(self, index: SupportsIndex | slice) -> Image | Layers:
        """A layer's image: a new array of uint8, shape (height, width), rows from the top. A slice: those layers."""
        if isinstance(index, slice):
            return Layers(self._file, self._indices[index])
        return self._read(self._layer(index), None)

    def read(self, index: SupportsIndex, out: Image | None = None) -> Image:
        """Decodes a layer's image.

        Args:
            index: of the layer.
            out: array of uint8, shape (height, width), to decode into; any strides. None: a new one.

        Returns:
            `out`, or the new array.

        Raises:
            Error: code "damaged", "file", or "kind" for a line file.
            TypeError: `out` is no array of uint8.
            ValueError: `out` has another shape or is read-only.
        """
        return self._read(self._layer(index), out)

    def runs(self, index: SupportsIndex) -> npt.NDArray[np.void]:
        """A layer's runs, grey above 15: array of `RUN`, shape (n,), by column, then row."""
        layer = self._layer(index)
        runs = np.empty(self._file._run_guess, RUN)
        with self._file._handle as file:
            while True:
                pointer = ffi.cast("VndlpRun*", runs.__array_interface__["data"][0])
                count = checked(lib.vndlp_layer_runs(file, layer, pointer, len(runs)), self._file.path)
                if count <= len(runs):
                    return runs[:count].copy() if count < len(runs) else runs
                # layers are much alike, so that the next one needs no second call
                self._file._run_guess = count + count // 4
                runs = np.empty(count, RUN)

    def paths(self, index: SupportsIndex) -> list[npt.NDArray[Any]]:
        """A line file's layer: arrays of points, shape (n, 2), x and y in the file's units.

        Returns:
            Polylines as int32, one array each; or the vertices of a mesh as float32 in one array.
        """
        layer = self._layer(index)
        with self._file._handle as file:
            count = checked(lib.vndlp_layer_points(file, layer, ffi.NULL, ffi.NULL, 0), self._file.path)
            points = np.empty((count, 2), np.float64)
            numbers = np.empty(count, np.uint32)
            checked(
                lib.vndlp_layer_points(
                    file,
                    layer,
                    ffi.cast("double*", points.__array_interface__["data"][0]),
                    ffi.cast("uint32_t*", numbers.__array_interface__["data"][0]),
                    count,
                ),
                self._file.path,
            )
        if self._file._info.layer_kind == lib.VNDLP_MESH:
            return [points.astype(np.float32)]
        if count == 0:
            return []
        ends = np.searchsorted(numbers, np.arange(numbers[-1]), side="right")
        return np.split(points.astype(np.int32), ends)

    def beads(self, index: SupportsIndex) -> bytes | None:
        """A layer's bead mask as it stands in the file; None for none."""
        layer = self._layer(index)
        with self._file._handle as file:
            count = checked(lib.vndlp_layer_beads(file, layer, ffi.NULL, 0), self._file.path)
            mask = ffi.new("uint8_t[]", max(count, 1))
            checked(lib.vndlp_layer_beads(file, layer, mask, count), self._file.path)
        return bytes(ffi.buffer(mask, count)) if count else None

    def settings(self, index: SupportsIndex) -> Mapping[str, Value]:
        """The settings that this layer has of its own."""
        layer = self._layer(index)
        with self._file._handle as file:
            return MappingProxyType(settings_of(file, self._file.format, layer, self._file.path))

    def facts(self, index: SupportsIndex) -> Facts:
        """Facts of a layer, had without making its image."""
        layer = self._layer(index)
        facts = new("VndlpLayer")
        with self._file._handle as file:
            checked(lib.vndlp_layer(file, layer, facts), self._file.path)
        return Facts(
            layer,
            number_or_none(facts.z_mm),
            count_or_none(facts.offset),
            count_or_none(facts.bytes),
            count_or_none(facts.runs),
            count_or_none(facts.lit_px),
            number_or_none(facts.area_mm2),
        )

    def _layer(self, index: object) -> int:
        number = _index(index)
        try:
            return self._indices[number]
        except IndexError:
            raise IndexError(f"layer {number} is not one of {len(self)}") from None

    def _read(self, layer: int, out: Image | None) -> Image:
        shape = (self._file.height, self._file.width)
        if out is None:
            out = np.empty(shape, np.uint8)
        elif not isinstance(out, np.ndarray) or out.dtype != np.uint8:
            raise TypeError(f"out must be an array of uint8, not {getattr(out, 'dtype', type(out).__name__)}")
        elif out.shape != shape:
            raise ValueError(f"out has shape {out.shape}, the layer {shape}")
        elif not out.flags.writeable:
            raise ValueError("out is read-only")
        if not rows_are_plain(out):
            out[...] = self._read(layer, None)
            return out
        with self._file._handle as file:
            checked(
                lib.vndlp_layer_pixels(file, layer, pixel_pointer(out), *image_memory(out)), self._file.path
            )
        return out

    def __repr__(self) -> str:
        return f"<{len(self)} layers of {self._file!r}>"


class RawFields(Mapping[str, Raw]):
    """Every field of every record by "RECORD.member", in the order of the file."""

    def __init__(self, file: File) -> None:
        self._file = file
        self._all: dict[str, Raw] | None = None

    def __getitem__(self, name: str) -> Raw:
        if self._all is not None:
            return self._all[name]
        if not isinstance(name, str) or "\0" in name:
            raise KeyError(name)
        field = new("VndlpRaw")
        with self._file._handle as file:
            result = lib.vndlp_raw_by_name(file, name.encode("utf-8", "replace"), field)
            if checked(result, self._file.path) == lib.VNDLP_ABSENT:
                raise KeyError(name)
        return self._raw(field)

    def __iter__(self) -> Iterator[str]:
        return iter(self._read_all())

    def __len__(self) -> int:
        return len(self._read_all())

    def __repr__(self) -> str:
        return f"<{len(self)} raw fields of {self._file!r}>"

    def _read_all(self) -> dict[str, Raw]:
        if self._all is None:
            found = {}
            field = new("VndlpRaw")
            with self._file._handle as file:
                index = 0
                while (result := lib.vndlp_raw(file, index, field)) != lib.VNDLP_E_INDEX:
                    checked(result, self._file.path)
                    found[sure_text(field.name)] = self._raw(field)
                    index += 1
            self._all = found
        return self._all

    @staticmethod
    def _raw(field: Any) -> Raw:
        value: Value
        if field.type == lib.VNDLP_TEXT:
            value = sure_text(field.text)
        elif field.type == lib.VNDLP_INTEGER:
            value = int(sure_text(field.text))
        else:
            value = float(field.number)
        return Raw(value, sure_text(field.unit), int(field.offset), int(field.bytes), bool(field.fixed))


class File:
    """A slice file open for reading; made by `vndlp.open`.

    A context manager. One file serves any number of threads; whatever is asked of it after `close` is a `ValueError`.
    """

    def __init__(self, source: Source) -> None:
        self._open(source)

    def _open(self, source: Source) -> None:
        out = ffi.new("VndlpFile**")
        buffer: Any = None
        path = None
        if isinstance(source, (str, os.PathLike)):
            path = os.fspath(source)
            result = lib.vndlp_open(path_bytes(source), out)
        else:
            try:
                view = memoryview(source)
            except TypeError:
                raise TypeError(f"a slice file is a path or bytes, not {type(source).__name__}") from None
            buffer = ffi.from_buffer(view)
            result = lib.vndlp_open_memory(buffer, view.nbytes, out)
        try:
            checked(result, path)
        except BaseException:
            if buffer is not None:
                ffi.release(buffer)
            raise

        def free(pointer: Any) -> None:
            lib.vndlp_close(pointer)
            if buffer is not None:
                ffi.release(buffer)

        self._path = path
        self._handle = Handle(out[0], free, "the file is closed")
        self._info = new("VndlpInfo")
        self._run_guess = 4096
        with self._handle as file:
            checked(lib.vndlp_info(file, self._info), path)
        self._raw = RawFields(self)
        self._settings: Mapping[str, Value] | None = None

    def __enter__(self) -> File:
        self._check_open()
        return self

    def __exit__(
        self, kind: type[BaseException] | None, raised: BaseException | None, traceback: TracebackType | None
    ) -> None:
        self.close()

    def close(self) -> None:
        """Closes the file. Calls at work in other threads are completed."""
        self._handle.close()

    @property
    def closed(self) -> bool:
        return self._handle.closed

    def _check_open(self) -> None:
        with self._handle:
            pass

    def _head(self) -> Any:
        self._check_open()
        return self._info

    @property
    def path(self) -> str | None:
        """As given to `open`; None for a file in memory."""
        self._check_open()
        return self._path

    @property
    def format(self) -> str:
        """"vndlp", "vnline", "ctb" or "vndlpv4"."""
        return FORMATS[self._head().format]

    @property
    def version(self) -> int:
        """As the file's head gives it."""
        return int(self._head().version)

    @property
    def width(self) -> int:
        """Of a layer, pixels."""
        return int(self._head().width)

    @property
    def height(self) -> int:
        """Of a layer, pixels."""
        return int(self._head().height)

    @property
    def layers(self) -> Layers:
        """The layers, from the plate up."""
        return Layers(self, range(self._head().layers))

    @property
    def settings(self) -> Mapping[str, Value]:
        """The settings the file holds, by the keys of `vndlp.keys`, in the units of `vndlp.units`."""
        with self._handle as file:
            if self._settings is None:
                self._settings = MappingProxyType(settings_of(file, self.format, -1, self._path))
            return self._settings

    @property
    def raw(self) -> Mapping[str, Raw]:
        """Every field of every record, by "RECORD.member"."""
        self._check_open()
        return self._raw

    @property
    def previews(self) -> tuple[Image, ...]:
        """Preview pictures in the order of the file: arrays of uint8, shape (height, width, 3), red, green, blue."""
        found = []
        with self._handle as file:
            for index, (_, width, height, _) in enumerate(self._preview_facts()):
                picture = np.empty((height, width, 3), np.uint8)
                checked(lib.vndlp_preview(file, index, pixel_pointer(picture), 0, picture.nbytes), self._path)
                found.append(picture)
        return tuple(found)

    @property
    def preview_names(self) -> tuple[str, ...]:
        """Names of the preview pictures."""
        return tuple(name for name, _, _, _ in self._preview_facts())

    def _preview_facts(self) -> list[tuple[str, int, int, bool]]:
        facts = new("VndlpPreview")
        found = []
        with self._handle as file:
            for index in range(self._info.previews):
                checked(lib.vndlp_preview_info(file, index, facts), self._path)
                found.append((sure_text(facts.name), int(facts.width), int(facts.height), bool(facts.blank)))
        return found

    @property
    def trailer(self) -> Trailer:
        """The checksum trailer; the whole file is read."""
        found = new("VndlpTrailer")
        with self._handle as file:
            checked(lib.vndlp_trailer(file, found), self._path)
        has_stored = found.state in (lib.VNDLP_STATE_OK, lib.VNDLP_STATE_WRONG)
        return Trailer(
            _TRAILERS[found.kind],
            int(found.stored) if has_stored else None,
            None if found.state == lib.VNDLP_STATE_NONE else int(found.computed),
            _STATES[found.state],
        )

    def _summary(self) -> dict[str, Any]:
        """What is known of the file as a whole: the first keys of `info`."""
        head = self._head()
        estimate = new("VndlpEstimate")
        with self._handle as file:
            # of a damaged file that cannot be estimated the rest is told all the same
            is_known = lib.vndlp_estimate(file, estimate) == lib.VNDLP_OK
            model = text(estimate.model) if is_known else "moves"
        return {
            "file": self._path,
            "bytes": int(head.bytes),
            "format": self.format,
            "version": self.version,
            "layers": int(head.layers),
            "width_px": self.width,
            "height_px": self.height,
            "pixel_um": {"x": number_or_none(head.pixel_x_um), "y": number_or_none(head.pixel_y_um)},
            "size_mm": {
                "x": number_or_none(head.size_x_mm),
                "y": number_or_none(head.size_y_mm),
                "z": number_or_none(head.size_z_mm),
            },
            "settings": dict(self.settings),
            "volume_ml": sum_or_none(estimate.volume_ml) if is_known else None,
            "print_time": {
                "file_s": number_or_none(estimate.file_s) if is_known else None,
                "estimate_s": sum_or_none(estimate.estimate_s) if is_known else None,
                "model": model,
            },
            "trailer": self.trailer._asdict(),
        }

    def info(self, layers: bool = False) -> dict[str, Any]:
        """What `vndlp info --json` prints, with `layers` what `--layers` adds."""
        found = self._summary()
        found["previews"] = [
            {"name": name, "width": width, "height": height, "blank": blank}
            for name, width, height, blank in self._preview_facts()
        ]
        found["raw"] = {name: _without_nan(field) for name, field in self.raw.items()}
        findings = self._findings(lib.vndlp_verify_structure)
        if self._is_scrambled_for_no_machine():
            findings.append(
                Finding("note", None, None, "scrambled with the illustrative constants, which no machine uses")
            )
        found["findings"] = [finding._asdict() for finding in findings]
        if layers:
            found["layer_table"] = [self._layer_row(layer) for layer in range(len(self.layers))]
        return found

    def _is_scrambled_for_no_machine(self) -> bool:
        constants = new("VndlpScrambling")
        checked(lib.vndlp_scrambling(constants))
        key = self.raw.get("HeaderSettings.encryptionKey")
        return self.format == "ctb" and key is not None and key.value != 0 and constants.illustrative == 1

    def _layer_row(self, layer: int) -> dict[str, Any]:
        try:
            facts = self.layers.facts(layer)
        except Error:
            facts = Facts(layer, None, None, None, None, None, None)
        return {**asdict(facts), "settings": dict(self.layers.settings(layer))}

    def verify(self) -> list[Finding]:
        """Verifies the whole file: trailer, structure and every layer's code."""
        return self._findings(lib.vndlp_verify)

    def _findings(self, verify: Any) -> list[Finding]:
        found: list[Finding] = []
        callback = Callback("VndlpFindingFn", lambda entry: found.append(finding_of(entry)))
        with self._handle as file:
            callback.checked(verify(file, callback.pointer, ffi.NULL), self._path)
        return found

    def check(
        self,
        *,
        only: str | Iterable[str] | None = None,
        min_pixels: int = 0,
        threshold: int = 15,
        overhang_um: float | None = None,
        area_jump: tuple[float, float] = (4, 10),
        margin_px: int = 1,
    ) -> list[CheckFinding]:
        """Tells what would go wrong in print, the gravest first.

        Args:
            only: kinds to report, as "island,cup" or ("island", "cup"); None: all.
            min_pixels: findings with 0 < pixels < min_pixels are left out.
            threshold: lit is a grey above it.
            overhang_um: reach that needs no support; None: the larger of 200 and 4 layer heights.
            area_jump: a peak grows by more than this factor and by more than this many cm2.
            margin_px: pixels at the image's edges that must stay dark.
        """
        kinds = CHECK_KINDS if only is None else tuple(only.split(",") if isinstance(only, str) else only)
        for kind in kinds:
            if kind not in CHECK_KINDS:
                raise ValueError(f"only={kind!r}: one of {', '.join(CHECK_KINDS)}")
        options = new("VndlpCheckOptions")
        options.threshold = _not_negative("threshold", threshold)
        options.margin_px = _not_negative("margin_px", margin_px)
        options.overhang_um = -1 if overhang_um is None else _not_negative("overhang_um", overhang_um)
        options.jump_factor = _not_negative("area_jump", area_jump[0])
        options.jump_cm2 = _not_negative("area_jump", area_jump[1])
        found: list[CheckFinding] = []
        callback = Callback("VndlpFindingFn", lambda entry: found.append(_check_finding_of(entry)))
        with self._handle as file:
            callback.checked(lib.vndlp_check(file, options, callback.pointer, ffi.NULL), self._path)
        return [
            finding
            for finding in found
            if finding.kind in kinds and not 0 < (finding.pixels or 0) < min_pixels
        ]

    def set(
        self,
        *,
        output: str | os.PathLike[str] | None = None,
        layers: str | slice | Iterable[SupportsIndex] | None = None,
        raw: Mapping[str, Value] | None = None,
        **settings: Value,
    ) -> list[Change]:
        """Sets values, all or none; decodes no layer. Afterwards this object shows the new file.

        Args:
            output: where the new file goes; an existing one is not replaced. None: in place.
            layers: None: the file's values; else those of single layers: a slice, numbers, or "40-59,70".
            raw: raw fields by "RECORD.member".
            settings: values by the keys of `vndlp.keys`.

        Raises:
            ValueError: a key that is unknown, fixed or without a place in the format, or a value it cannot take.
            Error: the file is damaged, or cannot be written.
        """
        self._check_open()
        if self._path is None:
            raise ValueError("a file in memory cannot be set")
        target = None if output is None else path_bytes(output)
        if output is not None and target is not None and os.path.lexists(output):
            if not os.path.samefile(output, self._path):
                raise FileExistsError(17, "exists", os.fspath(output))
            target = None
        values = [(key, value, layers) for key, value in settings.items()]
        values += [("raw." + name, value, None) for name, value in (raw or {}).items()]
        keep: list[Any] = []
        changes = ffi.new("VndlpChange[]", max(len(values), 1))
        for change, (key, value, chosen) in zip(changes, values):
            change.size = ffi.sizeof("VndlpChange")
            for member, content in (
                ("key", key.encode("utf-8")),
                ("value", value_text(key, value, self.format)),
                ("layers", None if chosen is None else self._layer_text(chosen).encode()),
            ):
                if content is not None:
                    keep.append(ffi.new("char[]", content))
                    setattr(change, member, keep[-1])
        found: list[Change] = []

        def take(key: Any, which: Any, was: Any, now: Any) -> None:
            name = sure_text(key)
            found.append(Change(name, text(which), typed(name, text(was)), typed(name, text(now))))

        callback = Callback("VndlpChangedFn", take)
        callback.checked(
            lib.vndlp_change(
                path_bytes(self._path), target or ffi.NULL, changes, len(values), callback.pointer, ffi.NULL
            ),
            self._path,
            ", ".join(f"{key}={value!r}" for key, value, _ in values) + f" in .{self.format}",
        )
        before = self._handle
        self._open(self._path if output is None else output)
        before.close()
        return found

    def _layer_text(self, layers: str | slice | Iterable[SupportsIndex]) -> str:
        if isinstance(layers, str):
            return layers
        count = int(self._info.layers)
        chosen: Sequence[int]
        if isinstance(layers, slice):
            chosen = range(count)[layers]
        else:
            chosen = [self.layers._layer(index) for index in layers]
        if not chosen:
            raise ValueError("no layers are named")
        return ",".join(map(str, chosen))

    def __repr__(self) -> str:
        name = "memory" if self._path is None else repr(self._path)
        if self.closed:
            return f"<vndlp.File {name}, closed>"
        return f"<vndlp.File {name}, {self.format}, {self._info.layers} layers of {self.width} x {self.height}>"

    def _repr_html_(self) -> str:
        if self.closed:
            return _html.paragraph(repr(self))
        return _html.file_page(repr(self), self.previews, self.settings)


def _not_negative(name: str, value: float) -> float:
    if not value >= 0:
        raise ValueError(f"{name}={value!r}: 0 or more")
    return value


def open(source: Source) -> File:
    """Opens a slice file of any format, told by its content.

    Args:
        source: a path, or the content itself as bytes or another buffer, which is not copied.

    Raises:
        Error: code "file" (a missing one is a `FileNotFoundError` too, one without rights a `PermissionError`),
            "format" or "damaged".
    """
    return File(source)
