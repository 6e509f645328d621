"""The shared library behind the package: found, declared by its own header, and its results made exceptions."""

from __future__ import annotations

import importlib
import math
import os
import re
import sys
import sysconfig
import threading
from collections.abc import Callable, Iterator
from pathlib import Path
from types import TracebackType
from typing import Any

from ._errors import file_error

# cffi has no type hints of its own
_cffi: Any = importlib.import_module("cffi")

_HERE = Path(__file__).absolute().parent
# installed, the two headers lie in the package; in the source tree where the library has them
_HEADER_FOLDERS = (_HERE / "include", _HERE.parent.parent / "include" / "vndlp")


def _header(name: str) -> str:
    for folder in _HEADER_FOLDERS:
        if (folder / name).is_file():
            return (folder / name).read_text(encoding="utf-8")
    raise ImportError(f"{name} is in none of " + ", ".join(map(str, _HEADER_FOLDERS)))


def _declarations() -> str:
    declared = _header("vndlp_c.h").split("/* declarations begin */")[1].split("/* declarations end */")[0]
    return declared.replace("VNDLP_API", "")


def _expected_version() -> tuple[int, int]:
    numbers = dict(re.findall(r"#define VNDLP_VERSION_(MAJOR|MINOR) (\d+)", _header("export.h")))
    return int(numbers["MAJOR"]), int(numbers["MINOR"])


def _file_name(major: int, minor: int) -> str:
    if sys.platform == "win32":
        return "libvndlp.dll"
    if sys.platform == "darwin":
        return f"libvndlp.{major}.{minor}.dylib"
    return f"libvndlp.so.{major}.{minor}"


def _candidates(name: str) -> Iterator[str]:
    chosen = os.environ.get("VNDLP_LIBRARY")
    if chosen:
        yield chosen
        return
    folders = ["bin"] if sys.platform == "win32" else ["lib", "lib64"]
    multiarch = sysconfig.get_config_var("MULTIARCH")
    if multiarch:
        folders.append(f"lib/{multiarch}")
    for prefix in _HERE.parents[:-1]:
        for folder in folders:
            if (prefix / folder / name).is_file():
                yield str(prefix / folder / name)
    yield name


def _load() -> Any:
    major, minor = _expected_version()
    tried = []
    for candidate in _candidates(_file_name(major, minor)):
        try:
            library = ffi.dlopen(candidate)
            found = library.vndlp_version()
        except (OSError, AttributeError) as error:
            tried.append(f"{candidate} ({error})")
            continue
        if (found >> 16, found >> 8 & 0xFF) == (major, minor):
            return library
        tried.append(f"{candidate} (version {version_text(found)})")
    raise ImportError(f"no libvndlp of version {major}.{minor}; tried " + ", ".join(tried))


def version_text(number: int) -> str:
    """A version number as text, "0.1.0"."""
    return f"{number >> 16}.{number >> 8 & 0xFF}.{number & 0xFF}"


ffi: Any = _cffi.FFI()
ffi.cdef(_declarations())
lib: Any = _load()
# a program's output is its own
lib.vndlp_set_message_handler(ffi.addressof(lib, "vndlp_ignore_message"), ffi.NULL)

FORMATS: dict[int, str] = {
    lib.VNDLP_FORMAT_VNDLP: "vndlp",
    lib.VNDLP_FORMAT_VNLINE: "vnline",
    lib.VNDLP_FORMAT_CTB: "ctb",
    lib.VNDLP_FORMAT_VNDLPV4: "vndlpv4",
}
SEVERITIES: dict[int, str] = {lib.VNDLP_ERROR: "error", lib.VNDLP_WARNING: "warning", lib.VNDLP_NOTE: "note"}
_FILE_CODES: dict[int, str] = {
    lib.VNDLP_E_FILE: "file",
    lib.VNDLP_E_FORMAT: "format",
    lib.VNDLP_E_DAMAGED: "damaged",
    lib.VNDLP_E_KIND: "kind",
    lib.VNDLP_E_MEMORY: "memory",
}


def new(struct: str) -> Any:
    """A struct of the C interface, zeroed, its size set."""
    made = ffi.new(struct + "*")
    made.size = ffi.sizeof(struct)
    return made


def text(pointer: Any) -> str | None:
    """A text of the library; None for a null pointer."""
    return None if pointer == ffi.NULL else ffi.string(pointer).decode("utf-8", "replace")


def sure_text(pointer: Any) -> str:
    """A text of the library; empty for a null pointer."""
    return text(pointer) or ""


def count_or_none(value: int) -> int | None:
    """A whole number of the library, -1 for none."""
    return None if value < 0 else int(value)


def number_or_none(value: float) -> float | None:
    """A number of the library, NaN for none."""
    return None if math.isnan(value) else float(value)


def sum_or_none(value: float) -> float | None:
    """A sum over layers to twelve digits: its last ones hang on the order of adding."""
    return None if math.isnan(value) else float(f"{value:.12g}")


def path_bytes(path: str | os.PathLike[str]) -> bytes:
    """A path as the library takes it."""
    # os.fsencode would take bytes as well, which are a file's content here
    name = os.fspath(path)
    if not isinstance(name, str):
        raise TypeError(f"a path is str or os.PathLike, not {type(name).__name__}")
    encoded = os.fsencode(name)
    if b"\0" in encoded:
        raise ValueError("a path cannot hold a zero byte")
    return encoded


def failure(result: int, filename: str | None = None, about: str | None = None) -> Exception:
    """The exception for a call's negative result.

    Args:
        result: of the call that this thread has just made.
        filename: the file it worked on.
        about: key, value and format, for errors of settings.
    """
    error = new("VndlpError")
    lib.vndlp_last_error(error)
    reason = sure_text(error.text) if error.code == result else f"error {result}"
    if result in _FILE_CODES:
        return file_error(
            reason,
            _FILE_CODES[result],
            error.system_code or None,
            filename,
            count_or_none(error.layer),
            count_or_none(error.offset),
        )
    if result == lib.VNDLP_E_INDEX:
        return IndexError(reason)
    return ValueError(reason if about is None else f"{about}: {reason}")


def checked(result: int, filename: str | None = None, about: str | None = None) -> int:
    """Hands back a result that is no error, raises for one that is."""
    if result < 0:
        raise failure(result, filename, about)
    return result


class Callback:
    """A Python function that the library calls; what it raises is raised behind the call."""

    def __init__(self, kind: str, function: Callable[..., None]) -> None:
        self._raised: BaseException | None = None

        def call(_context: Any, *arguments: Any) -> int:
            function(*arguments)
            return 0

        self.pointer = ffi.callback(kind, call, error=1, onerror=self._keep)

    def _keep(
        self, _type: type[BaseException], raised: BaseException, _traceback: TracebackType | None
    ) -> None:
        self._raised = raised

    def checked(self, result: int, filename: str | None = None, about: str | None = None) -> int:
        """`checked` of a call that used this."""
        if self._raised is not None:
            raise self._raised
        return checked(result, filename, about)


class Handle:
    """A handle of the library, freed once: when it is closed and no call is at work with it.

    `with handle as pointer:` lends it to any number of threads.
    """

    def __init__(self, pointer: Any, free: Any, closed_text: str) -> None:
        self._pointer = pointer
        self._free = free
        self._closed_text = closed_text
        self._lock = threading.Lock()
        self._users = 0
        self._closed = False

    @property
    def closed(self) -> bool:
        return self._closed

    def __enter__(self) -> Any:
        with self._lock:
            if self._closed:
                raise ValueError(self._closed_text)
            self._users += 1
        return self._pointer

    def __exit__(self, *_raised: object) -> None:
        with self._lock:
            self._users -= 1
            last = self._closed and self._users == 0
        if last:
            self._free(self._pointer)

    def close(self) -> None:
        """Closes it; freed here, or by the last thread at work with it."""
        with self._lock:
            if self._closed:
                return
            self._closed = True
            unused = self._users == 0
        if unused:
            self._free(self._pointer)

    def __del__(self) -> None:
        self.close()
