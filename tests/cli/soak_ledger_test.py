#!/usr/bin/env python3
"""Shows that a ledger of samples sees what is lost, doubled or counted wrong."""

import unittest

from soak_ledger import Ledger, Loss

HEAD = "time,kind,seconds,count,first,last\n"


def raw(*numbers):
    return "".join(f"t,raw,0,1,{number},{number}\n" for number in numbers)


def interval(count, first, last):
    return f"t,interval,0,{count},{first},{last}\n"


class LedgerTest(unittest.TestCase):
    def setUp(self):
        self.ledger = Ledger()
        self.ledger.take(HEAD + raw(1, 2, 3, 4))

    def refuses(self, text):
        with self.assertRaises(Loss):
            self.ledger.take(HEAD + text)

    def test_takes_new_samples_behind_old_ones(self):
        self.ledger.take(HEAD + raw(1, 2, 3, 4, 5))
        self.assertEqual(self.ledger.samples, [1, 2, 3, 4, 5])

    def test_takes_samples_that_became_history(self):
        self.ledger.take(HEAD + interval(2, 1, 2) + raw(3, 4, 5))
        self.assertEqual(self.ledger.samples, [1, 2, 3, 4, 5])

    def test_takes_history_of_samples_that_nobody_saw(self):
        self.ledger.take(HEAD + interval(3, 1, 3) + interval(3, 4, 6) + raw(7))
        self.assertEqual(self.ledger.samples, [1, 2, 3, 4, None, 6, 7])
        self.ledger.take(HEAD + interval(6, 1, 6) + raw(7))
        self.assertEqual(self.ledger.unseen(), 1)

    def test_refuses_a_lost_sample(self):
        self.refuses(raw(1, 2, 4))

    def test_refuses_lost_samples_at_the_end(self):
        self.refuses(raw(1, 2, 3))

    def test_refuses_a_doubled_sample(self):
        self.refuses(raw(1, 2, 2, 3, 4))

    def test_refuses_a_sample_out_of_order(self):
        self.refuses(raw(1, 2, 3, 4, 3.5))

    def test_refuses_an_interval_that_counts_too_few(self):
        self.refuses(interval(1, 1, 2) + raw(3, 4))

    def test_refuses_an_interval_that_counts_too_many(self):
        self.refuses(interval(3, 1, 2) + raw(3, 4))

    def test_tells_followed_samples_that_are_gone(self):
        self.assertEqual(self.ledger.missing_of({2, 9}), [9])


if __name__ == "__main__":
    unittest.main()
