#include "AllocationCounter.h"
#include "Cost.h"
#include "JsonReader.h"
#include "Threads.h"

#include "cvlcoreplatform/TLog.h"
#include "cvlcoreplatform/TLogEventBuilder.h"
#include "cvlcoreplatform/host/JsonLines.h"
#include "cvlcoreplatform/host/LogBackEnd.h"

#include <array>
#include <cstddef>
#include <limits>
#include <memory>
#include <nlohmann/json.hpp>
#include <random>
#include <spdlog/sinks/ostream_sink.h>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace TLog;
using nlohmann::json;
using testing::HasSubstr;
using ObjectId = EventBuilder::ObjectId;

constexpr EventTimePoint noon(EventTimePoint::duration(17'699'472'002'500'000));

// A name that belongs to no string, as a library has them.
TString Immortal(const std::u16string& text) {
    return TString(TString::Characters(TString::Characters(), &text));
}

Event Finish(EventBuilder& builder) {
    return builder.Finish(u"begin-query", noon, 12, uint64{34} << 40);
}

const NameTable& FieldsOf(const std::shared_ptr<Value>& object) {
    return dynamic_cast<const Object&>(*object).GetFields();
}

const Literal& LiteralOf(const NameTable& fields, const char16_t* name) {
    return dynamic_cast<const Literal&>(*fields.at(TString(name)));
}

json LineOf(const Event& event) {
    return tarn::test::ReadJsonLine(FormatJsonLine(Info, event, EventTimePoint()));
}

/// The same event, made of the values that it gives.
Event MadeOfValues(const Event& event) {
    return {event.GetName(), event.GetBody(), *event.GetActivityInfo()};
}

/// Lines of one thread, which knows the shapes of events again.
class Lines {
public:
    Lines()
        : m_backEnd(MakeJsonBackEnd(std::make_shared<spdlog::sinks::ostream_sink_mt>(m_text, true),
                                    "a text")) {}

    std::string Write(const Event& event) {
        m_text.str("");
        m_backEnd->Write(Info, event);
        return m_text.str();
    }

private:
    std::ostringstream m_text;
    std::shared_ptr<LogBackEnd> m_backEnd;
};

TEST(CorePlatformEventBuilderTest, AnEventGivesTheValuesThatWereAdded) {
    EventBuilder builder;
    builder.AddText(ObjectId::Activity, u"name", TString(u"query"));
    builder.AddText(ObjectId::Activity, u"user", std::string_view("zo\xC3\xAB"));
    builder.AddUuid(ObjectId::Activity, u"id", TUUID(u"0123456789abcdef0123456789abcdef"));
    builder.AddInt(ObjectId::Body, u"rows", std::numeric_limits<int64>::min());
    builder.AddBool(ObjectId::Body, u"done", true);
    builder.AddDouble(ObjectId::Attributes, u"share", 0.5);
    const auto shared = Literal::Int(7);
    builder.AddValue(ObjectId::Environment, u"shared", shared);
    const ObjectId inner = builder.AddObject(ObjectId::Body, u"inner");
    builder.AddInt(inner, u"deep", 1);
    builder.SetSession(TString(u"s"));
    builder.SetRequest(std::string_view("r"));
    builder.SetUser(std::u16string_view(u"u"));
    builder.SetSite(TString());

    const Event event = Finish(builder);

    EXPECT_EQ(event.GetName(), TString(u"begin-query"));
    const ActivityInfo& information = *event.GetActivityInfo();
    EXPECT_EQ(information.GetTime(), noon);
    EXPECT_EQ(information.GetProcessId(), 12U);
    EXPECT_EQ(information.GetThreadId(), uint64{34} << 40);
    EXPECT_EQ(information.GetSessionId(), TString(u"s"));
    EXPECT_EQ(information.GetRequestId(), TString(u"r"));
    EXPECT_EQ(information.GetUser(), TString(u"u"));
    EXPECT_EQ(information.GetSite(), TString());
    const NameTable& activity = FieldsOf(information.GetActivity());
    EXPECT_EQ(activity.size(), 3U);
    EXPECT_EQ(LiteralOf(activity, u"name").GetString(), TString(u"query"));
    EXPECT_EQ(LiteralOf(activity, u"user").GetString(), TString(u"zo\u00EB"));
    EXPECT_EQ(LiteralOf(activity, u"id").GetString(),
              TString(u"01234567-89AB-CDEF-0123-456789ABCDEF"));
    const NameTable& body = event.GetBody()->GetFields();
    EXPECT_EQ(LiteralOf(body, u"rows").GetInt(), std::numeric_limits<int64>::min());
    EXPECT_EQ(LiteralOf(body, u"done").GetType(), LiteralType::Boolean);
    EXPECT_TRUE(LiteralOf(body, u"done").GetBool());
    EXPECT_EQ(LiteralOf(FieldsOf(body.at(u"inner")), u"deep").GetInt(), 1);
    EXPECT_EQ(LiteralOf(information.GetAttributes()->GetFields(), u"share").GetType(),
              LiteralType::Double);
    EXPECT_EQ(LiteralOf(information.GetAttributes()->GetFields(), u"share").GetDouble(), 0.5);
    EXPECT_EQ(FieldsOf(information.GetEnvironment()).at(u"shared"), shared);
}

TEST(CorePlatformEventBuilderTest, FurtherFieldsOfTheLineFollowTheSiteByName) {
    EventBuilder builder;
    builder.AddText(ObjectId::Line, u"tenant", std::string_view("blue"));
    builder.SetSite(std::string_view("north"));
    builder.AddText(ObjectId::Line, u"cell", std::string_view("\xC3\xA4"));
    const Event event = Finish(builder);

    const auto fields = FieldsOf(event.GetActivityInfo()->GetFurtherFields());

    EXPECT_EQ(fields.size(), 2U);
    EXPECT_EQ(LiteralOf(fields, u"tenant").GetString(), TString(u"blue"));
    for (const Event& either : {event, MadeOfValues(event)}) {
        EXPECT_THAT(FormatJsonLine(Info, either, EventTimePoint()),
                    HasSubstr("\"site\":\"north\",\"cell\":\"\xC3\xA4\",\"tenant\":\"blue\","
                              "\"environment\":"));
    }
}

TEST(CorePlatformEventBuilderTest, AFurtherFieldDoesNotTakeANameOfTheLine) {
    EventBuilder builder;
    for (const char16_t* const name : {u"time", u"pid", u"event", u"message", u"body"}) {
        builder.AddText(ObjectId::Line, name, std::string_view("taken"));
    }
    const Event event = Finish(builder);
    const ActivityInfo information = event.GetActivityInfo()->WithFurtherFields(
        Object::Make({{u"pid", Literal::Int(1)}, {u"user", Literal::Int(1)}}));

    EXPECT_EQ(event.GetActivityInfo()->GetFurtherFields(), nullptr);
    EXPECT_EQ(LineOf(event).at("pid"), 12);
    EXPECT_EQ(LineOf(MadeOfValues(event)), LineOf(event));
    EXPECT_EQ(LineOf(Event(event.GetName(), event.GetBody(), information)), LineOf(event));
}

TEST(CorePlatformEventBuilderTest, AnEventOfNothingHasItsObjects) {
    EventBuilder builder;

    const Event event = Finish(builder);

    EXPECT_TRUE(event.GetBody()->GetFields().empty());
    EXPECT_EQ(event.GetActivityInfo()->GetSessionId(), TString());
    const json line = LineOf(event);
    for (const char* const name : {"environment", "activity", "attributes", "body"}) {
        EXPECT_EQ(line.at(name), json::object()) << name;
    }
}

TEST(CorePlatformEventBuilderTest, TheValuesAreMadeOnce) {
    EventBuilder builder;
    builder.AddInt(ObjectId::Body, u"rows", 1);
    const Event event = Finish(builder);

    const Event copy = event;

    EXPECT_EQ(event.GetBody(), copy.GetBody());
    EXPECT_EQ(event.GetActivityInfo(), copy.GetActivityInfo());
}

TEST(CorePlatformEventBuilderTest, ThreadsThatAskForTheValuesAtOnceGetTheSameOnes) {
    for (int round = 0; round < 50; ++round) {
        EventBuilder builder;
        builder.AddInt(ObjectId::Body, u"rows", round);
        const Event event = Finish(builder);
        std::array<const Object*, 4> bodies{};

        tarn::test::OnThreadsAtOnce(4, [&](int thread) {
            bodies[static_cast<std::size_t>(thread)] = event.GetBody().get();
        });

        EXPECT_THAT(bodies, testing::Each(bodies[0]));
        EXPECT_EQ(LiteralOf(bodies[0]->GetFields(), u"rows").GetInt(), round);
    }
}

TEST(CorePlatformEventBuilderTest, AFreshRequestIsAnotherOneEachTime) {
    const auto request = [] {
        EventBuilder builder;
        builder.SetFreshRequest();
        return Finish(builder).GetActivityInfo()->GetRequestId();
    };

    const TString first = request();

    EXPECT_EQ(TUUID(first).ToString(), first);
    EXPECT_NE(first, request());
}

TEST(CorePlatformEventBuilderTest, ObjectsBeyondSomeHundredAreRefused) {
    EventBuilder builder;
    ObjectId object = ObjectId::Body;
    int objects = 0;

    EXPECT_THROW(
        for (; objects < 1000; ++objects) { object = builder.AddObject(object, u"deeper"); },
        std::length_error);

    EXPECT_GE(objects, 200);
    const json line = LineOf(Finish(builder));
    int depth = 0;
    for (json inner = line.at("body"); inner.contains("deeper"); ++depth) {
        inner = json(inner.at("deeper"));
    }
    EXPECT_EQ(depth, objects);
}

TEST(CorePlatformEventBuilderTest, ABuilderThatIsLeftEarlyLeavesNothingBehind) {
    const std::shared_ptr<Value> shared = Literal::Int(1);
    const std::u16string text(5000, u'x');
    const auto leaveEarly = [&shared, &text] {
        EventBuilder builder;
        builder.AddText(ObjectId::Body, u"long", std::u16string_view(text));
        builder.AddValue(ObjectId::Body, u"shared", shared);
        builder.AddInt(ObjectId::Body, TString(std::u16string(30, u'n')), 1);
    };
    leaveEarly();  // blocks that the thread keeps for the next event are taken now
    const tarn::test::AllocationCounter counter;

    leaveEarly();

    EXPECT_GT(counter.Allocations(), 0U);
    EXPECT_EQ(counter.Releases(), counter.Allocations());
    EXPECT_EQ(shared.use_count(), 1);
}

TEST(CorePlatformEventBuilderTest, ANameThatIsGoneAfterwardsIsStillTheEvents) {
    EventBuilder builder;
    {
        const TString name(std::u16string(30, u'n'));
        builder.AddInt(ObjectId::Body, name, 1);
    }

    EXPECT_EQ(LineOf(Finish(builder)).at("body").size(), 1U);
}

TEST(CorePlatformEventBuilderTest, EventsOfTheSameLengthsAreToldApart) {
    static const std::u16string names[] = {u"ax", u"bx", u"cx", u"abx", u"acx"};
    Lines lines;
    for (int round = 0; round < 3; ++round) {
        for (const std::size_t field : {0U, 1U, 2U, 3U, 4U}) {
            for (const ObjectId object : {ObjectId::Body, ObjectId::Attributes}) {
                EventBuilder builder;
                builder.AddInt(object, Immortal(names[field]), round);

                const json line = json::parse(lines.Write(Finish(builder)));

                const char* const place = object == ObjectId::Body ? "body" : "attributes";
                EXPECT_EQ(line.at(place).size(), 1U);
                EXPECT_EQ(line.at(place).at(TString(names[field].c_str()).ToUtf8()), round);
            }
        }
    }
}

TEST(CorePlatformEventBuilderTest, AnObjectAndAValueOfOneNameAreToldApart) {
    Lines lines;
    for (int round = 0; round < 2; ++round) {
        EventBuilder withValue;
        withValue.AddInt(ObjectId::Body, u"x", 5);
        EventBuilder withObject;
        withObject.AddObject(ObjectId::Body, u"x");

        EXPECT_EQ(json::parse(lines.Write(Finish(withValue))).at("body").at("x"), 5);
        EXPECT_EQ(json::parse(lines.Write(Finish(withObject))).at("body").at("x"), json::object());
    }
}

/// Adds fields of all kinds with random names and values.
class RandomEvents {
public:
    explicit RandomEvents(unsigned seed) : m_random(seed) {}

    Event Make() {
        EventBuilder builder;
        std::vector<ObjectId> objects{
            ObjectId::Environment, ObjectId::Activity, ObjectId::Attributes, ObjectId::Body};
        // Few shapes, so that they come again; now and then more than fit into one block.
        const std::size_t shape = Below(12);
        const std::size_t fields = shape == 0 ? 100 : shape * 3;
        for (std::size_t i = 0; i < fields; ++i) {
            AddField(builder, objects, i);
        }
        builder.SetSession(RandomText());
        builder.SetRequest(RandomText());
        builder.SetUser(RandomText());
        builder.SetSite(RandomText());
        return Finish(builder);
    }

private:
    std::size_t Below(std::size_t bound) {
        return std::uniform_int_distribution<std::size_t>(0, bound - 1)(m_random);
    }

    TString RandomText() {
        static const std::u16string characters =
            u"abcXYZ019 -_.\"\\\n\u0001\u007F\u00E4\u20AC\xD834";
        const std::size_t alphabet = Below(4) == 0 ? characters.size() : 12;
        std::u16string text(Below(50) == 0 ? Below(3000) : Below(40), u' ');
        for (char16_t& unit : text) {
            unit = characters[Below(alphabet)];
        }
        return TString(std::move(text));
    }

    // Unlike any other name of the event, and the same whenever an event is as large.
    TString Name(std::size_t field) {
        static const std::vector<std::u16string> names = [] {
            std::vector<std::u16string> made;
            for (int i = 0; i < 100; ++i) {
                made.push_back(
                    TString((std::to_string(i * 37 % 100) + (i % 5 == 0 ? "\"" : "n")).c_str())
                        .Data());
            }
            return made;
        }();
        return Below(2) == 0 ? Immortal(names[field]) : TString(std::u16string_view(names[field]));
    }

    void AddField(EventBuilder& builder, std::vector<ObjectId>& objects, std::size_t field) {
        const ObjectId object = objects[field % objects.size()];
        const TString name = Name(field);
        if (field % 7 == 6) {
            objects.push_back(builder.AddObject(object, name));
            return;
        }
        switch (Below(6)) {
            case 0:
                return builder.AddInt(object, name, static_cast<int64>(m_random()));
            case 1:
                return builder.AddBool(object, name, Below(2) == 0);
            case 2:
                return builder.AddDouble(object, name, static_cast<double>(m_random()) / 1e9);
            case 3:
                return builder.AddValue(object, name, Array::Make({Literal::String(RandomText())}));
            case 4:
                return builder.AddText(object, name, std::string_view(RandomText().ToUtf8()));
            default:
                return builder.AddText(object, name, RandomText());
        }
    }

    std::mt19937 m_random;
};

TEST(CorePlatformEventBuilderTest, ManyFieldsTakeTimeInProportion) {
    const auto costsOf = [](int count) {
        EventBuilder builder;
        for (int i = 0; i < count; ++i) {
            builder.AddInt(ObjectId::Body, TString("name " + std::to_string(i)), i);
        }
        const Event event = Finish(builder);
        return std::pair(
            tarn::test::LeastCostOf(3, [&event] { FormatJsonLine(Info, event, EventTimePoint()); }),
            tarn::test::LeastCostOf(1, [&event] { event.GetBody(); }));
    };

    const auto [fewInLine, fewAsValues] = costsOf(3'000);
    const auto [manyInLine, manyAsValues] = costsOf(30'000);

    // Ten times as many; a search for each among all would be a hundred times.
    EXPECT_LT(manyInLine, fewInLine * 10 * 5);
    EXPECT_LT(manyAsValues, fewAsValues * 10 * 5);
}

TEST(CorePlatformEventBuilderTest, NamesOfBothKindsAreGivenToTheirFields) {
    static const std::u16string lasting = u"lasting";
    EventBuilder builder;
    builder.AddInt(ObjectId::Body, u"first", 1);
    builder.AddInt(ObjectId::Body, Immortal(lasting), 2);
    builder.AddInt(ObjectId::Body, TString(), 3);
    builder.AddInt(ObjectId::Body, u"last", 4);

    const json body = LineOf(Finish(builder))["body"];

    EXPECT_EQ(body, (json{{"first", 1}, {"lasting", 2}, {"", 3}, {"last", 4}}));
}

TEST(CorePlatformEventBuilderTest, ALineIsTheSameAsThatOfAnEventMadeOfValues) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    RandomEvents events(seed);
    Lines lines;
    for (int i = 0; i < 2000; ++i) {
        const Event event = events.Make();

        ASSERT_EQ(lines.Write(event), lines.Write(MadeOfValues(event)));
    }
}

}  // namespace
