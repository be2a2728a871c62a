"""Boxes as they are read: tables of samples, history and events, and facts about a box."""

from __future__ import annotations

import fnmatch
import os
import warnings
from typing import TYPE_CHECKING, Any, Dict, List, NamedTuple, Optional, Sequence, Tuple, Union

import numpy as np
import numpy.typing as npt

from . import _vesk
from ._errors import DamageWarning
from ._times import Time, bound

if TYPE_CHECKING:
    import pandas as pd

Sensors = Union[None, str, Sequence[str]]

#: The statistics of a sensor in an interval, in the order in which tables have them.
STATISTICS = ("count", "min", "mean", "max", "stddev", "skewness", "kurtosis", "first", "last")

# So many places of damage are told by one warning; Box.info() and Box.check() tell more.
_MOST_TOLD = 5


class SampleArrays(NamedTuple):
    """Raw samples without pandas. Row i of ``values`` was taken at ``times[i]``."""

    sensors: List[str]
    times: npt.NDArray[np.datetime64]
    """``datetime64[s]``, in UTC."""
    values: npt.NDArray[np.float32]
    """A row for each sample and a column for each sensor; NaN where a sensor has no value."""


class HistoryArrays(NamedTuple):
    """Intervals of the history without pandas."""

    sensors: List[str]
    starts: npt.NDArray[np.datetime64]
    """When the first sample of each interval was taken: ``datetime64[s]``, in UTC."""
    ends: npt.NDArray[np.datetime64]
    """When the last one was taken."""
    events: npt.NDArray[np.uint32]
    """A row for each interval: how many events of the types 1 to 5 happened in it."""
    values: npt.NDArray[np.void]
    """A row for each interval, a column for each sensor, and a field for each statistic, such as
    ``values["mean"]``; ``count`` is 0 and all others are NaN where a sensor has no values."""


class Event(NamedTuple):
    """Something that happened."""

    time: int
    """Seconds since the epoch."""
    type: int
    """From 1 to 5 where a recorder wrote it."""
    text: str
    waits: bool
    """True for an event that waits beside the box for a sample that it can follow."""


class Suspect(NamedTuple):
    """A sensor and how unusual it was at the end of a box."""

    rank: int
    sensor: str
    score: Optional[float]
    """Above 0.3 unusual, from 0 on perhaps; None where it cannot be told."""
    level: str
    sentence: str
    """What it did, for people."""


def patterns_of(sensors: Sensors) -> List[bytes]:
    if sensors is None:
        return []
    if isinstance(sensors, (bytes, bytearray)):
        raise TypeError("sensors: patterns are texts, not bytes")
    patterns = [sensors] if isinstance(sensors, str) else list(sensors)
    for pattern in patterns:
        if not isinstance(pattern, str):
            raise TypeError(f"sensors: {type(pattern).__name__} is no pattern")
    if not patterns:
        raise ValueError("sensors: no sensor is chosen; leave it out to choose all")
    return [pattern.encode("utf-8", "backslashreplace") for pattern in patterns]


def path_bytes(path: Any) -> bytes:
    """The bytes of the name of a box, which is no empty one and holds no zero byte."""
    name = os.fsencode(path)
    if not name:
        raise ValueError("the name of the box is empty")
    if b"\0" in name:
        raise ValueError("the name of the box holds a zero byte")
    return name


def summary_of(told: List[str]) -> str:
    """One text of what a call had to tell."""
    lines = told[:_MOST_TOLD]
    if len(told) > _MOST_TOLD:
        lines.append(f"and {len(told) - _MOST_TOLD} more")
    return "\n".join(lines)


def warn(told: List[str], category: type, stacklevel: int = 4) -> None:
    """Makes one warning of what a call had to tell."""
    if told:
        warnings.warn(summary_of(told), category, stacklevel=stacklevel)


def package_of_pandas() -> Any:
    try:
        import pandas
    except ImportError:
        raise ImportError(
            "pandas is not installed; samples_arrays(), history_arrays() and event_list() do "
            "without it"
        ) from None
    return pandas


def time_index(pandas: Any, times: npt.NDArray[np.datetime64], name: str) -> Any:
    return pandas.DatetimeIndex(times.astype("datetime64[ns]"), name=name).tz_localize("UTC")


class Box:
    """A box, or one of its buffer files, to be read.

    ``path`` is the base name of a box (what the names of its files begin with), its state file or
    one of its buffers. A box may be read while it is written to: each call shows it as it is at
    that moment. A damaged box gives what is readable, with a :class:`DamageWarning`.

    ``sensors`` is a pattern such as ``"cpu.*"``, or a list of patterns and names; ``"!PATTERN"``
    takes away. A leading ``::`` of a name may be left out. ``start`` and ``end`` belong to the span
    that is read. They are seconds since the epoch, a ``datetime``, a text such as
    ``"2024-01-31 23:59"``, all in UTC where they have no zone, or a distance from the end of the
    box such as ``"-10m"`` or a negative ``timedelta``.

    :raises UnreadableError: there is no such box
    :raises Error: the machine does not let it be read
    :raises ValueError: a time is no time, or a pattern fits no sensor
    """

    def __init__(self, path: Union[str, "os.PathLike[str]", bytes]) -> None:
        self._path = path_bytes(path)
        _vesk.find(self._path)

    @property
    def path(self) -> str:
        """The name that the box was opened by."""
        return os.fsdecode(self._path)

    def __repr__(self) -> str:
        return f"vesk.Box({self.path!r})"

    def samples_arrays(
        self, sensors: Sensors = None, start: Time = None, end: Time = None
    ) -> SampleArrays:
        """The raw samples as arrays of numpy, oldest first."""
        return self._samples(sensors, start, end)

    def samples(self, sensors: Sensors = None, start: Time = None, end: Time = None) -> "pd.DataFrame":
        """The raw samples as a DataFrame.

        The index is the time in UTC, each column is a sensor (float32), in the order in which the
        machine names them. Values that are missing are NaN. Times repeat or go back where the clock
        was set back.
        """
        pandas = package_of_pandas()
        arrays = self._samples(sensors, start, end)
        return pandas.DataFrame(
            arrays.values,
            index=time_index(pandas, arrays.times, "time"),
            columns=pandas.Index(arrays.sensors, name="sensor", dtype=object),
            copy=False,
        )

    def history_arrays(
        self, sensors: Sensors = None, start: Time = None, end: Time = None
    ) -> HistoryArrays:
        """The intervals of the history as arrays of numpy, oldest first."""
        return self._history(sensors, start, end)

    def history(self, sensors: Sensors = None, start: Time = None, end: Time = None) -> "pd.DataFrame":
        """The statistics of each interval of the history as a DataFrame.

        The index is the start of each interval in UTC; :meth:`intervals` tells their ends. The
        columns are pairs (sensor, statistic), so ``history["::load_1", "mean"]`` is a series and
        ``history.xs("max", axis=1, level="statistic")`` a table of all sensors. ``count`` is
        uint32, the others are float32 and NaN where a sensor has no values. An interval that
        ``start`` or ``end`` lies in belongs to the table.
        """
        pandas = package_of_pandas()
        arrays = self._history(sensors, start, end)
        rows, width = arrays.values.shape
        numbers = len(STATISTICS) - 1
        floats = np.empty((rows, width, numbers), dtype=np.float32)
        for i, statistic in enumerate(STATISTICS[1:]):
            floats[:, :, i] = arrays.values[statistic]
        index = time_index(pandas, arrays.starts, "start")
        columns = pandas.MultiIndex.from_product(
            [pandas.Index(arrays.sensors, dtype=object), list(STATISTICS)],
            names=["sensor", "statistic"],
        )
        if width == 0:
            return pandas.DataFrame(index=index, columns=columns, dtype=np.float32)
        table = pandas.concat(
            [
                pandas.DataFrame(arrays.values["count"], index=index),
                pandas.DataFrame(floats.reshape(rows, width * numbers), index=index),
            ],
            axis=1,
        )
        # The counts stand in front of all other numbers; each belongs before those of its sensor.
        places = np.empty((width, len(STATISTICS)), dtype=np.intp)
        places[:, 0] = np.arange(width)
        places[:, 1:] = width + np.arange(width * numbers).reshape(width, numbers)
        table = table.iloc[:, places.ravel()]
        table.columns = columns
        return table

    def intervals(self, start: Time = None, end: Time = None) -> "pd.DataFrame":
        """When each interval of the history ends and how many events happened in it.

        The index is that of :meth:`history`; the columns are ``end`` and ``type1`` to ``type5``.
        """
        pandas = package_of_pandas()
        arrays = self._history(None, start, end)
        table = pandas.DataFrame(
            arrays.events,
            index=time_index(pandas, arrays.starts, "start"),
            columns=[f"type{number}" for number in range(1, 6)],
        )
        table.insert(0, "end", time_index(pandas, arrays.ends, "end"))
        return table

    def event_list(self, start: Time = None, end: Time = None) -> List[Event]:
        """The events among the raw samples in the order of the box, and behind them those that wait."""
        return self._events(start, end)

    def events(
        self, start: Time = None, end: Time = None, text: Optional[str] = None
    ) -> "pd.DataFrame":
        """The events as a DataFrame with the columns ``type``, ``text`` and ``waits``.

        With ``text`` only those whose text fits this pattern, such as ``"*oom*"``.
        """
        pandas = package_of_pandas()
        found = self._events(start, end)
        if text is not None:
            if not isinstance(text, str):
                raise TypeError(f"text: {type(text).__name__} is no pattern")
            found = [one for one in found if fnmatch.fnmatchcase(one.text, text)]
        times = np.array([one.time for one in found], dtype="datetime64[s]")
        return pandas.DataFrame(
            {
                "type": np.array([one.type for one in found], dtype=np.uint32),
                "text": np.array([one.text for one in found], dtype=object),
                "waits": np.array([one.waits for one in found], dtype=bool),
            },
            index=time_index(pandas, times, "time"),
        )

    def info(self) -> Dict[str, Any]:
        """What the box is made of: files, spans of time in seconds, sensors, damage, recordings."""
        facts, told = _vesk.info(self._path)
        warn(told, DamageWarning, stacklevel=3)
        return facts

    def check(self) -> Dict[str, Any]:
        """Whether the box is healthy, what is wrong in it, and what ``vesk repair`` would do.

        ``verdict`` is ``"healthy"``, ``"repairable"`` or ``"not repairable"``; ``what`` says it in
        a sentence. Nothing is changed.

        :raises ValueError: for a buffer file instead of a box
        """
        facts, told = _vesk.check(self._path)
        warn(told, DamageWarning, stacklevel=3)
        return facts

    def suspects(self, sensors: Sensors = None, last: Union[None, int, str] = None) -> List[Suspect]:
        """The sensors in the order in which they were unusual at the end of the box.

        What was last, such as ``"10m"`` or a number of seconds, is compared with what was before;
        the box decides how much where it is not given. It tells where to look first and knows
        nothing of causes.
        """
        seconds = 0
        if isinstance(last, str):
            seconds = _vesk.seconds_of(last)
        elif last is not None:
            if isinstance(last, bool) or not isinstance(last, (int, np.integer)):
                raise TypeError(f"last: {type(last).__name__} is no length of time")
            seconds = int(last)
        if not 0 <= seconds <= 1 << 32:
            raise ValueError(f"last {last}: is no length of time")
        found, told = _vesk.suspects(self._path, patterns_of(sensors), seconds)
        warn(told, DamageWarning, stacklevel=3)
        return [Suspect(rank, *one) for rank, one in enumerate(found, start=1)]

    def _span(self, start: Time, end: Time) -> Tuple[int, bool, int, bool]:
        return (*bound(start, True), *bound(end, False))

    def _samples(self, sensors: Sensors, start: Time, end: Time) -> SampleArrays:
        names, times, values, told = _vesk.samples(
            self._path, patterns_of(sensors), *self._span(start, end)
        )
        warn(told, DamageWarning)
        return SampleArrays(names, times.view("datetime64[s]"), values)

    def _history(self, sensors: Sensors, start: Time, end: Time) -> HistoryArrays:
        names, starts, ends, events, values, told = _vesk.history(
            self._path, patterns_of(sensors), *self._span(start, end)
        )
        warn(told, DamageWarning)
        return HistoryArrays(
            names, starts.view("datetime64[s]"), ends.view("datetime64[s]"), events, values
        )

    def _events(self, start: Time, end: Time) -> List[Event]:
        found, told = _vesk.events(self._path, *self._span(start, end))
        warn(told, DamageWarning)
        return [Event(*one) for one in found]
