#include "ActivityContextProxyTest.h"
#include "Matchers.h"
#include "MonitoredHost.h"

#include "tarn/ExceptionParser.h"
#include "tarn/OptTarn.h"

#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn::test {
namespace {

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;

class ActivityContextProxyInTheLogTest : public TarnTest {
protected:
    MonitoredHost m_host;
};

TEST_F(ActivityContextProxyInTheLogTest, AnAdoptedActivityContinuesUnderItsOwnIds) {
    OptTarn::SetIsForegroundThreadContextEnabled(true);

    { const ActivityContextProxy proxy("job", {{u"path", u"/tmp"}}, AllSix()); }

    ASSERT_EQ(m_host.Events().size(), 2U);
    EXPECT_THAT(m_host.Events(),
                Each(AllOf(HasRequest("Q"),
                           HasActivityField("id", "A"),
                           HasActivityField("root", "R"),
                           HasActivityField("depth", 3),
                           HasBodyField("sDepth", 1))));
    EXPECT_THAT(m_host.Events(),
                ElementsAre(AllOf(Begins("job"), HasBodyField("path", "/tmp")), Ends("job")));
}

TEST_F(ActivityContextProxyInTheLogTest, AParsedExceptionBecomesTheResult) {
    ActivityContextProxy proxy("job", {}, {});
    try {
        throw std::out_of_range("past the end");
    } catch (...) {
        const ExceptionInfo info = ExceptionParser::ParseException(std::current_exception());
        proxy.FailException(info.type, info.message);
    }
    proxy.Close();

    ASSERT_EQ(m_host.Events().size(), 2U);
    EXPECT_THAT(
        m_host.Events().back(),
        AllOf(
            Ends("job"),
            HasActivityField("rk", "exception"),
            HasActivityField(
                "rv", LogValue::Object({{"type", "std::out_of_range"}, {"msg", "past the end"}}))));
}

TEST_F(ActivityContextProxyInTheLogTest, TheLastReportGivesTheResult) {
    {
        ActivityContextProxy proxy("job", {}, {});
        proxy.Cancel({{u"why", u"timeout"}});
        proxy.Fail(u"quota", {{u"used", u"11"}});
    }

    ASSERT_EQ(m_host.Events().size(), 2U);
    EXPECT_THAT(
        m_host.Events().back(),
        AllOf(HasActivityField("rk", "quota"),
              HasActivityField(
                  "rv",
                  LogValue::Object({{"why", "timeout"}, {"type", "canceled"}, {"used", "11"}}))));
}

TEST_F(ActivityContextProxyInTheLogTest, ContextAttributesReachTheActivityAndNoLaterOne) {
    { const ActivityContextProxy proxy("job", {}, {{u"team", u"red"}}); }
    { const ActivityContextProxy proxy("next", {}, {}); }

    EXPECT_THAT(m_host.Events(),
                ElementsAre(AllOf(Begins("job"), HasAttribute("team", "red")),
                            AllOf(Ends("job"), HasAttribute("team", "red")),
                            AllOf(Begins("next"), LacksAttribute("team")),
                            AllOf(Ends("next"), LacksAttribute("team"))));
}

}  // namespace
}  // namespace tarn::test
