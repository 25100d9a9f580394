import unittest

from bench.cases import is_wanted, short_name


class CasesTest(unittest.TestCase):
    def test_a_name_loses_what_the_benchmark_library_adds(self):
        self.assertEqual(short_name("ScopeOff/depth:1/cpu:0/iterations:100/manual_time/threads:1"),
                         "ScopeOff/depth:1/cpu:0/threads:1")
        self.assertEqual(short_name("SpdlogSynchronous/real_time/threads:2"), "SpdlogSynchronous/threads:2")

    def test_depth_cpu_tracking_and_threads_are_varied_one_at_a_time(self):
        for name in ("ScopeToFile/depth:1/cpu:1/threads:1", "ScopeToFile/depth:64/cpu:0/threads:1",
                     "ScopeToFile/depth:1/cpu:0/manual_time/threads:4"):
            self.assertTrue(is_wanted(name, "", wants_all=False), name)
        for name in ("ScopeToFile/depth:64/cpu:1/threads:1", "ScopeToFile/depth:8/cpu:0/threads:2",
                     "ScopeToFile/depth:1/cpu:1/threads:16"):
            self.assertFalse(is_wanted(name, "", wants_all=False), name)
            self.assertTrue(is_wanted(name, "", wants_all=True), name)

    def test_a_pattern_chooses_among_what_is_wanted_anyway(self):
        self.assertTrue(is_wanted("ScopeToFile/depth:1/cpu:0/threads:1", "ToFile", wants_all=False))
        self.assertFalse(is_wanted("ScopeOff/depth:1/cpu:0/threads:1", "ToFile", wants_all=False))
        self.assertFalse(is_wanted("ScopeToFile/depth:64/cpu:1/threads:1", "ToFile", wants_all=False))


if __name__ == "__main__":
    unittest.main()
