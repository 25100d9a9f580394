import unittest

from bench.measure import figures_of, measure, orders
from bench.summary import summarise

CASES = [("program", f"case{number}") for number in range(20)]


class MeasureTest(unittest.TestCase):
    def test_each_round_runs_every_case_once_in_another_order(self):
        rounds = list(orders(CASES, 5))

        self.assertEqual(len(rounds), 5)
        for order in rounds:
            self.assertEqual(sorted(order), sorted(CASES))
        self.assertEqual(len({tuple(order) for order in rounds}), 5)

    def test_the_orders_are_the_same_in_each_run(self):
        self.assertEqual(list(orders(CASES, 3)), list(orders(CASES, 3)))

    def test_all_cases_run_in_a_round_before_the_next_one(self):
        ran = []

        measure(CASES, 3, lambda program, name: ran.append(name) or {"emit_ns": 1})

        for begin in (0, 20, 40):
            self.assertEqual(len(set(ran[begin:begin + 20])), 20)

    def test_samples_are_kept_by_short_name_and_figure(self):
        values = iter([3, 1])

        samples, errors = measure([("program", "A/real_time/threads:1")], 2,
                                  lambda *_: {"emit_ns": next(values)})

        self.assertEqual(samples, {"A/threads:1": {"emit_ns": [3, 1]}})
        self.assertEqual(errors, [])

    def test_a_failure_is_an_error_and_no_sample(self):
        samples, errors = measure([("program", "A"), ("program", "B")], 1, lambda program, name:
                                  {"error_message": "lines lost", "emit_ns": 1} if name == "A" else
                                  {"emit_ns": 2})

        self.assertEqual(samples, {"B": {"emit_ns": [2]}})
        self.assertEqual(errors, ["A: lines lost"])

    def test_what_cannot_be_run_here_is_left_out_without_an_error(self):
        self.assertEqual(measure([("program", "A")], 1, lambda *_: None), ({}, []))

    def test_progress_counts_from_one_in_every_round(self):
        seen = []

        measure(CASES[:2], 2, lambda *_: None, lambda *place: seen.append(place))

        self.assertEqual(seen, [(1, 1, 2), (1, 2, 2), (2, 1, 2), (2, 2, 2)])

    def test_only_numbers_that_measure_something_are_figures(self):
        result = {"name": "A", "iterations": 7, "threads": 1, "real_time": 5, "aggregate": True,
                  "emit_ns": 2.5, "allocs": 0}

        self.assertEqual(figures_of(result), {"emit_ns": 2.5, "allocs": 0})


class SummaryTest(unittest.TestCase):
    def test_a_slow_moment_does_not_move_the_median(self):
        figures = summarise({"A": {"emit_ns": [100, 101, 5000, 99, 102]}})

        self.assertEqual(figures["A"]["emit_ns"],
                         {"median": 101, "min": 99, "samples": [100, 101, 5000, 99, 102]})


if __name__ == "__main__":
    unittest.main()
