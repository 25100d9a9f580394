#include "tarn/ExceptionParser.h"

#include "AllocationCounter.h"
#include "Matchers.h"
#include "TarnTest.h"

#include "tarn/ExceptionInfo.h"

#include "cvlcoreplatform/TString.h"
#include "cvlsys/CorvalaException.h"
#include "cvlsys/TError.h"

#include <exception>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <system_error>
#include <type_traits>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

// Types with names that a test can spell out.
namespace shop {

class OrderRejected : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;

    class OutOfStock;
};

class OrderRejected::OutOfStock : public OrderRejected {
public:
    using OrderRejected::OrderRejected;
};

template <class Item>
class Missing : public std::runtime_error {
public:
    Missing() : std::runtime_error("missing") {}
};

class PaymentFailed : public CorvalaException {
public:
    using CorvalaException::CorvalaException;

    class CardExpired;
};

class PaymentFailed::CardExpired : public PaymentFailed {
public:
    using PaymentFailed::PaymentFailed;
};

}  // namespace shop

// Names that begin with the letters of a keyword.
struct structural_damage : std::runtime_error {
    structural_damage() : std::runtime_error("crack") {}
};

class classified : public std::runtime_error {
public:
    classified() : std::runtime_error("secret") {}
};

namespace tarn::test {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Throws;

constexpr uint32 someCode = 0x1234ABCD;

class ExceptionParserTest : public TarnTest {
protected:
    /// Type, message and the three members.
    static std::vector<std::string> Texts(const ExceptionInfo& info) {
        return {info.type.ToUtf8(),
                info.message.ToUtf8(),
                info.infoMember1.ToUtf8(),
                info.infoMember2.ToUtf8(),
                info.infoMember3.ToUtf8()};
    }

    template <class Exception>
    static std::vector<std::string> Parsed(const Exception& exception) {
        return Texts(ExceptionParser::ParseException(exception));
    }

    /// As it arrives when the object was thrown and caught by nobody who knew it.
    template <class Thrown>
    static std::vector<std::string> ParsedAfterThrowing(Thrown thrown) {
        return Parsed(std::make_exception_ptr(std::move(thrown)));
    }

    static TError::ErrorInfo Advice() { return {u"the disk", u"writing a page", u"make room"}; }

    static CorvalaError SomeError() { return {someCode, u"disk full"}; }
};

std::vector<std::string> Unknown() {
    return {"Unknown-exception-type", "Unknown exception caught by catch(...)", "", "", ""};
}

// ---- The record.

TEST_F(ExceptionParserTest, ARecordIsBornEmpty) {
    const ExceptionInfo info;

    EXPECT_THAT(Texts(info), ElementsAre("", "", "", "", ""));
}

TEST_F(ExceptionParserTest, ARecordIsCopiedAndMovedWhole) {
    const ExceptionInfo original{u"type", u"message", u"one", u"two", u"three"};
    const std::vector<std::string> expected{"type", "message", "one", "two", "three"};

    ExceptionInfo copy(original);
    ExceptionInfo assigned;
    assigned = original;
    const ExceptionInfo moved(std::move(copy));
    ExceptionInfo moveAssigned;
    moveAssigned = std::move(assigned);

    EXPECT_EQ(Texts(original), expected);
    EXPECT_EQ(Texts(moved), expected);
    EXPECT_EQ(Texts(moveAssigned), expected);
}

TEST_F(ExceptionParserTest, TheParserHoldsNothing) {
    EXPECT_TRUE(std::is_empty_v<ExceptionParser>);
    EXPECT_TRUE(std::is_copy_constructible_v<ExceptionParser>);
    EXPECT_TRUE(std::is_copy_assignable_v<ExceptionParser>);
    EXPECT_TRUE(std::is_move_constructible_v<ExceptionParser>);
    EXPECT_TRUE(std::is_move_assignable_v<ExceptionParser>);
}

// ---- Standard exceptions.

TEST_F(ExceptionParserTest, AStandardExceptionGivesItsTypeAndItsMessageAndNoMembers) {
    EXPECT_THAT(Parsed(std::runtime_error("x")),
                ElementsAre("std::runtime_error", "x", "", "", ""));
}

TEST_F(ExceptionParserTest, TheTypeIsThatOfTheObjectNotOfTheReference) {
    const std::out_of_range error("past the end");
    const std::exception& reference = error;

    EXPECT_THAT(Parsed(reference), ElementsAre("std::out_of_range", "past the end", "", "", ""));
}

TEST_F(ExceptionParserTest, TheBaseClassItselfCanBeParsed) {
    const std::exception error;

    EXPECT_THAT(Parsed(error), ElementsAre("std::exception", error.what(), "", "", ""));
}

TEST_F(ExceptionParserTest, OtherStandardTypesAreNamedAsTheyAreWritten) {
    EXPECT_EQ(Parsed(std::bad_alloc()).at(0), "std::bad_alloc");
    EXPECT_EQ(Parsed(std::system_error(std::make_error_code(std::errc::io_error))).at(0),
              "std::system_error");
}

TEST_F(ExceptionParserTest, AnEmptyMessageStaysEmpty) {
    EXPECT_THAT(Parsed(std::logic_error("")), ElementsAre("std::logic_error", "", "", "", ""));
}

TEST_F(ExceptionParserTest, AStandardMessageIsReadAsUtf8) {
    const ExceptionInfo info =
        ExceptionParser::ParseException(std::runtime_error("gr\xC3\xB6\xC3\x9F"
                                                           "er \xE2\x98\x83 \xF0\x9F\x98\x80"));

    EXPECT_EQ(info.message, TString(u"gr\u00F6\u00DFer \u2603 \U0001F600"));
}

TEST_F(ExceptionParserTest, AMessageThatIsNoUtf8IsStillAMessage) {
    const ExceptionInfo info =
        ExceptionParser::ParseException(std::runtime_error("page \xFF of 3"));

    EXPECT_EQ(info.message, TString(u"page \uFFFD of 3"));
}

TEST_F(ExceptionParserTest, ALongMessageIsKeptWhole) {
    const std::string text(100000, 'm');

    EXPECT_EQ(Parsed(std::runtime_error(text)).at(1), text);
}

class Mute : public std::exception {
public:
    const char* what() const noexcept override { return nullptr; }
};

TEST_F(ExceptionParserTest, AnExceptionWithoutAMessageIsNoReasonToThrow) {
    EXPECT_EQ(Parsed(Mute()).at(1), "");
    EXPECT_EQ(ParsedAfterThrowing(Mute()).at(1), "");
}

// ---- Names of types.

TEST_F(ExceptionParserTest, ATypeIsNamedWithItsNamespace) {
    EXPECT_EQ(Parsed(shop::OrderRejected("no")).at(0), "shop::OrderRejected");
}

TEST_F(ExceptionParserTest, ANestedTypeIsNamedWithItsEnclosingClass) {
    EXPECT_EQ(Parsed(shop::OrderRejected::OutOfStock("no")).at(0),
              "shop::OrderRejected::OutOfStock");
    EXPECT_EQ(Parsed(shop::PaymentFailed::CardExpired(u"no")).at(0),
              "shop::PaymentFailed::CardExpired");
}

TEST_F(ExceptionParserTest, ATypeOfATemplateIsNamedWithItsArguments) {
    EXPECT_EQ(Parsed(shop::Missing<int>()).at(0), "shop::Missing<int>");
    EXPECT_EQ(Parsed(shop::Missing<shop::OrderRejected>()).at(0),
              "shop::Missing<shop::OrderRejected>");
}

class Hidden : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

TEST_F(ExceptionParserTest, ATypeInAnAnonymousNamespaceSaysSo) {
    EXPECT_EQ(Parsed(Hidden("no")).at(0), "tarn::test::(anonymous namespace)::Hidden");
}

TEST_F(ExceptionParserTest, ALocalTypeIsNamedToo) {
    class Local : public std::exception {};

    EXPECT_THAT(Parsed(Local()).at(0), EndsWith("::Local"));
}

TEST_F(ExceptionParserTest, ATypeOfTheGlobalNamespaceHasABareName) {
    EXPECT_EQ(Parsed(CorvalaException(u"no")).at(0), "CorvalaException");
}

TEST_F(ExceptionParserTest, ANameThatOnlyBeginsLikeAKeywordIsKeptWhole) {
    EXPECT_EQ(Parsed(structural_damage()).at(0), "structural_damage");
    EXPECT_EQ(Parsed(classified()).at(0), "classified");
}

// ---- The host's own exceptions.

TEST_F(ExceptionParserTest, AHostExceptionGivesItsErrorInformationInOrder) {
    const CorvalaException error(u"cannot save", SomeError(), Advice());

    EXPECT_THAT(
        Parsed(error),
        ElementsAre("CorvalaException", "cannot save", "the disk", "writing a page", "make room"));
}

TEST_F(ExceptionParserTest, MembersThatAreEmptyKeepTheirPlace) {
    const CorvalaException error(u"m", SomeError(), {TString(), u"second", TString()});

    EXPECT_THAT(Parsed(error), ElementsAre("CorvalaException", "m", "", "second", ""));
}

TEST_F(ExceptionParserTest, WithoutAnErrorTheInformationIsNotRead) {
    const CorvalaException error(u"m", CorvalaError::NoError(), Advice());

    EXPECT_THAT(Parsed(error), ElementsAre("CorvalaException", "m", "", "", ""));
}

TEST_F(ExceptionParserTest, WhetherThereIsAnErrorIsDecidedByItsCodeAlone) {
    const CorvalaException codeOfNoError(
        u"m", {CorvalaError::NoError().GetCode(), u"a text all the same"}, Advice());
    const CorvalaException errorWithoutText(u"m", {someCode, u""}, Advice());

    EXPECT_THAT(Parsed(codeOfNoError), ElementsAre("CorvalaException", "m", "", "", ""));
    EXPECT_THAT(Parsed(errorWithoutText),
                ElementsAre("CorvalaException", "m", "the disk", "writing a page", "make room"));
}

TEST_F(ExceptionParserTest, EveryOtherCodeIsAnError) {
    for (const uint32 code : {0x00000001U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
        EXPECT_EQ(Parsed(CorvalaException(u"m", {code, u""}, Advice())).at(2), "the disk")
            << "code " << code;
    }
}

TEST_F(ExceptionParserTest, AnErrorWithoutInformationGivesEmptyMembers) {
    EXPECT_THAT(Parsed(CorvalaException(u"m", SomeError())),
                ElementsAre("CorvalaException", "m", "", "", ""));
}

TEST_F(ExceptionParserTest, ADerivedHostExceptionKeepsItsOwnTypeName) {
    const shop::PaymentFailed::CardExpired error(u"expired", SomeError(), Advice());
    const CorvalaException& reference = error;

    EXPECT_THAT(Parsed(reference),
                ElementsAre("shop::PaymentFailed::CardExpired",
                            "expired",
                            "the disk",
                            "writing a page",
                            "make room"));
}

TEST_F(ExceptionParserTest, AHostMessageKeepsEveryCodeUnit) {
    const std::u16string units = {u'a', u'\0', char16_t{0xD800}, u'\u2603', char16_t{0xFFFF}};

    const ExceptionInfo info =
        ExceptionParser::ParseException(CorvalaException(TString(std::u16string_view(units))));

    EXPECT_EQ(info.message.View(), units);
}

TEST_F(ExceptionParserTest, MembersMayHoldAnyText) {
    const CorvalaException error(
        u"m", SomeError(), {u"\u65E5\u672C", u"\U0001F600", u"a \"quoted\"\nline"});

    EXPECT_THAT(Parsed(error),
                ElementsAre("CorvalaException",
                            "m",
                            "\xE6\x97\xA5\xE6\x9C\xAC",
                            "\xF0\x9F\x98\x80",
                            "a \"quoted\"\nline"));
}

// Its message is made when it is asked for.
class Translated : public CorvalaException {
public:
    Translated() : CorvalaException(u"as constructed", SomeCode(), {u"1", u"2", u"3"}) {}

    TStringCore GetMessage() const override { return u"as translated"; }

private:
    static CorvalaError SomeCode() { return {someCode, u""}; }
};

TEST_F(ExceptionParserTest, TheMessageComesFromTheVirtualAccessor) {
    const Translated error;
    const CorvalaException& asHost = error;
    const std::exception& asStandard = error;

    EXPECT_EQ(Parsed(asHost).at(1), "as translated");
    EXPECT_EQ(Parsed(asStandard).at(1), "as translated");
    EXPECT_EQ(ParsedAfterThrowing(error).at(1), "as translated");
}

TEST_F(ExceptionParserTest, ALogicExceptionIsAHostException) {
    const LogicException error("file.cpp", 12, "a < b", {someCode, u"LogicException_Test"});

    EXPECT_THAT(Parsed(error),
                ElementsAre("LogicException", error.GetMessage().ToUtf8(), "", "", ""));
}

TEST_F(ExceptionParserTest, AHostExceptionBehindAStandardReferenceKeepsItsInformation) {
    const shop::PaymentFailed error(u"declined", SomeError(), Advice());
    const std::exception& reference = error;

    EXPECT_THAT(
        Parsed(reference),
        ElementsAre("shop::PaymentFailed", "declined", "the disk", "writing a page", "make room"));
}

TEST_F(ExceptionParserTest, AStandardReferenceToAHostExceptionWithoutAnErrorGivesNoMembers) {
    const CorvalaException error(u"m", CorvalaError::NoError(), Advice());
    const std::exception& reference = error;

    EXPECT_THAT(Parsed(reference), ElementsAre("CorvalaException", "m", "", "", ""));
}

// Has the standard base class twice, so that no handler for it takes it.
class HostAndStandard : public CorvalaException, public std::runtime_error {
public:
    HostAndStandard()
        : CorvalaException(u"of the host", {someCode, u""}, {u"1", u"2", u"3"}),
          std::runtime_error("of the standard") {}
};

TEST_F(ExceptionParserTest, WhatIsBothIsParsedAsTheHosts) {
    const HostAndStandard error;
    const std::exception& standardSide = static_cast<const std::runtime_error&>(error);
    const auto asTheHosts =
        ElementsAre(EndsWith("::HostAndStandard"), "of the host", "1", "2", "3");

    EXPECT_THAT(Parsed(standardSide), asTheHosts);
    EXPECT_THAT(ParsedAfterThrowing(error), asTheHosts);
}

// ---- Whatever was thrown.

TEST_F(ExceptionParserTest, AThrownStandardExceptionIsParsedAsOne) {
    EXPECT_THAT(ParsedAfterThrowing(shop::OrderRejected::OutOfStock("none left")),
                ElementsAre("shop::OrderRejected::OutOfStock", "none left", "", "", ""));
}

TEST_F(ExceptionParserTest, AThrownHostExceptionKeepsItsInformation) {
    EXPECT_THAT(
        ParsedAfterThrowing(shop::PaymentFailed(u"declined", SomeError(), Advice())),
        ElementsAre("shop::PaymentFailed", "declined", "the disk", "writing a page", "make room"));
}

TEST_F(ExceptionParserTest, AThrownHostExceptionWithoutAnErrorGivesNoMembers) {
    EXPECT_THAT(ParsedAfterThrowing(CorvalaException(u"m", CorvalaError::NoError(), Advice())),
                ElementsAre("CorvalaException", "m", "", "", ""));
}

TEST_F(ExceptionParserTest, WhatIsNoExceptionObjectIsUnknown) {
    EXPECT_EQ(ParsedAfterThrowing(42), Unknown());
    EXPECT_EQ(ParsedAfterThrowing("a text"), Unknown());
    EXPECT_EQ(ParsedAfterThrowing(std::string("a text")), Unknown());
    EXPECT_EQ(ParsedAfterThrowing(TString(u"a text")), Unknown());
    EXPECT_EQ(ParsedAfterThrowing(nullptr), Unknown());
}

TEST_F(ExceptionParserTest, APointerToAnExceptionIsUnknown) {
    static const std::runtime_error error("not looked at");

    EXPECT_EQ(ParsedAfterThrowing(&error), Unknown());
}

class Secretive : private std::runtime_error {
public:
    Secretive() : std::runtime_error("not for everybody") {}
};

TEST_F(ExceptionParserTest, AnExceptionByPrivateInheritanceIsUnknown) {
    EXPECT_EQ(ParsedAfterThrowing(Secretive()), Unknown());
}

class Twofold : public std::runtime_error, public std::bad_alloc {
public:
    Twofold() : std::runtime_error("which base?") {}
};

TEST_F(ExceptionParserTest, AnExceptionWithTwoStandardBasesIsUnknown) {
    EXPECT_EQ(ParsedAfterThrowing(Twofold()), Unknown());
}

TEST_F(ExceptionParserTest, OfNestedExceptionsTheOutermostIsParsed) {
    std::exception_ptr caught;
    try {
        try {
            throw std::runtime_error("the cause");
        } catch (const std::runtime_error&) {
            std::throw_with_nested(shop::OrderRejected("the consequence"));
        }
    } catch (...) {
        caught = std::current_exception();
    }

    const std::vector<std::string> parsed = Parsed(caught);

    EXPECT_THAT(parsed,
                ElementsAre(HasSubstr("shop::OrderRejected"), "the consequence", "", "", ""));
}

TEST_F(ExceptionParserTest, AnEmptyPointerIsAProgrammingError) {
    const auto eptr = IsLogicError("src/cpp/main/ActivityScope", 732, "eptr", 0x5C339EED);

    EXPECT_THAT([] { ExceptionParser::ParseException(std::exception_ptr()); },
                Throws<LogicException>(eptr));
    EXPECT_THAT([] { ExceptionParser::ParseException(std::current_exception()); },
                Throws<LogicException>(eptr));
}

TEST_F(ExceptionParserTest, APointerCanBeParsedAgainAndAgain) {
    const std::exception_ptr pointer = std::make_exception_ptr(std::runtime_error("x"));
    const std::exception_ptr copy = pointer;

    const std::vector<std::string> first = Parsed(pointer);
    const std::vector<std::string> second = Parsed(copy);

    EXPECT_EQ(first, second);
    EXPECT_THROW(std::rethrow_exception(pointer), std::runtime_error);
}

TEST_F(ExceptionParserTest, TheExceptionThatIsBeingHandledStaysTheSame) {
    try {
        throw shop::OrderRejected("no");
    } catch (...) {
        EXPECT_EQ(Parsed(std::make_exception_ptr(42)), Unknown());

        EXPECT_EQ(Parsed(std::current_exception()).at(0), "shop::OrderRejected");
    }
    EXPECT_EQ(std::current_exception(), nullptr);
}

TEST_F(ExceptionParserTest, AnExceptionOfAnotherThreadCanBeParsed) {
    std::exception_ptr caught;

    OnAnotherThread([&caught] {
        try {
            throw shop::OrderRejected("over there");
        } catch (...) {
            caught = std::current_exception();
        }
    });

    EXPECT_THAT(Parsed(caught), ElementsAre("shop::OrderRejected", "over there", "", "", ""));
}

TEST_F(ExceptionParserTest, AnExceptionCanBeParsedWhileAnotherOneUnwinds) {
    std::vector<std::string> parsed;

    struct Cleaner {
        std::vector<std::string>& parsed;

        ~Cleaner() { parsed = ParsedAfterThrowing(shop::OrderRejected("earlier")); }
    };

    EXPECT_THROW(
        {
            const Cleaner cleaner{parsed};
            throw std::logic_error("later");
        },
        std::logic_error);

    EXPECT_THAT(parsed, ElementsAre("shop::OrderRejected", "earlier", "", "", ""));
}

class Unaffordable : public CorvalaException {
public:
    Unaffordable() : CorvalaException(u"m") {}

    TStringCore GetMessage() const override { throw std::bad_alloc(); }
};

TEST_F(ExceptionParserTest, ThatMemoryRanOutIsNotTakenForTheExceptionThatIsParsed) {
    const Unaffordable error;
    const std::exception& asStandard = error;

    EXPECT_THROW(ExceptionParser::ParseException(error), std::bad_alloc);
    EXPECT_THROW(ExceptionParser::ParseException(asStandard), std::bad_alloc);
    EXPECT_THROW(ExceptionParser::ParseException(std::make_exception_ptr(error)), std::bad_alloc);
}

TEST_F(ExceptionParserTest, AnyAllocationMayFailAndSaysSo) {
    const std::exception_ptr thrown =
        std::make_exception_ptr(std::runtime_error("a message of more than a few characters"));
    bool failed = true;

    for (uint64 number = 0; failed; ++number) {
        const FailingAllocation failure(number);
        bool raised = false;
        try {
            ExceptionParser::ParseException(thrown);
        } catch (const std::bad_alloc&) {
            raised = true;
        }
        failed = failure.HasFailed();
        ASSERT_EQ(raised, failed) << "allocation " << number;
        ASSERT_TRUE(failed || number > 0) << "no allocation was made to fail";
    }
}

}  // namespace
}  // namespace tarn::test
