#include "OpenScopes.h"

#include "cvlsys/IntegerTypes.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace tarn {
namespace {

/// Open scopes of some contexts, and the records that their ids have.
class OpenScopesTest : public testing::Test {
protected:
    void Open(OpenScopes& scopes, uint64 id) {
        scopes.Push(id);
        m_records[id] = id;
        m_passedOver.HasRecord(id);
    }

    void Drop(OpenScopes& scopes, uint64 id) {
        m_records.erase(id);
        scopes.CountLost();
    }

    void Close(OpenScopes& scopes) {
        const bool hadRecord = m_records.erase(scopes.Last()) != 0;
        scopes.Pop(m_passedOver, hadRecord);
    }

    /// The id of the innermost record; 0 if there is none.
    uint64 Innermost(OpenScopes& scopes) {
        const uint64* const record = scopes.FindInnermost(m_passedOver, [this](uint64 id) {
            ++m_searches;
            const auto found = m_records.find(id);
            return found == m_records.end() ? nullptr : &found->second;
        });
        return record != nullptr ? *record : 0;
    }

    bool HasRecord(uint64 id) const { return m_records.count(id) != 0; }

    PassedOverIds m_passedOver;
    std::size_t m_searches = 0;

private:
    std::map<uint64, uint64> m_records;
};

TEST_F(OpenScopesTest, TheInnermostOneThatHasARecordIsFound) {
    OpenScopes scopes;
    EXPECT_EQ(Innermost(scopes), 0U);
    Open(scopes, 1);
    Open(scopes, 2);
    Open(scopes, 3);
    EXPECT_EQ(Innermost(scopes), 3U);

    Drop(scopes, 2);
    Close(scopes);

    EXPECT_EQ(Innermost(scopes), 1U);
    EXPECT_EQ(scopes.Size(), 2U);
    EXPECT_EQ(scopes.Depth(), 1U);
}

TEST_F(OpenScopesTest, IdsWithoutARecordArePassedOverOnce) {
    constexpr uint64 overlaps = 100'000;
    OpenScopes scopes;

    for (uint64 i = 0; i < overlaps; ++i) {
        Innermost(scopes);
        Open(scopes, 2 * i + 1);
        Innermost(scopes);
        Open(scopes, 2 * i + 2);
        Drop(scopes, 2 * i + 1);
        Close(scopes);
    }

    EXPECT_EQ(scopes.Size(), overlaps);
    EXPECT_LE(m_searches, 4 * overlaps);
}

TEST_F(OpenScopesTest, AnIdThatGetsARecordAgainIsFoundAgain) {
    OpenScopes scopes;
    OpenScopes elsewhere;
    Open(scopes, 1);
    Open(scopes, 2);
    Drop(scopes, 1);
    Close(scopes);
    ASSERT_EQ(Innermost(scopes), 0U);

    Open(elsewhere, 1);

    EXPECT_EQ(Innermost(scopes), 1U);
}

TEST_F(OpenScopesTest, WhatOneContextPassedOverIsForgottenWithIt) {
    OpenScopes lasting;
    Open(lasting, 1);
    Drop(lasting, 1);
    ASSERT_EQ(Innermost(lasting), 0U);
    for (uint64 id = 10; id < 20; ++id) {
        OpenScopes passing;
        Open(passing, id);
        Drop(passing, id);
        Innermost(passing);
        passing.Release(m_passedOver);
    }
    m_searches = 0;

    OpenScopes elsewhere;
    Open(elsewhere, 15);
    Innermost(lasting);

    EXPECT_EQ(m_searches, 0U) << "the id is of no concern for what is known of the other context";
}

// Ids are used again, on several stacks, and lose their records at any time.
TEST_F(OpenScopesTest, ItFindsWhatAPlainSearchFinds) {
    constexpr unsigned seed = 20'240'613;
    constexpr std::size_t contexts = 3;
    constexpr uint64 ids = 12;
    std::mt19937 random(seed);
    std::vector<OpenScopes> stacks(contexts);
    std::vector<std::vector<uint64>> plain(contexts);

    for (int step = 0; step < 200'000; ++step) {
        const std::size_t context = random() % contexts;
        const uint64 id = random() % ids + 1;
        switch (random() % 8) {
            case 0:
            case 1:
                Open(stacks[context], id);
                plain[context].push_back(id);
                break;
            case 2:
            case 3:
                if (!plain[context].empty()) {
                    Close(stacks[context]);
                    plain[context].pop_back();
                }
                break;
            case 4:
                Drop(stacks[context], id);
                break;
            case 5:
                if (random() % 50 == 0) {
                    stacks[context].Release(m_passedOver);
                    stacks[context] = {};
                    plain[context].clear();
                }
                break;
            default:
                break;
        }
        const auto found = std::find_if(plain[context].rbegin(),
                                        plain[context].rend(),
                                        [this](uint64 candidate) { return HasRecord(candidate); });
        ASSERT_EQ(Innermost(stacks[context]), found == plain[context].rend() ? 0 : *found) << step;
        ASSERT_EQ(stacks[context].Size(), plain[context].size()) << step;
    }
}

}  // namespace
}  // namespace tarn
