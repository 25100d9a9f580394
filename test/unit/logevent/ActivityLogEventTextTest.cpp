#include "ActivityLogEventProducer.h"
#include "ActivityLogEventTest.h"

#include "tarn/OptTarn.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using tarn::test::ActivityLogEventTest;
using tarn::test::Begins;
using tarn::test::EventBuilder;
using tarn::test::ForegroundPairs;
using tarn::test::HasAttribute;
using tarn::test::HasRequest;
using tarn::test::IsLogicError;
using testing::AllOf;
using testing::IsEmpty;
using testing::Throws;

class RequiredTextTest : public ActivityLogEventTest {
protected:
    void SetUp() override {
        ActivityLogEventTest::SetUp();
        OptTarn::SetIsServer(true);
    }

    static auto RaisesUnexpectedType() {
        return Throws<LogicException>(IsLogicError("src/cpp/main/ActivityLogEventProducer",
                                                   110,
                                                   "Unexpected MetricsValue type",
                                                   0x710908B6));
    }
};

TEST_F(RequiredTextTest, AnAttributeThatMustBeTextIsALogicErrorOtherwise) {
    Metrics::MetricsValue unknown("text");
    unknown.type = 5;
    for (const char* const name : {"req-desc", "wb", "vw", "site", "rid", "user", "sid"}) {
        for (const Metrics::MetricsValue& value : {Metrics::MetricsValue(5),
                                                   Metrics::MetricsValue(true),
                                                   Metrics::MetricsValue(1.5),
                                                   unknown}) {
            Open(7, "query");
            AddToRequest({{name, value}});

            EXPECT_THAT(([&] { Close(7); }), RaisesUnexpectedType()) << name;

            EXPECT_THAT(LastEvent(), Begins("query")) << "no event is logged";
        }
    }
}

TEST_F(RequiredTextTest, AtTheBeginningTooAndNothingIsLogged) {
    Send(EventBuilder::ContextValue(rootContext, "sid", 5));

    EXPECT_THAT(([&] { Open(7, "query"); }), RaisesUnexpectedType());

    EXPECT_THAT(*events, IsEmpty());
}

TEST_F(RequiredTextTest, ADescriptionIsReadAtDepthZeroOnly) {
    Open(7, "outer");
    Open(8, "inner");
    AddToRequest({{"req-desc", 5}});

    EXPECT_NO_THROW(Close(8));
    EXPECT_THAT(([&] { Close(7); }), RaisesUnexpectedType());
}

TEST_F(RequiredTextTest, ASiteIsReadByServersOnly) {
    OptTarn::SetIsServer(false);
    Open(7, "query");
    AddToRequest({{"site", 5}});

    EXPECT_NO_THROW(Close(7));
}

TEST_F(RequiredTextTest, ARequestIdIsReadOnlyWhereTheScopeHasNone) {
    EnableForegroundContexts();
    Open(7, "query", ForegroundPairs{.request = "REQ"});
    AddToRequest({{"rid", 5}});

    EXPECT_NO_THROW(Close(7));

    EXPECT_THAT(LastEvent(), HasRequest("REQ"));
}

TEST_F(RequiredTextTest, LayersHoldAnyKind) {
    AddLayer({{"user", 5}, {"wb", 5}, {"rid", 5}});

    EXPECT_NO_THROW(Open(7, "query"));

    EXPECT_THAT(LastEvent(),
                AllOf(HasAttribute("user", 5), HasAttribute("rid", 5), HasAttribute("wb", "-")));
}

TEST_F(RequiredTextTest, AnAttributeOfALayerOfAnUnknownKindIsALogicError) {
    Metrics::MetricsValue unknown("text");
    unknown.type = 5;
    AddLayer({{"tenant", unknown}});

    EXPECT_THAT(
        ([&] { Open(7, "query"); }),
        Throws<LogicException>(IsLogicError(
            "src/cpp/main/TarnMetricsUtils", 47, "Unexpected MetricsValue type", 0xFCE7C547)));

    EXPECT_THAT(*events, IsEmpty());
}

}  // namespace
