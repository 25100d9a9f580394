#include "ActivityContextProxyTest.h"

#include "tarn/ActivityScope.h"
#include "tarn/TarnSettings.h"

#include "cvlsys/TSystem.h"

#include <stdexcept>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn::test {
namespace {

using Attributes = ActivityContextProxy::Attributes;
using testing::ElementsAre;
using testing::IsEmpty;

class SwitchedOffProxyTest : public ForegroundProxyTest {
protected:
    SwitchedOffProxyTest() { TarnSettings::GetInstance().SetOffs({"job"}); }
};

TEST_F(SwitchedOffProxyTest, ReportsLeaveTheOutcomeAlone) {
    ActivityContextProxy proxy("job", {}, {});

    proxy.Fail(u"reason", {});
    proxy.FailException(u"T", u"M");
    proxy.Cancel({});

    EXPECT_EQ(OutcomeOf(proxy), statusNone);
}

TEST_F(SwitchedOffProxyTest, NothingIsSentAndNothingIsCurrent) {
    {
        ActivityContextProxy proxy("job", {{u"a", u"1"}}, AllSix() + Attributes{{u"user", u"ann"}});
        EXPECT_EQ(Current(), nullptr);

        proxy.PutActivityAttributes({{u"a", u"1"}});
        proxy.PutContextAttributes({{u"a", u"1"}});
        proxy.Cancel({{u"a", u"1"}});
        proxy.Fail(u"reason", {{u"a", u"1"}});
        proxy.FailException(u"T", u"M");
        proxy.AttachToThread();
        EXPECT_EQ(Current(), nullptr);
        proxy.DetachFromThread();
        proxy.Close();
        proxy.Close();
    }

    EXPECT_THAT(Sent(), IsEmpty());
}

TEST_F(SwitchedOffProxyTest, TheSameHoldsWithoutARoot) {
    {
        ActivityContextProxy proxy("job", {{u"a", u"1"}}, {{u"user", u"ann"}});
        proxy.FailException(u"T", u"M");
        EXPECT_EQ(Current(), nullptr);
    }

    EXPECT_THAT(Sent(), IsEmpty());
}

TEST_F(SwitchedOffProxyTest, TheSameHoldsByRank) {
    TarnSettings::GetInstance().SetOffs({});
    TarnSettings::GetInstance().SetRankOn(static_cast<TraceRank>(-1));

    {
        ActivityContextProxy proxy("job", {{u"a", u"1"}}, AllSix());
        proxy.Cancel({});
    }

    EXPECT_THAT(Sent(), IsEmpty());
}

TEST_F(SwitchedOffProxyTest, UnwindingItSendsNothing) {
    EXPECT_THROW(
        {
            const ActivityContextProxy proxy("job", {}, AllSix());
            throw std::runtime_error("x");
        },
        std::runtime_error);

    EXPECT_THAT(Sent(), IsEmpty());
}

TEST_F(SwitchedOffProxyTest, TheActivityAroundItStaysCurrent) {
    const ActivityScope around("around");

    const ActivityContextProxy proxy("job", {}, AllSix());

    EXPECT_EQ(Current(), around.GetActivityContext());
}

TEST_F(SwitchedOffProxyTest, OtherNamesAreOn) {
    const ActivityContextProxy proxy("jobs", {}, AllSix());

    EXPECT_THAT(Texts(Current()), ElementsAre("Q", "R", "A", "S", "3", "1"));
}

TEST_F(SwitchedOffProxyTest, FirstOnAThreadItStillOwnsAMetricsContext) {
    uint64 threadId = 0;

    OnAnotherThread([&threadId] {
        threadId = TSystem::ThreadID();
        const ActivityContextProxy proxy("job", {}, AllSix());
        EXPECT_NE(CurrentMetricsContext(), 0U);
    });

    EXPECT_THAT(
        Sent(),
        ElementsAre(CreatesContext(), OpensContext(), AnnouncesThread(threadId), ClosesContext()));
}

}  // namespace
}  // namespace tarn::test
