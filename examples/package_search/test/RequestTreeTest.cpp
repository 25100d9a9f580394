#include "RequestTree.h"

#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace packagesearch {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

// A caller in process 7 that calls process 8 on its thread 1, while a worker of its own is busy.
class RequestTreeTest : public testing::Test {
protected:
    RequestTreeTest() {
        Add("request", "R", "", 0, 7, 1, {100, 0, 0, 9, 0}, 0.009, 0.001);
        LoggedActivity& call = Add("call", "C", "R", 1, 7, 1, {40, 40, 30, 5, 5}, 0.008, 0.008);
        call.callsPeer = true;
        Add("work", "W", "R", 1, 7, 2, {60, 60, 50, 4, 4}, 0.003, 0.003);
        Add("request", "P", "P", 2, 8, 1, {12, 12, 7, 2, 2}, 0.002, 0.002);
        for (LoggedActivity& activity : m_report.activities) {
            activity.root = "R";
        }
    }

    LoggedActivity& Add(const char* name,
                        const char* id,
                        const char* sponsor,
                        int depth,
                        std::uint64_t process,
                        std::uint64_t thread,
                        const LoggedFigures& figures,
                        double elapsed,
                        double exclusive) {
        LoggedActivity& activity = m_report.activities.emplace_back();
        activity.name = name;
        activity.id = id;
        activity.sponsor = sponsor;
        activity.depth = depth;
        activity.processId = process;
        activity.threadId = thread;
        activity.figures = figures;
        activity.elapsed = elapsed;
        activity.exclusive = exclusive;
        activity.result = "ok";
        activity.description = "GET /x";
        activity.site = "s";
        activity.user = "u";
        activity.request = "q";
        const std::size_t order = m_report.activities.size();
        activity.begin = "2030-01-01T00:00:00.00000" + std::to_string(order) + "Z";
        activity.end = "2030-01-01T00:00:01.00000" + std::to_string(9 - order) + "Z";
        return activity;
    }

    std::string Print() {
        m_report.LinkChildren();
        std::ostringstream out;
        PrintRequest(out, m_report, m_report.activities.front());
        return out.str();
    }

    LogReport m_report;
};

TEST_F(RequestTreeTest, IsPrintedAcrossTheProcessesWithAllFiguresAndTheirSums) {
    EXPECT_EQ(Print(),
              "GET /x  (user u, request q, root R)\n"
              "A is process 7 at s\n"
              "B is process 8 at s\n"
              "\n"
              "activity     on         time ms        memory bytes      peak          cpu us\n"
              "                      all   own       all       own               all     own\n"
              "request      A1         9     1       100         0         0       9       0\n"
              "  call       A1         8     8        40        40        30       5       5\n"
              "    request  B1         2     2        12        12         7       2       2\n"
              "  work       A2         3     3        60        60        50       4       4\n"
              "The own figures add up to what the topmost activity has in all:\n"
              "  in process A 100 bytes, 9 us\n"
              "  in process B 12 bytes, 2 us\n"
              "  on thread A1 9 ms, A2 3 ms, B1 2 ms\n");
}

TEST_F(RequestTreeTest, FiguresThatDoNotAddUpAreShownToDiffer) {
    m_report.activities[1].figures.allocatedExclusive = 39;
    m_report.activities[1].exclusive = 0.007;

    const std::string text = Print();

    EXPECT_THAT(text, HasSubstr("in process A 99 bytes (but all: 100), 9 us\n"));
    EXPECT_THAT(text, HasSubstr("A1 8 ms (but all: 9), A2 3 ms"));
}

TEST_F(RequestTreeTest, WhatDidNotEndWellAndWhatWasSlowStandBelowTheActivity) {
    m_report.activities[1].result = "peer-unavailable";
    m_report.activities[1].resultDetails = "msg=gone";
    m_report.activities[1].supplements = {"slow-step=call ms=8"};
    m_report.activities[2].result = "";

    const std::string text = Print();

    EXPECT_THAT(text, HasSubstr("\n    ! peer-unavailable: msg=gone\n    * slow-step=call ms=8\n"));
    EXPECT_THAT(text, HasSubstr("\n    ! never ended\n"));
}

TEST_F(RequestTreeTest, APeersPartHangsUnderTheRootWhenTwoActivitiesCouldHaveCalledIt) {
    m_report.activities[2].callsPeer = true;

    m_report.LinkChildren();

    EXPECT_THAT(m_report.activities[0].children, ElementsAre(1U, 2U, 3U));
    EXPECT_THAT(m_report.activities[1].children, IsEmpty());
}

TEST_F(RequestTreeTest, APeersPartHangsUnderTheRootWhenItsCallerHadEndedBeforeIt) {
    m_report.activities[1].end = m_report.activities[1].begin;

    m_report.LinkChildren();

    EXPECT_THAT(m_report.activities[0].children, ElementsAre(1U, 2U, 3U));
}

TEST_F(RequestTreeTest, APeersPartWithoutItsCallersLogIsATopActivity) {
    m_report.activities.erase(m_report.activities.begin(), m_report.activities.begin() + 3);

    m_report.LinkChildren();

    EXPECT_THAT(TopActivities(m_report),
                ElementsAre(testing::Pointee(testing::Field(&LoggedActivity::id, "P"))));
}

TEST_F(RequestTreeTest, TheLineOfARequestSaysWhatBecameOfIt) {
    m_report.activities[0].result = "not-found";
    m_report.activities[0].resultDetails = "msg=none";
    m_report.activities[0].attributes = "status=404";
    std::ostringstream out;

    PrintRequestLine(out, m_report.activities[0]);

    EXPECT_EQ(out.str(),
              "00:00:00.000  GET /x  (user u, 9 ms, root R)\n"
              "    not-found: msg=none  [status=404]\n");
}

}  // namespace
}  // namespace packagesearch
