"""What goes wrong with a file, as an exception."""

from __future__ import annotations

import errno as _errno


class Error(OSError):
    """A slice file that cannot be read or written.

    Attributes:
        code: "file" (cannot be opened, read or written), "format" (no slice file), "damaged", "kind" (not for this
            format: an image of a line file, shapes of an image file) or "memory".
        errno: the system's number, None where it gave none.
        filename: the file as it was given, None for one in memory.
        layer: the layer it happened in, None for none.
        offset: byte of the file, None for none.
    """

    code: str
    layer: int | None
    offset: int | None

    def __init__(
        self,
        text: str,
        code: str,
        errno: int | None = None,
        filename: str | None = None,
        layer: int | None = None,
        offset: int | None = None,
    ) -> None:
        super().__init__(text)
        self._text = text
        self.code = code
        # the base class says int, though it leaves None itself where it is told no number
        self.errno = errno  # type: ignore[assignment]
        self.strerror = text
        self.filename = filename
        self.layer = layer
        self.offset = offset

    def __str__(self) -> str:
        return self._text if self.filename is None else f"{self.filename}: {self._text}"

    def __reduce__(self) -> tuple[type[Error], tuple[object, ...]]:
        return type(self), (self._text, self.code, self.errno, self.filename, self.layer, self.offset)


class MissingFileError(Error, FileNotFoundError):
    """A file that is not there."""


class DeniedFileError(Error, PermissionError):
    """A file that may not be opened."""


_CLASSES: dict[int | None, type[Error]] = {
    _errno.ENOENT: MissingFileError,
    _errno.EACCES: DeniedFileError,
    _errno.EPERM: DeniedFileError,
}


def file_error(
    text: str, code: str, errno: int | None, filename: str | None, layer: int | None, offset: int | None
) -> Error:
    """Makes the exception whose class fits the system's number."""
    return _CLASSES.get(errno, Error)(text, code, errno, filename, layer, offset)
