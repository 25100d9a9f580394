#include "HostCounters.h"
#include "MetricsMonitorAttributeTest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using tarn::test::Ends;
using tarn::test::EventBuilder;
using tarn::test::HasAttribute;
using tarn::test::HasUser;
using tarn::test::HostCounters;
using tarn::test::MetricsMonitorAttributeTest;
using testing::AllOf;

class ParentRequestTest : public MetricsMonitorAttributeTest {
protected:
    static constexpr uint64 childContext = 2;

    /// Parent and child with a request each: the child's context is there before the parent's
    /// first scope.
    void OpenBoth() {
        OpenContext(childContext, rootContext);
        Send(EventBuilder::OpenScope(8, "child").In(childContext));
        Open(7, "parent");
    }

    void CloseChild() { Send(EventBuilder::CloseScope(8).In(childContext)); }

    void AddToChildsRequest(const Metrics::NameValueList& pairs) {
        Send(EventBuilder::ContextPairs(childContext, "reqCtxAttrs", pairs));
    }
};

TEST_F(ParentRequestTest, WorkbookAndViewOfAChildGoToTheParentAtItsEnd) {
    EnableForegroundContexts();
    OpenBoth();
    AddToChildsRequest({{"vw", "view"}, {"wb", "book"}, {"user", "ada"}});

    CloseChild();
    Close(7);

    EXPECT_THAT(
        LastEvent(),
        AllOf(
            Ends("parent"), HasAttribute("vw", "view"), HasAttribute("wb", "book"), HasUser("-")));
}

TEST_F(ParentRequestTest, WithoutForegroundContextsNothingGoesToTheParent) {
    OpenBoth();
    AddToChildsRequest({{"vw", "view"}, {"wb", "book"}});

    CloseChild();
    Close(7);

    EXPECT_THAT(LastEvent(),
                AllOf(Ends("parent"), HasAttribute("vw", "-"), HasAttribute("wb", "-")));
}

TEST_F(ParentRequestTest, OnlyWhatTheChildHasReplacesWhatTheParentHas) {
    EnableForegroundContexts();
    OpenBoth();
    AddToContext("reqCtxAttrs", {{"vw", "parents"}, {"wb", "parents"}});
    AddToChildsRequest({{"vw", "childs"}});

    CloseChild();
    Close(7);

    EXPECT_THAT(LastEvent(),
                AllOf(Ends("parent"), HasAttribute("vw", "childs"), HasAttribute("wb", "parents")));
}

TEST_F(ParentRequestTest, AnUnloggedTransparentChildGivesItsWorkbookToo) {
    EnableForegroundContexts();
    OpenContext(childContext, rootContext);
    Send(EventBuilder::OpenScope(8, "child").In(childContext).Transparent());
    Open(7, "parent");
    AddToChildsRequest({{"wb", "book"}});

    CloseChild();
    Close(7);

    EXPECT_THAT(LastEvent(), AllOf(Ends("parent"), HasAttribute("wb", "book")));
}

TEST_F(ParentRequestTest, AParentWithoutARequestGetsOneEvenIfThereIsNothingToGive) {
    EnableForegroundContexts();
    OpenContext(childContext, rootContext);
    Send(EventBuilder::OpenScope(8, "child").In(childContext));
    HostCounters counters;

    CloseChild();

    EXPECT_EQ(counters.requestContextsCreated, 1);
    EXPECT_EQ(counters.requestContextsClosed, 0);
    Send(EventBuilder::CloseContext(rootContext));
    EXPECT_EQ(counters.requestContextsClosed, 1);
}

TEST_F(ParentRequestTest, AParentThatIsGoneGetsNothingAndStaysUnknown) {
    EnableForegroundContexts();
    OpenBoth();
    AddToChildsRequest({{"wb", "book"}});
    Send(EventBuilder::CloseContext(rootContext));

    CloseChild();

    EXPECT_EQ(monitor->GetNumberOpenContexts(), 1U);
    EXPECT_THAT(LastEvent(), AllOf(Ends("child"), HasAttribute("wb", "book")));
}

TEST_F(ParentRequestTest, AChildThatIsCreatedAgainAsARootGivesNothingAnyMore) {
    EnableForegroundContexts();
    OpenBoth();
    AddToChildsRequest({{"wb", "book"}});

    Send(EventBuilder::CreateContext(childContext, 0));
    CloseChild();
    Close(7);

    EXPECT_THAT(LastEvent(), AllOf(Ends("parent"), HasAttribute("wb", "-")));
}

TEST_F(ParentRequestTest, AChildThatIsCreatedAgainUnderAnotherParentGivesToThatOne) {
    constexpr uint64 otherContext = 3;
    EnableForegroundContexts();
    OpenBoth();
    OpenContext(otherContext);
    Send(EventBuilder::OpenScope(9, "other").In(otherContext));

    Send(EventBuilder::CreateContext(childContext, otherContext));
    AddToChildsRequest({{"wb", "book"}});
    CloseChild();

    Close(7);
    EXPECT_THAT(LastEvent(), AllOf(Ends("parent"), HasAttribute("wb", "-")));
    Send(EventBuilder::CloseScope(9).In(otherContext));
    EXPECT_THAT(LastEvent(), AllOf(Ends("other"), HasAttribute("wb", "book")));
}

TEST_F(ParentRequestTest, AContextWithTheIdZeroIsNobodysParent) {
    EnableForegroundContexts();
    OpenContext(0);
    HostCounters counters;
    Open(7, "query");

    Close(7);

    EXPECT_EQ(counters.requestContextsCreated, 1);
}

TEST_F(ParentRequestTest, AScopeOfARootContextGivesNothingToAnyone) {
    EnableForegroundContexts();
    HostCounters counters;
    Open(7, "query");
    AddToContext("reqCtxAttrs", {{"wb", "book"}});

    Close(7);

    EXPECT_EQ(counters.requestContextsCreated, 1);
    EXPECT_EQ(monitor->GetNumberOpenContexts(), 1U);
}

TEST_F(ParentRequestTest, ADroppedChildGivesNothing) {
    EnableForegroundContexts();
    OpenBoth();
    Send(EventBuilder::OpenScope(9, "inner").In(childContext));
    AddToChildsRequest({{"wb", "book"}});

    CloseChild();
    Close(7);

    EXPECT_THAT(LastEvent(), AllOf(Ends("parent"), HasAttribute("wb", "-")));
}

}  // namespace
