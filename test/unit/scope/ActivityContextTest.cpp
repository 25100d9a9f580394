#include "tarn/ActivityContext.h"

#include "ActivityContextDerivation.h"
#include "KnownIds.h"
#include "TarnTest.h"

#include "tarn/MetricsMonitor.h"
#include "tarn/OptTarn.h"
#include "tarn/Traits.h"

#include "cvlcoreplatform/TString.h"
#include "cvlcoreplatform/TUUID.h"
#include "cvlsys/RefCntObject.h"

#include <limits>
#include <memory>
#include <set>
#include <string>
#include <type_traits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn::test {
namespace {

using testing::MatchesRegex;

const TString fixedId(u"00000000-0000-0000-0000-00000000000A");

class ActivityContextTest : public TarnTest {
protected:
    std::shared_ptr<ActivityContext> Parent() const {
        return std::make_shared<ActivityContext>(
            TString(u"r"), TString(u"root"), TString(u"act"), TString(u"sp"), 2, 5);
    }
};

void ExpectContext(const ActivityContext& context,
                   const char16_t* request,
                   const char16_t* root,
                   const char16_t* activity,
                   const char16_t* sponsor,
                   int traceDepth,
                   int serviceDepth) {
    EXPECT_EQ(context.GetRequestId(), TString(request));
    EXPECT_EQ(context.GetRootId(), TString(root));
    EXPECT_EQ(context.GetActivityId(), TString(activity));
    EXPECT_EQ(context.GetSponsorId(), TString(sponsor));
    EXPECT_EQ(context.GetTraceDepth(), traceDepth);
    EXPECT_EQ(context.GetServiceDepth(), serviceDepth);
}

// ---- Ids

TEST_F(ActivityContextTest, EveryIdIsTheFixedOneWhileForegroundContextsAreOff) {
    EXPECT_EQ(ActivityContext::NewTarnId(), fixedId);
    EXPECT_EQ(ActivityContext::NewTarnId(), ActivityContext::NewTarnId());
}

TEST_F(ActivityContextTest, EveryIdIsNewWhileForegroundContextsAreOn) {
    OptTarn::SetIsForegroundThreadContextEnabled(true);
    std::set<TString> ids;

    for (int i = 0; i < 1000; ++i) {
        ids.insert(ActivityContext::NewTarnId());
    }

    EXPECT_EQ(ids.size(), 1000U);
    EXPECT_EQ(ids.count(fixedId), 0U);
}

TEST_F(ActivityContextTest, ARandomIdIsARandomUuidIn36UpperCaseCharacters) {
    OptTarn::SetIsForegroundThreadContextEnabled(true);

    const std::string id = ActivityContext::NewTarnId().ToUtf8();

    EXPECT_THAT(
        id, MatchesRegex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}"));
}

TEST_F(ActivityContextTest, TheOptionIsReadForEachId) {
    OptTarn::SetIsForegroundThreadContextEnabled(true);
    EXPECT_NE(ActivityContext::NewTarnId(), fixedId);

    OptTarn::SetIsForegroundThreadContextEnabled(false);
    EXPECT_EQ(ActivityContext::NewTarnId(), fixedId);
}

TEST_F(ActivityContextTest, IdsOfTwoThreadsDiffer) {
    OptTarn::SetIsForegroundThreadContextEnabled(true);
    std::set<TString> here;
    std::set<TString> there;

    OnAnotherThread([&there] {
        for (int i = 0; i < 200; ++i) {
            there.insert(ActivityContext::NewTarnId());
        }
    });
    for (int i = 0; i < 200; ++i) {
        here.insert(ActivityContext::NewTarnId());
    }
    here.merge(there);

    EXPECT_EQ(here.size(), 400U);
}

TEST_F(ActivityContextTest, AMonitorsGeneratorNeverFeedsContexts) {
    OptTarn::SetIsForegroundThreadContextEnabled(true);
    const auto made = std::make_shared<int>(0);
    RefCntPtr<MetricsMonitor> monitor(new MetricsMonitor(1));
    monitor->EnableTest(new MetricsMonitor::LogSink, new KnownIds(made));

    const TString id = ActivityContext::NewTarnId();
    const ActivityContext context;

    EXPECT_EQ(*made, 0);
    EXPECT_NE(id.ToUtf8(), KnownIds::Text(1));
}

// ---- Contexts

TEST_F(ActivityContextTest, ANewContextIsTheRootOfItsOwnTree) {
    OptTarn::SetIsForegroundThreadContextEnabled(true);

    const ActivityContext context;

    EXPECT_EQ(context.GetRequestId(), TString(u"-"));
    EXPECT_NE(context.GetActivityId(), fixedId);
    EXPECT_EQ(context.GetRootId(), context.GetActivityId());
    EXPECT_EQ(context.GetSponsorId(), context.GetActivityId());
    EXPECT_EQ(context.GetTraceDepth(), 0);
    EXPECT_EQ(context.GetServiceDepth(), 0);
}

TEST_F(ActivityContextTest, ANewContextHasTheFixedIdWhileForegroundContextsAreOff) {
    const ActivityContext context;

    ExpectContext(context, u"-", fixedId.Data(), fixedId.Data(), fixedId.Data(), 0, 0);
}

TEST_F(ActivityContextTest, TheRootIsGivenBeforeTheActivity) {
    const ActivityContext context(
        TString(u"r"), TString(u"root"), TString(u"act"), TString(u"sp"), 3, 4);

    ExpectContext(context, u"r", u"root", u"act", u"sp", 3, 4);
}

TEST_F(ActivityContextTest, IdsMayBeEmptyAndDepthsNegative) {
    const ActivityContext context(TString(), TString(), TString(), TString(), -1, -2);

    ExpectContext(context, u"", u"", u"", u"", -1, -2);
}

TEST_F(ActivityContextTest, AContextCannotBeChanged) {
    EXPECT_FALSE(std::is_copy_assignable_v<ActivityContext>);
    EXPECT_FALSE(std::is_move_assignable_v<ActivityContext>);
    EXPECT_FALSE(std::is_polymorphic_v<ActivityContext>);
}

TEST_F(ActivityContextTest, AccessorsReturnCopies) {
    EXPECT_TRUE((std::is_same_v<decltype(Parent()->GetRootId()), TString>));
    EXPECT_TRUE((std::is_same_v<decltype(Parent()->GetRequestId()), TString>));
    EXPECT_TRUE((std::is_same_v<decltype(Parent()->GetActivityId()), TString>));
    EXPECT_TRUE((std::is_same_v<decltype(Parent()->GetSponsorId()), TString>));
    EXPECT_TRUE((std::is_same_v<decltype(Parent()->GetTraceDepth()), int>));
    EXPECT_TRUE((std::is_same_v<decltype(Parent()->GetServiceDepth()), int>));
}

// ---- The context of a new scope

TEST_F(ActivityContextTest, WithoutAParentTheContextIsAFreshRoot) {
    OptTarn::SetIsForegroundThreadContextEnabled(true);

    const auto first = DeriveActivityContext({nullptr, false}, TraceType::Normal);
    const auto second = DeriveActivityContext({nullptr, false}, TraceType::Normal);

    EXPECT_NE(first->GetActivityId(), second->GetActivityId());
    EXPECT_EQ(first->GetRootId(), first->GetActivityId());
    EXPECT_EQ(first->GetSponsorId(), first->GetActivityId());
    EXPECT_EQ(first->GetTraceDepth(), 0);
    EXPECT_EQ(first->GetServiceDepth(), 0);
}

TEST_F(ActivityContextTest, AdoptingNothingGivesAFreshRoot) {
    OptTarn::SetIsForegroundThreadContextEnabled(true);

    const auto context = DeriveActivityContext({nullptr, true}, TraceType::Transparent);

    EXPECT_EQ(context->GetRequestId(), TString(u"-"));
    EXPECT_EQ(context->GetRootId(), context->GetActivityId());
    EXPECT_EQ(context->GetTraceDepth(), 0);
    EXPECT_EQ(context->GetServiceDepth(), 0);
}

TEST_F(ActivityContextTest, AdoptingMakesANewObjectWithTheSameValues) {
    OptTarn::SetIsForegroundThreadContextEnabled(true);
    const auto parent = Parent();

    for (const TraceType type :
         {TraceType::Normal, TraceType::Transparent, TraceType::Untracked, TraceType{7}}) {
        const auto context = DeriveActivityContext({parent, true}, type);

        EXPECT_NE(context, parent);
        ExpectContext(*context, u"r", u"root", u"act", u"sp", 2, 5);
    }
}

TEST_F(ActivityContextTest, AChildIsSponsoredByItsParentAndOneDeeper) {
    OptTarn::SetIsForegroundThreadContextEnabled(true);

    const auto child = DeriveActivityContext({Parent(), false}, TraceType::Normal);

    ExpectContext(*child, u"-", u"root", child->GetActivityId().Data(), u"act", 3, 6);
    EXPECT_NE(child->GetActivityId(), fixedId);
    EXPECT_NE(child->GetActivityId(), TString(u"act"));
}

TEST_F(ActivityContextTest, AChildGetsTheFixedIdWhileForegroundContextsAreOff) {
    const auto child = DeriveActivityContext({Parent(), false}, TraceType::Normal);

    ExpectContext(*child, u"-", u"root", fixedId.Data(), u"act", 3, 6);
}

TEST_F(ActivityContextTest, AChildNeverInheritsTheRequestId) {
    const auto child = DeriveActivityContext({Parent(), false}, TraceType::Normal);
    const auto transparent = DeriveActivityContext({Parent(), false}, TraceType::Transparent);

    EXPECT_EQ(child->GetRequestId(), TString(u"-"));
    EXPECT_EQ(transparent->GetRequestId(), TString(u"-"));
}

TEST_F(ActivityContextTest, ATransparentChildKeepsTheDepthsWhileTransparentScopesAreNotLogged) {
    OptTarn::SetIsForegroundThreadContextEnabled(true);

    const auto child = DeriveActivityContext({Parent(), false}, TraceType::Transparent);

    ExpectContext(*child, u"-", u"root", child->GetActivityId().Data(), u"act", 2, 5);
    EXPECT_NE(child->GetActivityId(), TString(u"act"));
}

TEST_F(ActivityContextTest, ATransparentChildIsOneDeeperWhileTransparentScopesAreLogged) {
    OptTarn::SetShouldLogTransparent(true);

    const auto child = DeriveActivityContext({Parent(), false}, TraceType::Transparent);

    EXPECT_EQ(child->GetTraceDepth(), 3);
    EXPECT_EQ(child->GetServiceDepth(), 6);
}

TEST_F(ActivityContextTest, ANormalChildOfATransparentContextIsOneDeeperThanThatContext) {
    const auto transparent = DeriveActivityContext({Parent(), false}, TraceType::Transparent);

    const auto child = DeriveActivityContext({transparent, false}, TraceType::Normal);

    EXPECT_EQ(child->GetTraceDepth(), 3);
    EXPECT_EQ(child->GetServiceDepth(), 6);
}

TEST_F(ActivityContextTest, OneMoreThanTheLargestDepthWraps) {
    constexpr int largest = std::numeric_limits<int>::max();
    constexpr int smallest = std::numeric_limits<int>::min();
    const auto deepest = std::make_shared<ActivityContext>(
        TString(u"r"), TString(u"root"), TString(u"act"), TString(u"sp"), largest, largest);

    const auto child = DeriveActivityContext({deepest, false}, TraceType::Normal);
    const auto transparent = DeriveActivityContext({deepest, false}, TraceType::Transparent);

    EXPECT_EQ(child->GetTraceDepth(), smallest);
    EXPECT_EQ(child->GetServiceDepth(), smallest);
    EXPECT_EQ(transparent->GetTraceDepth(), largest);
    EXPECT_EQ(transparent->GetServiceDepth(), largest);
}

TEST_F(ActivityContextTest, EveryOtherTypeIsOneDeeper) {
    for (const TraceType type : {TraceType::Untracked, TraceType{7}, TraceType{-1}}) {
        const auto child = DeriveActivityContext({Parent(), false}, type);

        EXPECT_EQ(child->GetTraceDepth(), 3);
        EXPECT_EQ(child->GetServiceDepth(), 6);
    }
}

TEST_F(ActivityContextTest, AnInitializerWithoutValuesHasNoParentAndDoesNotAdopt) {
    const ActivityContextInitializer initializer;

    EXPECT_EQ(initializer.parent, nullptr);
    EXPECT_FALSE(initializer.adopt);
}

}  // namespace
}  // namespace tarn::test
