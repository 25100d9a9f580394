import unittest

from bench.bars import Bar, bars, bars_table
from bench.figures import Figures


def figures(**medians):
    return Figures({case: {key: {"median": value} for key, value in of.items()}
                    for case, of in medians.items()})


class VerdictTest(unittest.TestCase):
    def test_a_bar_is_met_up_to_its_value_and_its_goal_up_to_that(self):
        self.assertEqual([Bar("", found, 40, 15).verdict() for found in (15, 15.1, 40, 40.1)],
                         ["goal met", "met", "met", "NOT met"])

    def test_a_bar_that_is_its_own_goal_is_only_met(self):
        self.assertEqual(Bar("", 0, 0, 0).verdict(), "met")

    def test_what_must_be_at_least_so_much_is_met_from_there_on(self):
        self.assertEqual([Bar("", found, 1.8, 1.8, "at least").verdict() for found in (1.79, 1.8, 3)],
                         ["NOT met", "met", "met"])


class BarsTest(unittest.TestCase):
    def test_two_readings_of_the_clock_are_not_charged_to_a_scope(self):
        some = figures(**{"ScopeToFile/depth:1/cpu:1/threads:1": {"emit_ns": 1500},
                          "ScopeToFile/depth:1/cpu:0/threads:1": {"emit_ns": 1000},
                          "BaselineThreadTimes": {"cpu_time": 200}})

        found = {bar.name: bar.found for bar in bars(some, None)}

        self.assertEqual(found["(e) CPU tracking beyond two readings, ns"], 100)
        self.assertIsNone(found["(b) CPU tracking beyond two readings, ns"])

    def test_a_table_has_only_what_was_measured(self):
        text = bars_table(figures(**{"ScopeOff/depth:1/cpu:0/threads:1": {"emit_ns": 41}}), None)

        self.assertEqual([line for line in text.splitlines() if "(" in line],
                         ["| (a) ns |    41 | at most |  40 |   15 | NOT met |"])
        self.assertEqual(bars_table(figures(), None), "")

    def test_sizes_are_compared_in_their_units(self):
        sizes = {"stripped bytes": {"libtarn.so": 2048 * 1024},
                 "seconds to compile a header": {"a.h": 0.1, "b.h": 0.7}}

        found = {bar.name: (bar.found, bar.verdict()) for bar in bars(figures(), sizes)
                 if bar.found is not None}

        self.assertEqual(found, {"libtarn.so stripped, KiB": (2048, "NOT met"),
                                 "slowest header alone, s": (0.7, "NOT met")})


if __name__ == "__main__":
    unittest.main()
