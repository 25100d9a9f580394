#include "MonitorTest.h"

#include "tarn/OptTarn.h"

#include <limits>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using tarn::test::Ends;
using tarn::test::EventBuilder;
using tarn::test::HasActivityField;
using tarn::test::LogValue;
using testing::AllOf;
using testing::Throws;

/// What the end events say, by the names of the fields.
struct Figures {
    double ae = 0, ai = 0, de = 0, di = 0, apeak = 0;
    int64 ane = 0, ani = 0, dne = 0, dni = 0, ke = 0, ki = 0, ue = 0, ui = 0, ntid = 1;

    LogValue Text() const {
        return LogValue::Object(
            {{"alloc",
              LogValue::Object(
                  {{"ae", ae}, {"ai", ai}, {"ane", ane}, {"ani", ani}, {"apeak", apeak}})},
             {"free", LogValue::Object({{"de", de}, {"di", di}, {"dne", dne}, {"dni", dni}})},
             {"kcpu", LogValue::Object({{"ke", ke}, {"ki", ki}})},
             {"ucpu", LogValue::Object({{"ue", ue}, {"ui", ui}})},
             {"ntid", ntid}});
    }

    /// All six groups alike, scaled so that no two figures are equal.
    static Figures Alike(int64 exclusive, int64 inclusive) {
        Figures figures;
        figures.ae = static_cast<double>(exclusive);
        figures.ai = static_cast<double>(inclusive);
        figures.ane = exclusive * 2;
        figures.ani = inclusive * 2;
        figures.de = static_cast<double>(exclusive * 3);
        figures.di = static_cast<double>(inclusive * 3);
        figures.dne = exclusive * 4;
        figures.dni = inclusive * 4;
        figures.ke = exclusive * 5;
        figures.ki = inclusive * 5;
        figures.ue = exclusive * 6;
        figures.ui = inclusive * 6;
        return figures;
    }
};

class ResourceFiguresTest : public tarn::test::MonitorTest {
protected:
    void SetUp() override {
        MonitorTest::SetUp();
        ReportResources(corvala::memory::MemoryTrackingAll);
    }

    /// The lists that a scope sends when it closes, all six figures alike (see `Figures`).
    void Consumed(uint64 id, int64 amount) {
        Send(EventBuilder::ScopePairs(
            id,
            L"memoryAttrs",
            {{L"di", amount * 3}, {L"dni", amount * 4}, {L"ai", amount}, {L"ani", amount * 2}}));
        Send(EventBuilder::ScopePairs(id, L"cpuAttrs", {{L"ki", amount * 5}, {L"ui", amount * 6}}));
    }

    static auto HasFigures(const Figures& figures) {
        return HasActivityField("res", figures.Text());
    }
};

TEST_F(ResourceFiguresTest, AScopeThatConsumedNothingHasZeroes) {
    Open(7, "query");

    Close(7);

    EXPECT_THAT(LastEvent(), HasFigures(Figures::Alike(0, 0)));
}

TEST_F(ResourceFiguresTest, EachNameFeedsItsExclusiveAndItsInclusiveFigure) {
    Open(7, "query");

    Send(EventBuilder::ScopePairs(
        7, "memoryAttrs", {{"ai", 1000}, {"ani", 10}, {"apeak", 700}, {"di", 400}, {"dni", 4}}));
    Send(EventBuilder::ScopePairs(7, "cpuAttrs", {{"ki", 50}, {"ui", 60}}));
    Close(7);

    Figures expected;
    expected.ae = expected.ai = 1000;
    expected.ane = expected.ani = 10;
    expected.apeak = 700;
    expected.de = expected.di = 400;
    expected.dne = expected.dni = 4;
    expected.ke = expected.ki = 50;
    expected.ue = expected.ui = 60;
    EXPECT_THAT(LastEvent(), HasFigures(expected));
}

TEST_F(ResourceFiguresTest, EitherListMayHoldAnyFigure) {
    Open(7, "query");

    Send(EventBuilder::ScopePairs(7, "cpuAttrs", {{"ai", 1000}}));
    Send(EventBuilder::ScopePairs(7, "memoryAttrs", {{"ui", 60}}));
    Close(7);

    Figures expected;
    expected.ae = expected.ai = 1000;
    expected.ue = expected.ui = 60;
    EXPECT_THAT(LastEvent(), HasFigures(expected));
}

TEST_F(ResourceFiguresTest, RepeatedFiguresAddUpAndThePeakIsReplaced) {
    Open(7, "query");

    Consumed(7, 10);
    Consumed(7, 5);
    Send(EventBuilder::ScopePairs(
        7, "memoryAttrs", {{"ai", 1}, {"apeak", 700}, {"ai", 1}, {"apeak", 30}}));
    Close(7);

    Figures expected = Figures::Alike(15, 15);
    expected.ae = expected.ai = 17;
    expected.apeak = 30;
    EXPECT_THAT(LastEvent(), HasFigures(expected));
}

TEST_F(ResourceFiguresTest, ValuesThatAreNoIntegersCountAsZero) {
    Open(7, "query");

    Send(EventBuilder::ScopePairs(
        7, "memoryAttrs", {{"apeak", 9}, {"ai", 5.0}, {"ani", "5"}, {"di", true}, {"apeak", 7.0}}));
    Close(7);

    EXPECT_THAT(LastEvent(), HasFigures(Figures::Alike(0, 0)));
}

TEST_F(ResourceFiguresTest, UnknownNamesAreSkipped) {
    Open(7, "query");

    Send(EventBuilder::ScopePairs(
        7, "memoryAttrs", {{"ae", 5}, {"AI", 5}, {"", 5}, {"ai", 7}, {"anything", 5}}));
    Close(7);

    Figures expected;
    expected.ae = expected.ai = 7;
    EXPECT_THAT(LastEvent(), HasFigures(expected));
}

TEST_F(ResourceFiguresTest, ANameThatIsNoTextIsALogicError) {
    const std::string asserted =
        "nameType == Metrics::MetricsValue::MV_Utf16String || nameType == "
        "Metrics::MetricsValue::MV_Utf8String";
    Open(7, "query");

    for (const char* const list : {"memoryAttrs", "cpuAttrs"}) {
        for (const Metrics::MetricsValue& name :
             {Metrics::MetricsValue(5), Metrics::MetricsValue(true), Metrics::MetricsValue(5.0)}) {
            EXPECT_THAT(
                ([&] {
                    Send(EventBuilder::ScopePairs(7, list, {{name, 5}}));
                }),
                Throws<LogicException>(testing::Property(&LogicException::GetText, asserted)));
        }
    }

    Close(7);
    EXPECT_THAT(LastEvent(), AllOf(Ends("query"), HasFigures(Figures::Alike(0, 0))));
}

TEST_F(ResourceFiguresTest, TheFiguresBeforeANameThatIsNoTextCountAndThoseAfterItDoNot) {
    Open(7, "query");

    EXPECT_THAT(
        ([&] {
            Send(EventBuilder::ScopePairs(7, "memoryAttrs", {{"ai", 7}, {5, 1}, {"ai", 100}}));
        }),
        Throws<LogicException>(tarn::test::IsLogicError(
            "src/cpp/main/MetricsMonitor",
            1187,
            "nameType == Metrics::MetricsValue::MV_Utf16String || nameType == "
            "Metrics::MetricsValue::MV_Utf8String",
            0x6D0B23C8)));

    Close(7);
    Figures expected;
    expected.ae = expected.ai = 7;
    EXPECT_THAT(LastEvent(), HasFigures(expected));
}

TEST_F(ResourceFiguresTest, AChildOnTheSameThreadIsTakenOutOfTheExclusiveFigures) {
    Open(7, "outer");
    Open(8, "inner");
    Consumed(8, 30);
    Close(8);
    EXPECT_THAT(LastEvent(), HasFigures(Figures::Alike(30, 30)));

    Consumed(7, 100);
    Close(7);

    EXPECT_THAT(LastEvent(), HasFigures(Figures::Alike(70, 100)));
}

TEST_F(ResourceFiguresTest, ExclusiveFiguresAreNotClamped) {
    Open(7, "outer");
    Open(8, "inner");
    Consumed(8, 30);
    Close(8);

    Consumed(7, 10);
    Close(7);

    EXPECT_THAT(LastEvent(), HasFigures(Figures::Alike(-20, 10)));
}

TEST_F(ResourceFiguresTest, AGrandchildIsTakenOutOfItsParentOnly) {
    Open(7, "outer");
    Open(8, "middle");
    Open(9, "inner");
    Consumed(9, 5);
    Close(9);
    Consumed(8, 30);
    Close(8);
    EXPECT_THAT(LastEvent(), HasFigures(Figures::Alike(25, 30)));

    Consumed(7, 100);
    Close(7);

    EXPECT_THAT(LastEvent(), HasFigures(Figures::Alike(70, 100)));
}

TEST_F(ResourceFiguresTest, AChildOnAnotherThreadIsAddedToTheInclusiveFigures) {
    Open(7, "outer", {{"tid", 40}});
    Open(8, "elsewhere", {{"tid", 50}});
    Consumed(8, 30);
    Close(8);

    Consumed(7, 100);
    Close(7);

    Figures expected = Figures::Alike(100, 130);
    expected.ntid = 2;
    EXPECT_THAT(LastEvent(), HasFigures(expected));
}

TEST_F(ResourceFiguresTest, WorkOnOtherThreadsIsPassedOnToAllAbove) {
    Open(7, "outer", {{"tid", 40}});
    Open(8, "middle", {{"tid", 40}});
    Open(9, "elsewhere", {{"tid", 50}});
    Consumed(9, 5);
    Close(9);
    Consumed(8, 30);
    Close(8);
    Figures expected = Figures::Alike(30, 35);
    expected.ntid = 2;
    EXPECT_THAT(LastEvent(), HasFigures(expected));

    Consumed(7, 100);
    Close(7);

    expected = Figures::Alike(70, 105);
    expected.ntid = 2;
    EXPECT_THAT(LastEvent(), HasFigures(expected));
}

TEST_F(ResourceFiguresTest, AChildElsewherePassesOnWhatWasElsewhereForIt) {
    Open(7, "outer", {{"tid", 40}});
    Open(8, "middle", {{"tid", 50}});
    Open(9, "inner", {{"tid", 60}});
    Consumed(9, 5);
    Close(9);
    Consumed(8, 30);
    Close(8);

    Consumed(7, 100);
    Close(7);

    Figures expected = Figures::Alike(100, 135);
    expected.ntid = 3;
    EXPECT_THAT(LastEvent(), HasFigures(expected));
}

TEST_F(ResourceFiguresTest, TheConsumptionOfATransparentChildStaysWithItsParent) {
    Open(7, "outer");
    Send(EventBuilder::OpenScope(8, "pass").In(rootContext).Transparent());
    Consumed(8, 30);
    Close(8);

    Consumed(7, 100);
    Close(7);

    EXPECT_THAT(LastEvent(), HasFigures(Figures::Alike(100, 100)));
}

TEST_F(ResourceFiguresTest, OfATransparentChildOnlyTheExclusivePartStays) {
    Open(7, "outer");
    Send(EventBuilder::OpenScope(8, "pass").In(rootContext).Transparent());
    Open(9, "inner");
    Consumed(9, 5);
    Close(9);
    Consumed(8, 30);
    Close(8);

    Consumed(7, 100);
    Close(7);

    EXPECT_THAT(LastEvent(), HasFigures(Figures::Alike(95, 100)));
}

TEST_F(ResourceFiguresTest, ALoggedTransparentChildIsFoldedLikeAnUnloggedOne) {
    OptTarn::SetShouldLogTransparent(true);
    Open(7, "outer");
    Send(EventBuilder::OpenScope(8, "pass").In(rootContext).Transparent());
    Consumed(8, 30);
    Close(8);

    Consumed(7, 100);
    Close(7);

    EXPECT_THAT(LastEvent(), HasFigures(Figures::Alike(100, 100)));
}

TEST_F(ResourceFiguresTest, TheConsumptionOfATransparentChildElsewhereIsAddedToTheParents) {
    Open(7, "outer", {{"tid", 40}});
    Send(EventBuilder::OpenScope(8, "pass").In(rootContext).Transparent().With({{"tid", 50}}));
    Consumed(8, 30);
    Close(8);

    Consumed(7, 100);
    Close(7);

    Figures expected = Figures::Alike(130, 130);
    expected.ntid = 2;
    EXPECT_THAT(LastEvent(), HasFigures(expected));
}

TEST_F(ResourceFiguresTest, AnUntrackedParentSumsUpItsChildren) {
    Send(EventBuilder::OpenScope(7, "outer").In(rootContext).Untracked());
    for (const uint64 id : {8U, 9U}) {
        Open(id, "inner");
        Consumed(id, 30);
        Close(id);
    }

    Close(7);

    EXPECT_THAT(LastEvent(), HasFigures(Figures::Alike(0, 60)));
}

TEST_F(ResourceFiguresTest, ARequestSumsUpItsChildren) {
    Send(EventBuilder::OpenScope(7, "request").In(rootContext).FromHost());
    Open(8, "work");
    Consumed(8, 30);
    Close(8);

    Close(7);

    EXPECT_THAT(LastEvent(), AllOf(Ends("request"), HasFigures(Figures::Alike(0, 30))));
}

TEST_F(ResourceFiguresTest, AnUntrackedParentSumsUpTransparentChildrenInTheSameWay) {
    Send(EventBuilder::OpenScope(7, "outer").In(rootContext).Untracked());
    Send(EventBuilder::OpenScope(8, "pass").In(rootContext).Transparent());
    Consumed(8, 30);
    Close(8);

    Close(7);

    EXPECT_THAT(LastEvent(), HasFigures(Figures::Alike(0, 30)));
}

TEST_F(ResourceFiguresTest, AnUntrackedParentGetsWorkElsewhereAsAnyOtherDoes) {
    Send(EventBuilder::OpenScope(7, "outer").In(rootContext).Untracked().With({{"tid", 40}}));
    Open(8, "elsewhere", {{"tid", 50}});
    Consumed(8, 30);
    Close(8);

    Close(7);

    Figures expected = Figures::Alike(0, 30);
    expected.ntid = 2;
    EXPECT_THAT(LastEvent(), HasFigures(expected));
}

TEST_F(ResourceFiguresTest, AScopeNamedRequestWithTheTracingBitMeasuresItself) {
    Open(7, "request");
    Open(8, "work");
    Consumed(8, 30);
    Close(8);
    Consumed(7, 100);

    Close(7);

    EXPECT_THAT(LastEvent(), HasFigures(Figures::Alike(70, 100)));
}

TEST_F(ResourceFiguresTest, ThePeakIsNeverPassedOn) {
    Open(7, "outer", {{"tid", 40}});
    Open(8, "inner", {{"tid", 40}});
    Send(EventBuilder::ScopePairs(8, "memoryAttrs", {{"apeak", 700}}));
    Close(8);
    Send(EventBuilder::OpenScope(9, "pass").In(rootContext).Transparent().With({{"tid", 50}}));
    Send(EventBuilder::ScopePairs(9, "memoryAttrs", {{"apeak", 800}}));
    Close(9);

    Close(7);

    Figures expected;
    expected.ntid = 2;
    EXPECT_THAT(LastEvent(), HasFigures(expected));
}

TEST_F(ResourceFiguresTest, FiguresAreNotInheritedFromTheParent) {
    Open(7, "outer");
    Consumed(7, 100);

    Open(8, "inner");
    Close(8);

    EXPECT_THAT(LastEvent(), AllOf(Ends("inner"), HasFigures(Figures::Alike(0, 0))));
}

TEST_F(ResourceFiguresTest, ADroppedChildPassesNoFiguresOn) {
    Open(7, "outer");
    Open(8, "dropped");
    Open(9, "inner");
    Consumed(8, 30);
    Close(8);
    Close(9);
    Close(8);

    Consumed(7, 100);
    Close(7);

    EXPECT_THAT(LastEvent(), AllOf(Ends("outer"), HasFigures(Figures::Alike(100, 100))));
}

TEST_F(ResourceFiguresTest, LargeFiguresAreExact) {
    Open(7, "query");

    Send(EventBuilder::ScopePairs(7, "memoryAttrs", {{"ani", 9'000'000'000'000'000'001}}));
    Close(7);

    Figures expected;
    expected.ane = expected.ani = 9'000'000'000'000'000'001;
    EXPECT_THAT(LastEvent(), HasFigures(expected));
}

TEST_F(ResourceFiguresTest, FiguresThatOverflowWrap) {
    constexpr int64 largest = std::numeric_limits<int64>::max();
    constexpr int64 least = std::numeric_limits<int64>::min();
    Open(7, "outer", {{"tid", 40}});
    Open(8, "inner", {{"tid", 40}});
    Send(EventBuilder::ScopePairs(8, "memoryAttrs", {{"ani", largest}, {"ani", 1}}));
    Close(8);
    Open(9, "elsewhere", {{"tid", 50}});
    Send(EventBuilder::ScopePairs(9, "memoryAttrs", {{"ani", 5}}));
    Close(9);
    Send(EventBuilder::ScopePairs(7, "memoryAttrs", {{"ani", largest}}));

    Close(7);

    // Exclusive: 0 less the least number, and the largest once more.
    Figures expected;
    expected.ane = -1;
    expected.ani = least + 4;
    expected.ntid = 2;
    EXPECT_THAT(LastEvent(), HasFigures(expected));
}

// ---- Threads.

TEST_F(ResourceFiguresTest, TheThreadsOfChildrenAreTheParentsToo) {
    Open(7, "outer", {{"tid", 40}});
    for (const int thread : {50, 60, 40, 50}) {
        Open(8, "inner", {{"tid", thread}});
        Close(8);
    }

    Close(7);

    Figures expected;
    expected.ntid = 3;
    EXPECT_THAT(LastEvent(), HasFigures(expected));
}

TEST_F(ResourceFiguresTest, ThreadsOfGrandchildrenArriveWithTheirParents) {
    Open(7, "outer", {{"tid", 40}});
    Open(8, "middle", {{"tid", 50}});
    Open(9, "inner", {{"tid", 60}});
    Close(9);
    Close(8);

    Close(7);

    Figures expected;
    expected.ntid = 3;
    EXPECT_THAT(LastEvent(), HasFigures(expected));
}

TEST_F(ResourceFiguresTest, AScopeWithoutAThreadIdRanOnThreadZero) {
    Open(7, "query");

    Close(7);

    Figures expected;
    expected.ntid = 1;
    EXPECT_THAT(LastEvent(), HasFigures(expected));
}

TEST_F(ResourceFiguresTest, AllThreadsThatAScopeWasGivenCount) {
    Open(7, "query", {{"tid", 40}});
    Send(EventBuilder::ScopeValue(7, "tid", 50));
    Send(EventBuilder::ScopeValue(7, "tid", 60));

    Close(7);

    Figures expected;
    expected.ntid = 3;
    EXPECT_THAT(LastEvent(), AllOf(tarn::test::HasThreadId(60), HasFigures(expected)));
}

TEST_F(ResourceFiguresTest, AnInheritedThreadIsTheChildsOwnThread) {
    Open(7, "outer", {{"tid", 40}});
    Send(EventBuilder::ScopeValue(7, "tid", 50));

    Open(8, "inner");
    Close(8);

    Figures expected;
    expected.ntid = 1;
    EXPECT_THAT(LastEvent(), AllOf(tarn::test::HasThreadId(50), HasFigures(expected)));
}

}  // namespace
