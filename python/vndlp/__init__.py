"""Slice files of masked-LCD and DLP resin printers: `.vndlp`, `.vnline`, `.ctb` and `.vndlpv4`.

    import vndlp

    with vndlp.open("tower.ctb") as f:
        print(f.settings["layer_height_mm"], len(f.layers))
        image = f.layers[50]                    # numpy, uint8, (height, width)

    with vndlp.create("out.vndlp", width=1440, height=2560, layers=2, layer_height_mm=0.05) as w:
        w.add(image)
        w.add(image)

Layers count from 0 at the plate, rows from the top. Units are those of `vndlp.units`. Nothing is printed. Calls that
work release the interpreter's lock, and one file may be read, one writer filled, by any number of threads.
"""

from ._convert import Repaired, Scrambling, convert, repair, scrambling, set_scrambling
from ._errors import Error
from ._file import RUN, CheckFinding, Facts, File, Finding, Layers, Raw, Trailer, open
from ._keys import Change, Key, Value, keys, units
from ._library import lib as _lib
from ._library import version_text as _version_text
from ._writer import Writer, create

__version__: str = _version_text(_lib.vndlp_version())

__all__ = [
    "RUN",
    "Change",
    "CheckFinding",
    "Error",
    "Facts",
    "File",
    "Finding",
    "Key",
    "Layers",
    "Raw",
    "Repaired",
    "Scrambling",
    "Trailer",
    "Value",
    "Writer",
    "convert",
    "create",
    "keys",
    "open",
    "repair",
    "scrambling",
    "set_scrambling",
    "units",
]
