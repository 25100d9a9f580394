#include "ActivityLogEventTest.h"

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using tarn::test::ActivityLogEventTest;
using tarn::test::EventBuilder;
using tarn::test::HasBodyField;
using tarn::test::HasExactlyBodyFields;
using tarn::test::LogValue;

/// Times are written as local times, so the test fixes the zone.
class SupplementTest : public ActivityLogEventTest {
protected:
    void SetUp() override {
        ActivityLogEventTest::SetUp();
        const char* const zone = std::getenv("TZ");
        m_zone = zone == nullptr ? std::nullopt : std::optional<std::string>(zone);
        setenv("TZ", "UTC", 1);
        tzset();
    }

    void TearDown() override {
        if (m_zone) {
            setenv("TZ", m_zone->c_str(), 1);
        } else {
            unsetenv("TZ");
        }
        tzset();
        ActivityLogEventTest::TearDown();
    }

private:
    std::optional<std::string> m_zone;
};

TEST_F(SupplementTest, EachSupplementIsAnObjectWithItsTimeInTheOrderOfArrival) {
    Open(7, "query");
    Send(EventBuilder::Supplement(7, {{"step", 5}, {L"text", "a \"b\""}})
             .Wall(1'700'000'000, 250'000));
    Send(EventBuilder::Supplement(7, {{"step", true}, {"'step'", 1.5}}).Wall(1'700'000'001, 0));
    Send(EventBuilder::Supplement(7, {}).Wall(1'700'000'000, 7));

    Close(7);

    EXPECT_THAT(
        LastEvent(),
        HasBodyField(
            "logs",
            LogValue::Array(
                {LogValue::Object({{"step", 5},
                                   {"text", "a \"b\""},
                                   {"begin", "2023-11-14T22:13:20.250000+00:00"}}),
                 LogValue::Object({{"step", 1.5}, {"begin", "2023-11-14T22:13:21.000000+00:00"}}),
                 LogValue::Object({{"begin", "2023-11-14T22:13:20.000007+00:00"}})})));
}

TEST_F(SupplementTest, NamesInASupplementAreReadWithTheQuotingRule) {
    Open(7, "query");
    Send(EventBuilder::Supplement(7, {{"a\"b", 1}, {5, 2}}));

    Close(7);

    EXPECT_THAT(
        LastEvent(),
        HasBodyField(
            "logs",
            LogValue::Array({LogValue::Object(
                {{"\"a\"\"b\"", 1}, {"5", 2}, {"begin", "1970-01-01T00:00:00.000000+00:00"}})})));
}

TEST_F(SupplementTest, TheTimeReplacesAPairOfItsName) {
    Open(7, "query");
    Send(EventBuilder::Supplement(7, {{"begin", "mine"}}));

    Close(7);

    EXPECT_THAT(
        LastEvent(),
        HasBodyField(
            "logs",
            LogValue::Array({LogValue::Object({{"begin", "1970-01-01T00:00:00.000000+00:00"}})})));
}

TEST_F(SupplementTest, SupplementsStandInTheEndEventOnly) {
    Open(7, "outer");
    Send(EventBuilder::Supplement(7, {{"step", 1}}));
    Open(8, "inner");
    Close(8);

    EXPECT_THAT(LastEvent(), HasExactlyBodyFields({}));
    Close(7);
    EXPECT_THAT(LastEvent(), HasExactlyBodyFields({"logs"}));
}

}  // namespace
