#include "SinkSlot.h"

#include "MonitorTest.h"

#include "tarn/IMetricsMonitorSink.h"

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using tarn::test::Begins;
using tarn::test::CapturedEvents;
using tarn::test::CapturingSink;
using tarn::test::Ends;
using tarn::test::MonitorTest;
using testing::ElementsAre;

/// Writes down its calls and its end, and acts in each call.
class NotingSink : public IMetricsMonitorSink {
public:
    NotingSink(std::vector<std::string>& notes, std::string name, std::function<void()> action = {})
        : m_notes(notes),
          m_name(std::move(name)),
          m_action(std::move(action)) {}

    ~NotingSink() override { m_notes.push_back("end of " + m_name); }

    void Log(const TLog::Event& event) override {
        m_notes.push_back(m_name + ": " + event.GetName().ToUtf8());
        if (m_action) {
            m_action();
        }
        m_notes.push_back(m_name + " is done");
    }

private:
    std::vector<std::string>& m_notes;
    const std::string m_name;
    const std::function<void()> m_action;
};

class SinkTest : public MonitorTest {
protected:
    std::unique_ptr<IMetricsMonitorSink> Noting(std::string name,
                                                std::function<void()> action = {}) {
        return std::make_unique<NotingSink>(m_notes, std::move(name), std::move(action));
    }

    std::vector<std::string> m_notes;
};

TEST_F(SinkTest, ANewSinkGetsWhatComesFromThenOn) {
    Open(7, "query");
    const auto later = std::make_shared<CapturedEvents>();

    monitor->SetSink(std::make_unique<CapturingSink>(later));
    Close(7);

    EXPECT_THAT(*events, ElementsAre(Begins("query")));
    EXPECT_THAT(*later, ElementsAre(Ends("query")));
    EXPECT_TRUE(monitor->IsEnabledForTest()) << "that is EnableTest's business";
}

TEST_F(SinkTest, TheFormerSinkIsDestroyedBeforeTheCallReturns) {
    monitor->SetSink(Noting("first"));

    monitor->SetSink(Noting("second"));
    m_notes.emplace_back("set");

    EXPECT_THAT(m_notes, ElementsAre("end of first", "set"));
}

TEST_F(SinkTest, WithoutASinkEventsGoToTheHostsLog) {
    monitor->SetSink(nullptr);

    Open(7, "query");

    EXPECT_THAT(*events, testing::IsEmpty());
    EXPECT_THAT(Log().Events(), ElementsAre(testing::Pair(TLog::Info, Begins("query"))));
}

TEST_F(SinkTest, ASinkThatReplacesItselfFinishesItsCallFirst) {
    monitor->SetSink(Noting("first", [this] {
        monitor->SetSink(Noting("second"));
        m_notes.emplace_back("set");
    }));

    Open(7, "query");
    Close(7);

    EXPECT_THAT(m_notes,
                ElementsAre("first: begin-query",
                            "set",
                            "first is done",
                            "end of first",
                            "second: end-query",
                            "second is done"));
}

TEST_F(SinkTest, OfSeveralReplacementsInOneCallTheLastOneCounts) {
    monitor->SetSink(Noting("first", [this] {
        monitor->SetSink(Noting("second"));
        monitor->SetSink(Noting("third"));
    }));

    Open(7, "query");
    Close(7);

    EXPECT_THAT(m_notes,
                ElementsAre("first: begin-query",
                            "end of second",
                            "first is done",
                            "end of first",
                            "third: end-query",
                            "third is done"));
}

TEST_F(SinkTest, ASinkThatReplacesItselfAndThrowsIsDestroyedAllTheSame) {
    monitor->SetSink(Noting("first", [this] {
        monitor->SetSink(Noting("second"));
        throw std::runtime_error("disk full");
    }));

    EXPECT_THROW(Open(7, "query"), std::runtime_error);
    Close(7);

    EXPECT_THAT(
        m_notes,
        ElementsAre("first: begin-query", "end of first", "second: end-query", "second is done"));
}

TEST_F(SinkTest, EventsThatASinkHandsInItselfStayWithItForTheCall) {
    bool isFirst = true;
    monitor->SetSink(Noting("first", [this, &isFirst] {
        if (std::exchange(isFirst, false)) {
            monitor->SetSink(Noting("second"));
            Open(8, "inner");
        }
    }));

    Open(7, "query");
    Close(8);

    EXPECT_THAT(m_notes,
                ElementsAre("first: begin-query",
                            "first: begin-inner",
                            "first is done",
                            "first is done",
                            "end of first",
                            "second: end-inner",
                            "second is done"));
}

TEST_F(SinkTest, AnotherThreadWaitsForTheCallThatIsGoingOn) {
    std::promise<void> entered;
    std::promise<void> mayGoOn;
    monitor->SetSink(Noting("first", [&entered, &mayGoOn] {
        entered.set_value();
        mayGoOn.get_future().wait();
    }));
    std::thread delivering([this] { Open(7, "query"); });
    entered.get_future().wait();

    auto replacement = std::async(std::launch::async, [this] {
        monitor->SetSink(nullptr);
        m_notes.emplace_back("set");
    });
    EXPECT_EQ(replacement.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
    mayGoOn.set_value();
    replacement.get();
    delivering.join();

    EXPECT_THAT(m_notes, ElementsAre("first: begin-query", "first is done", "end of first", "set"));
}

TEST_F(SinkTest, TheMonitorsEndDestroysTheSinkOnce) {
    monitor->SetSink(Noting("first"));

    monitor = RefCntPtr<MetricsMonitor>(new MetricsMonitor(rootContext));

    EXPECT_THAT(m_notes, ElementsAre("end of first"));
}

}  // namespace
