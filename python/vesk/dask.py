"""Many boxes as one DataFrame of Dask, which reads them on all processors or on a cluster.

    >>> import glob, vesk.dask
    >>> frame = vesk.dask.from_boxes(glob.glob("collected/*/box.state"), sensors="cpu.*")
    >>> frame.groupby("box").max().compute()
"""

from __future__ import annotations

import os
import sys
import warnings
from typing import TYPE_CHECKING, Any, Callable, Iterable, List, Optional, Sequence, Tuple, Union

import numpy as np
import numpy.typing as npt

from . import _vesk
from ._box import (
    STATISTICS,
    Sensors,
    package_of_pandas,
    path_bytes,
    patterns_of,
    summary_of,
    time_index,
)
from ._errors import DamageWarning, Error
from ._times import Time, bound

if TYPE_CHECKING:
    from dask.dataframe.core import DataFrame
    import pandas as pd

Path = Union[str, "os.PathLike[str]", bytes]


def _package_of_dask() -> Any:
    try:
        import dask
        import dask.dataframe
    except ImportError:
        raise ImportError(
            "vesk.dask needs Dask with its DataFrames: install python3-dask, and "
            "python3-distributed for a cluster"
        ) from None
    return dask


def _warn(text: str) -> None:
    """Warns, also the client of the worker that this runs on."""
    distributed = sys.modules.get("distributed")
    tell: Callable[..., None] = getattr(distributed, "warn", warnings.warn)
    tell(text, DamageWarning)


class _Reader:
    """Makes the table of one box. Dask asks it for fewer columns where fewer are needed."""

    def __init__(
        self,
        columns: Sequence[str],
        label: Optional[str],
        statistic: Optional[str],
        span: Tuple[int, bool, int, bool],
        errors: str,
    ) -> None:
        self._columns = list(columns)
        self._label = label
        self._statistic = statistic
        self._span = span
        self._errors = errors

    @property
    def columns(self) -> List[str]:
        return list(self._columns)

    def project_columns(self, columns: Sequence[str]) -> "_Reader":
        """The same for fewer columns."""
        return _Reader(columns, self._label, self._statistic, self._span, self._errors)

    def sensors_of(self, path: Path, patterns: List[bytes]) -> List[str]:
        """The sensors of a box that fit; none where it cannot be read, which its table tells."""
        try:
            return self._read(path, patterns)[0]
        except (ValueError, Error):
            return []

    def empty(self) -> "pd.DataFrame":
        """The table of a box without samples."""
        types = {name: object if name == self._label else np.float32 for name in self._columns}
        index = self._index(np.array([], dtype=np.int64))
        return package_of_pandas().DataFrame(columns=self._columns, index=index).astype(types)

    def __call__(self, path: Path) -> "pd.DataFrame":
        try:
            table, told = self._table(path)
        except Error as reason:
            if self._errors == "raise":
                raise
            table, told = self.empty(), [str(reason)]
        if told:
            _warn(summary_of(told))
        return table

    def _read(
        self, path: Path, patterns: List[bytes]
    ) -> Tuple[List[str], npt.NDArray[np.int64], npt.NDArray[np.float32], List[str]]:
        """The sensors, the times, the values, and what is to be told."""
        if self._statistic is None:
            return _vesk.samples(path_bytes(path), patterns, *self._span)
        sensors, starts, _, _, values, told = _vesk.history(
            path_bytes(path), patterns, *self._span
        )
        return sensors, starts, values[self._statistic].astype(np.float32), told

    def _table(self, path: Path) -> Tuple["pd.DataFrame", List[str]]:
        wanted = [name for name in self._columns if name != self._label]
        try:
            sensors, times, values, told = self._read(path, patterns_of(wanted or None))
        except ValueError:
            sensors = []
        if not set(wanted) <= set(sensors):
            # The box lacks one of them, or a name is a pattern that means something else.
            sensors, times, values, told = self._read(path, [])
        table = package_of_pandas().DataFrame(values, index=self._index(times), columns=sensors)
        # What it lacks is missing in each row, and what was not wanted goes.
        table = table.reindex(columns=wanted).astype(np.float32, copy=False)
        if self._label in self._columns:
            table[self._label] = np.full(len(table), os.fsdecode(path), dtype=object)
        return table[self._columns], told

    def _index(self, times: npt.NDArray[np.int64]) -> Any:
        name = "time" if self._statistic is None else "start"
        return time_index(package_of_pandas(), times.view("datetime64[s]"), name)


def from_boxes(
    paths: Iterable[Path],
    sensors: Sensors = None,
    *,
    start: Time = None,
    end: Time = None,
    statistic: Optional[str] = None,
    columns: Optional[Sequence[str]] = None,
    label: Optional[str] = "box",
    errors: str = "warn",
) -> "DataFrame":
    """The samples of many boxes as a DataFrame of Dask, each box a partition of it.

    The index is the time in UTC, the columns are the sensors (float32) and, as ``label``, the path
    of the box as it is given here; with None as ``label`` there is no such column. ``sensors``,
    ``start`` and ``end`` are those of :meth:`vesk.Box.samples`; a distance such as ``"-10m"`` is
    one from the end of each box.

    With ``statistic``, one of :data:`vesk.STATISTICS`, the rows are the intervals of the history
    instead, and the values are this statistic of each sensor in the interval.

    The sensors of all boxes make the columns; what a box lacks is NaN. To know them, each box is
    read when this is called, also on the workers. ``columns`` names the sensors instead, as they
    are stored: then nothing is read before the table is computed.

    A damaged box gives what is readable, and one that cannot be read no rows; both with a
    :class:`vesk.DamageWarning`, which a client gets from its workers, too. With ``errors="raise"``
    a box that cannot be read is an error.

    :raises ImportError: Dask is not installed
    :raises ValueError: no box has such a sensor, or an argument is none that can be taken
    """
    dask = _package_of_dask()
    if isinstance(paths, (str, bytes, os.PathLike)):
        raise TypeError("paths: a list of boxes is needed, not a single path")
    boxes = list(paths)
    if not boxes:
        raise ValueError("paths: there is no box")
    for path in boxes:
        path_bytes(path)
    if statistic is not None and statistic not in STATISTICS:
        raise ValueError(f"statistic: there is {', '.join(STATISTICS)}")
    if errors not in ("warn", "raise"):
        raise ValueError("errors: there is warn, raise")
    span = (*bound(start, True), *bound(end, False))
    if columns is None:
        asker = _Reader([], None, statistic, span, errors)
        ask = dask.delayed(asker.sensors_of, pure=False)
        patterns = patterns_of(sensors)
        found = dask.compute(*[ask(path, patterns) for path in boxes])
        columns = list(dict.fromkeys(name for names in found for name in names))
        if not columns:
            raise ValueError(f"sensors: none of the {len(boxes)} boxes has one that fits")
    else:
        if sensors is not None:
            raise ValueError("columns: they name the sensors, so there are no patterns for them")
        if isinstance(columns, (str, bytes)):
            raise TypeError("columns: a list of names is needed")
        columns = list(dict.fromkeys(columns))
    if label is not None and label in columns:
        raise ValueError(f"label: {label} is a sensor, too; choose another name, or None")
    names = [label, *columns] if label is not None else columns
    reader = _Reader(names, label, statistic, span, errors)
    table: DataFrame = dask.dataframe.from_map(reader, boxes, meta=reader.empty(), label="boxes")
    return table
