#!/usr/bin/env python3
"""What said.py finds in the goodbyes that are queued."""
import unittest

import said

T = said.TOLERANCE
HOLD = 6


def heard(*events):
    """A speaker that said (when, goodbye) at these times."""
    one = said.Said()
    for when, goodbye in events:
        one.add(when, goodbye, HOLD)
    return one


class SaidTest(unittest.TestCase):
    def test_a_goodbye_is_missing_while_its_speaker_says_hello(self):
        one = heard((0, b"a"), (1, b"a"), (2, b"a"), (3, b"a"))
        self.assertEqual(said.differences([one], set(), 3.5), ["missing 61"])
        self.assertEqual(said.differences([one], {b"a"}, 3.5), [])

    def test_it_is_missing_after_the_first_hello_when_the_tolerance_is_over(self):
        one = heard((0, b"a"))
        self.assertEqual(said.differences([one], set(), T / 2), [])
        self.assertEqual(said.differences([one], set(), T + 0.1), ["missing 61"])
        self.assertEqual(said.differences([one], set(), HOLD - T - 0.1), ["missing 61"])

    def test_it_may_end_shortly_before_and_after_the_hold_time(self):
        one = heard((0, b"a"))
        for now in (HOLD - T + 0.1, HOLD, HOLD + T):
            self.assertEqual(said.differences([one], set(), now), [])
            self.assertEqual(said.differences([one], {b"a"}, now), [])
        self.assertEqual(said.differences([one], {b"a"}, HOLD + T + 0.1), ["outdated 61"])

    def test_each_of_several_speakers_is_expected(self):
        both = [heard((0, b"a"), (3, b"a")), heard((0, b"b"), (3, b"b"))]
        self.assertEqual(said.differences(both, {b"a", b"b"}, 4), [])
        self.assertEqual(said.differences(both, {b"a"}, 4), ["missing 62"])
        self.assertEqual(said.differences(both, {b"b"}, 4), ["missing 61"])

    def test_what_changes_may_be_old_for_the_tolerance_only(self):
        one = heard((0, b"a"), (3, b"b"))
        for frames in ({b"a"}, {b"b"}):
            self.assertEqual(said.differences([one], frames, 3.5), [])
        self.assertEqual(said.differences([one], set(), 3.5), ["missing 61"])
        self.assertEqual(said.differences([one], {b"a", b"b"}, 3.5), ["outdated beside a newer one 61"])
        self.assertEqual(said.differences([one], {b"a"}, 3 + T + 0.1), ["missing 62", "outdated 61"])

    def test_who_leaves_is_not_expected(self):
        one = heard((0, b"a"), (3, None))
        self.assertEqual(said.differences([one], set(), 3.1), [])
        self.assertEqual(said.differences([one], {b"a"}, 3.1), [])
        self.assertEqual(said.differences([one], {b"a"}, 3 + T + 0.1), ["outdated 61"])

    def test_what_nobody_said_is_outdated(self):
        self.assertEqual(said.differences([], {b"x"}, 0), ["outdated 78"])


if __name__ == "__main__":
    unittest.main()
