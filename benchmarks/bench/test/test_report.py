import unittest

from bench.report import report_text

MACHINE = {"processors": 2, "processor": "some", "system": "a system", "kernel": "6.1", "compiler": "g++ 12",
           "file system": "ext4", "date": "2026-01-01", "commit": "abc", "load when it began": 0.5}


def data(figures=None, sizes=None, errors=(), rounds=7, lttng="measured"):
    medians = {case: {key: {"median": value} for key, value in of.items()}
               for case, of in (figures or {}).items()}
    return {"machine": MACHINE, "settings": {"rounds": rounds}, "lttng": lttng, "figures": medians,
            "sizes": sizes, "errors": list(errors)}


class ReportTest(unittest.TestCase):
    def test_a_run_that_measured_nothing_names_the_machine_only(self):
        self.assertEqual(report_text(data(rounds=1)),
                         "2 × some, a system, kernel 6.1, g++ 12, -O3, files on ext4; 2026-01-01, "
                         "commit abc, load average 0.5 when it began. Medians of 1 round.\n")

    def test_each_table_appears_with_what_was_measured_of_it(self):
        text = report_text(data({
            "ScopeToFile/depth:1/cpu:0/threads:1": {"emit_ns": 2000, "allocs": 0, "file_bytes": 700},
            "SpdlogSynchronous/threads:1": {"emit_ns": 1000},
            "ScopeToFile/depth:8/cpu:0/threads:1": {"emit_ns": 2500},
            "BaselineClockRead": {"cpu_time": 20}}))

        self.assertIn("| (e) synchronous, both lines in the file | 2,000 |       – |     2.00 |", text)
        self.assertIn("| spdlog, synchronous | 1,000 |", text)
        self.assertIn("| (e) synchronous, both lines in the file | 2,000 | 2,500 |  – |      – |", text)
        self.assertIn("| clock read (monotonic) | 20 |", text)
        self.assertNotIn("two threads", text)

    def test_the_slowest_headers_are_named_first(self):
        sizes = {"stripped bytes": {"libtarn.so": 512 * 1024},
                 "seconds to compile a header": {"a.h": 0.1, "b.h": 0.4, "c.h": 0.3, "d.h": 0.2}}

        lines = report_text(data(sizes=sizes)).splitlines()

        self.assertEqual([line.split("`")[1] for line in lines if "to compile alone" in line],
                         ["b.h", "c.h", "d.h"])

    def test_failures_and_a_peer_that_is_missing_are_said(self):
        text = report_text(data(errors=["A: lines lost"], lttng="its tools are not installed"))

        self.assertIn("LTTng-UST was not measured: its tools are not installed.", text)
        self.assertTrue(text.endswith("FAILED: A: lines lost\n"))


if __name__ == "__main__":
    unittest.main()
