import unittest

from bench.figures import Figures, difference, ratio


def figures(**of_case):
    return Figures({case: {key: {"median": value} for key, value in of.items()}
                    for case, of in of_case.items()})


class FiguresTest(unittest.TestCase):
    def test_a_figure_is_its_median_and_none_if_it_was_not_measured(self):
        some = figures(A={"emit_ns": 5})

        self.assertEqual(some.value("A", "emit_ns"), 5)
        self.assertIsNone(some.value("A", "allocs"))
        self.assertIsNone(some.value("B", "emit_ns"))

    def test_what_lacks_a_part_is_none(self):
        self.assertEqual(ratio(6, 3), 2)
        self.assertIsNone(ratio(None, 3))
        self.assertIsNone(ratio(6, None))
        self.assertIsNone(ratio(6, 0))
        self.assertEqual(difference(6, 6), 0)
        self.assertEqual(difference(0, 6), -6)
        self.assertIsNone(difference(None, 6))
        self.assertIsNone(difference(6, None))

    def test_the_gain_of_a_second_thread_is_in_scopes_of_both_together(self):
        some = figures(**{"A/threads:1": {"scopes_per_s": 10}, "A/threads:2": {"scopes_per_s": 18}})

        self.assertEqual(some.gain("A"), 1.8)
        self.assertIsNone(some.gain("B"))

    def test_the_monitor_is_charged_with_what_an_open_scope_takes_beyond_itself(self):
        some = figures(**{"MemoryOfOpenScopesInMonitor/scopes:100000": {"bytes_per_open_scope": 1000},
                          "MemoryOfOpenScopesNobodyListens/scopes:100000": {"bytes_per_open_scope": 400}})

        self.assertEqual(some.bytes_in_monitor(), 600)
        self.assertIsNone(figures().bytes_in_monitor())


if __name__ == "__main__":
    unittest.main()
