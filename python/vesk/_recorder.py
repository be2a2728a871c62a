"""Writing into a box."""

from __future__ import annotations

import numbers
import os
import time as clock
import warnings
from types import TracebackType
from typing import Any, List, Mapping, Optional, Sequence, Type, Union

import numpy as np
import numpy.typing as npt

from . import _vesk
from ._box import path_bytes, warn
from ._errors import RecorderWarning
from ._times import Time, seconds

Values = Union[Mapping[str, Optional[float]], Sequence[Optional[float]], npt.NDArray[Any]]


def _row(values: Any) -> npt.NDArray[np.float32]:
    """One value for each sensor in single precision; None is NaN."""
    if isinstance(values, np.ma.MaskedArray):
        masked: Any = values
        values = masked.astype(np.float64).filled(np.nan)
    given = np.asarray(values)
    if given.dtype.kind == "O":
        for value in given.flat:
            if value is not None and not isinstance(value, numbers.Real):
                raise TypeError(f"value: {type(value).__name__} is no number")
    elif given.dtype.kind not in "biuf" and given.size > 0:
        raise TypeError(f"value: {given.dtype} is no number")
    with np.errstate(over="ignore"):
        return np.ascontiguousarray(given, dtype=np.float32)


def _size(name: str, value: Any) -> Optional[int]:
    if value is None:
        return None
    if isinstance(value, bool) or not isinstance(value, (int, np.integer)):
        raise TypeError(f"{name}: {type(value).__name__} is no number of {name}")
    if not 0 < value < 1 << 32:
        raise ValueError(f"{name} {value}: is no size of a box")
    return int(value)


class Recorder:
    """Writes samples and events into a box, as ``vesk record`` and ``vesk import`` do.

    The box is made where there is none. One that a crash left behind is recovered first, with a
    :class:`RecorderWarning`; none is ever overwritten. It holds the lock of the box until it is
    closed, so that another writer is refused, of this process, too. Use it with ``with``::

        with vesk.Recorder("box") as recorder:
            recorder.write({"room.temp_C": 21.5, "room.light": None})
            recorder.event(1, "window opened")

    ``samples`` and ``intervals`` are the sizes of a new box: of a buffer, and how many intervals
    it is summarised into. ``sync`` tells when what was written is brought onto the medium:
    ``"end"``, ``"vector"`` (each sample), ``"never"`` or a time such as ``"10s"``. Without
    ``create`` a box that is not there is an error.

    :raises BoxInUseError: somebody else writes to the box
    :raises StorageError: the disk does not take it
    :raises UnreadableError: there is no such box, or it cannot be recovered
    :raises ValueError: sizes that no box can have, or others than this box has
    """

    def __init__(
        self,
        path: Union[str, "os.PathLike[str]", bytes],
        *,
        samples: Optional[int] = None,
        intervals: Optional[int] = None,
        sync: str = "end",
        create: bool = True,
    ) -> None:
        self._path = path_bytes(path)
        if not isinstance(sync, str):
            raise TypeError(f"sync: {type(sync).__name__} is no policy")
        self._sensors: List[str] = []
        self._recording = _vesk.Recording(
            self._path, _size("samples", samples), _size("intervals", intervals), sync, bool(create)
        )
        warn(self._recording.told_at_start(), RecorderWarning, stacklevel=3)

    @property
    def path(self) -> str:
        """The name that the box was opened by."""
        return os.fsdecode(self._path)

    @property
    def sensors(self) -> List[str]:
        """The sensors of the next sample; empty before the first one."""
        return list(self._sensors)

    @sensors.setter
    def sensors(self, names: Sequence[str]) -> None:
        if isinstance(names, (str, bytes)):
            raise TypeError("sensors: a list of names, not one text")
        wanted = list(names)
        for name in wanted:
            if not isinstance(name, str):
                raise TypeError(f"sensors: {type(name).__name__} is no name")
        try:
            encoded = [name.encode("utf-8") for name in wanted]
        except UnicodeEncodeError:
            raise ValueError("sensors: a name is no text that UTF-8 can hold") from None
        self._tell(self._recording.set_sensors(encoded))
        self._sensors = wanted

    @property
    def closed(self) -> bool:
        """True when nothing can be written any more."""
        return not self._recording.is_open

    @property
    def written(self) -> int:
        """How many samples this recorder has written."""
        return self._recording.written

    @property
    def waiting_events(self) -> int:
        """How many events wait beside the box for a sample that they can follow."""
        return self._recording.waiting

    def write(self, values: Values, time: Time = None) -> None:
        """Writes one sample; it is with the operating system when this returns.

        ``values`` is a mapping from names to numbers, which sets :attr:`sensors` where they have
        changed, or a sequence with a number for each of them. None and NaN are missing values.
        Numbers are stored in single precision. ``time`` is now unless it is given, and counts in
        whole seconds.
        """
        row = self._row_of(values)
        self._tell(self._recording.write(_moment(time), row))

    def write_many(self, times: Any, values: Any) -> None:
        """Writes many samples: ``values`` has a row for each of ``times``, a column for each sensor.

        The columns of a DataFrame become the :attr:`sensors`, so ``write_many(frame.index, frame)``
        writes what :meth:`Box.samples` has read. It ends with the first sample that is refused;
        those before it are in the box, and :attr:`written` counts them.
        """
        moments = np.asarray(times)
        if moments.ndim != 1:
            raise ValueError("times: not a row of times")
        if moments.dtype.kind == "M":
            if np.isnat(moments).any():
                raise ValueError("time NaT: is no moment")
            whole = moments.astype("datetime64[s]").astype(np.int64)
        elif moments.dtype.kind in "iu" and not (moments > np.iinfo(np.int64).max).any():
            whole = moments.astype(np.int64)
        else:
            whole = np.array([seconds(each) for each in moments], dtype=np.int64)
        columns = getattr(values, "columns", None)
        if columns is not None and list(columns) != self._sensors:
            self.sensors = columns
        self._tell(self._recording.write_many(np.ascontiguousarray(whole), _row(values)))

    def event(self, type: int, text: str, time: Time = None) -> bool:
        """Writes an event; it is on the medium when this returns, unless nothing is ever synced.

        ``type`` is from 1 to 5. The result is False when the event waits beside the box for the
        next sample, which it can follow: before the first sample of a box, and behind the last one
        of a full buffer.
        """
        if isinstance(type, bool) or not isinstance(type, (int, np.integer)):
            raise TypeError(f"type: {type.__class__.__name__} is no type of an event")
        if not 1 <= type <= 5:
            raise ValueError(f"type {type}: types of events are 1 to 5")
        if not isinstance(text, str):
            raise TypeError(f"text: {text.__class__.__name__} is no text")
        try:
            encoded = text.encode("utf-8")
        except UnicodeEncodeError:
            raise ValueError("the text of the event is none that UTF-8 can hold") from None
        recorded, told = self._recording.write_event(int(type), _moment(time), encoded)
        self._tell(told)
        return recorded

    def sync(self) -> None:
        """Brings what was written onto the medium, unless nothing is ever synced."""
        self._tell(self._recording.sync())

    def close(self) -> None:
        """Syncs and closes the box and gives its lock back. Closing twice does nothing."""
        self._tell(self._recording.close())

    def __enter__(self) -> "Recorder":
        return self

    def __exit__(
        self,
        kind: Optional[Type[BaseException]],
        error: Optional[BaseException],
        trace: Optional[TracebackType],
    ) -> None:
        self.close()

    def __del__(self) -> None:
        recording = getattr(self, "_recording", None)
        if recording is not None and recording.is_open:
            warnings.warn(f"unclosed {self!r}", ResourceWarning, source=self)

    def __repr__(self) -> str:
        return f"vesk.Recorder({self.path!r}{', closed' if self.closed else ''})"

    def _row_of(self, values: Values) -> npt.NDArray[np.float32]:
        if hasattr(values, "keys"):
            named = dict(values)
            names = list(named)
            if names != self._sensors:
                if set(names) != set(self._sensors):
                    self.sensors = names
                else:
                    return _row([named[name] for name in self._sensors])
            return _row(list(named.values()))
        return _row(values)

    def _tell(self, told: List[str]) -> None:
        warn(told, RecorderWarning)


def _moment(time: Time) -> int:
    return int(clock.time()) if time is None else seconds(time)
