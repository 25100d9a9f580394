#include "AllocationCounter.h"
#include "MonitorNames.h"
#include "SponsorChain.h"
#include "ThreadIds.h"

#include "cvlcoreplatform/TString.h"
#include "cvlmetrics/MetricsValue.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn {
namespace {

using Metrics::MetricsValue;
using testing::ElementsAre;

TString Name(int number) {
    return TString(std::to_string(number));
}

// ---- Sponsors.

std::vector<uint64> IdsOf(const SponsorChain& chain) {
    std::vector<uint64> ids;
    for (const uint64 id : chain) {
        ids.push_back(id);
    }
    return ids;
}

TEST(SponsorChainTest, TheNearestSponsorComesFirst) {
    SponsorChain chain;
    chain.Push(1);
    chain.Push(2);

    EXPECT_THAT(IdsOf(chain), ElementsAre(2, 1));
    EXPECT_THAT(chain.GetIds(), ElementsAre(1, 2));
}

TEST(SponsorChainTest, WhatOneScopeAddsAnotherDoesNotSee) {
    SponsorChain parent{1, 2};
    SponsorChain child = parent;

    child.Push(3);
    parent.Push(4);

    EXPECT_THAT(IdsOf(child), ElementsAre(3, 2, 1));
    EXPECT_THAT(IdsOf(parent), ElementsAre(4, 2, 1));
}

TEST(SponsorChainTest, AChainOfAMillionSponsorsIsGivenUpWithoutRecursion) {
    SponsorChain chain;
    for (uint64 id = 0; id < 1'000'000; ++id) {
        chain.Push(id);
    }

    chain = SponsorChain{7};

    EXPECT_THAT(IdsOf(chain), ElementsAre(7));
}

// ---- Threads.

TEST(ThreadIdsTest, EachThreadCountsOnce) {
    ThreadIds ids;
    for (const uint64 id : {5U, 3U, 5U, 9U, 3U}) {
        ids.Insert(id);
    }
    ThreadIds others;
    others.Insert(9);
    others.Insert(1);

    ids.Insert(others);

    EXPECT_EQ(ids.Size(), 4U);
    ids.Release();
    EXPECT_EQ(ids.Size(), 0U);
}

TEST(ThreadIdsTest, ManyThreadsCountOnceEach) {
    constexpr uint64 count = 1000;
    ThreadIds ids;
    ThreadIds others;
    for (int round = 0; round < 2; ++round) {
        for (uint64 id = 0; id < count; ++id) {
            ids.Insert(id * 7 % count);
            others.Insert(id + count / 2);
        }
    }
    ASSERT_EQ(ids.Size(), count);

    ids.Insert(others);
    ids.Insert(others);

    EXPECT_EQ(ids.Size(), count + count / 2);
    ids.Release();
    EXPECT_TRUE(ids.IsEmpty());
    ids.Insert(5);
    EXPECT_EQ(ids.Size(), 1U);
}

// ---- Names.

TEST(MonitorNamesTest, ANameReadsTheSameWhateverWasReadBefore) {
    MonitorNames names;
    constexpr int count = 2000;

    for (int round = 0; round < 2; ++round) {
        for (int i = 0; i < count; ++i) {
            const std::string text = "attribute " + std::to_string(i);
            ASSERT_EQ(names.Read(MetricsValue(text)).text, TString(text));
            ASSERT_EQ(names.Read(MetricsValue(TString(text))).text, TString(text));
        }
    }
    EXPECT_EQ(names.Read(MetricsValue("tid")).activityAttribute, ActivityAttributeName::ThreadId);
}

TEST(MonitorNamesTest, NarrowAndWideTextsOfTheSameBytesAreToldApart) {
    MonitorNames names;

    EXPECT_EQ(names.Read(MetricsValue("a\0b")).text, TString(u"a"));
    EXPECT_EQ(names.Read(MetricsValue(u"ab")).text, TString(u"ab"));
    EXPECT_EQ(names.Read(MetricsValue(std::string("a\0b\0", 4))).text, TString(u"a"));
}

TEST(MonitorNamesTest, LongNamesAndOtherKindsAreReadAsWell) {
    MonitorNames names;
    const std::string text(1000, 'n');

    EXPECT_EQ(names.Read(MetricsValue(text)).text, TString(text));
    EXPECT_EQ(names.Read(MetricsValue(12)).text, TString(u"12"));
    EXPECT_EQ(names.Read(MetricsValue("say \"it\"")).text, TString(u"\"say \"\"it\"\"\""));
}

TEST(MonitorNamesTest, ANameThatWasReadBeforeAllocatesNothing) {
    MonitorNames names;
    const MetricsValue name("an attribute's name");
    names.Read(name);
    const test::AllocationCounter counter;

    names.Read(name);

    EXPECT_EQ(counter.Allocations(), 0U);
}

MetricsValue StaticNarrow(const std::string& text) {
    MetricsValue value;
    value.type = MetricsValue::MV_Utf8String;
    value.utf8 = std::shared_ptr<const std::string>(std::shared_ptr<const std::string>(), &text);
    return value;
}

TEST(MonitorNamesTest, StaticTextsThatShareAPlaceAreToldApart) {
    // Of so many that lie side by side, two at least share a place, however places are chosen.
    static const std::vector<std::u16string> wide = [] {
        std::vector<std::u16string> texts;
        for (int i = 0; i < 1000; ++i) {
            texts.emplace_back(Name(i).View());
        }
        return texts;
    }();
    static const std::vector<std::string> narrow = [] {
        std::vector<std::string> texts;
        for (int i = 0; i < 1000; ++i) {
            texts.push_back("n" + std::to_string(i));
        }
        return texts;
    }();
    MonitorNames names;

    for (int round = 0; round < 2; ++round) {
        for (std::size_t i = 0; i < wide.size(); ++i) {
            ASSERT_EQ(names.Read(MetricsValue(TString::ReferTo(wide[i]))).text,
                      Name(static_cast<int>(i)));
            ASSERT_EQ(names.Read(StaticNarrow(narrow[i])).text, TString(narrow[i]));
        }
    }
}

TEST(MonitorNamesTest, EventNamesOfNamesThatShareAPlaceAreToldApart) {
    MonitorNames names;
    std::vector<TString> scopes;
    for (int i = 0; i < 1000; ++i) {
        scopes.push_back(Name(i));
    }

    for (int round = 0; round < 2; ++round) {
        for (const TString& scope : scopes) {
            const std::string text = scope.ToUtf8();
            ASSERT_EQ(names.EventName(ActivityPhase::Begin, scope), TString("begin-" + text));
            ASSERT_EQ(names.EventName(ActivityPhase::End, scope), TString("end-" + text));
        }
    }
}

TEST(MonitorNamesTest, EventNamesFollowThePhaseAndTheName) {
    MonitorNames names;
    const TString load(u"load");

    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(names.EventName(ActivityPhase::Begin, load), TString(u"begin-load"));
        EXPECT_EQ(names.EventName(ActivityPhase::End, load), TString(u"end-load"));
        EXPECT_EQ(names.EventName(ActivityPhase{7}, load), TString(u"load"));
        EXPECT_EQ(names.EventName(ActivityPhase::Begin, TString()), TString(u"begin-"));
    }
}

}  // namespace
}  // namespace tarn
