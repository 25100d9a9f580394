#include "BlockPool.h"
#include "FlatTable.h"
#include "RecordTable.h"
#include "SharedStack.h"
#include "ShortText.h"

#include "cvlcoreplatform/TString.h"

#include <array>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn {
namespace {

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

// ---- Stacks that share.

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

// ---- Blocks of memory.

TEST(BlockPoolTest, AReleasedBlockIsTheNextOne) {
    BlockPool<32, 2> pool;
    void* const one = pool.Take();
    void* const other = pool.Take();

    pool.Release(one);
    pool.Release(other);

    EXPECT_EQ(pool.Take(), other);
    EXPECT_EQ(pool.Take(), one);
    pool.Release(one);
    pool.Release(other);
}

TEST(BlockPoolTest, NoMoreBlocksAreKeptThanItMay) {
    BlockPool<32, 2> pool;
    std::array<void*, 3> blocks{pool.Take(), pool.Take(), pool.Take()};

    for (void* const block : blocks) {
        pool.Release(block);
    }

    EXPECT_EQ(pool.Take(), blocks[1]);
    EXPECT_EQ(pool.Take(), blocks[0]);
    pool.Release(blocks[0]);
    pool.Release(blocks[1]);
}

// ---- Short texts.

TEST(ShortTextTest, TextsAreTheSameOnlyWithAllTheirBytes) {
    const std::string text = "a text of more than two words of the machine";
    for (std::size_t size = 0; size <= text.size(); ++size) {
        const std::string_view part = std::string_view(text).substr(0, size);
        EXPECT_TRUE(IsSameText(part, std::string(part))) << size;
        for (std::size_t i = 0; i < size; ++i) {
            std::string other(part);
            other[i] = '?';
            EXPECT_FALSE(IsSameText(part, other)) << size << ", " << i;
        }
    }
}

TEST(ShortTextTest, TheBeginningOfATextIsAnotherText) {
    EXPECT_FALSE(IsSameText("sponsor", "sponsorId"));
    EXPECT_FALSE(IsSameText("sponsorId", "sponsor"));
    EXPECT_FALSE(IsSameText("", "x"));
}

}  // namespace
}  // namespace tarn
