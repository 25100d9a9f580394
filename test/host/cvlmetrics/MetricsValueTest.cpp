#include "cvlmetrics/MetricsValue.h"

#include "cvlcoreplatform/TString.h"
#include "cvlmetrics/ValueView.h"
#include "cvlsys/IntegerTypes.h"

#include <limits>
#include <string>
#include <type_traits>

#include <gtest/gtest.h>

namespace {

using Metrics::MetricsValue;

TEST(MetricsValueTest, IsTheIntegerZeroByDefault) {
    const MetricsValue value;

    EXPECT_EQ(value.GetType(), MetricsValue::MV_Int64);
    EXPECT_EQ(value.integer, 0);
    EXPECT_EQ(value.utf8, nullptr);
    EXPECT_EQ(value.utf16, nullptr);
}

TEST(MetricsValueTest, OnlyBoolMakesABool) {
    int object = 0;

    EXPECT_EQ(MetricsValue(true).GetType(), MetricsValue::MV_Bool);
    EXPECT_TRUE(MetricsValue(true).boolean);
    EXPECT_EQ(MetricsValue(1).GetType(), MetricsValue::MV_Int64);
    EXPECT_EQ(MetricsValue("").GetType(), MetricsValue::MV_Utf8String);
    EXPECT_FALSE((std::is_constructible_v<MetricsValue, decltype(&object)>));
    EXPECT_FALSE((std::is_constructible_v<MetricsValue, void*>));
    EXPECT_FALSE((std::is_constructible_v<MetricsValue, std::nullptr_t>));
}

TEST(MetricsValueTest, ABoolLeavesTheOtherBytesOfTheScalarZero) {
    const MetricsValue value(true);

    EXPECT_EQ(static_cast<uint64>(value.integer), 1U);
}

TEST(MetricsValueTest, EveryIntegralTypeMakesAnInteger) {
    EXPECT_EQ(MetricsValue(-1).integer, -1);
    EXPECT_EQ(MetricsValue(uint32{4000000000}).integer, 4000000000);
    EXPECT_EQ(MetricsValue(std::numeric_limits<int64>::min()).integer,
              std::numeric_limits<int64>::min());
    EXPECT_EQ(MetricsValue(static_cast<uint64>(std::numeric_limits<int64>::max())).integer,
              std::numeric_limits<int64>::max());
    EXPECT_EQ(MetricsValue(static_cast<signed char>(-3)).integer, -3);
    EXPECT_EQ(MetricsValue(static_cast<unsigned char>(200)).integer, 200);
}

TEST(MetricsValueTest, AnIntegerThatIsTooLargeForTheTagBecomesItsDigits) {
    const MetricsValue largest(~0ULL);
    const MetricsValue justTooLarge(uint64{1} << 63);

    EXPECT_EQ(largest.GetType(), MetricsValue::MV_Utf8String);
    EXPECT_EQ(largest.integer, 0);
    EXPECT_EQ(*largest.utf8, "18446744073709551615");
    EXPECT_EQ(*justTooLarge.utf8, "9223372036854775808");
}

template <class T>
void ExpectNoCharacter() {
    EXPECT_FALSE((std::is_constructible_v<MetricsValue, T>));
    EXPECT_FALSE((std::is_constructible_v<Metrics::ValueView, T>));
}

TEST(MetricsValueTest, ASingleCharacterDoesNotCompile) {
    ExpectNoCharacter<char>();
    ExpectNoCharacter<wchar_t>();
    ExpectNoCharacter<char8_t>();
    ExpectNoCharacter<char16_t>();
    ExpectNoCharacter<char32_t>();
}

TEST(MetricsValueTest, FloatingTypesMakeADouble) {
    EXPECT_EQ(MetricsValue(0.5).GetType(), MetricsValue::MV_Double);
    EXPECT_EQ(MetricsValue(0.5).real, 0.5);
    EXPECT_EQ(MetricsValue(0.25F).real, 0.25);
}

TEST(MetricsValueTest, NarrowTextIsUtf8) {
    const MetricsValue literal("caf\xC3\xA9");
    const MetricsValue copied(std::string("a\0b", 3));
    const std::string kept = "kept";

    EXPECT_EQ(literal.GetType(), MetricsValue::MV_Utf8String);
    EXPECT_EQ(*literal.utf8, "caf\xC3\xA9");
    EXPECT_EQ(literal.utf16, nullptr);
    EXPECT_EQ(*copied.utf8, std::string("a\0b", 3));
    EXPECT_EQ(*MetricsValue(kept).utf8, kept);
}

TEST(MetricsValueTest, WideTextIsTranscodedToUtf16) {
    const MetricsValue wide(L"a\u00E9\U0001F600");
    const MetricsValue utf16(u"a\u00E9\U0001F600");

    EXPECT_EQ(wide.GetType(), MetricsValue::MV_Utf16String);
    EXPECT_EQ(*wide.utf16, u"a\u00E9\U0001F600");
    EXPECT_EQ(wide.utf16->size(), 4U);
    EXPECT_EQ(wide.utf8, nullptr);
    EXPECT_EQ(*utf16.utf16, *wide.utf16);
}

TEST(MetricsValueTest, SharesTheCharactersOfAString) {
    const TString text(u"shared");

    const MetricsValue value(text);

    EXPECT_EQ(value.utf16.get(), text.SharedCharacters().get());
}

TEST(MetricsValueTest, CopyingSharesTheText) {
    const MetricsValue original("a text that is too long for any small buffer");

    // The copy is what is looked at.
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): the copy is what is tested
    const MetricsValue copy = original;

    EXPECT_EQ(copy.utf8.get(), original.utf8.get());
}

TEST(MetricsValueTest, AnEmptyTextIsATextAllTheSame) {
    const TString neverHeldAny;

    const MetricsValue value(neverHeldAny);

    EXPECT_EQ(value.GetType(), MetricsValue::MV_Utf16String);
    ASSERT_NE(value.utf16, nullptr);
    EXPECT_TRUE(value.utf16->empty());
}

TEST(MetricsValueTest, ANullPointerGivesTheEmptyText) {
    const MetricsValue narrow(static_cast<const char*>(nullptr));
    const MetricsValue wide(static_cast<const wchar_t*>(nullptr));
    const MetricsValue utf16(static_cast<const char16_t*>(nullptr));

    ASSERT_NE(narrow.utf8, nullptr);
    EXPECT_EQ(*narrow.utf8, "");
    ASSERT_NE(wide.utf16, nullptr);
    EXPECT_EQ(*wide.utf16, u"");
    ASSERT_NE(utf16.utf16, nullptr);
    EXPECT_EQ(*utf16.utf16, u"");
}

}  // namespace
