"""The settings keys, their units, and values as the library takes them."""

from __future__ import annotations

import math
import numbers
from collections.abc import Mapping
from types import MappingProxyType
from typing import Any, NamedTuple, Union

from ._library import FORMATS, checked, failure, ffi, lib, new, sure_text

Value = Union[float, int, str]


class Key(NamedTuple):
    """A settings key."""

    name: str
    type: type[float] | type[int] | type[str]
    unit: str
    """"s", "mm", "mm/min", "ml", "g", "px", "um" or ""."""
    formats: frozenset[str]
    """Formats that hold it."""
    layer_formats: frozenset[str]
    """Those that hold it for single layers."""
    fixed_formats: frozenset[str]
    """Those that fix its value."""


_TYPES: dict[int, type[float] | type[int] | type[str]] = {
    lib.VNDLP_NUMBER: float,
    lib.VNDLP_INTEGER: int,
    lib.VNDLP_TEXT: str,
}


def _names(bits: int) -> frozenset[str]:
    return frozenset(name for number, name in FORMATS.items() if bits >> number & 1)


def _read_keys() -> dict[str, Key]:
    found = {}
    entry = new("VndlpKey")
    index = 0
    while (result := lib.vndlp_key(index, entry)) == lib.VNDLP_OK:
        name = sure_text(entry.name)
        found[name] = Key(
            name,
            _TYPES[entry.type],
            sure_text(entry.unit),
            _names(entry.formats),
            _names(entry.layer_formats),
            _names(entry.fixed_formats),
        )
        index += 1
    if result != lib.VNDLP_E_INDEX:
        raise failure(result)
    return found


keys: Mapping[str, Key] = MappingProxyType(_read_keys())
"""All settings keys by name, in the order in which `File.settings` has them."""

units: Mapping[str, str] = MappingProxyType({key.name: key.unit for key in keys.values()})
"""The unit of each settings key."""


def about(name: str, value: object, format_name: str) -> str:
    """Names a setting in an error."""
    return f"{name}={value!r} in .{format_name}"


def is_number(value: object) -> bool:
    """Whether a value is a finite number; truth values are none."""
    return isinstance(value, numbers.Real) and not isinstance(value, bool) and math.isfinite(value)


def number(name: str, value: object, format_name: str) -> float:
    """A value as a number; a text is read as one.

    Raises:
        ValueError: no finite number.
    """
    try:
        found = float(value) if isinstance(value, str) else value
    except ValueError:
        found = None
    if not isinstance(found, numbers.Real) or not is_number(found):
        raise ValueError(f"{about(name, value, format_name)}: no number")
    return float(found)


def value_text(name: str, value: object, format_name: str) -> bytes:
    """A value as the library reads it from text; numbers keep all their digits.

    Args:
        name: a settings key or "raw.RECORD.member".
    """
    raw = name.startswith("raw.")
    if not raw and name not in keys:
        raise ValueError(f"{about(name, value, format_name)}: no such key")
    holds_text = raw or keys[name].type is str
    if isinstance(value, str) and "\0" in value:
        raise ValueError(f"{about(name, value, format_name)}: a text cannot hold a zero byte")
    if isinstance(value, str) and holds_text:
        return value.encode("utf-8")
    if holds_text and not raw:
        raise ValueError(f"{about(name, value, format_name)}: no text")
    if isinstance(value, numbers.Integral) and not isinstance(value, bool):
        return str(int(value)).encode()
    found = number(name, value, format_name)
    return (str(int(found)) if found.is_integer() else repr(found)).encode()


def settings_of(file: Any, format_name: str, layer: int, filename: str | None) -> dict[str, Value]:
    """The settings a file holds, of one layer or (-1) its own."""
    found: dict[str, Value] = {}
    value = ffi.new("double*")
    string = ffi.new("const char**")
    for key in keys.values():
        name = key.name.encode()
        if format_name not in (key.formats if layer < 0 else key.layer_formats):
            continue
        if key.type is str:
            if checked(lib.vndlp_get_text(file, name, string), filename) == lib.VNDLP_OK:
                found[key.name] = sure_text(string[0])
        elif checked(lib.vndlp_get_number(file, name, layer, value), filename) == lib.VNDLP_OK:
            found[key.name] = int(value[0]) if key.type is int else float(value[0])
    return found


class Change(NamedTuple):
    """A value that `File.set` changed."""

    key: str
    layers: str | None
    """None for the file's value, else "1-2"."""
    old: Value | None
    new: Value | None


def typed(name: str, shown: str | None) -> Value | None:
    """A value the library gives as text, in the key's type; of a raw field a number where it is one."""
    if shown is None:
        return None
    kinds: tuple[type[float] | type[int] | type[str], ...] = (int, float)
    if name in keys:
        kinds = (keys[name].type,)
    for kind in kinds:
        try:
            return kind(shown)
        except ValueError:
            continue
    return shown
