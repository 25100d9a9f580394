#include "tarn/TarnMetricsUtils.h"

#include "Matchers.h"
#include "TarnTest.h"

#include "cvlcoreplatform/TLogValue.h"
#include "cvlcoreplatform/TString.h"
#include "cvlmetrics/MetricsValue.h"
#include "cvlsys/CorvalaException.h"

#include <atomic>
#include <limits>
#include <locale>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn::test {
namespace {

using Metrics::MetricsValue;
using testing::Throws;

MetricsValue ValueOfKind(uint32 kind) {
    MetricsValue value;
    value.type = kind;
    return value;
}

std::string TextOf(const MetricsValue& value) {
    return TarnMetricsUtils::MetricsValueToString(value).ToUtf8();
}

std::string Converted(const MetricsValue& value) {
    return TarnMetricsUtils::ConvertMetricsValueToTString(value).ToUtf8();
}

std::string Seconds(uint64 nanoSeconds, bool highPrecision) {
    return TarnMetricsUtils::NanoSecondsToString(nanoSeconds, highPrecision).ToUtf8();
}

// ---- Kinds

TEST(TarnMetricsUtilsTest, TheKindsOfValuesAndLiteralsHaveTheirNumbers) {
    EXPECT_EQ(MetricsValue(7).type, 0U);
    EXPECT_EQ(MetricsValue(true).type, 1U);
    EXPECT_EQ(MetricsValue(1.5).type, 2U);
    EXPECT_EQ(MetricsValue("narrow").type, 3U);
    EXPECT_EQ(MetricsValue(u"wide").type, 4U);

    EXPECT_EQ(static_cast<int>(TLog::LiteralType::String), 0);
    EXPECT_EQ(static_cast<int>(TLog::LiteralType::Integer), 1);
    EXPECT_EQ(static_cast<int>(TLog::LiteralType::Double), 2);
    EXPECT_EQ(static_cast<int>(TLog::LiteralType::FixedDouble), 3);
    EXPECT_EQ(static_cast<int>(TLog::LiteralType::Boolean), 4);
    EXPECT_EQ(static_cast<int>(TLog::LiteralType::Null), 5);
}

// ---- ConvertMetricsValueToTString

TEST(TarnMetricsUtilsTest, ConvertingTakesTheTextOfBothTextKinds) {
    EXPECT_EQ(Converted("narrow"), "narrow");
    EXPECT_EQ(Converted(u"wide"), "wide");
    EXPECT_EQ(Converted(""), "");
    EXPECT_EQ(Converted(u""), "");
}

TEST(TarnMetricsUtilsTest, ConvertingDecodesUtf8) {
    EXPECT_EQ(TarnMetricsUtils::ConvertMetricsValueToTString("gr\xC3\xB6\xC3\x9F"
                                                             "e \xF0\x9F\x8C\xB2"),
              TString(u"gr\u00F6\u00DFe \U0001F332"));
    EXPECT_EQ(TarnMetricsUtils::ConvertMetricsValueToTString(u"gr\u00F6\u00DFe \U0001F332"),
              TString(u"gr\u00F6\u00DFe \U0001F332"));
}

TEST(TarnMetricsUtilsTest, ConvertingStopsAtTheFirstNul) {
    EXPECT_EQ(Converted(std::string("ab\0cd", 5)), "ab");
    EXPECT_EQ(Converted(TString(std::u16string_view(u"ab\0cd", 5))), "ab");
    EXPECT_EQ(Converted(std::string("\0cd", 3)), "");
}

TEST(TarnMetricsUtilsTest, ConvertingQuotesNothing) {
    EXPECT_EQ(Converted("'it''s'"), "'it''s'");
    EXPECT_EQ(Converted("a\"b\n"), "a\"b\n");
}

TEST(TarnMetricsUtilsTest, ConvertingAnotherKindRaisesALogicError) {
    for (const MetricsValue& value : {MetricsValue(1),
                                      MetricsValue(true),
                                      MetricsValue(1.5),
                                      ValueOfKind(5),
                                      ValueOfKind(99)}) {
        EXPECT_THAT(
            [&value] { TarnMetricsUtils::ConvertMetricsValueToTString(value); },
            Throws<LogicException>(IsLogicError(
                "src/cpp/main/TarnMetricsUtils", 47, "Unexpected MetricsValue type", 0xFCE7C547)))
            << "kind " << value.type;
    }
}

// ---- DefaultStringAttributeValue

TEST(TarnMetricsUtilsTest, TheDefaultTextIsADash) {
    EXPECT_EQ(TarnMetricsUtils::DefaultStringAttributeValue(), TString(u"-"));
}

TEST(TarnMetricsUtilsTest, TheDefaultTextIsMadeOnce) {
    const TString first = TarnMetricsUtils::DefaultStringAttributeValue();
    const TString second = TarnMetricsUtils::DefaultStringAttributeValue();

    EXPECT_EQ(first.SharedCharacters(), second.SharedCharacters());
}

// ---- MetricsValueToInt

TEST(TarnMetricsUtilsTest, AnIntegerIsItself) {
    EXPECT_EQ(TarnMetricsUtils::MetricsValueToInt(42), 42);
    EXPECT_EQ(TarnMetricsUtils::MetricsValueToInt(std::numeric_limits<int64>::min()),
              std::numeric_limits<int64>::min());
    EXPECT_EQ(TarnMetricsUtils::MetricsValueToInt(std::numeric_limits<int64>::max()),
              std::numeric_limits<int64>::max());
}

TEST(TarnMetricsUtilsTest, NothingElseIsAnInteger) {
    MetricsValue unknown = ValueOfKind(5);
    unknown.integer = 12;

    EXPECT_EQ(TarnMetricsUtils::MetricsValueToInt(true), 0);
    EXPECT_EQ(TarnMetricsUtils::MetricsValueToInt(2.0), 0);
    EXPECT_EQ(TarnMetricsUtils::MetricsValueToInt("3"), 0);
    EXPECT_EQ(TarnMetricsUtils::MetricsValueToInt(u"4"), 0);
    EXPECT_EQ(TarnMetricsUtils::MetricsValueToInt(unknown), 0);
}

// ---- MetricsValueToString

TEST(TarnMetricsUtilsTest, IntegersReadInDecimal) {
    EXPECT_EQ(TextOf(0), "0");
    EXPECT_EQ(TextOf(-7), "-7");
    EXPECT_EQ(TextOf(std::numeric_limits<int64>::max()), "9223372036854775807");
    EXPECT_EQ(TextOf(std::numeric_limits<int64>::min()), "-9223372036854775808");
}

TEST(TarnMetricsUtilsTest, BooleansReadAsWords) {
    EXPECT_EQ(TextOf(true), "true");
    EXPECT_EQ(TextOf(false), "false");
}

TEST(TarnMetricsUtilsTest, DoublesReadInGeneralNotationWithSixDigits) {
    EXPECT_EQ(TextOf(1.5), "1.5");
    EXPECT_EQ(TextOf(1234567.0), "1.23457e+06");
    EXPECT_EQ(TextOf(0.0), "0");
    EXPECT_EQ(TextOf(-0.25), "-0.25");
    EXPECT_EQ(TextOf(100000.0), "100000");
    EXPECT_EQ(TextOf(0.00001), "1e-05");
    EXPECT_EQ(TextOf(2.0 / 3.0), "0.666667");
}

TEST(TarnMetricsUtilsTest, NumbersReadTheSameInEveryLocale) {
    struct GroupedNumbers : std::numpunct<char> {
        char do_decimal_point() const override { return ','; }

        char do_thousands_sep() const override { return '.'; }

        std::string do_grouping() const override { return "\3"; }
    };

    const std::locale before = std::locale::global(std::locale(std::locale(), new GroupedNumbers));

    EXPECT_EQ(TextOf(1.5), "1.5");
    EXPECT_EQ(TextOf(1234567), "1234567");
    EXPECT_EQ(Seconds(1500000000, true), "1.500000000");
    std::locale::global(before);
}

TEST(TarnMetricsUtilsTest, TextWithoutQuotesOrLineFeedsStaysAsItIs) {
    EXPECT_EQ(TextOf("abc"), "abc");
    EXPECT_EQ(TextOf(u"abc"), "abc");
    EXPECT_EQ(TextOf("with blanks, commas; and\ttabs"), "with blanks, commas; and\ttabs");
    EXPECT_EQ(TextOf("carriage\rreturn"), "carriage\rreturn");
    EXPECT_EQ(TextOf("it's"), "it's");
}

TEST(TarnMetricsUtilsTest, TheEmptyTextStaysEmpty) {
    EXPECT_EQ(TextOf(""), "");
    EXPECT_EQ(TextOf(u""), "");
}

TEST(TarnMetricsUtilsTest, ATextThatBeginsWithAnApostropheLosesAllOfThem) {
    EXPECT_EQ(TextOf("'it''s'"), "its");
    EXPECT_EQ(TextOf("'db'"), "db");
    EXPECT_EQ(TextOf("''"), "");
    EXPECT_EQ(TextOf(u"'a'b'c"), "abc");
}

TEST(TarnMetricsUtilsTest, ATextWithADoubleQuoteIsEnclosedAndItsQuotesAreDoubled) {
    EXPECT_EQ(TextOf("a\"b"), "\"a\"\"b\"");
    EXPECT_EQ(TextOf(u"\""), "\"\"\"\"");
    EXPECT_EQ(TextOf("\"a\""), "\"\"\"a\"\"\"");
}

TEST(TarnMetricsUtilsTest, ATextWithALineFeedIsEnclosedAndKeepsIt) {
    EXPECT_EQ(TextOf("a\nb"), "\"a\nb\"");
    EXPECT_EQ(TextOf("\n"), "\"\n\"");
    EXPECT_EQ(TextOf(u"a\n\"b\""), "\"a\n\"\"b\"\"\"");
}

TEST(TarnMetricsUtilsTest, ApostrophesGoBeforeTheTextIsLookedAtForQuotes) {
    EXPECT_EQ(TextOf("'a\"b'"), "\"a\"\"b\"");
    EXPECT_EQ(TextOf("'a\nb'"), "\"a\nb\"");
}

TEST(TarnMetricsUtilsTest, TheTextFormStopsAtTheFirstNul) {
    EXPECT_EQ(TextOf(std::string("ab\0\"", 4)), "ab");
}

TEST(TarnMetricsUtilsTest, AnUnknownKindReadsAsTheEmptyText) {
    EXPECT_EQ(TextOf(ValueOfKind(5)), "");
    EXPECT_EQ(TextOf(ValueOfKind(std::numeric_limits<uint32>::max())), "");
}

// ---- NanoSecondsToString

TEST(TarnMetricsUtilsTest, HighPrecisionHasNineDecimals) {
    EXPECT_EQ(Seconds(1500000000, true), "1.500000000");
    EXPECT_EQ(Seconds(0, true), "0.000000000");
    EXPECT_EQ(Seconds(1, true), "0.000000001");
    EXPECT_EQ(Seconds(61000000001, true), "61.000000001");
}

TEST(TarnMetricsUtilsTest, HighPrecisionReadsTheCountAsUnsigned) {
    EXPECT_EQ(Seconds(std::numeric_limits<uint64>::max(), true).substr(0, 12), "18446744073.");
}

TEST(TarnMetricsUtilsTest, LowPrecisionCutsOffBelowTheMillisecond) {
    EXPECT_EQ(Seconds(1234999999, false), "1.234");
    EXPECT_EQ(Seconds(999999, false), "0.000");
    EXPECT_EQ(Seconds(1000000, false), "0.001");
    EXPECT_EQ(Seconds(0, false), "0.000");
    EXPECT_EQ(Seconds(60000000000, false), "60.000");
}

TEST(TarnMetricsUtilsTest, LowPrecisionReadsTheCountAsUnsigned) {
    EXPECT_EQ(Seconds(std::numeric_limits<uint64>::max(), false), "18446744073.709");
}

// ---- TLogLiteralToMetricsValue

TEST(TarnMetricsUtilsTest, AStringLiteralBecomesWideText) {
    const MetricsValue value =
        TarnMetricsUtils::TLogLiteralToMetricsValue(TLog::Literal::String(u"te\u00DFt").get());

    EXPECT_EQ(value.type, MetricsValue::MV_Utf16String);
    EXPECT_EQ(Converted(value), "te\xC3\x9Ft");
}

TEST(TarnMetricsUtilsTest, AnIntegerLiteralKeepsItsLow32BitsSigned) {
    const auto integerOf = [](int64 integer) {
        const MetricsValue value =
            TarnMetricsUtils::TLogLiteralToMetricsValue(TLog::Literal::Int(integer).get());
        EXPECT_EQ(value.type, MetricsValue::MV_Int64);
        return value.integer;
    };

    EXPECT_EQ(integerOf(5), 5);
    EXPECT_EQ(integerOf(-5), -5);
    EXPECT_EQ(integerOf(0x100000005), 5);
    EXPECT_EQ(integerOf(4294967297), 1);
    EXPECT_EQ(integerOf(2147483648), -2147483648LL);
    EXPECT_EQ(integerOf(2147483647), 2147483647);
}

TEST(TarnMetricsUtilsTest, BothDoubleLiteralsBecomeDoubles) {
    for (const int notation : {0, 1}) {
        const MetricsValue value = TarnMetricsUtils::TLogLiteralToMetricsValue(
            TLog::Literal::Double(2.25, notation).get());

        EXPECT_EQ(value.type, MetricsValue::MV_Double) << "notation " << notation;
        EXPECT_EQ(value.real, 2.25) << "notation " << notation;
    }
}

TEST(TarnMetricsUtilsTest, ABooleanLiteralBecomesABoolean) {
    for (const bool truth : {true, false}) {
        const MetricsValue value =
            TarnMetricsUtils::TLogLiteralToMetricsValue(TLog::Literal::Bool(truth).get());

        EXPECT_EQ(value.type, MetricsValue::MV_Bool);
        EXPECT_EQ(value.boolean, truth);
    }
}

TEST(TarnMetricsUtilsTest, ANullLiteralBecomesEmptyWideText) {
    const MetricsValue value =
        TarnMetricsUtils::TLogLiteralToMetricsValue(TLog::Literal::Null().get());

    EXPECT_EQ(value.type, MetricsValue::MV_Utf16String);
    EXPECT_EQ(Converted(value), "");
}

TEST(TarnMetricsUtilsTest, ANullPointerRaisesALogicError) {
    EXPECT_THAT([] { TarnMetricsUtils::TLogLiteralToMetricsValue(nullptr); },
                Throws<LogicException>(
                    IsLogicError("src/cpp/main/TarnMetricsUtils", 106, "value", 0x035D1E8E)));
}

TEST(TarnMetricsUtilsTest, ALogicErrorsTextRepeatsTheCodeInEightDigits) {
    try {
        TarnMetricsUtils::TLogLiteralToMetricsValue(nullptr);
        FAIL() << "nothing was raised";
    } catch (const LogicException& error) {
        EXPECT_EQ(error.GetError().GetText(), TString(u"LogicException_LogicAssert_0x035D1E8E"));
        EXPECT_EQ(error.GetErrorCode(), 0x035D1E8EU);
        EXPECT_EQ(error.GetFile(), "src/cpp/main/TarnMetricsUtils");
        EXPECT_EQ(error.GetLine(), 106);
        EXPECT_EQ(error.GetText(), "value");
    }
}

TEST(TarnMetricsUtilsTest, ConversionsMayRunOnSeveralThreadsAtOnce) {
    std::atomic<int> wrong{0};
    const MetricsValue shared(u"'shared'");

    OnThreadsAtOnce(4, [&wrong, &shared](int) {
        for (int n = 0; n < 5000; ++n) {
            if (TextOf(shared) != "shared" ||
                TarnMetricsUtils::DefaultStringAttributeValue() != TString(u"-")) {
                ++wrong;
            }
        }
    });

    EXPECT_EQ(wrong.load(), 0);
}

}  // namespace
}  // namespace tarn::test
