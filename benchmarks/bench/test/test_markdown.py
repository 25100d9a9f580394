import unittest

from bench.markdown import count, decimal, replace_between, table, thousands, times


class NumbersTest(unittest.TestCase):
    def test_what_was_not_measured_is_a_dash(self):
        for write in (count, thousands, decimal, times):
            self.assertEqual(write(None), "–")

    def test_numbers_have_as_many_places_as_mean_something(self):
        self.assertEqual(count(12345.6), "12,346")
        self.assertEqual(thousands(1234567), "1,235")
        self.assertEqual([decimal(value) for value in (0, 0.123, 1.2345, 45.67, 123.4, 12345)],
                         ["0", "0.12", "1.23", "45.7", "123", "12,345"])
        self.assertEqual(times(1.005), "1.00")


class TableTest(unittest.TestCase):
    def test_columns_are_as_wide_as_their_widest_cell_and_numbers_stand_right(self):
        self.assertEqual(table("Times", ["", "ns"], [["short", "1"], ["a long name", "12,345"]]),
                         "**Times**\n"
                         "\n"
                         "|             |     ns |\n"
                         "| ----------- | -----: |\n"
                         "| short       |      1 |\n"
                         "| a long name | 12,345 |")

    def test_a_table_without_rows_is_no_table(self):
        self.assertEqual(table("Times", ["", "ns"], []), "")


class ReplaceTest(unittest.TestCase):
    def test_what_is_between_the_marks_is_replaced_and_nothing_else(self):
        document = "before\n<b>\n\nold\n<e>\nafter\n"

        self.assertEqual(replace_between(document, "<b>", "<e>", "new\n"), "before\n<b>\n\nnew\n\n<e>\nafter\n")

    def test_a_document_without_both_marks_in_their_order_is_left_alone(self):
        for document in ("no marks", "only <b>", "only <e>", "<e> the wrong way round <b>"):
            self.assertIsNone(replace_between(document, "<b>", "<e>", "new"), document)


if __name__ == "__main__":
    unittest.main()
