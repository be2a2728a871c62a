"""Boxes of Vesk, the black box of a computer, read and written from Python.

:class:`Box` reads a box, also one that is written to, lies elsewhere than it was made, or is
damaged: samples, history and events as DataFrames or arrays of numpy. :class:`Recorder` writes one.
:mod:`vesk.dask` reads many at once.

    >>> import vesk
    >>> box = vesk.Box("/var/lib/vesk/box")
    >>> box.samples(sensors="cpu.*", start="-10m").mean()
    >>> box.history()["::load_1", "max"].plot()

All of it may be used from several threads. The library works for one of them at a time, and other
threads of Python go on meanwhile.
"""

from . import _vesk
from ._box import STATISTICS, Box, Event, HistoryArrays, SampleArrays, Suspect
from ._errors import (
    BoxInUseError,
    DamageWarning,
    Error,
    RecorderWarning,
    StorageError,
    UnreadableError,
)
from ._recorder import Recorder
from ._vesk import error_text

__all__ = [
    "STATISTICS",
    "Box",
    "BoxInUseError",
    "DamageWarning",
    "Error",
    "Event",
    "HistoryArrays",
    "Recorder",
    "RecorderWarning",
    "SampleArrays",
    "StorageError",
    "Suspect",
    "UnreadableError",
    "error_text",
]

#: The version of the library that is used.
__version__ = _vesk.version()
