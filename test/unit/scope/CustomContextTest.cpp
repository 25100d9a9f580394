#include "tarn/CustomContext.h"

#include "BusEvents.h"

#include "tarn/ActivityScope.h"

#include "cvlmetrics/MetricsValue.h"

#include <initializer_list>
#include <type_traits>
#include <utility>

#include <gtest/gtest.h>

namespace tarn::test {
namespace {

using Metrics::NameValueList;
using Metrics::NameValuePair;

NameValueList Pairs() {
    return {{"first", 1}, {u"second", u"two"}};
}

template <class From>
constexpr bool makesCustomContext = std::is_constructible_v<CustomContext, From>;

template <class From>
constexpr bool turnsIntoCustomContext = std::is_convertible_v<From, CustomContext>;

TEST(CustomContextTest, OnlyAListThatIsGivenAwayMakesOne) {
    EXPECT_TRUE((makesCustomContext<NameValueList&&>));
    EXPECT_FALSE((makesCustomContext<NameValueList&>));
    EXPECT_FALSE((makesCustomContext<const NameValueList&>));
    EXPECT_FALSE((makesCustomContext<const NameValueList&&>));
    EXPECT_FALSE((makesCustomContext<std::initializer_list<NameValuePair>>));
    EXPECT_FALSE((makesCustomContext<NameValuePair>));
    EXPECT_FALSE((makesCustomContext<Metrics::MetricsValue>));
    EXPECT_FALSE((makesCustomContext<const char*>));
    EXPECT_FALSE((makesCustomContext<int>));
    EXPECT_FALSE((std::is_default_constructible_v<CustomContext>));
}

TEST(CustomContextTest, NothingTurnsIntoOneSilently) {
    EXPECT_FALSE((turnsIntoCustomContext<NameValueList>));
    EXPECT_FALSE((turnsIntoCustomContext<NameValueList&>));
    EXPECT_FALSE((turnsIntoCustomContext<std::initializer_list<NameValuePair>>));
}

TEST(CustomContextTest, AScopeTakesAListOrACustomContextAndNeverMistakesOneForTheOther) {
    EXPECT_TRUE((std::is_constructible_v<ActivityScope, const char*, NameValueList&&>));
    EXPECT_TRUE((std::is_constructible_v<ActivityScope, const char*, CustomContext&&>));
    EXPECT_FALSE((std::is_constructible_v<ActivityScope, const char*, NameValueList&>));
    EXPECT_FALSE((std::is_constructible_v<ActivityScope, const char*, const NameValueList&>));
    EXPECT_FALSE((std::is_constructible_v<ActivityScope, const char*, CustomContext&>));
    EXPECT_FALSE((std::is_constructible_v<ActivityScope, const char*, const CustomContext&>));
}

TEST(CustomContextTest, MakingOneEmptiesTheList) {
    NameValueList list = Pairs();

    const CustomContext context(std::move(list));

    EXPECT_TRUE(list.empty());  // NOLINT(bugprone-use-after-move): this is what is promised
    EXPECT_EQ(context.attributes, Pairs());
}

TEST(CustomContextTest, AnEmptyListMakesAnEmptyOne) {
    const CustomContext context(NameValueList{});

    EXPECT_TRUE(context.attributes.empty());
}

TEST(CustomContextTest, ACopyHasItsOwnPairs) {
    CustomContext context(Pairs());

    CustomContext copy(context);
    copy.attributes.clear();

    EXPECT_EQ(context.attributes, Pairs());
}

TEST(CustomContextTest, AnAssignedCopyReplacesThePairs) {
    const CustomContext context(Pairs());
    CustomContext other(NameValueList{{"x", 1}, {"y", 2}, {"z", 3}});

    other = context;

    EXPECT_EQ(other.attributes, Pairs());
    EXPECT_EQ(context.attributes, Pairs());
}

TEST(CustomContextTest, MovingTakesThePairsAway) {
    CustomContext context(Pairs());

    CustomContext moved(std::move(context));
    // Its emptiness after the move is what is promised.
    EXPECT_TRUE(context.attributes.empty());  // NOLINT(bugprone-use-after-move): promised
    EXPECT_EQ(moved.attributes, Pairs());

    CustomContext assigned(NameValueList{{"x", 1}});
    assigned = std::move(moved);
    // Its emptiness after the move is what is promised.
    EXPECT_TRUE(moved.attributes.empty());  // NOLINT(bugprone-use-after-move): promised
    EXPECT_EQ(assigned.attributes, Pairs());
}

TEST(CustomContextTest, MovingOneIntoItselfKeepsItsPairs) {
    CustomContext context(Pairs());
    CustomContext& itself = context;

    context = std::move(itself);

    EXPECT_EQ(context.attributes, Pairs());
}

TEST(CustomContextTest, AssigningACopyOfOneToItselfKeepsItsPairs) {
    CustomContext context(Pairs());
    const CustomContext& itself = context;

    context = itself;

    EXPECT_EQ(context.attributes, Pairs());
}

}  // namespace
}  // namespace tarn::test
