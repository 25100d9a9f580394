#include "cvlcoreplatform/TLog.h"
#include "cvlcoreplatform/TLogForm.h"
#include "cvlcoreplatform/TUUID.h"
#include "cvlcoreplatform/host/EventReader.h"

#include <array>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace TLog;

constexpr EventTimePoint noon(EventTimePoint::duration(17'699'472'002'500'000));

Event MakeEventOf(std::vector<FormField> fields, const std::vector<SlotValue>& values) {
    return MakeEvent(MakeForm(std::move(fields)), {u"begin-query", noon, 12, 34}, values.data());
}

std::string TextOf(const ReadField& field) {
    return field.text.IsUtf8() ? std::string(field.text.GetUtf8())
                               : TString(field.text.GetUtf16()).ToUtf8();
}

TEST(CorePlatformEventReaderTest, FieldsOfAllKindsAreFoundByPartAndName) {
    const TUUID id = TUUID::CreateUUID();
    EventReader reader({{EventPart::Body, u"size"},
                        {EventPart::Activity, u"id"},
                        {EventPart::Activity, u"type"},
                        {EventPart::Activity, u"name"},
                        {EventPart::Activity, u"elapsed"},
                        {EventPart::Activity, u"res"},
                        {EventPart::Activity, u"size"}});
    const Event event = MakeEventOf({{EventPart::Activity, u"id", FieldKind::Uuid},
                                     {EventPart::Activity, u"type", FieldKind::Constant, u"end"},
                                     {EventPart::Activity, u"elapsed", FieldKind::Real},
                                     {EventPart::Activity, u"res", FieldKind::Object},
                                     {EventPart::Activity, u"name", FieldKind::Text},
                                     {EventPart::Body, u"size", FieldKind::Integer}},
                                    {SlotValue(&id),
                                     SlotValue(1.5),
                                     SlotValue(TextView(std::u16string_view(u"Straße"))),
                                     SlotValue(int64{17})});
    std::array<ReadField, 7> values;
    ReadHead head;

    ASSERT_TRUE(reader.Read(event, values.data(), head));

    EXPECT_EQ(values[0].kind, ReadField::Kind::Integer);
    EXPECT_EQ(values[0].integer, 17);
    EXPECT_EQ(values[1].kind, ReadField::Kind::Text);
    EXPECT_EQ(TextOf(values[1]), id.ToString().ToUtf8());
    EXPECT_EQ(TextOf(values[2]), "end");
    EXPECT_EQ(TextOf(values[3]), "Straße");
    EXPECT_EQ(values[4].kind, ReadField::Kind::Real);
    EXPECT_EQ(values[4].real, 1.5);
    EXPECT_EQ(values[5].kind, ReadField::Kind::Other);
    EXPECT_EQ(values[6].kind, ReadField::Kind::None);
    EXPECT_EQ(head.time, noon);
}

TEST(CorePlatformEventReaderTest, EachFormHasItsOwnPlaces) {
    EventReader reader({{EventPart::Body, u"b"}});
    std::array<ReadField, 1> values;
    ReadHead head;
    for (int i = 0; i < 3000; ++i) {
        std::vector<FormField> fields;
        std::vector<SlotValue> numbers;
        for (int before = 0; before < i % 3; ++before) {
            fields.push_back({EventPart::Body, TString::number(int64{before}), FieldKind::Integer});
            numbers.emplace_back(int64{-1});
        }
        fields.push_back({EventPart::Body, u"b", FieldKind::Integer});
        numbers.emplace_back(int64{i});

        ASSERT_TRUE(reader.Read(MakeEventOf(std::move(fields), numbers), values.data(), head));
        ASSERT_EQ(values[0].integer, i);
    }
}

TEST(CorePlatformEventReaderTest, TheMemoryOfAnEventCountsWhatDoesNotFitIntoItsBlock) {
    EventReader reader({});
    const auto bytesWith = [&reader](std::size_t length) {
        const std::string text(length, 'x');
        ReadHead head;
        EXPECT_TRUE(reader.Read(MakeEventOf({{EventPart::Body, u"text", FieldKind::Text}},
                                            {TextView(std::string_view(text))}),
                                nullptr,
                                head));
        return head.bytes;
    };
    EXPECT_GE(bytesWith(10), 1024U);
    EXPECT_EQ(bytesWith(10), bytesWith(20));
    EXPECT_GE(bytesWith(100'000), bytesWith(10) + 100'000);

    const std::shared_ptr<Value> list = Array::Make(
        {Literal::String(TString(std::string(50'000, 'y'))), Literal::Int(1), Literal::Null()});
    ReadHead head;
    ASSERT_TRUE(reader.Read(
        MakeEventOf({{EventPart::Body, u"logs", FieldKind::Value}}, {&list}), nullptr, head));
    EXPECT_GE(head.bytes, bytesWith(10) + 100'000);
}

TEST(CorePlatformEventReaderTest, AnEventWithoutAFormIsNotRead) {
    EventReader reader({{EventPart::Body, u"a"}});
    ReadField value;
    ReadHead head;

    EXPECT_FALSE(reader.Read(Event(u"set", Object::Make({})), &value, head));
}

}  // namespace
