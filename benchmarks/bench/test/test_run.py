import json
import pathlib
import stat
import tempfile
import unittest
from unittest import mock

from bench import run
from bench.project import LTTNG


class Sessions:
    """A fake of LTTng's sessions; knows what ran within one."""

    def __init__(self, missing=""):
        self.missing = missing
        self.results = []

    def run(self, run_case):
        self.results.append(run_case({"INSIDE": "yes"}))
        return self.results[-1]


class RunTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        patch = mock.patch.object(run, "PROGRAMS", self.folder)
        patch.start()
        self.addCleanup(patch.stop)

    def program(self, name, script):
        path = self.folder / name
        path.write_text("#!/bin/sh\n" + script + "\n")
        path.chmod(path.stat().st_mode | stat.S_IXUSR)

    def test_a_case_is_asked_for_by_its_whole_name_and_answers_with_its_figures(self):
        self.program("some", 'printf \'{"benchmarks": [{"asked": "%s %s"}]}\' "$1" "$3"')

        result = run.run_case("some", "A/depth:1", 0.5)

        self.assertEqual(result, {"asked": "--benchmark_filter=^A/depth:1$ --benchmark_min_time=0.5"})

    def test_a_program_that_prints_no_figures_is_an_error_with_what_it_says(self):
        self.program("some", "echo it is broken >&2; exit 3")

        self.assertEqual(run.run_case("some", "A", 0.5), {"error_message": "it is broken"})

    def test_a_program_that_runs_no_such_case_is_an_error(self):
        self.program("some", "echo '" + json.dumps({"benchmarks": []}) + "'")

        self.assertEqual(run.run_case("some", "A", 0.5), {"error_message": "no output"})

    def test_only_cases_of_lttng_run_within_a_session(self):
        for name in ("some", LTTNG):
            self.program(name, 'printf \'{"benchmarks": [{"inside": "%s"}]}\' "$INSIDE"')
        sessions = Sessions()
        runner = run.Runner(sessions, 0.5)

        self.assertEqual(runner("some", "A"), {"inside": ""})
        self.assertEqual(runner(LTTNG, "B"), {"inside": "yes"})
        self.assertEqual(sessions.results, [{"inside": "yes"}])

    def test_a_case_of_lttng_is_left_out_where_there_are_no_sessions(self):
        self.assertIsNone(run.Runner(Sessions("no daemon"), 0.5)(LTTNG, "B"))


if __name__ == "__main__":
    unittest.main()
