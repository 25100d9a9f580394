#include "cvlcoreplatform/TLog.h"
#include "cvlcoreplatform/TUUID.h"
#include "cvlsys/TSystem.h"

#include <chrono>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <time.h>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace TLog;

EventTimePoint TimeFromMicroseconds(int64 microseconds) {
    return EventTimePoint(std::chrono::microseconds(microseconds));
}

TEST(CorePlatformLogValueTest, ALiteralIsReadAsWhatItIs) {
    EXPECT_EQ(Literal::String(u"text")->GetString(), TString(u"text"));
    EXPECT_EQ(Literal::Int(-5)->GetInt(), -5);
    EXPECT_TRUE(Literal::Bool(true)->GetBool());
    EXPECT_FALSE(Literal::Bool(false)->GetBool());
    EXPECT_EQ(Literal::Double(0.5, 0)->GetDouble(), 0.5);
    EXPECT_EQ(Literal::Double(0.5, 1)->GetDouble(), 0.5);
}

TEST(CorePlatformLogValueTest, ALiteralKnowsItsKindAndType) {
    EXPECT_EQ(Literal::String(u"")->GetType(), LiteralType::String);
    EXPECT_EQ(Literal::Int(0)->GetType(), LiteralType::Integer);
    EXPECT_EQ(Literal::Bool(false)->GetType(), LiteralType::Boolean);
    EXPECT_EQ(Literal::Double(0, 0)->GetType(), LiteralType::Double);
    EXPECT_EQ(Literal::Double(0, 1)->GetType(), LiteralType::FixedDouble);
    EXPECT_EQ(Literal::Null()->GetType(), LiteralType::Null);
    EXPECT_EQ(Literal::Int(0)->GetKind(), ValueKind::Literal);
    EXPECT_EQ(Object::Make({})->GetKind(), ValueKind::Object);
    EXPECT_EQ(Array::Make({})->GetKind(), ValueKind::Array);
}

TEST(CorePlatformLogValueTest, ALiteralReadAsAnotherTypeGivesNothing) {
    const auto integer = Literal::Int(1);
    EXPECT_EQ(integer->GetString(), TString());
    EXPECT_FALSE(integer->GetBool());
    EXPECT_EQ(integer->GetDouble(), 0.0);

    const auto truth = Literal::Bool(true);
    EXPECT_EQ(truth->GetInt(), 0);
    EXPECT_EQ(Literal::Double(1.5, 0)->GetInt(), 0);
    EXPECT_EQ(Literal::String(u"1")->GetInt(), 0);
    EXPECT_EQ(Literal::Null()->GetString(), TString());
}

TEST(CorePlatformLogValueTest, ThereIsOneNull) {
    EXPECT_EQ(Literal::Null(), Literal::Null());
}

TEST(CorePlatformLogValueTest, AStringLiteralSharesTheCharacters) {
    const TString text(u"a text that is too long for any small buffer");

    EXPECT_EQ(Literal::String(text)->GetString().Data(), text.Data());
}

TEST(CorePlatformLogValueTest, ObjectsAndArraysHoldWhatTheyWereMadeFrom) {
    const auto one = Literal::Int(1);

    const auto object = Object::Make({{u"one", one}, {u"none", nullptr}});
    const auto array = Array::Make({one, nullptr, one});

    EXPECT_EQ(object->GetFields().size(), 2u);
    EXPECT_EQ(object->GetFields().at(u"one"), one);
    EXPECT_EQ(array->GetItems().size(), 3u);
    EXPECT_EQ(array->GetItems()[2], one);
}

TEST(CorePlatformLogEventTest, AnEventKeepsItsParts) {
    const auto body = Object::Make({});

    const Event plain(u"name", body);
    const Event nothing(u"", nullptr);

    EXPECT_EQ(plain.GetName(), TString(u"name"));
    EXPECT_EQ(plain.GetBody(), body);
    EXPECT_EQ(plain.GetActivityInfo(), nullptr);
    EXPECT_EQ(nothing.GetBody(), nullptr);
}

TEST(CorePlatformLogEventTest, ActivityInformationKeepsItsTenParts) {
    const auto environment = Object::Make({});
    const auto activity = Object::Make({});
    const auto attributes = Object::Make({});
    const EventTimePoint time = TimeFromMicroseconds(17);

    const Event event(u"name",
                      nullptr,
                      ActivityInfo(time,
                                   2,
                                   uint64{3} << 40,
                                   u"session",
                                   u"request",
                                   u"user",
                                   u"site",
                                   environment,
                                   activity,
                                   attributes));

    const ActivityInfo* const info = event.GetActivityInfo();
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->GetTime(), time);
    EXPECT_EQ(info->GetProcessId(), 2u);
    EXPECT_EQ(info->GetThreadId(), uint64{3} << 40);
    EXPECT_EQ(info->GetSessionId(), TString(u"session"));
    EXPECT_EQ(info->GetRequestId(), TString(u"request"));
    EXPECT_EQ(info->GetUser(), TString(u"user"));
    EXPECT_EQ(info->GetSite(), TString(u"site"));
    EXPECT_EQ(info->GetEnvironment(), environment);
    EXPECT_EQ(info->GetActivity(), activity);
    EXPECT_EQ(info->GetAttributes(), attributes);
}

TEST(CorePlatformLogEventTest, CopiesShareAndOutliveTheOriginal) {
    std::optional<Event> original(Event(u"name",
                                        Object::Make({{u"k", Literal::Int(1)}}),
                                        ActivityInfoFactory::CreateActivityInfo(0, u"request")));

    const Event copy = *original;
    const ActivityInfo* const info = original->GetActivityInfo();
    const TString* const name = &original->GetName();
    original.reset();

    EXPECT_EQ(copy.GetActivityInfo(), info);
    EXPECT_EQ(&copy.GetName(), name);
    EXPECT_EQ(copy.GetActivityInfo()->GetRequestId(), TString(u"request"));
}

TEST(CorePlatformLogEventTest, TheFactoryFillsInTheProcessTheThreadAndDashes) {
    const ActivityInfo info = ActivityInfoFactory::CreateActivityInfo(1'000'001, u"request");

    EXPECT_EQ(info.GetTime(), TimeFromMicroseconds(1'000'001));
    EXPECT_EQ(info.GetProcessId(), TSystem::ProcessID());
    EXPECT_EQ(info.GetThreadId(), TSystem::ThreadID());
    EXPECT_EQ(info.GetRequestId(), TString(u"request"));
    EXPECT_EQ(info.GetSessionId(), TString(u"-"));
    EXPECT_EQ(info.GetUser(), TString(u"-"));
    EXPECT_EQ(info.GetSite(), TString(u"-"));
    EXPECT_EQ(info.GetEnvironment(), nullptr);
    EXPECT_EQ(info.GetActivity(), nullptr);
    EXPECT_EQ(info.GetAttributes(), nullptr);
}

TEST(CorePlatformLogEventTest, TheFactoryReplacesADashByAFreshId) {
    const TString first = ActivityInfoFactory::CreateActivityInfo(0, u"-").GetRequestId();
    const TString second = ActivityInfoFactory::CreateActivityInfo(0, u"-").GetRequestId();

    EXPECT_NE(first, second);
    EXPECT_EQ(TUUID(first).ToString(TUUIDFormatOption::UpperHyphenated), first);
    EXPECT_EQ(ActivityInfoFactory::CreateActivityInfo(0, u"").GetRequestId(), TString());
}

class CorePlatformTimestampTest : public testing::Test {
protected:
    CorePlatformTimestampTest() {
        if (const char* zone = std::getenv("TZ")) {
            m_before = zone;
        }
    }

    ~CorePlatformTimestampTest() override {
        if (m_before) {
            setenv("TZ", m_before->c_str(), 1);
        } else {
            unsetenv("TZ");
        }
        tzset();
    }

    // A zone in POSIX form needs no database.
    static void SetZone(const char* zone) {
        setenv("TZ", zone, 1);
        tzset();
    }

    static std::string Local(int64 microseconds) {
        return EventTimestamp(TimeFromMicroseconds(microseconds)).GetFormattedLocalValue().ToUtf8();
    }

    // 2026-02-01 12:00:00.25 UTC
    static constexpr int64 noon = 1'769'947'200'250'000;

private:
    std::optional<std::string> m_before;
};

TEST_F(CorePlatformTimestampTest, TheTimeIsWrittenWithTheOffsetOfTheZone) {
    SetZone("UTC0");
    EXPECT_EQ(Local(noon), "2026-02-01T12:00:00.250000+00:00");

    SetZone("CET-1CEST,M3.5.0,M10.5.0/3");
    EXPECT_EQ(Local(noon), "2026-02-01T13:00:00.250000+01:00");

    SetZone("NST3:30");
    EXPECT_EQ(Local(noon), "2026-02-01T08:30:00.250000-03:30");

    SetZone("XXX-14");
    EXPECT_EQ(Local(noon), "2026-02-02T02:00:00.250000+14:00");
}

TEST_F(CorePlatformTimestampTest, SummerTimeIsTheOneOfTheMomentItself) {
    SetZone("CET-1CEST,M3.5.0,M10.5.0/3");
    constexpr int64 lastSecondOfWinter = 1'774'745'999'999'999;

    EXPECT_EQ(Local(lastSecondOfWinter), "2026-03-29T01:59:59.999999+01:00");
    EXPECT_EQ(Local(lastSecondOfWinter + 1), "2026-03-29T03:00:00.000000+02:00");
}

TEST_F(CorePlatformTimestampTest, AnOffsetWithSecondsIsRoundedAndTheMomentStaysTheSame) {
    SetZone("LMT-0:53:28");

    EXPECT_EQ(Local(0), "1970-01-01T00:53:00.000000+00:53");
}

TEST_F(CorePlatformTimestampTest, TimesBeforeTheEpochAreRoundedDown) {
    SetZone("UTC0");

    EXPECT_EQ(Local(-1), "1969-12-31T23:59:59.999999+00:00");
    EXPECT_EQ(EventTimestamp(EventTimePoint(EventTimePoint::duration(-1))).GetFormattedLocalValue(),
              TString(u"1969-12-31T23:59:59.999999+00:00"));
    EXPECT_EQ(EventTimestamp(EventTimePoint(EventTimePoint::duration(19))).GetFormattedLocalValue(),
              TString(u"1970-01-01T00:00:00.000001+00:00"));
}

TEST_F(CorePlatformTimestampTest, LeapDaysAreKnown) {
    SetZone("UTC0");

    EXPECT_EQ(Local(1'709'164'800'000'000), "2024-02-29T00:00:00.000000+00:00");
    EXPECT_EQ(Local(951'782'400'000'000), "2000-02-29T00:00:00.000000+00:00");
    EXPECT_EQ(Local(4'107'542'400'000'000), "2100-03-01T00:00:00.000000+00:00");
}

}  // namespace
