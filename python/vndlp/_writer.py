"""Slice files, written."""

from __future__ import annotations

import operator
import os
import threading
from collections.abc import Iterable, Mapping
from types import TracebackType
from typing import Any, SupportsIndex

import numpy as np
import numpy.typing as npt

from ._file import RUN, File, Image, image_memory, pixel_pointer, rows_are_plain
from ._keys import Value, about, keys, number
from ._library import Handle, checked, ffi, lib, path_bytes


class _LayerSettings:
    """`writer.layer_settings[i] = {...}`: settings of single layers."""

    def __init__(self, writer: Writer) -> None:
        self._writer = writer

    def __setitem__(self, index: SupportsIndex, settings: Mapping[str, Value]) -> None:
        layer = self._writer._layer(index)
        for key, value in settings.items():
            self._writer._set(key, value, layer)


class Writer:
    """A slice file being written; made by `vndlp.create`.

    A context manager: the file takes its name at a good end of `with`. After an exception or `cancel` what had the name
    before is still there, and nothing beside it. Layers are given either by `w[i] = image`, in any order and from any
    thread, or by the calls that number themselves, 0, 1, ...: `add`, `add_runs`, `add_paths`, `copy`.

    An image is an array of uint8, or of bool with True for 255, of shape (height, width), rows from the top, with any
    strides. Greys are kept as the format can: `.vndlp` those above 15, `.ctb` and `.vndlpv4` in 7 bits.
    """

    def __init__(
        self,
        path: str | os.PathLike[str],
        width: int,
        height: int,
        layers: int,
        like: File | None,
        previews: Iterable[Image] | None,
        settings: Mapping[str, Value],
    ) -> None:
        self._path = os.fspath(path)
        self._format = os.path.splitext(self._path)[1][1:].lower()
        self._width = _size("width", width)
        self._height = _size("height", height)
        self._layers = _size("layers", layers)
        self._lock = threading.Lock()
        self._numbered: bool | None = None
        self._next = 0
        self._previews: tuple[Image, ...] = ()
        # the library reads from it until the end
        self._like = None if like is None else like._handle
        out = ffi.new("VndlpWriter**")
        if self._like is None:
            result = lib.vndlp_create(
                path_bytes(path), self._width, self._height, self._layers, ffi.NULL, out
            )
            checked(result, self._path)
        else:
            source = self._like.__enter__()
            try:
                result = lib.vndlp_create(
                    path_bytes(path), self._width, self._height, self._layers, source, out
                )
                checked(result, self._path)
            except BaseException:
                self._like.__exit__()
                raise
        self._handle = Handle(out[0], self._free, "the writer has ended")
        try:
            for key, value in settings.items():
                self._set(key, value, -1)
            if previews is not None:
                self.previews = tuple(previews)
        except BaseException:
            self._handle.close()
            raise

    def _free(self, pointer: Any) -> None:
        lib.vndlp_writer_free(pointer)
        if self._like is not None:
            self._like.__exit__()

    def __enter__(self) -> Writer:
        return self

    def __exit__(
        self, kind: type[BaseException] | None, raised: BaseException | None, traceback: TracebackType | None
    ) -> None:
        if self._handle.closed:
            return
        if kind is None:
            self.finish()
        else:
            self.cancel()

    def finish(self) -> None:
        """Completes the file; what `with` does at its good end.

        Raises:
            ValueError: layers are missing, which the text names.
            Error: the file could not be written.
        """
        try:
            with self._handle as writer:
                checked(lib.vndlp_finish(writer), self._path)
        finally:
            self._handle.close()

    def cancel(self) -> None:
        """Abandons the file; what was at its path before stays."""
        self._handle.close()

    def add(self, image: npt.NDArray[np.uint8] | npt.NDArray[np.bool_]) -> None:
        """The next layer, as an image."""
        pixels = self._pixels(image)
        self._put_pixels(self._number(), pixels)

    def __setitem__(self, index: SupportsIndex, image: npt.NDArray[np.uint8] | npt.NDArray[np.bool_]) -> None:
        """A layer by its number, as an image."""
        layer = self._layer(index)
        pixels = self._pixels(image)
        self._choose(numbered=False)
        self._put_pixels(layer, pixels)

    def add_runs(self, runs: npt.NDArray[np.void]) -> None:
        """The next layer, as an array of `vndlp.RUN`, shape (n,). Later runs cover earlier ones."""
        if not isinstance(runs, np.ndarray) or runs.dtype != RUN:
            raise TypeError(f"runs must be an array of vndlp.RUN, not {getattr(runs, 'dtype', type(runs).__name__)}")
        if runs.ndim != 1:
            raise ValueError(f"runs have shape {runs.shape}, not (n,)")
        packed = np.ascontiguousarray(runs)
        pointer = ffi.cast("VndlpRun*", packed.__array_interface__["data"][0])
        layer = self._number()
        with self._handle as writer:
            checked(lib.vndlp_put_runs(writer, layer, pointer, len(packed)), self._path)

    def add_paths(self, paths: Iterable[npt.NDArray[np.integer[Any]]]) -> None:
        """The next layer of a line file: polylines, each an array of integers, shape (n, 2), x and y."""
        polylines = []
        for path in paths:
            points = np.asarray(path)
            if not np.issubdtype(points.dtype, np.integer):
                raise TypeError(f"a polyline must be an array of integers, not {points.dtype}")
            if points.ndim != 2 or points.shape[1] != 2:
                raise ValueError(f"a polyline has shape {points.shape}, not (n, 2)")
            limits = np.iinfo(np.int32)
            if points.size and not (points.min() >= limits.min and points.max() <= limits.max):
                raise ValueError("a polyline's points must fit 32 bits")
            polylines.append(points.astype(np.int32))
        numbers = np.repeat(np.arange(len(polylines), dtype=np.uint32), [len(points) for points in polylines])
        points = np.ascontiguousarray(np.concatenate([np.empty((0, 2), np.int32), *polylines]))
        layer = self._number()
        with self._handle as writer:
            checked(
                lib.vndlp_put_points(
                    writer,
                    layer,
                    ffi.cast("int32_t*", points.__array_interface__["data"][0]),
                    ffi.cast("uint32_t*", numbers.__array_interface__["data"][0]),
                    len(points),
                ),
                self._path,
            )

    def copy(self, file: File, index: SupportsIndex) -> None:
        """The next layer, copied from a file; its code unchanged where the format is the same."""
        source_layer = file.layers._layer(index)
        layer = self._number()
        with self._handle as writer, file._handle as source:
            checked(lib.vndlp_put_layer(writer, layer, source, source_layer), self._path)

    @property
    def previews(self) -> tuple[Image, ...]:
        """Preview pictures in the order of the file: arrays of uint8, shape (height, width, 3), red, green, blue.

        Set before the first layer; they are scaled to the format's pictures.
        """
        return self._previews

    @previews.setter
    def previews(self, pictures: Iterable[Image]) -> None:
        given = tuple(pictures)
        for picture in given:
            if not isinstance(picture, np.ndarray) or picture.dtype != np.uint8:
                kind = getattr(picture, "dtype", type(picture).__name__)
                raise TypeError(f"a preview must be an array of uint8, not {kind}")
            if picture.ndim != 3 or picture.shape[2] != 3 or 0 in picture.shape:
                raise ValueError(f"a preview has shape {picture.shape}, not (height, width, 3)")
        for index, picture in enumerate(given):
            plain = np.ascontiguousarray(picture)
            height, width, _ = plain.shape
            with self._handle as writer:
                result = lib.vndlp_set_preview(writer, index, pixel_pointer(plain), width, height, 0)
                if result == lib.VNDLP_E_INDEX:
                    raise ValueError(f"{len(given)} previews: .{self._format} holds {index}")
                checked(result, self._path)
        self._previews = given

    @property
    def layer_settings(self) -> _LayerSettings:
        """`writer.layer_settings[i] = {"exposure_s": 4}` sets values of one layer, before the first layer is given."""
        return _LayerSettings(self)

    def _set(self, key: str, value: Value, layer: int) -> None:
        named = about(key, value, self._format)
        if key not in keys:
            raise ValueError(f"{named}: no such key")
        name = key.encode()
        with self._handle as writer:
            if keys[key].type is str:
                if not isinstance(value, str) or "\0" in value:
                    raise ValueError(f"{named}: no text")
                if layer >= 0:
                    raise ValueError(f"{named}: single layers hold no texts")
                result = lib.vndlp_set_text(writer, name, value.encode("utf-8"))
            else:
                result = lib.vndlp_set_number(writer, name, layer, number(key, value, self._format))
            checked(result, self._path, named)

    def _layer(self, index: SupportsIndex) -> int:
        if isinstance(index, (bool, np.bool_, str)) or not hasattr(index, "__index__"):
            raise TypeError(f"a layer is an integer, not {type(index).__name__}")
        layer = operator.index(index)
        if not -self._layers <= layer < self._layers:
            raise IndexError(f"layer {layer} is not one of {self._layers}")
        return layer % self._layers

    def _choose(self, *, numbered: bool) -> None:
        with self._lock:
            if self._numbered is None:
                self._numbered = numbered
            if self._numbered != numbered:
                raise ValueError("w[i] = image and w.add(...) in one file")

    def _number(self) -> int:
        self._choose(numbered=True)
        with self._lock:
            layer = self._next
            if layer >= self._layers:
                raise ValueError(f"layer {layer} is one too many: the file was made for {self._layers}")
            self._next += 1
        return layer

    def _pixels(self, image: Any) -> npt.NDArray[np.uint8]:
        pixels: npt.NDArray[Any] = np.asarray(image)
        if pixels.dtype not in (np.uint8, np.bool_):
            raise TypeError(f"a layer must be an array of uint8 or bool, not {pixels.dtype}")
        shape = (self._height, self._width)
        if pixels.shape != shape:
            raise ValueError(f"the layer has shape {pixels.shape}, the file {shape}")
        if pixels.dtype == np.bool_:
            return np.multiply(pixels, np.uint8(255), order="C")
        return pixels if rows_are_plain(pixels) else np.ascontiguousarray(pixels)

    def _put_pixels(self, layer: int, pixels: npt.NDArray[np.uint8]) -> None:
        with self._handle as writer:
            checked(
                lib.vndlp_put_pixels(writer, layer, pixel_pointer(pixels), *image_memory(pixels)), self._path
            )

    def __repr__(self) -> str:
        state = ", ended" if self._handle.closed else ""
        return f"<vndlp.Writer {self._path!r}, {self._layers} layers of {self._width} x {self._height}{state}>"


def _size(name: str, value: SupportsIndex) -> int:
    if isinstance(value, bool):
        raise TypeError(f"{name} is an integer, not bool")
    number = operator.index(value)
    if not 1 <= number < 1 << 32:
        raise ValueError(f"{name}={number}: 1 or more")
    return number


def create(
    path: str | os.PathLike[str],
    *,
    width: int,
    height: int,
    layers: int,
    like: File | None = None,
    previews: Iterable[Image] | None = None,
    **settings: Value,
) -> Writer:
    """Begins a slice file, in the format of the path's ending.

    Args:
        path: of the file; an existing one is replaced at the end.
        width: of a layer, pixels.
        height: of a layer, pixels.
        layers: number that will be given.
        like: a file whose settings, previews and records the new one begins with.
        previews: arrays of uint8, shape (height, width, 3), red, green, blue.
        settings: values by the keys of `vndlp.keys`.

    Raises:
        ValueError: another ending, a size or setting that the format cannot hold.
        Error: the file cannot be written.
    """
    return Writer(path, width, height, layers, like, previews, settings)
