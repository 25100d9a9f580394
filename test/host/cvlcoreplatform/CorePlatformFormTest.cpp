#include "AllocationCounter.h"
#include "Cost.h"
#include "JsonReader.h"
#include "Sanitizers.h"
#include "Threads.h"

#include "cvlcoreplatform/TLog.h"
#include "cvlcoreplatform/TLogForm.h"
#include "cvlcoreplatform/host/JsonLines.h"

#include <array>
#include <cstddef>
#include <deque>
#include <iterator>
#include <limits>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace TLog;
using nlohmann::json;
using tarn::test::hasAddressSanitizer;
using tarn::test::hasThreadSanitizer;
using testing::HasSubstr;

constexpr EventTimePoint noon(EventTimePoint::duration(17'699'472'002'500'000));

// A name that belongs to no string, as a library has them.
TString Static(const std::u16string& text) {
    return TString(TString::Characters(TString::Characters(), &text));
}

Event MakeEventOf(const std::shared_ptr<const Form>& form, const std::vector<SlotValue>& values) {
    return MakeEvent(form, {u"begin-query", noon, 12, uint64{34} << 40}, values.data());
}

Event MakeEventOf(std::vector<FormField> fields, const std::vector<SlotValue>& values) {
    return MakeEventOf(MakeForm(std::move(fields)), values);
}

SlotValue Text(const char16_t* text) {
    return TextView(std::u16string_view(text));
}

SlotValue Utf8(std::string_view text) {
    return TextView(text);
}

SlotValue Int(int64 number) {
    return number;
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

constexpr EventPart inner = EventPart::Inner;

TEST(CorePlatformFormTest, AnEventGivesTheValuesOfItsSlots) {
    const TUUID id(u"0123456789abcdef0123456789abcdef");
    const std::shared_ptr<Value> shared = Literal::Int(7);

    const Event event =
        MakeEventOf({{EventPart::Activity, u"name", FieldKind::Text},
                     {EventPart::Activity, u"user", FieldKind::Text},
                     {EventPart::Activity, u"id", FieldKind::Uuid},
                     {EventPart::Activity, u"type", FieldKind::Constant, u"begin"},
                     {EventPart::Body, u"rows", FieldKind::Integer},
                     {EventPart::Body, u"done", FieldKind::Boolean},
                     {EventPart::Attributes, u"share", FieldKind::Real},
                     {EventPart::Environment, u"shared", FieldKind::Value},
                     {EventPart::Body, u"inner", FieldKind::Object, TString(), inner},
                     {inner, u"deep", FieldKind::Integer},
                     {EventPart::Session, TString(), FieldKind::Text},
                     {EventPart::Request, TString(), FieldKind::Text},
                     {EventPart::User, TString(), FieldKind::Constant, u"u"}},
                    {Text(u"query"),
                     Utf8("zo\xC3\xAB"),
                     &id,
                     Int(std::numeric_limits<int64>::min()),
                     Int(1),
                     0.5,
                     &shared,
                     Int(1),
                     Text(u"s"),
                     Utf8("r")});

    EXPECT_EQ(event.GetName(), TString(u"begin-query"));
    const ActivityInfo& information = *event.GetActivityInfo();
    EXPECT_EQ(information.GetTime(), noon);
    EXPECT_EQ(information.GetProcessId(), 12U);
    EXPECT_EQ(information.GetThreadId(), uint64{34} << 40);
    EXPECT_EQ(information.GetSessionId(), TString(u"s"));
    EXPECT_EQ(information.GetRequestId(), TString(u"r"));
    EXPECT_EQ(information.GetUser(), TString(u"u"));
    EXPECT_EQ(information.GetSite(), TString());
    EXPECT_EQ(information.GetFurtherFields(), nullptr);
    const NameTable& activity = FieldsOf(information.GetActivity());
    EXPECT_EQ(activity.size(), 4U);
    EXPECT_EQ(LiteralOf(activity, u"name").GetString(), TString(u"query"));
    EXPECT_EQ(LiteralOf(activity, u"user").GetString(), TString(u"zo\u00EB"));
    EXPECT_EQ(LiteralOf(activity, u"id").GetString(),
              TString(u"01234567-89AB-CDEF-0123-456789ABCDEF"));
    EXPECT_EQ(LiteralOf(activity, u"type").GetString(), TString(u"begin"));
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

TEST(CorePlatformFormTest, FurtherFieldsOfTheLineFollowTheSiteByName) {
    const Event event = MakeEventOf({{EventPart::Line, u"tenant", FieldKind::Text},
                                     {EventPart::Site, TString(), FieldKind::Text},
                                     {EventPart::Line, u"cell", FieldKind::Text}},
                                    {Utf8("blue"), Utf8("north"), Utf8("\xC3\xA4")});

    const auto fields = FieldsOf(event.GetActivityInfo()->GetFurtherFields());

    EXPECT_EQ(fields.size(), 2U);
    EXPECT_EQ(LiteralOf(fields, u"tenant").GetString(), TString(u"blue"));
    for (const Event& either : {event, MadeOfValues(event)}) {
        EXPECT_THAT(FormatJsonLine(Info, either, EventTimePoint()),
                    HasSubstr("\"site\":\"north\",\"cell\":\"\xC3\xA4\",\"tenant\":\"blue\","
                              "\"environment\":"));
    }
}

TEST(CorePlatformFormTest, AFurtherFieldDoesNotTakeANameOfTheLine) {
    std::vector<FormField> fields;
    for (const char16_t* const name : {u"time", u"pid", u"event", u"message", u"body", u"user"}) {
        fields.push_back({EventPart::Line, name, FieldKind::Constant, u"taken"});
    }
    const Event event = MakeEventOf(fields, {});
    const ActivityInfo information = event.GetActivityInfo()->WithFurtherFields(
        Object::Make({{u"pid", Literal::Int(1)}, {u"user", Literal::Int(1)}}));

    EXPECT_EQ(event.GetActivityInfo()->GetFurtherFields(), nullptr);
    EXPECT_EQ(LineOf(event).at("pid"), 12);
    EXPECT_EQ(LineOf(event).at("user"), "");
    EXPECT_EQ(LineOf(MadeOfValues(event)), LineOf(event));
    EXPECT_EQ(LineOf(Event(event.GetName(), event.GetBody(), information)), LineOf(event));
}

TEST(CorePlatformFormTest, AnEventOfNothingHasItsObjects) {
    const Event event = MakeEventOf(std::vector<FormField>(), {});

    EXPECT_TRUE(event.GetBody()->GetFields().empty());
    EXPECT_EQ(event.GetActivityInfo()->GetSessionId(), TString());
    const json line = LineOf(event);
    for (const char* const name : {"environment", "activity", "attributes", "body"}) {
        EXPECT_EQ(line.at(name), json::object()) << name;
    }
}

TEST(CorePlatformFormTest, TheValuesAreMadeOnce) {
    const Event event = MakeEventOf({{EventPart::Body, u"rows", FieldKind::Integer}}, {Int(1)});

    const Event copy = event;

    EXPECT_EQ(event.GetBody(), copy.GetBody());
    EXPECT_EQ(event.GetActivityInfo(), copy.GetActivityInfo());
}

TEST(CorePlatformFormTest, ThreadsThatAskForTheValuesOrTheLineAtOnceGetTheSameOnes) {
    for (int round = 0; round < 50; ++round) {
        const auto form = MakeForm({{EventPart::Body, u"rows", FieldKind::Integer}});
        const Event event = MakeEventOf(form, {Int(round)});
        std::array<const Object*, 4> bodies{};
        std::array<std::string, 4> lines;

        tarn::test::OnThreadsAtOnce(4, [&](int thread) {
            const auto place = static_cast<std::size_t>(thread);
            lines[place] = FormatJsonLine(Info, event, EventTimePoint());
            bodies[place] = event.GetBody().get();
        });

        EXPECT_THAT(bodies, testing::Each(bodies[0]));
        EXPECT_THAT(lines, testing::Each(lines[0]));
        EXPECT_EQ(LiteralOf(bodies[0]->GetFields(), u"rows").GetInt(), round);
    }
}

TEST(CorePlatformFormTest, AFreshRequestIsAnotherOneInEachEvent) {
    const auto form = MakeForm({{EventPart::Request, TString(), FieldKind::FreshRequest}});
    const auto request = [&form] {
        return MakeEventOf(form, {Int(0)}).GetActivityInfo()->GetRequestId();
    };

    const TString first = request();

    EXPECT_EQ(TUUID(first).ToString(), first);
    EXPECT_NE(first, request());
}

TEST(CorePlatformFormTest, ObjectsLieInsideOfEachOtherAsDeepAsTheFormSays) {
    constexpr int depth = 150;
    std::vector<FormField> fields;
    EventPart part = EventPart::Body;
    for (int i = 0; i < depth; ++i) {
        const auto next =
            static_cast<EventPart>(static_cast<uint32>(inner) + static_cast<uint32>(i));
        fields.push_back({part, u"deeper", FieldKind::Object, TString(), next});
        part = next;
    }
    fields.push_back({part, u"rows", FieldKind::Integer});

    const Event event = MakeEventOf(fields, {Int(5)});

    json innermost = LineOf(event).at("body");
    for (int i = 0; i < depth; ++i) {
        innermost = json(innermost.at("deeper"));
    }
    EXPECT_EQ(innermost, (json{{"rows", 5}}));
    EXPECT_EQ(LineOf(MadeOfValues(event)), LineOf(event));
}

TEST(CorePlatformFormTest, AnEventLeavesNothingBehind) {
    const std::shared_ptr<Value> shared = Literal::Int(1);
    const std::u16string text(5000, u'x');
    const auto makeEvent = [&shared, &text] {
        MakeEventOf({{EventPart::Body, u"long", FieldKind::Text},
                     {EventPart::Body, u"shared", FieldKind::Value},
                     {EventPart::Body, TString(std::u16string(30, u'n')), FieldKind::Integer}},
                    {TextView(std::u16string_view(text)), &shared, Int(1)});
    };
    makeEvent();  // blocks that the thread keeps for the next event are taken now
    const tarn::test::AllocationCounter counter;

    makeEvent();

    EXPECT_GT(counter.Allocations(), 0U);
    EXPECT_EQ(counter.Releases(), counter.Allocations());
    EXPECT_EQ(shared.use_count(), 1);
}

TEST(CorePlatformFormTest, AnOrdinaryEventOfAFormAllocatesNothing) {
    const auto form = MakeForm({{EventPart::Activity, u"id", FieldKind::Text},
                                {EventPart::Body, u"table", FieldKind::Text},
                                {EventPart::Body, u"rows", FieldKind::Integer}});
    const auto makeEvent = [&form] {
        const SlotValue values[] = {
            Text(u"0F8FAD5B-D9CB-469F-A165-70867728950E"), Text(u"packages"), Int(1)};
        MakeEvent(form, {TString(), noon, 12, 34}, values);
    };
    makeEvent();
    const tarn::test::AllocationCounter counter;

    makeEvent();

    // A sanitizer is to see each block.
    EXPECT_EQ(counter.Allocations(), hasThreadSanitizer || hasAddressSanitizer ? 1U : 0U);
}

TEST(CorePlatformFormTest, AnEventOutlivesWhatItWasMadeOf) {
    std::optional<Event> event;
    {
        std::u16string text(30, u't');
        const TString name(std::u16string(30, u'n'));
        event = MakeEventOf({{EventPart::Body, name, FieldKind::Text}},
                            {TextView(std::u16string_view(text))});
        text.assign(30, u'x');
    }

    EXPECT_EQ(LineOf(*event).at("body"), (json{{std::string(30, 'n'), std::string(30, 't')}}));
}

/// Forms with fields of all kinds and random names, and events of them.
class RandomEvents {
public:
    explicit RandomEvents(unsigned seed) : m_random(seed) {}

    /// Now and then one with more fields than fit into one block.
    void ChangeForm() {
        const std::size_t size = Below(12);
        m_fields.clear();
        m_parts = {
            EventPart::Environment, EventPart::Activity, EventPart::Attributes, EventPart::Body};
        for (std::size_t i = 0; i < (size == 0 ? 100 : size * 3); ++i) {
            AddField(i);
        }
        for (const EventPart part :
             {EventPart::Session, EventPart::Request, EventPart::User, EventPart::Site}) {
            m_fields.push_back(
                {part, TString(), Below(2) == 0 ? FieldKind::Text : FieldKind::Uuid});
        }
        m_form = MakeForm(m_fields);
    }

    Event Make() {
        std::vector<SlotValue> values;
        for (const FormField& field : m_fields) {
            if (HasSlot(field.kind)) {
                values.push_back(RandomValue(field.kind));
            }
        }
        const Event event = MakeEventOf(m_form, values);
        m_lent = {};
        return event;
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

    // Unlike any other name of the event.
    static TString Name(std::size_t field) {
        return TString((std::to_string(field * 37 % 100) + (field % 5 == 0 ? "\"" : "n")).c_str());
    }

    void AddField(std::size_t field) {
        const EventPart part = m_parts[field % m_parts.size()];
        if (field % 7 == 6) {
            m_parts.push_back(
                static_cast<EventPart>(static_cast<std::size_t>(inner) + m_parts.size() - 4));
            m_fields.push_back({part, Name(field), FieldKind::Object, TString(), m_parts.back()});
            return;
        }
        static constexpr FieldKind kinds[] = {FieldKind::Text,
                                              FieldKind::Uuid,
                                              FieldKind::Integer,
                                              FieldKind::Boolean,
                                              FieldKind::Real,
                                              FieldKind::Value,
                                              FieldKind::Constant};
        m_fields.push_back({part, Name(field), kinds[Below(std::size(kinds))], RandomText()});
    }

    SlotValue RandomValue(FieldKind kind) {
        switch (kind) {
            case FieldKind::Uuid:
                return &m_lent.ids.emplace_back(TUUID::CreateUUID());
            case FieldKind::Integer:
                return static_cast<int64>(m_random());
            case FieldKind::Boolean:
                return Int(static_cast<int64>(Below(2)));
            case FieldKind::Real:
                return static_cast<double>(m_random()) / 1e9;
            case FieldKind::Value:
                return &m_lent.values.emplace_back(Array::Make({Literal::String(RandomText())}));
            default:
                break;
        }
        const TString& text = m_lent.texts.emplace_back(RandomText());
        if (Below(2) == 0) {
            return TextView(text);
        }
        return Utf8(m_lent.utf8.emplace_back(text.ToUtf8()));
    }

    // What the values of an event refer to.
    struct Lent {
        std::deque<TUUID> ids;
        std::deque<std::shared_ptr<Value>> values;
        std::deque<TString> texts;
        std::deque<std::string> utf8;
    };

    std::mt19937 m_random;
    std::vector<FormField> m_fields;
    std::vector<EventPart> m_parts;
    std::shared_ptr<const Form> m_form;
    Lent m_lent;
};

TEST(CorePlatformFormTest, ManyFieldsTakeTimeInProportion) {
    const auto costsOf = [](int count) {
        std::vector<FormField> fields;
        std::vector<SlotValue> values;
        for (int i = 0; i < count; ++i) {
            fields.push_back(
                {EventPart::Body, TString("name " + std::to_string(i)), FieldKind::Integer});
            values.push_back(Int(i));
        }
        const auto line = [&fields, &values] {
            FormatJsonLine(Info, MakeEventOf(fields, values), EventTimePoint());
        };
        const Event event = MakeEventOf(fields, values);
        return std::pair(tarn::test::LeastCostOf(3, line),
                         tarn::test::LeastCostOf(1, [&event] { event.GetBody(); }));
    };

    const auto [fewInLine, fewAsValues] = costsOf(3'000);
    const auto [manyInLine, manyAsValues] = costsOf(30'000);

    // Ten times as many; a search for each among all would be a hundred times.
    EXPECT_LT(manyInLine, fewInLine * 10 * 5);
    EXPECT_LT(manyAsValues, fewAsValues * 10 * 5);
}

TEST(CorePlatformFormTest, NamesOfAllKindsAreGivenToTheirFields) {
    static const std::u16string lasting = u"lasting";

    const Event event = MakeEventOf({{EventPart::Body, u"first", FieldKind::Integer},
                                     {EventPart::Body, Static(lasting), FieldKind::Integer},
                                     {EventPart::Body, TString(), FieldKind::Integer},
                                     {EventPart::Body, u"last", FieldKind::Integer}},
                                    {Int(1), Int(2), Int(3), Int(4)});

    EXPECT_EQ(LineOf(event)["body"], (json{{"first", 1}, {"lasting", 2}, {"", 3}, {"last", 4}}));
}

TEST(CorePlatformFormTest, ALineIsTheSameAsThatOfAnEventMadeOfValues) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    RandomEvents events(seed);
    for (int i = 0; i < 2000; ++i) {
        if (i % 4 == 0) {
            events.ChangeForm();
        }
        const Event event = events.Make();

        ASSERT_EQ(FormatJsonLine(Info, event, EventTimePoint()),
                  FormatJsonLine(Info, MadeOfValues(event), EventTimePoint()));
    }
}

}  // namespace
