#include "TemporaryFolder.h"

#include "cvlsys/TStringCore.h"

#include <clocale>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <string>

#include <gtest/gtest.h>

namespace {

int32 ToInt(const char16_t* text, int base = 10) {
    return TStringCore(text).toInt(base);
}

TEST(SysTStringNumbersTest, AWholeTextOfDigitsIsANumber) {
    EXPECT_EQ(ToInt(u"0"), 0);
    EXPECT_EQ(ToInt(u"42"), 42);
    EXPECT_EQ(ToInt(u"+5"), 5);
    EXPECT_EQ(ToInt(u"-7"), -7);
    EXPECT_EQ(ToInt(u"0000000000000000000012"), 12);
    EXPECT_EQ(ToInt(u"2147483647"), 2147483647);
    EXPECT_EQ(ToInt(u"-2147483648"), std::numeric_limits<int32>::min());
}

TEST(SysTStringNumbersTest, AnyOtherTextGivesZero) {
    EXPECT_EQ(ToInt(u""), 0);
    EXPECT_EQ(ToInt(u"-"), 0);
    EXPECT_EQ(ToInt(u"+-1"), 0);
    EXPECT_EQ(ToInt(u"12x"), 0);
    EXPECT_EQ(ToInt(u"x12"), 0);
    EXPECT_EQ(ToInt(u" 12"), 0);
    EXPECT_EQ(ToInt(u"12 "), 0);
    EXPECT_EQ(ToInt(u"1.5"), 0);
    EXPECT_EQ(ToInt(u"\u0661\u0662"), 0) << "digits of another script";
    EXPECT_EQ(TStringCore(std::u16string_view(u"1\0", 2)).toInt(), 0);
}

TEST(SysTStringNumbersTest, ANumberThatDoesNotFitGivesZero) {
    EXPECT_EQ(ToInt(u"2147483648"), 0);
    EXPECT_EQ(ToInt(u"-2147483649"), 0);
    EXPECT_EQ(ToInt(u"99999999999999999999999999"), 0);
}

TEST(SysTStringNumbersTest, TheBaseDecidesWhatIsADigit) {
    EXPECT_EQ(ToInt(u"7fFF", 16), 0x7FFF);
    EXPECT_EQ(ToInt(u"-101", 2), -5);
    EXPECT_EQ(ToInt(u"zz", 36), 35 * 36 + 35);
    EXPECT_EQ(ToInt(u"8", 8), 0);
    EXPECT_EQ(ToInt(u"0x10", 16), 0);
    EXPECT_EQ(ToInt(u"11", 1), 0);
    EXPECT_EQ(ToInt(u"11", 37), 0);
    EXPECT_EQ(ToInt(u"11", 0), 0);
}

TEST(SysTStringNumbersTest, WholeNumbersOfEveryTypeAreWritten) {
    EXPECT_EQ(TStringCore::number(0), TStringCore(u"0"));
    EXPECT_EQ(TStringCore::number(-12), TStringCore(u"-12"));
    EXPECT_EQ(TStringCore::number(std::numeric_limits<int64>::min()),
              TStringCore(u"-9223372036854775808"));
    EXPECT_EQ(TStringCore::number(std::numeric_limits<uint64>::max()),
              TStringCore(u"18446744073709551615"));
    EXPECT_EQ(TStringCore::number(static_cast<unsigned char>(200)), TStringCore(u"200"));
    EXPECT_EQ(TStringCore::number(static_cast<signed char>(-1)), TStringCore(u"-1"));
}

TEST(SysTStringNumbersTest, WholeNumbersAreWrittenInAnyBase) {
    EXPECT_EQ(TStringCore::number(255u, 16), TStringCore(u"ff"));
    EXPECT_EQ(TStringCore::number(-255, 16), TStringCore(u"-ff"));
    EXPECT_EQ(TStringCore::number(35, 36), TStringCore(u"z"));
    EXPECT_EQ(TStringCore::number(std::numeric_limits<int64>::min(), 2),
              TStringCore("-1" + std::string(63, '0')));
    EXPECT_EQ(TStringCore::number(12, 1), TStringCore(u"12")) << "no base counts as 10";
}

TEST(SysTStringNumbersTest, ShortNumbersArePaddedOnTheLeft) {
    EXPECT_EQ(TStringCore::number(5, 10, 3), TStringCore(u"  5"));
    EXPECT_EQ(TStringCore::number(5, 10, 8, u'0'), TStringCore(u"00000005"));
    EXPECT_EQ(TStringCore::number(0xABCu, 16, 8, u'0'), TStringCore(u"00000abc"));
    EXPECT_EQ(TStringCore::number(-5, 10, 4, u'*'), TStringCore(u"**-5"));
    EXPECT_EQ(TStringCore::number(12345, 10, 3), TStringCore(u"12345"));
    EXPECT_EQ(TStringCore::number(5, 10, -3), TStringCore(u"5"));
}

TEST(SysTStringNumbersTest, RealNumbersInGeneralNotationHaveSignificantDigits) {
    EXPECT_EQ(TStringCore::number(0.25), TStringCore(u"0.25"));
    EXPECT_EQ(TStringCore::number(1234567.0), TStringCore(u"1.23457e+06"));
    EXPECT_EQ(TStringCore::number(3.14159265, 'g', 3), TStringCore(u"3.14"));
    EXPECT_EQ(TStringCore::number(0.1, 'g', 17), TStringCore(u"0.10000000000000001"));
    EXPECT_EQ(TStringCore::number(2.0), TStringCore(u"2"));
    EXPECT_EQ(TStringCore::number(2.5, 'g', -1), TStringCore(u"2.5"));
}

TEST(SysTStringNumbersTest, RealNumbersInFixedNotationHaveDecimals) {
    EXPECT_EQ(TStringCore::number(0.25, 'f', 3), TStringCore(u"0.250"));
    EXPECT_EQ(TStringCore::number(1e6, 'f', 0), TStringCore(u"1000000"));
    EXPECT_EQ(TStringCore::number(-1.5, 'f'), TStringCore(u"-1.500000"));
    EXPECT_EQ(TStringCore::number(std::numeric_limits<double>::max(), 'f', 2).Length(), 309u + 3u);
    EXPECT_EQ(TStringCore::number(1e-300, 'f', 400).Length(), 402u);
}

TEST(SysTStringNumbersTest, WhatIsNotFiniteIsNamed) {
    EXPECT_EQ(TStringCore::number(std::numeric_limits<double>::infinity()), TStringCore(u"inf"));
    EXPECT_EQ(TStringCore::number(-std::numeric_limits<double>::infinity(), 'f'),
              TStringCore(u"-inf"));
    EXPECT_EQ(TStringCore::number(std::nan("")), TStringCore(u"nan"));
}

/// The process in a locale with a decimal comma, which is made for the purpose.
class CommaLocale {
public:
    CommaLocale() : m_before(std::setlocale(LC_ALL, nullptr)) {
        const std::string name = "de_DE.UTF-8";
        const std::string command =
            "localedef -i de_DE -f UTF-8 '" + m_folder.PathOf(name) + "' >/dev/null 2>&1";
        EXPECT_EQ(std::system(command.c_str()), 0) << command;
        ::setenv("LOCPATH", m_folder.Path().c_str(), 1);
        EXPECT_NE(std::setlocale(LC_ALL, name.c_str()), nullptr);
        EXPECT_STREQ(std::localeconv()->decimal_point, ",");
    }

    ~CommaLocale() {
        ::unsetenv("LOCPATH");
        std::setlocale(LC_ALL, m_before.c_str());
    }

    CommaLocale(const CommaLocale&) = delete;
    CommaLocale& operator=(const CommaLocale&) = delete;

private:
    const tarn::test::TemporaryFolder m_folder;
    const std::string m_before;
};

TEST(SysTStringNumbersTest, TheLocaleHasNoSay) {
    const CommaLocale locale;

    EXPECT_EQ(TStringCore::number(1234.5, 'f', 1), TStringCore(u"1234.5"));
    EXPECT_EQ(TStringCore::number(1234567), TStringCore(u"1234567"));
}

}  // namespace
