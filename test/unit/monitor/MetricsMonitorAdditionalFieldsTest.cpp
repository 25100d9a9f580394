#include "ChildProcess.h"
#include "LineNumbers.h"
#include "MonitorTest.h"

#include "tarn/OptTarn.h"

#include "cvlcoreplatform/TLogEvent.h"
#include "cvlsys/IntegerTypes.h"

#include <memory>
#include <stdexcept>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using tarn::test::Begins;
using tarn::test::EventBuilder;
using tarn::test::ForegroundPairs;
using tarn::test::HasActivityField;
using tarn::test::LacksActivityField;
using tarn::test::LogValue;
using tarn::test::Table;
using testing::AllOf;

class AdditionalFieldsTest : public tarn::test::MonitorTest {
protected:
    void SetUp() override {
        MonitorTest::SetUp();
        monitor->SetAdditionalFields(true);
    }

    static LogValue IdOf(const TLog::Event& event) {
        return Field(event, Table::Activity, "id").value_or("missing");
    }

    static int64 NumberOf(const TLog::Event& event) {
        return std::stoll(Field(event, Table::Activity, "seq").value_or("-1").Text());
    }

    void OpenTransparent(uint64 id, const std::string& name) {
        Send(EventBuilder::OpenScope(id, name).In(rootContext).Transparent());
    }
};

TEST_F(AdditionalFieldsTest, WithoutThemEventsAreAsTheyWere) {
    monitor->SetAdditionalFields(false);
    Open(7, "outer");
    Open(8, "inner");
    Close(8);

    for (const TLog::Event& event : *events) {
        EXPECT_THAT(event, AllOf(LacksActivityField("caller"), LacksActivityField("seq")));
    }
}

TEST_F(AdditionalFieldsTest, TheCallerIsTheScopeThatAnotherOneOpensIn) {
    Open(7, "outer");
    EXPECT_THAT(LastEvent(), LacksActivityField("caller"));
    const LogValue outer = IdOf(LastEvent());

    Open(8, "inner");
    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("caller", outer), HasActivityField("sponsor", outer)));
    Close(8);

    EXPECT_THAT(LastEvent(), HasActivityField("caller", outer));
}

TEST_F(AdditionalFieldsTest, TheCallerIsNamedThoughItHasEnded) {
    Open(6, "root");
    const LogValue root = IdOf(LastEvent());
    Open(7, "starter");
    const LogValue starter = IdOf(LastEvent());
    OpenContext(2, rootContext);
    Close(7);

    OpenIn(2, 8, "task");

    EXPECT_THAT(LastEvent(),
                AllOf(Begins("task"),
                      HasActivityField("caller", starter),
                      HasActivityField("sponsor", root)));
    CloseIn(2, 8);
    OpenIn(2, 9, "next task");
    EXPECT_THAT(LastEvent(), HasActivityField("caller", starter));
}

TEST_F(AdditionalFieldsTest, WhoIsNotInTheLogIsNobodysCaller) {
    Open(7, "outer");
    const LogValue outer = IdOf(LastEvent());
    OpenTransparent(8, "pass");
    OpenTransparent(9, "pass on");

    Open(10, "inner");
    EXPECT_THAT(LastEvent(), HasActivityField("caller", outer));
    Close(10);
    OptTarn::SetShouldLogTransparent(true);
    Open(10, "inner");

    EXPECT_THAT(LastEvent(), testing::Not(HasActivityField("caller", outer)));
}

TEST_F(AdditionalFieldsTest, AScopeOfTheHostItselfIsNobodysCaller) {
    Send(EventBuilder::OpenScope(7, "hosts").In(rootContext).FromHost());

    Open(8, "query");

    EXPECT_THAT(LastEvent(), LacksActivityField("caller"));
}

TEST_F(AdditionalFieldsTest, WithForegroundContextsTheCallerIsWhoTheScopeNames) {
    EnableForegroundContexts();
    Open(7, "task", ForegroundPairs{.traceDepth = 2, .own = "TASK", .sponsor = "STARTER"});

    EXPECT_THAT(LastEvent(), HasActivityField("caller", "STARTER"));
    Open(8, "other", {{"traceDepth", 3}, {"activityId", "OTHER"}});
    EXPECT_THAT(LastEvent(), HasActivityField("caller", "TASK"))
        << "of a scope that names nobody, the one around it";
    Close(8);

    EXPECT_THAT(LastEvent(), HasActivityField("caller", "TASK"));
}

TEST_F(AdditionalFieldsTest, WithForegroundContextsTheTopOfATreeHasNoCaller) {
    EnableForegroundContexts();

    Open(7, "top", ForegroundPairs{.own = "ROOT", .sponsor = "-"});

    EXPECT_THAT(LastEvent(), LacksActivityField("caller"));
}

TEST_F(AdditionalFieldsTest, TheEventsOfAProcessAreNumberedWithoutGaps) {
    const RefCntPtr<MetricsMonitor> other(new MetricsMonitor(rootContext));
    const auto othersEvents = std::make_shared<tarn::test::CapturedEvents>();
    other->SetSink(std::make_unique<tarn::test::CapturingSink>(othersEvents));
    other->SetAdditionalFields(true);
    other->OnMetricsEvent(EventBuilder::OpenContext(rootContext));

    Open(7, "outer");
    OpenTransparent(8, "pass");
    Open(9, "inner");
    other->OnMetricsEvent(EventBuilder::OpenScope(7, "elsewhere").In(rootContext));
    Close(9);

    const int64 first = NumberOf(events->front());
    EXPECT_GT(first, 0);
    EXPECT_EQ(NumberOf(events->at(1)), first + 1);
    EXPECT_EQ(NumberOf(othersEvents->front()), first + 2);
    EXPECT_EQ(NumberOf(LastEvent()), first + 3);
}

/// Loses the second event that it is given.
class LosingSink : public tarn::test::CapturingSink {
public:
    using CapturingSink::CapturingSink;

    void Log(const TLog::Event& event) override {
        if (++m_count == 2) {
            throw std::runtime_error("disk full");
        }
        CapturingSink::Log(event);
    }

private:
    int m_count = 0;
};

TEST_F(AdditionalFieldsTest, AnEventThatIsLostLeavesAGap) {
    monitor->SetSink(std::make_unique<LosingSink>(events));
    Open(7, "outer");
    EXPECT_THROW(Open(8, "lost"), std::runtime_error);
    Close(8);

    ASSERT_EQ(events->size(), 2U);
    EXPECT_EQ(NumberOf(LastEvent()), NumberOf(events->front()) + 2);
}

TEST_F(AdditionalFieldsTest, AnEventThatCannotBeBuiltLeavesAGap) {
    Open(7, "outer");
    Send(EventBuilder::ContextPairs(rootContext, "reqCtxAttrs", {{"user", 12}}));
    EXPECT_ANY_THROW(Open(8, "cannot be said"));
    Send(EventBuilder::ContextPairs(rootContext, "reqCtxAttrs", {{"user", "ada"}}));
    Close(8);

    ASSERT_EQ(events->size(), 2U);
    EXPECT_EQ(NumberOf(LastEvent()), NumberOf(events->front()) + 2);
}

TEST_F(AdditionalFieldsTest, AForkedChildNumbersItsEventsFromTheBeginning) {
    const uint64 before = tarn::DrawLineNumber();

    const bool isNumberedAnew = tarn::test::SucceedsInChild(
        [] { return tarn::DrawLineNumber() == 1 && tarn::DrawLineNumber() == 2; });

    EXPECT_TRUE(isNumberedAnew);
    EXPECT_EQ(tarn::DrawLineNumber(), before + 1);
}

}  // namespace
