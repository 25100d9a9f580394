#include "cvlsys/CorvalaException.h"

#include <exception>
#include <string>

#include <gtest/gtest.h>

namespace {

TEST(SysCorvalaExceptionTest, AnErrorKeepsItsCodeAndText) {
    const CorvalaError error(0x92C72FA5, L"LogicException_LogicAssert_0x92C72FA5");

    EXPECT_EQ(error.GetCode(), 0x92C72FA5u);
    EXPECT_EQ(error.GetText(), TStringCore(u"LogicException_LogicAssert_0x92C72FA5"));
    EXPECT_EQ(CorvalaError::NoError().GetCode(), 0u);
    EXPECT_TRUE(CorvalaError::NoError().GetText().IsEmpty());
}

TEST(SysCorvalaExceptionTest, ErrorInformationGivesItsThreeTextsInOrder) {
    const TError::ErrorInfo info(u"what", u"when", u"what to do");
    TStringCore first(u"overwritten");
    TStringCore second;
    TStringCore third;

    info.GetMembersAsStrings(first, second, third);

    EXPECT_EQ(first, TStringCore(u"what"));
    EXPECT_EQ(second, TStringCore(u"when"));
    EXPECT_EQ(third, TStringCore(u"what to do"));
    TError::ErrorInfo().GetMembersAsStrings(first, second, third);
    EXPECT_TRUE(first.IsEmpty() && second.IsEmpty() && third.IsEmpty());
}

TEST(SysCorvalaExceptionTest, AnExceptionCarriesMessageErrorAndInformation) {
    const CorvalaException exception(
        u"k\u00E4putt", CorvalaError(7, u"seven"), TError::ErrorInfo(u"a", u"b", u"c"));

    TStringCore first;
    TStringCore second;
    TStringCore third;
    exception.GetErrorInfo().GetMembersAsStrings(first, second, third);

    EXPECT_EQ(exception.GetMessage(), TStringCore(u"k\u00E4putt"));
    EXPECT_STREQ(exception.what(), "k\xC3\xA4putt");
    EXPECT_EQ(exception.GetErrorCode(), 7u);
    EXPECT_EQ(exception.GetError().GetText(), TStringCore(u"seven"));
    EXPECT_EQ(second, TStringCore(u"b"));
}

TEST(SysCorvalaExceptionTest, ADerivedExceptionDecidesOnItsMessage) {
    class Derived : public CorvalaException {
    public:
        Derived() : CorvalaException(u"base") {}

        TStringCore GetMessage() const override { return u"derived"; }
    };

    const Derived derived;
    const CorvalaException& base = derived;

    EXPECT_EQ(base.GetMessage(), TStringCore(u"derived"));
    EXPECT_STREQ(base.what(), "base");
    EXPECT_EQ(base.GetErrorCode(), 0u);
}

TEST(SysCorvalaExceptionTest, ALogicExceptionIsRaisedWithTheArgumentsAsGiven) {
    const CorvalaError error(0x92C72FA5, L"LogicException_LogicAssert_0x92C72FA5");

    try {
        ThrowLogicException("src/cpp/main/MetricsMonitor", 1234, "it != end", error);
    } catch (const std::exception& caught) {
        const auto& exception = dynamic_cast<const LogicException&>(caught);

        EXPECT_EQ(exception.GetFile(), "src/cpp/main/MetricsMonitor");
        EXPECT_EQ(exception.GetLine(), 1234);
        EXPECT_EQ(exception.GetText(), "it != end");
        EXPECT_EQ(exception.GetErrorCode(), 0x92C72FA5u);
        EXPECT_EQ(exception.GetError().GetText(), error.GetText());
        EXPECT_STREQ(exception.what(),
                     "it != end (src/cpp/main/MetricsMonitor:1234, "
                     "LogicException_LogicAssert_0x92C72FA5)");
        return;
    }
    ADD_FAILURE() << "nothing was thrown";
}

TEST(SysCorvalaExceptionTest, ALogicExceptionAllowsForMissingTexts) {
    const LogicException exception(nullptr, 0, nullptr, CorvalaError::NoError());

    EXPECT_EQ(exception.GetFile(), "");
    EXPECT_EQ(exception.GetText(), "");
}

}  // namespace
