#include "ActivityContextProxyTest.h"

#include "tarn/ActivityScope.h"

#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn::test {
namespace {

const ActivityScope& ScopeOf(const ActivityContextProxy& proxy);
int32 StatusOf(const ActivityScope& scope);

template <auto Scope>
struct ScopeAccess {
    friend const ActivityScope& ScopeOf(const ActivityContextProxy& proxy) {
        return *(proxy.*Scope);
    }
};

template <auto Status>
struct StatusAccess {
    friend int32 StatusOf(const ActivityScope& scope) { return static_cast<int32>(scope.*Status); }
};

// Names in an explicit instantiation are not checked for access.
template struct ScopeAccess<&ActivityContextProxy::m_scope>;
template struct StatusAccess<&ActivityScope::m_status>;

}  // namespace

int32 OutcomeOf(const ActivityContextProxy& proxy) {
    return StatusOf(ScopeOf(proxy));
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(ActivityContextProxyTest, CancelingPutsTheOutcomeBehindTheCallersPairs) {
    ActivityContextProxy proxy("job", {}, {});
    Sent();

    proxy.Cancel({{u"why", u"timeout"}, {u"zone", u"eu"}});
    proxy.Cancel({});

    EXPECT_THAT(Sent(),
                ElementsAre(SendsPairs(u"resultAttrs",
                                       {{u"why", u"timeout"},
                                        {u"zone", u"eu"},
                                        {u"rk", u"early-termination"},
                                        {u"type", u"canceled"}}),
                            Canceled()));
}

TEST_F(ActivityContextProxyTest, FailingPutsTheReasonBehindTheCallersPairs) {
    ActivityContextProxy proxy("job", {}, {});
    Sent();

    proxy.Fail(u"quota", {{u"used", u"11"}, {u"zone", u"eu"}});
    proxy.Fail(u"", {});

    EXPECT_THAT(Sent(),
                ElementsAre(SendsPairs(u"resultAttrs",
                                       {{u"used", u"11"}, {u"zone", u"eu"}, {u"rk", u"quota"}}),
                            SendsPairs(u"resultAttrs", {{u"rk", u""}})));
}

TEST_F(ActivityContextProxyTest, ACallersOwnResultKeyStaysBesideTheReason) {
    ActivityContextProxy proxy("job", {}, {});
    Sent();

    proxy.Fail(u"quota", {{u"rk", u"mine"}, {u"type", u"mine too"}});

    EXPECT_THAT(
        Sent(),
        ElementsAre(SendsPairs(u"resultAttrs",
                               {{u"rk", u"mine"}, {u"type", u"mine too"}, {u"rk", u"quota"}})));
}

TEST_F(ActivityContextProxyTest, AnExceptionGivesThreePairs) {
    ActivityContextProxy proxy("job", {}, {});
    Sent();

    proxy.FailException(u"T", u"M");
    proxy.FailException(u"", u"");

    EXPECT_THAT(Sent(),
                ElementsAre(FailedWithException(),
                            SendsPairs(u"resultAttrs",
                                       {{u"rk", u"exception"}, {u"type", u""}, {u"msg", u""}})));
}

TEST_F(ActivityContextProxyTest, EveryReportIsSentWhateverCameBefore) {
    ActivityContextProxy proxy("job", {}, {});
    Sent();

    proxy.Cancel({});
    proxy.Fail(u"late", {});
    proxy.FailException(u"T", u"M");
    proxy.Fail(u"later", {});
    proxy.Cancel({});

    EXPECT_THAT(Sent(),
                ElementsAre(Canceled(),
                            SendsPairs(u"resultAttrs", {{u"rk", u"late"}}),
                            FailedWithException(),
                            SendsPairs(u"resultAttrs", {{u"rk", u"later"}}),
                            Canceled()));
}

TEST_F(ActivityContextProxyTest, EveryReportSetsTheOutcomeWhateverCameBefore) {
    ActivityContextProxy proxy("job", {}, {});
    EXPECT_EQ(OutcomeOf(proxy), statusNone);

    proxy.Cancel({});
    EXPECT_EQ(OutcomeOf(proxy), statusCanceled);
    proxy.Fail(u"quota", {});
    EXPECT_EQ(OutcomeOf(proxy), statusFailed);
    proxy.Cancel({});
    EXPECT_EQ(OutcomeOf(proxy), statusCanceled);
    proxy.FailException(u"T", u"M");
    EXPECT_EQ(OutcomeOf(proxy), statusFailed);
}

class UnwindingProxyTest : public ActivityContextProxyTest {
protected:
    /// Lets an exception end an activity that has made this report, and gives what is sent then.
    template <class Report>
    std::vector<EventContent> SentWhileUnwinding(Report&& report) {
        try {
            ActivityContextProxy proxy("job", {}, {});
            report(proxy);
            Sent();
            throw std::runtime_error("x");
        } catch (const std::runtime_error&) {
        }
        return Sent();
    }
};

TEST_F(UnwindingProxyTest, AnExceptionThatWasNotReportedIsAnEarlyTermination) {
    EXPECT_THAT(SentWhileUnwinding([](ActivityContextProxy&) {}),
                ElementsAre(StackUnwind(), ThreadIdEvent(), ClosesJob()));
}

TEST_F(UnwindingProxyTest, AReportedExceptionIsNotReportedAgain) {
    EXPECT_THAT(
        SentWhileUnwinding([](ActivityContextProxy& proxy) { proxy.FailException(u"T", u"M"); }),
        ElementsAre(ThreadIdEvent(), ClosesJob()));
}

TEST_F(UnwindingProxyTest, AfterAFailureNoEarlyTerminationIsReported) {
    EXPECT_THAT(SentWhileUnwinding([](ActivityContextProxy& proxy) { proxy.Fail(u"quota", {}); }),
                ElementsAre(ThreadIdEvent(), ClosesJob()));
}

TEST_F(UnwindingProxyTest, AfterACancellationNoEarlyTerminationIsReported) {
    EXPECT_THAT(SentWhileUnwinding([](ActivityContextProxy& proxy) { proxy.Cancel({}); }),
                ElementsAre(ThreadIdEvent(), ClosesJob()));
}

TEST_F(UnwindingProxyTest, AfterSeveralReportsNoEarlyTerminationIsReported) {
    EXPECT_THAT(SentWhileUnwinding([](ActivityContextProxy& proxy) {
                    proxy.Fail(u"quota", {});
                    proxy.Cancel({});
                }),
                ElementsAre(ThreadIdEvent(), ClosesJob()));
    EXPECT_THAT(SentWhileUnwinding([](ActivityContextProxy& proxy) {
                    proxy.Cancel({});
                    proxy.FailException(u"T", u"M");
                }),
                ElementsAre(ThreadIdEvent(), ClosesJob()));
}

TEST_F(UnwindingProxyTest, AttributesAloneAreNoReport) {
    EXPECT_THAT(SentWhileUnwinding([](ActivityContextProxy& proxy) {
                    proxy.PutActivityAttributes({{u"rk", u"exception"}});
                }),
                ElementsAre(StackUnwind(), ThreadIdEvent(), ClosesJob()));
}

TEST_F(UnwindingProxyTest, AnActivityThatWasClosedBeforeIsNotConcerned) {
    EXPECT_THAT(SentWhileUnwinding([](ActivityContextProxy& proxy) { proxy.Close(); }), IsEmpty());
}

TEST_F(UnwindingProxyTest, AnActivityThatIsClosedWhileUnwindingIsTerminatedEarly) {
    ActivityContextProxy proxy("job", {}, {});

    struct Closer {
        ActivityContextProxy& proxy;

        ~Closer() { proxy.Close(); }
    };

    Sent();

    EXPECT_THROW(
        {
            const Closer closer{proxy};
            throw std::runtime_error("x");
        },
        std::runtime_error);

    EXPECT_THAT(Sent(), ElementsAre(StackUnwind(), ThreadIdEvent(), ClosesJob()));
}

}  // namespace
}  // namespace tarn::test
