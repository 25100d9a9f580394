#include "AllocationCounter.h"
#include "FlatTable.h"
#include "MonitorNames.h"
#include "RecordTable.h"
#include "SharedStack.h"
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

// ---- Values by name.

TEST(FlatTableTest, ValuesAreFoundHoweverManyThereAre) {
    constexpr int count = 1000;
    FlatTable<int> table;

    for (int i = 0; i < count; ++i) {
        table.Set(Name(i), i);
        ASSERT_NE(table.Find(Name(i / 2)), nullptr) << i;
        ASSERT_EQ(*table.Find(Name(i / 2)), i / 2) << i;
        ASSERT_EQ(table.Find(Name(i + 1)), nullptr) << i;
    }

    EXPECT_EQ(table.Size(), static_cast<std::size_t>(count));
}

TEST(FlatTableTest, ALaterValueTakesThePlaceOfAnEarlierOne) {
    for (const int count : {3, 100}) {
        FlatTable<int> table;
        for (int i = 0; i < count; ++i) {
            table.Set(Name(i), i);
        }

        table.Set(Name(1), 77);

        EXPECT_EQ(*table.Find(Name(1)), 77);
        EXPECT_EQ(table.Size(), static_cast<std::size_t>(count));
        EXPECT_EQ((table.begin() + 1)->name, Name(1)) << "it stays where it was";
    }
}

TEST(FlatTableTest, AnEmptiedTableKnowsNothingAnyMore) {
    FlatTable<int> table;
    for (int i = 0; i < 100; ++i) {
        table.Set(Name(i), i);
    }

    table.Release();
    table.Set(Name(5), 1);

    EXPECT_EQ(table.Size(), 1U);
    EXPECT_EQ(*table.Find(Name(5)), 1);
    EXPECT_EQ(table.Find(Name(6)), nullptr);
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

TEST(SharedStackTest, WhatIsTakenFromOneCopyStaysInTheOther) {
    SharedStack<std::string> one{"bottom", "top"};
    SharedStack<std::string> other = one;

    other.Pop();
    other.Push("another");

    EXPECT_THAT(std::vector<std::string>({*one.begin(), *++one.begin()}),
                ElementsAre("top", "bottom"));
    EXPECT_EQ(*other.begin(), "another");
    one.Pop();
    one.Pop();
    one.Pop();
    EXPECT_TRUE(one.IsEmpty());
    EXPECT_EQ(*++other.begin(), "bottom");
}

// ---- Records.

TEST(RecordTableTest, ARecordThatWasTakenOutIsNotFoundAnyMore) {
    RecordTable<std::string> table;
    *table.FindOrMake(9).first = "nine";
    ASSERT_NE(table.Find(9), nullptr);

    const auto node = table.TakeOut(9);

    EXPECT_EQ(node.mapped(), "nine");
    EXPECT_EQ(table.Find(9), nullptr);
    EXPECT_TRUE(table.TakeOut(9).empty());
    EXPECT_EQ(table.Size(), 0U);
}

TEST(RecordTableTest, ASpareRecordIsTheNextOne) {
    RecordTable<std::string> table;
    *table.FindOrMake(1).first = "used";
    const std::string* const address = table.Find(1);
    table.KeepSpare(table.TakeOut(1));

    std::string& record = table.Put(2, table.TakeSpare());

    EXPECT_EQ(&record, address);
    EXPECT_EQ(table.Find(2), address);
    EXPECT_EQ(table.Find(1), nullptr);
}

TEST(RecordTableTest, ARecordWithTheSameIdIsReplaced) {
    RecordTable<std::string> table;
    *table.FindOrMake(1).first = "old";
    auto node = table.TakeSpare();
    node.mapped() = "new";

    const std::string& record = table.Put(1, std::move(node));

    EXPECT_EQ(record, "new");
    EXPECT_EQ(*table.Find(1), "new");
    EXPECT_EQ(table.Size(), 1U);
}

TEST(RecordTableTest, IdsThatShareAPlaceAmongTheLastOnesAreToldApart) {
    RecordTable<int> table;
    for (uint64 id = 0; id < 100; ++id) {
        *table.FindOrMake(id).first = static_cast<int>(id);
    }

    for (const uint64 id : {1U, 9U, 17U, 1U, 17U, 9U}) {
        ASSERT_EQ(*table.Find(id), static_cast<int>(id));
    }
    EXPECT_EQ(table.Find(1001), nullptr);
}

TEST(RecordTableTest, AReaderFindsTheSameAsAWriter) {
    RecordTable<std::string> table;
    *table.FindOrMake(1).first = "one";
    const RecordTable<std::string>& asReader = table;

    ASSERT_NE(asReader.Find(1), nullptr);
    EXPECT_EQ(asReader.Find(1), table.Find(1));
    EXPECT_EQ(asReader.Find(9), nullptr) << "its place among the last ones is taken";
    table.TakeOut(1);
    EXPECT_EQ(asReader.Find(1), nullptr);
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
