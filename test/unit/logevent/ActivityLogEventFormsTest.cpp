#include "ActivityEventInput.h"
#include "ActivityLogEventProducer.h"
#include "AllocationCounter.h"
#include "MonitorTest.h"
#include "Sanitizers.h"
#include "StaticText.h"

#include <string>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using tarn::test::hasAddressSanitizer;
using tarn::test::HasBodyField;
using tarn::test::HasExactlyAttributes;
using tarn::test::HasExactlyBodyFields;
using tarn::test::hasThreadSanitizer;
using testing::AllOf;

/// One producer, which knows the forms of former events again.
class FormsTest : public tarn::test::TarnTest {
protected:
    TLog::Event Produce(MetricsMonitor::ScopeState::Attributes attributes) {
        MetricsMonitor::ScopeState scope;
        scope.attributes = std::move(attributes);
        return Produce(scope);
    }

    TLog::Event Produce(const MetricsMonitor::ScopeState& scope,
                        const MetricsMonitor::ContextInfo::Layers* layers = nullptr) {
        const tarn::RequestContextAttributes::Table none;
        return m_producer.Produce(ActivityPhase::Begin,
                                  TString(),
                                  {scope, &tarn::NoText(), TUUID(), TUUID(), layers, none, 0});
    }

private:
    tarn::ActivityLogEventProducer m_producer;
};

TEST_F(FormsTest, EventsOfTheSameNamesHaveValuesOfTheirOwn) {
    EXPECT_THAT(Produce({{u"rows", 12}}), HasBodyField("rows", 12));
    EXPECT_THAT(Produce({{u"rows", 13}}), HasBodyField("rows", 13));
}

TEST_F(FormsTest, ANameIsToldFromOthersOfItsLength) {
    for (int round = 0; round < 2; ++round) {
        EXPECT_THAT(Produce({{u"ax", 1}}), HasExactlyBodyFields({"ax"}));
        EXPECT_THAT(Produce({{u"bx", 1}}), HasExactlyBodyFields({"bx"}));
        EXPECT_THAT(Produce({{u"a", 1}, {u"x", 1}}), HasExactlyBodyFields({"a", "x"}));
    }
}

TEST_F(FormsTest, ANameThatIsReusedForAnotherTextIsToldFromTheFormerOne) {
    const std::string longName(70, 'n');
    for (const char last : {'a', 'b', 'a'}) {
        const std::string name = longName + last;

        EXPECT_THAT(Produce({{TString(name), 1}}), HasExactlyBodyFields({name}));
    }
}

TEST_F(FormsTest, AValueOfAnotherKindIsWrittenAsWhatItIs) {
    const TString spelled = TString(u"rows");
    for (const TString& name : {spelled, tarn::MakeStaticText(spelled), spelled}) {
        EXPECT_THAT(Produce({{name, 1}}), HasBodyField("rows", 1));
        EXPECT_THAT(Produce({{name, true}}), HasBodyField("rows", true));
        EXPECT_THAT(Produce({{name, 1.5}}), HasBodyField("rows", 1.5));
        EXPECT_THAT(Produce({{name, "many"}}), HasBodyField("rows", "many"));
    }
}

TEST_F(FormsTest, AnAttributeOfTheContextIsToldFromOneOfTheScope) {
    const TString last = TString(u"last");
    const MetricsMonitor::ContextInfo::Layers all{
        {{last, 1}}, {{TString(), true}}, {{TString(u"first"), 1}}};
    const MetricsMonitor::ContextInfo::Layers one{{{TString(u"first"), 1}}};
    MetricsMonitor::ScopeState scope;

    EXPECT_THAT(
        Produce(scope, &all),
        AllOf(HasExactlyAttributes({"", "first", "last", "vw", "wb"}), HasExactlyBodyFields({})));
    scope.attributes = {{last, 1}};
    EXPECT_THAT(Produce(scope, &one),
                AllOf(HasExactlyAttributes({"first", "vw", "wb"}), HasExactlyBodyFields({"last"})));
}

TEST_F(FormsTest, MoreFormsThanAreKeptAreStillRight) {
    for (int round = 0; round < 2; ++round) {
        for (int i = 0; i < 600; ++i) {
            const std::string name = "name" + std::to_string(i);

            ASSERT_THAT(Produce({{TString(name), i}}),
                        AllOf(HasExactlyBodyFields({name}), HasBodyField(name, i)));
        }
    }
}

TEST_F(FormsTest, AnEventWithMoreNamesThanAKeyHoldsHasThemAll) {
    for (const int count : {300, 301, 300}) {
        MetricsMonitor::ScopeState::Attributes attributes;
        for (int i = 0; i < count; ++i) {
            attributes.Set(TString(std::to_string(i)), i);
        }

        EXPECT_EQ(Produce(attributes).GetBody()->GetFields().size(),
                  static_cast<std::size_t>(count));
    }
}

TEST_F(FormsTest, AnEventLikeAFormerOneAllocatesNothing) {
    MetricsMonitor::ScopeState scope;
    scope.attributes = {{u"table", "packages"}, {u"rows", 12}};
    Produce(scope);
    Produce(scope);
    const tarn::test::AllocationCounter counter;

    Produce(scope);

    // A sanitizer is to see each block.
    EXPECT_EQ(counter.Allocations(), hasThreadSanitizer || hasAddressSanitizer ? 1U : 0U);
}

}  // namespace
