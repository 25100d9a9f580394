#include "MetricsMonitorScopeTest.h"

#include "tarn/OptTarn.h"

#include "cvlcoreplatform/TLogger.h"
#include "cvlcoreplatform/host/LoggerControl.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using tarn::test::Ends;
using tarn::test::HasActivityField;
using tarn::test::KnownIds;
using tarn::test::LacksActivityField;
using tarn::test::MetricsMonitorScopeTest;
using testing::AllOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

TEST_F(MetricsMonitorScopeTest, ARootIsItsOwnSponsorAndSaysNothingOfIt) {
    Open(7, "query");
    Close(7);

    ASSERT_EQ(events->size(), 2U);
    for (const TLog::Event& event : *events) {
        EXPECT_THAT(event, AllOf(LacksActivityField("sponsor"), LacksActivityField("root")));
    }
}

TEST_F(MetricsMonitorScopeTest, TheSponsorIsTheInnermostOpenTracingScopeOfTheContext) {
    Open(7, "outer");
    Open(8, "first");
    Close(8);
    Open(9, "second");
    Open(10, "inner");

    EXPECT_THAT(LastEvent(), HasActivityField("sponsor", KnownIds::Text(3)));
}

TEST_F(MetricsMonitorScopeTest, WhenTheSponsorHasClosedTheNextOneOutwardsSteps) {
    Open(7, "outer");
    Open(8, "middle");
    OpenContext(2, rootContext);
    Close(8);

    OpenIn(2, 9, "child");

    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("sponsor", KnownIds::Text(1)),
                      HasActivityField("root", KnownIds::Text(1)),
                      HasActivityField("depth", 2)));
}

TEST_F(MetricsMonitorScopeTest, WhenAllSponsorsHaveClosedTheRequestStandsIn) {
    Open(7, "outer");
    Open(8, "middle");
    OpenContext(2, rootContext);
    Close(8);
    Close(7);

    OpenIn(2, 9, "child");

    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("sponsor", KnownIds::Text(1)),
                      HasActivityField("root", KnownIds::Text(1))));
}

TEST_F(MetricsMonitorScopeTest, AnEndNamesTheSponsorThatIsOpenThen) {
    Open(7, "outer");
    Open(8, "middle");
    OpenContext(2, rootContext);
    OpenIn(2, 9, "child");
    EXPECT_THAT(LastEvent(), HasActivityField("sponsor", KnownIds::Text(2)));
    Close(8);

    CloseIn(2, 9);

    EXPECT_THAT(LastEvent(), AllOf(Ends("child"), HasActivityField("sponsor", KnownIds::Text(1))));
}

TEST_F(MetricsMonitorScopeTest, AServerSaysAtTraceSeverityThatAScopeHasNoOpenSponsors) {
    OptTarn::SetIsServer(true);
    TLog::SetThreshold(TLog::Trace);
    Open(7, "outer");
    OpenContext(2, rootContext);
    Close(7);
    Log().Clear();

    OpenIn(2, 8, "child");
    EXPECT_THAT(
        Log().Messages(),
        ElementsAre(Pair(TLog::Trace, "Scope " + KnownIds::Text(2) + " has no open sponsors.")));
    CloseIn(2, 8);

    // The figures of the end and the end event look for a sponsor of their own.
    EXPECT_EQ(Log().Messages().size(), 3U);
}

TEST_F(MetricsMonitorScopeTest, AProcessThatIsNoServerIsSilentAboutMissingSponsors) {
    TLog::SetThreshold(TLog::Trace);
    Open(7, "outer");
    OpenContext(2, rootContext);
    Close(7);
    Log().Clear();

    OpenIn(2, 8, "child");
    CloseIn(2, 8);

    EXPECT_THAT(Log().Messages(), IsEmpty());
}

TEST_F(MetricsMonitorScopeTest, ATransparentSponsorAloneIsNoneAtAllUnlessItIsLogged) {
    OptTarn::SetIsServer(true);
    TLog::SetThreshold(TLog::Trace);
    OpenTransparent(7, "pass");
    Log().Clear();

    Open(8, "inner");
    EXPECT_EQ(Log().Messages().size(), 1U);
    Close(8);
    Log().Clear();
    OptTarn::SetShouldLogTransparent(true);
    Open(9, "inner");

    EXPECT_THAT(Log().Messages(), IsEmpty());
}

}  // namespace
