"""What a soak knows of the samples of a box: each one that was ever read from it, in order.

A sample is known by the uptime of the machine, which no clock that is set can change. Each look at
the box has to agree with the looks before it: no sample disappears, none appears between others,
and an interval of history counts exactly the samples that it was made of.
"""

import csv
import io

UPTIME = "kernel.uptime_s"
STATISTICS = "count,first,last"


class Loss(Exception):
    pass


def require(condition, text):
    if not condition:
        raise Loss(text)


def fetch_words(vesk, base):
    return [vesk, "fetch", "--sensor", UPTIME, "--stat", STATISTICS, "--format", "csv", base + ".state"]


def rows_of(text):
    """(kind, count, first, last) of each row that has a value."""
    for row in csv.reader(io.StringIO(text)):
        if row and row[0] != "time" and row[3] and row[4]:
            yield row[1], int(row[3]), float(row[4]), float(row[5])


class Ledger:
    def __init__(self):
        # None stands for a sample that only an interval of history has shown.
        self.samples = []
        self.looks = 0

    def take(self, text):
        """Compares one look at the box with those before, and adds what is new."""
        place = 0
        for kind, count, first, last in rows_of(text):
            known = self.samples[place:place + count]
            require(len(known) == count or place + len(known) == len(self.samples),
                    f"{kind}: {count} samples from {first} where {known} were")
            for expected, found in ((known[0] if known else None, first),
                                    (known[-1] if len(known) == count else None, last)):
                require(expected is None or expected == found,
                        f"{kind}: {found} stands where {expected} was, as sample {place}")
            if len(known) < count:
                self.add(place, count, first, last)
            place += count
        require(place >= len(self.samples),
                f"{len(self.samples) - place} of {len(self.samples)} samples are gone")
        self.looks += 1

    def add(self, place, count, first, last):
        before = next((each for each in reversed(self.samples[:place]) if each is not None), None)
        require(before is None or before < first, f"{first} follows {before}")
        del self.samples[place:]
        self.samples += [first] + [None] * (count - 2) + ([last] if count > 1 else [])

    def unseen(self):
        return self.samples.count(None)

    def number_between(self, begin, end):
        """A sample that only history has shown counts as right behind the one before it."""
        number, last = 0, 0.0
        for each in self.samples:
            last = each if each is not None else last
            number += begin <= last <= end
        return number

    def missing_of(self, seen):
        """Those of @p seen that the box no longer counts."""
        known = set(self.samples)
        # Samples that only history has shown cannot be told apart.
        return [] if self.unseen() else sorted(each for each in seen if each not in known)
