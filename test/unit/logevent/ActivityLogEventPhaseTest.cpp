#include "ActivityEventInput.h"
#include "ActivityLogEventProducer.h"
#include "MonitorTest.h"

#include "tarn/ActivityConfig.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using tarn::test::HasActivityField;
using tarn::test::HasExactlyActivityFields;
using tarn::test::HasExactlyAttributes;
using tarn::test::HasExactlyBodyFields;
using tarn::test::HasExactlyEnvironmentFields;
using tarn::test::Table;
using testing::AllOf;

/// The monitor asks for the first two phases only; an event of any other says less.
class PhaseTest : public tarn::test::TarnTest {
protected:
    static TLog::Event Produce(int phase, bool describesRequest) {
        MetricsMonitor::ScopeState scope;
        scope.name = TString(u"query");
        scope.traceDepth = describesRequest ? 0 : 1;
        scope.attributes = {{TString(u"rows"), 12}};
        scope.supplements.push_back({0, {{"step", 1}}});
        const tarn::RequestContextAttributes::Table none;
        const tarn::ActivityEventInput input{
            scope, &tarn::NoText(), TUUID(), TUUID(), nullptr, none, 0};
        const auto activityPhase = static_cast<ActivityPhase>(phase);
        return tarn::ActivityLogEventProducer().Produce(
            activityPhase,
            ActivityConfig(activityPhase, scope.name).GetUniqueActivityName(),
            input);
    }

    static testing::Matcher<const TLog::Event&> HasTables(
        const std::vector<std::string>& activity,
        const std::vector<std::string>& environment,
        const std::vector<std::string>& attributes,
        const std::vector<std::string>& body) {
        return AllOf(HasExactlyActivityFields(activity),
                     HasExactlyEnvironmentFields(environment),
                     HasExactlyAttributes(attributes),
                     HasExactlyBodyFields(body));
    }
};

TEST_F(PhaseTest, ABeginning) {
    EXPECT_THAT(Produce(0, false),
                HasTables({"depth", "id", "name", "type"}, {}, {"vw", "wb"}, {"rows"}));
    EXPECT_THAT(Produce(0, true),
                HasTables({"depth", "id", "name", "req-desc", "type"}, {}, {"vw", "wb"}, {"rows"}));
}

TEST_F(PhaseTest, AnEnd) {
    EXPECT_THAT(Produce(1, false),
                HasTables({"depth", "elapsed", "exclusive", "id", "name", "rk", "rv", "type"},
                          {},
                          {"vw", "wb"},
                          {"logs", "rows"}));
    EXPECT_THAT(
        Produce(1, true),
        HasTables({"depth", "elapsed", "exclusive", "id", "name", "req-desc", "rk", "rv", "type"},
                  {"host"},
                  {"vw", "wb"},
                  {"logs", "rows"}));
}

TEST_F(PhaseTest, AnythingElseHasItsIdentityAlone) {
    for (const int phase : {2, 7, -1}) {
        EXPECT_THAT(Produce(phase, false),
                    AllOf(HasTables({"depth", "id", "name", "type"}, {}, {}, {}),
                          HasActivityField("type", "-")));
        EXPECT_THAT(Produce(phase, true),
                    HasTables({"depth", "id", "name", "req-desc", "type"}, {}, {}, {}));
        EXPECT_EQ(Produce(phase, false).GetName(), TString(u"query"));
    }
}

}  // namespace
