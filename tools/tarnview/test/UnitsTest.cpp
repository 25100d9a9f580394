#include "output/Units.h"

#include <gtest/gtest.h>

namespace tarnview {
namespace {

TEST(UnitsTest, DurationsHaveTheUnitThatFits) {
    EXPECT_EQ(FormatDuration(0), "0 us");
    EXPECT_EQ(FormatDuration(0.00085), "850 us");
    EXPECT_EQ(FormatDuration(0.0009996), "1.00 ms");
    EXPECT_EQ(FormatDuration(0.0123), "12.3 ms");
    EXPECT_EQ(FormatDuration(0.9994), "999 ms");
    EXPECT_EQ(FormatDuration(0.9996), "1.00 s");
    EXPECT_EQ(FormatDuration(12.34), "12.3 s");
    EXPECT_EQ(FormatDuration(-0.003), "-3.00 ms");
    EXPECT_EQ(FormatDuration(200), "3 min 20 s");
    EXPECT_EQ(FormatDuration(3599), "59 min 59 s");
    EXPECT_EQ(FormatDuration(3600), "1 h 0 min");
    EXPECT_EQ(FormatDuration(7500), "2 h 5 min");
    EXPECT_EQ(FormatDuration(172'799), "47 h 59 min");
    EXPECT_EQ(FormatDuration(2'500'000), "28 d 22 h");
}

TEST(UnitsTest, BytesHaveTheUnitThatFits) {
    EXPECT_EQ(FormatBytes(0), "0 B");
    EXPECT_EQ(FormatBytes(999), "999 B");
    EXPECT_EQ(FormatBytes(1000), "1.00 kB");
    EXPECT_EQ(FormatBytes(-12'345), "-12.3 kB");
    EXPECT_EQ(FormatBytes(999'600), "1.00 MB");
    EXPECT_EQ(FormatBytes(4.2e9), "4.20 GB");
}

TEST(UnitsTest, TextIsFilledUpOrCutByCharacters) {
    EXPECT_EQ(FitLeft("größer", 8), "größer  ");
    EXPECT_EQ(FitRight("größer", 8), "  größer");
    EXPECT_EQ(FitLeft("größer", 4), "grö~");
    EXPECT_EQ(FitRight("größer", 4), "grö~");
    EXPECT_EQ(FitLeft("größer", 6), "größer");
    EXPECT_EQ(FitLeft("größer", 0), "");
}

// Wide characters take two columns, and what is put on another one none.
TEST(UnitsTest, TextIsMeasuredInColumnsOfATerminal) {
    EXPECT_EQ(TextWidth("größer"), 6U);
    EXPECT_EQ(TextWidth("注文 7"), 6U);
    EXPECT_EQ(TextWidth("e\xCC\x81t\xC3\xA9"), 3U);
    EXPECT_EQ(TextWidth("🚚"), 2U);
    EXPECT_EQ(FitLeft("注文", 6), "注文  ");
    EXPECT_EQ(FitRight("注文", 6), "  注文");
    EXPECT_EQ(FitLeft("注文番号", 6), "注文 ~");
    EXPECT_EQ(FitLeft("注文番号", 5), "注文~");
    EXPECT_EQ(FitLeft("注文番号", 8), "注文番号");
}

TEST(UnitsTest, BytesThatAreNoCharactersTakeAColumnEach) {
    EXPECT_EQ(TextWidth("\xE6\xB3"), 2U);
    EXPECT_EQ(TextWidth("\x80\xFF"), 2U);
    EXPECT_EQ(TextWidth("\xE6(\xA8"), 3U);
    EXPECT_EQ(FitLeft("\xE6\xB3\xE6", 2), "\xE6~");
}

TEST(UnitsTest, ControlCharactersDoNotReachATerminal) {
    EXPECT_EQ(OnOneLine("a\x1B[31m\nb\x7F"), "a?[31m?b?");
    EXPECT_EQ(OnOneLine("\xC2\x80|\xC2\x9B|\xC2\x9F|\xC2\xA0"), "?|?|?|\xC2\xA0");
}

TEST(UnitsTest, WhatTurnsTextAroundDoesNotReachATerminal) {
    EXPECT_EQ(OnOneLine("a\u202Ab\u202Ec\u2066d\u2069e\u200Ff\u2028g"), "a?b?c?d?e?f?g");
    EXPECT_EQ(OnOneLine("\u2029\u061C|\u2030\u2065\u206A"), "??|\u2030\u2065\u206A");
}

TEST(UnitsTest, BytesThatAreNoTextDoNotReachATerminal) {
    EXPECT_EQ(OnOneLine("\x9B"
                        "2J"),
              "?2J");
    EXPECT_EQ(OnOneLine("\xC0\x9B|\xE0\x82\x9B|\xE2\x80"), "??|???|??");
    EXPECT_EQ(OnOneLine("\xF0\x9F\x98\x80 größer 漢"), "\xF0\x9F\x98\x80 größer 漢");
}

}  // namespace
}  // namespace tarnview
