"""Moments as people and programs write them, to seconds since the epoch."""

from __future__ import annotations

import datetime
import math
import numbers
import re
from typing import Any, Tuple, Union

import numpy as np

from . import _vesk

Time = Union[
    None, int, float, str, datetime.datetime, datetime.date, datetime.timedelta, np.datetime64
]

# What a box can hold lies far within; sums of two of them fit into 64 bits.
_FARTHEST = 1 << 40
# 20240131:23:59:59, as text telemetry has it.
_COMPACT = re.compile(r"[0-9]{8}:[0-9]{2}:[0-9]{2}:[0-9]{2}\Z")
_EPOCH = datetime.datetime(1970, 1, 1, tzinfo=datetime.timezone.utc)


def _of_number(value: Any, upwards: bool) -> int:
    if not math.isfinite(value):
        raise ValueError(f"time {value}: is no moment")
    seconds = int(math.ceil(value) if upwards else math.floor(value))
    if abs(seconds) > _FARTHEST:
        raise ValueError(f"time {value}: is too far from today")
    return seconds


def _of_datetime(value: datetime.datetime, upwards: bool) -> int:
    if value != value:  # pandas.NaT
        raise ValueError("time NaT: is no moment")
    if value.tzinfo is None:
        value = value.replace(tzinfo=datetime.timezone.utc)
    distance = value - _EPOCH
    whole = distance.days * 86400 + distance.seconds
    return whole + (1 if upwards and distance.microseconds else 0)


def _of_text(text: str, upwards: bool) -> int:
    plain = text.strip()
    if _COMPACT.match(plain):
        moment = datetime.datetime.strptime(plain, "%Y%m%d:%H:%M:%S")
    elif re.match(r"@?[0-9]{1,12}\Z", plain) and not re.match(r"[0-9]{8}\Z", plain):
        return _of_number(int(plain.lstrip("@")), upwards)
    else:
        try:
            moment = datetime.datetime.fromisoformat(re.sub(r"[zZ]\Z", "+00:00", plain))
        except ValueError:
            raise ValueError(f"time {text[:60]!r}: is no time that is understood") from None
    return _of_datetime(moment, upwards)


def seconds(value: Any, upwards: bool = False) -> int:
    """Whole seconds since the epoch; without a zone the time is in UTC.

    A fraction is dropped, or with ``upwards`` completed to the next second.
    """
    if isinstance(value, (bool, np.bool_)):
        raise TypeError("time: a truth value is no time")
    if isinstance(value, str):
        return _of_text(value, upwards)
    if isinstance(value, datetime.datetime):
        return _of_datetime(value, upwards)
    if isinstance(value, datetime.date):
        midnight = datetime.datetime(value.year, value.month, value.day)
        return _of_datetime(midnight, upwards)
    if isinstance(value, np.datetime64):
        return _of_datetime64(value, upwards)
    if isinstance(value, numbers.Real):
        return _of_number(value, upwards)
    raise TypeError(f"time: {type(value).__name__} is no time")


def _of_datetime64(value: np.datetime64, upwards: bool) -> int:
    if np.isnat(value):
        raise ValueError("time NaT: is no moment")
    whole = value.astype("datetime64[s]")
    seconds_whole = int(whole.astype(np.int64))
    if whole > value:  # towards zero before 1970
        seconds_whole -= 1
        whole = whole - np.timedelta64(1, "s")
    return _of_number(seconds_whole + (1 if upwards and whole != value else 0), upwards)


def bound(value: Time, is_start: bool) -> Tuple[int, bool]:
    """One end of a span for the compiled half: seconds, and whether from the end of the box."""
    if value is None:
        return (-_FARTHEST if is_start else _FARTHEST), False
    if isinstance(value, datetime.timedelta):
        if value >= datetime.timedelta(0):
            raise ValueError(f"time {value}: a distance from the end of a box is negative")
        return _of_number(value.total_seconds(), is_start), True
    if isinstance(value, str) and value.strip().startswith("-"):
        # Not every text of Python has a form in UTF-8.
        text = value.strip().encode("utf-8", "backslashreplace").decode("utf-8")
        return _of_number(_vesk.seconds_from_end(text), False), True
    return seconds(value, upwards=is_start), False
