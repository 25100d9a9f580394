#include "MetricsMonitorScopeTest.h"

#include "tarn/OptTarn.h"

#include <limits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using tarn::test::Ends;
using tarn::test::EventBuilder;
using tarn::test::ForegroundPairs;
using tarn::test::HasActivityField;
using tarn::test::HasBodyField;
using tarn::test::HasExactlyBodyFields;
using tarn::test::HasRequest;
using tarn::test::HasThreadId;
using tarn::test::KnownIds;
using tarn::test::LacksActivityField;
using tarn::test::MetricsMonitorScopeTest;
using testing::AllOf;

// ---- Foreground contexts.

TEST_F(MetricsMonitorScopeTest, ForegroundPairsGiveTheIdentityAndAreNoAttributes) {
    EnableForegroundContexts();

    Open(7, "query", ForegroundPairs{.traceDepth = 1, .serviceDepth = 4, .root = "R", .own = "A"});

    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("id", "A"),
                      HasActivityField("root", "R"),
                      HasActivityField("sponsor", "R"),
                      HasActivityField("depth", 1),
                      HasExactlyBodyFields({"sDepth"}),
                      HasBodyField("sDepth", 4)));
}

TEST_F(MetricsMonitorScopeTest, AtDepthZeroTheRootIsTheIdentity) {
    EnableForegroundContexts();

    Open(7, "query", ForegroundPairs{.traceDepth = 0, .root = "R", .own = "A"});

    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("id", "R"),
                      LacksActivityField("root"),
                      LacksActivityField("sponsor")));
}

TEST_F(MetricsMonitorScopeTest, FromDepthTwoOnTheSponsorIsTheOneThatIsOpen) {
    EnableForegroundContexts();
    Open(7, "outer", ForegroundPairs{.traceDepth = 0, .root = "R", .own = "R"});
    Open(8, "middle", ForegroundPairs{.traceDepth = 1, .root = "R", .own = "M"});

    Open(9, "inner", ForegroundPairs{.traceDepth = 2, .root = "R", .own = "I", .sponsor = "M2"});

    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("id", "I"),
                      HasActivityField("root", "R"),
                      HasActivityField("sponsor", "M")));
    Open(10, "innermost", ForegroundPairs{.traceDepth = 7, .root = "R", .own = "J"});
    EXPECT_THAT(LastEvent(), AllOf(HasActivityField("depth", 7), HasActivityField("sponsor", "I")));
}

TEST_F(MetricsMonitorScopeTest, AForegroundSponsorIsNotTransparentUnlessLogged) {
    EnableForegroundContexts();
    Open(7, "outer", ForegroundPairs{.traceDepth = 1, .root = "R", .own = "O"});
    Send(EventBuilder::OpenScope(8, "pass")
             .In(rootContext)
             .Transparent()
             .With(ForegroundPairs{.traceDepth = 1, .root = "R", .own = "P"}));

    Open(9, "inner", ForegroundPairs{.traceDepth = 2, .root = "R", .own = "I"});
    EXPECT_THAT(LastEvent(), HasActivityField("sponsor", "O"));
    OptTarn::SetShouldLogTransparent(true);
    Close(9);

    EXPECT_THAT(LastEvent(), HasActivityField("sponsor", "P"));
}

TEST_F(MetricsMonitorScopeTest, WithoutAnOpenForegroundSponsorTheRootStandsIn) {
    EnableForegroundContexts();
    Open(7, "outer", ForegroundPairs{.traceDepth = 1, .root = "R", .own = "O"});
    OpenContext(2, rootContext);
    Close(7);

    OpenIn(2, 8, "child", ForegroundPairs{.traceDepth = 2, .root = "R2", .own = "C"});

    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("id", "C"),
                      HasActivityField("root", "R2"),
                      HasActivityField("sponsor", "R2")));
}

TEST_F(MetricsMonitorScopeTest, OfDoubledForegroundPairsTheLaterCount) {
    EnableForegroundContexts();
    Metrics::NameValueList pairs = ForegroundPairs{.traceDepth = 1, .root = "R", .own = "A"};
    const Metrics::NameValueList later = ForegroundPairs{.traceDepth = 2, .root = "S", .own = "B"};
    pairs.insert(pairs.end(), later.begin(), later.end());

    Open(7, "query", pairs);

    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("depth", 2),
                      HasActivityField("id", "B"),
                      HasActivityField("root", "S")));
}

TEST_F(MetricsMonitorScopeTest, ForegroundIdsThatAreNoTextReadAsTextAllTheSame) {
    EnableForegroundContexts();

    Open(7, "query", {{"traceDepth", 1}, {"__root__", 5}, {"activityId", true}, {"rid", 1.5}});

    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("id", "true"),
                      HasActivityField("root", "5"),
                      HasActivityField("sponsor", "5"),
                      HasRequest("1.5")));
}

TEST_F(MetricsMonitorScopeTest, ForegroundDepthsThatAreNoIntegersReadAsZero) {
    EnableForegroundContexts();

    Open(7, "query", {{"traceDepth", "3"}, {"sDepth", 4.0}});

    EXPECT_THAT(LastEvent(), AllOf(HasActivityField("depth", 0), HasBodyField("sDepth", 0)));
}

TEST_F(MetricsMonitorScopeTest, OneMoreThanTheLargestDepthWraps) {
    constexpr int largest = std::numeric_limits<int>::max();
    EnableForegroundContexts();
    Open(7, "outer", ForegroundPairs{.traceDepth = largest, .serviceDepth = largest});
    OptTarn::SetIsForegroundThreadContextEnabled(false);

    Open(8, "inner");
    EXPECT_THAT(LastEvent(), HasActivityField("depth", std::numeric_limits<int>::min()));
    EnableForegroundContexts();
    Close(8);

    EXPECT_THAT(LastEvent(), HasBodyField("sDepth", std::numeric_limits<int>::min()));
}

TEST_F(MetricsMonitorScopeTest, ForegroundPairsMayBeNarrowAndStandBetweenAttributes) {
    EnableForegroundContexts();

    Open(7,
         "query",
         {{"table", "orders"},
          {"traceDepth", 1},
          {"rows", 12},
          {"__root__", "R"},
          {"activityId", "A"},
          {"depth", 5}});

    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("id", "A"),
                      HasActivityField("root", "R"),
                      HasActivityField("depth", 1),
                      HasExactlyBodyFields({"depth", "rows", "sDepth", "table"}),
                      HasBodyField("depth", 5)));
}

TEST_F(MetricsMonitorScopeTest, OtherOpeningPairsKeepTheirMeaningWithForegroundContexts) {
    EnableForegroundContexts();

    Open(7, "qp-run", {{"tid", 40}, {"cmd-name", "run"}, {"query", "select"}, {"rows", 12}});

    EXPECT_THAT(LastEvent(),
                AllOf(HasThreadId(40), HasExactlyBodyFields({"name", "rows", "sDepth"})));
}

TEST_F(MetricsMonitorScopeTest, WithoutForegroundPairsDepthsAreInheritedAndNotCounted) {
    EnableForegroundContexts();
    Open(7, "outer", ForegroundPairs{.traceDepth = 3, .serviceDepth = 5, .own = "O"});

    Open(8, "inner");

    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("depth", 3),
                      HasBodyField("sDepth", 5),
                      HasActivityField("id", "-"),
                      HasActivityField("root", "-"),
                      HasActivityField("sponsor", "O")));
}

TEST_F(MetricsMonitorScopeTest, WithoutForegroundPairsARootHasThePlaceholderForAnId) {
    EnableForegroundContexts();

    Open(7, "query");

    EXPECT_THAT(LastEvent(), AllOf(HasActivityField("depth", 0), HasActivityField("id", "-")));
}

TEST_F(MetricsMonitorScopeTest, AForegroundDepthIsNotResetWhereARequestStarts) {
    EnableForegroundContexts();

    Open(7, "query", ForegroundPairs{.traceDepth = 4, .serviceDepth = 6});

    EXPECT_THAT(LastEvent(), AllOf(HasActivityField("depth", 4), HasBodyField("sDepth", 6)));
}

TEST_F(MetricsMonitorScopeTest, WithoutForegroundContextsTheSixPairsAreOrdinaryAttributes) {
    Open(7, "query", ForegroundPairs{.traceDepth = 4, .serviceDepth = 6, .request = "REQ"});

    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("depth", 0),
                      HasActivityField("id", KnownIds::Text(1)),
                      HasExactlyBodyFields(
                          {"__root__", "activityId", "rid", "sDepth", "sponsorId", "traceDepth"}),
                      HasBodyField("rid", "REQ"),
                      HasBodyField("traceDepth", 4)));
}

// ---- The request's id among foreground contexts.

TEST_F(MetricsMonitorScopeTest, ARootsRequestIdComesFromItsPair) {
    EnableForegroundContexts();

    Open(7, "query", ForegroundPairs{.request = "REQ"});

    EXPECT_THAT(LastEvent(), HasRequest("REQ"));
}

TEST_F(MetricsMonitorScopeTest, TheRequestOfTheOpenSponsorCountsMoreThanTheOwn) {
    EnableForegroundContexts();
    Open(7, "outer", ForegroundPairs{.traceDepth = 0, .request = "REQ"});

    Open(8, "inner", ForegroundPairs{.traceDepth = 1, .request = "OTHER"});

    EXPECT_THAT(LastEvent(), HasRequest("REQ"));
}

TEST_F(MetricsMonitorScopeTest, TheRequestOfTheSponsorIsKeptWhenTheSponsorHasClosed) {
    EnableForegroundContexts();
    Open(7, "outer", ForegroundPairs{.traceDepth = 0, .request = "REQ"});
    OpenContext(2, rootContext);
    OpenIn(2, 8, "child", ForegroundPairs{.traceDepth = 1, .request = "OTHER"});
    Close(7);

    CloseIn(2, 8);

    EXPECT_THAT(LastEvent(), AllOf(Ends("child"), HasRequest("REQ")));
}

TEST_F(MetricsMonitorScopeTest, WithoutAnOpenSponsorTheOwnRequestCounts) {
    EnableForegroundContexts();
    Open(7, "outer", ForegroundPairs{.traceDepth = 0, .request = "REQ"});
    OpenContext(2, rootContext);
    Close(7);

    OpenIn(2, 8, "child", ForegroundPairs{.traceDepth = 1, .request = "OTHER"});
    EXPECT_THAT(LastEvent(), HasRequest("OTHER"));
}

TEST_F(MetricsMonitorScopeTest, ThePlaceholderDoesNotReplaceAnInheritedRequest) {
    EnableForegroundContexts();
    Open(7, "outer", ForegroundPairs{.traceDepth = 0, .request = "REQ"});
    OpenContext(2, rootContext);
    Close(7);

    OpenIn(2, 8, "child", ForegroundPairs{.traceDepth = 1, .request = "-"});

    EXPECT_THAT(LastEvent(), HasRequest("REQ"));
}

TEST_F(MetricsMonitorScopeTest, ARequestIsInheritedWhenForegroundContextsAreDisabledMeanwhile) {
    EnableForegroundContexts();
    Open(7, "outer", ForegroundPairs{.traceDepth = 0, .request = "REQ"});
    OptTarn::SetIsForegroundThreadContextEnabled(false);

    Open(8, "inner");

    EXPECT_THAT(LastEvent(), HasRequest("REQ"));
}

}  // namespace
