#include "OpenWork.h"

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn {
namespace {

using testing::EndsWith;
using testing::Eq;
using testing::StartsWith;

constexpr uint64 crashed = 7;
constexpr uint64 other = 8;
constexpr int64 millisecond = 1'000'000;

class OpenWorkTest : public testing::Test {
protected:
    void Open(const std::string& name, uint64 thread, int64 time, bool tracing = true) {
        auto node = m_scopes.TakeSpare();
        MetricsMonitor::ScopeState& state = node.mapped();
        state.scopeId = ++m_lastId;
        state.name = TString(name);
        state.threadId = thread;
        state.openTime.time = time;
        state.tracing = tracing;
        m_scopes.Put(m_lastId, std::move(node));
    }

    std::string DescribeAt(int64 time) const {
        return OpenWork(m_scopes).DescribeOpenWork(crashed, time).ToUtf8();
    }

private:
    OpenWork::Scopes m_scopes;
    uint64 m_lastId = 0;
};

TEST_F(OpenWorkTest, WhereNothingIsOpenThereIsNothingToSay) {
    EXPECT_THAT(DescribeAt(0), Eq(""));
}

TEST_F(OpenWorkTest, ScopesOfTheCrashedThreadComeFirstTheInnermostFirst) {
    Open("request", crashed, 1 * millisecond);
    Open("query", crashed, 9 * millisecond);
    Open("idle", other, 20 * millisecond);

    EXPECT_THAT(DescribeAt(21'350'000),
                Eq("query 12.3 ms, request 20.3 ms, idle 1.3 ms (thread 8)"));
}

TEST_F(OpenWorkTest, OfScopesThatOpenedAtTheSameTimeTheLaterOneIsTheInner) {
    Open("outer", crashed, 0);
    Open("inner", crashed, 0);

    EXPECT_THAT(DescribeAt(0), Eq("inner 0.0 ms, outer 0.0 ms"));
}

TEST_F(OpenWorkTest, WhatIsNotTracedIsNotNamed) {
    Open("of the host's own", crashed, 0, false);

    EXPECT_THAT(DescribeAt(0), Eq(""));
}

TEST_F(OpenWorkTest, ManyScopesAreCounted) {
    for (std::size_t i = 0; i < OpenWork::mostScopes + 5; ++i) {
        Open("deep", crashed, 0);
    }

    EXPECT_THAT(DescribeAt(0), EndsWith("deep 0.0 ms and 5 more"));
}

TEST_F(OpenWorkTest, LongNamesAreCut) {
    Open(std::string(1000, 'x'), crashed, 0);

    EXPECT_THAT(DescribeAt(0), Eq(std::string(OpenWork::mostCharacters, 'x') + " 0.0 ms"));
}

TEST_F(OpenWorkTest, AClockThatRanBackwardsCountsAsZero) {
    Open("query", crashed, 5 * millisecond);

    EXPECT_THAT(DescribeAt(0), StartsWith("query 0.0 ms"));
}

}  // namespace
}  // namespace tarn
