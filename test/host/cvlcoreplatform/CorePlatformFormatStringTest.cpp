#include "cvlcoreplatform/TFormatString.h"

#include <gtest/gtest.h>

namespace {

TEST(CorePlatformFormatStringTest, PlaceholdersTakeTheArgumentsByNumber) {
    const TString text = TFormatString(u"%2 before %1, %2 again")
                             .Arg(TString(u"one"))
                             .Arg(TString(u"two"))
                             .ToString();

    EXPECT_EQ(text, TString(u"two before one, two again"));
}

TEST(CorePlatformFormatStringTest, AnArgumentThatLooksLikeAPlaceholderStaysAsItIs) {
    const TString text = TFormatString(u"%1 %2").Arg(TString(u"%2")).Arg(TString(u"%1")).ToString();

    EXPECT_EQ(text, TString(u"%2 %1"));
}

TEST(CorePlatformFormatStringTest, TwoDigitsAreOnePlaceholder) {
    TFormatString format(u"%1 %10 %1x %110");
    for (int number = 1; number <= 11; ++number) {
        format.Arg(number * 100);
    }

    EXPECT_EQ(format.ToString(), TString(u"100 1000 100x 11000"));
}

TEST(CorePlatformFormatStringTest, APlaceholderWithoutAnArgumentStaysAsItIs) {
    EXPECT_EQ(TFormatString(u"%1 %2 %10 %99").Arg(TString(u"one")).ToString(),
              TString(u"one %2 %10 %99"));
    EXPECT_EQ(TFormatString(u"%1").ToString(), TString(u"%1"));
}

TEST(CorePlatformFormatStringTest, WhatIsNoPlaceholderStaysAsItIs) {
    EXPECT_EQ(TFormatString(u"100% %% %0 %01 %x %").Arg(TString(u"one")).ToString(),
              TString(u"100% %% %0 %01 %x %"));
}

TEST(CorePlatformFormatStringTest, APercentSignBeforeAPlaceholderIsJustThat) {
    EXPECT_EQ(TFormatString(u"%%1").Arg(7).ToString(), TString(u"%7"));
}

TEST(CorePlatformFormatStringTest, ArgumentsWithoutAPlaceholderAreLeftOut) {
    EXPECT_EQ(TFormatString(u"only %1").Arg(1).Arg(2).ToString(), TString(u"only 1"));
    EXPECT_EQ(TFormatString(TString()).Arg(1).ToString(), TString());
}

TEST(CorePlatformFormatStringTest, NinetyNineArgumentsAreTheMost) {
    TFormatString format(u"%99 %100");
    for (int number = 1; number <= 100; ++number) {
        format.Arg(number);
    }

    EXPECT_EQ(format.ToString(), TString(u"99 100")) << "%10 and a zero";
}

TEST(CorePlatformFormatStringTest, ArgumentsArePaddedOnTheLeft) {
    EXPECT_EQ(TFormatString(u"[%1]").Arg(TString(u"ab"), 4).ToString(), TString(u"[  ab]"));
    EXPECT_EQ(TFormatString(u"[%1]").Arg(TString(u"ab"), 1).ToString(), TString(u"[ab]"));
    EXPECT_EQ(TFormatString(u"[%1]").Arg(0xABCu, 8, 16, u'0').ToString(), TString(u"[00000abc]"));
}

TEST(CorePlatformFormatStringTest, TheSameFormatMayBeUsedTwice) {
    TFormatString format(u"%1");
    format.Arg(1);

    EXPECT_EQ(format.ToString(), TString(u"1"));
    EXPECT_EQ(format.ToString(), TString(u"1"));
}

}  // namespace
