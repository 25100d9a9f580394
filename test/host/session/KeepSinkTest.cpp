#include "KeepSink.h"

#include "ChildProcess.h"
#include "KeepLines.h"
#include "TarnTest.h"

#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn::test {
namespace {

using namespace std::chrono_literals;

class RecordingSink : public IMetricsMonitorSink {
public:
    void Log(const TLog::Event& event) override {
        lines.push_back(event);
        if (onLine) {
            onLine(event.GetName().ToUtf8());
        }
    }

    std::vector<TLog::Event> lines;
    std::function<void(const std::string& name)> onLine;
};

class KeepSinkTest : public TarnTest {
protected:
    static KeepRules Failed() {
        KeepRules rules;
        rules.failed = true;
        return rules;
    }

    std::size_t Reports() {
        std::size_t count = 0;
        for (const auto& [severity, event] : Log().Events()) {
            count += event.GetName() == TString("tarn-left-out") ? 1U : 0U;
        }
        return count;
    }

    KeepSink& Keep() { return m_keep; }

    RecordingSink& Next() { return *m_next; }

    void Pass(std::chrono::seconds time) { m_now += time; }

private:
    KeepSink::Clock::time_point m_now = KeepSink::Clock::now();
    std::shared_ptr<RecordingSink> m_next = std::make_shared<RecordingSink>();
    KeepSink m_keep{Failed(), m_next, [this] { return m_now; }};
};

TEST_F(KeepSinkTest, TheLogSaysOnceAMinuteWhatWasLeftOut) {
    const auto leaveOutTree = [this] {
        Keep().Log(Begin({"r"}));
        Keep().Log(End({"r"}));
    };
    leaveOutTree();
    Pass(59s);
    leaveOutTree();
    EXPECT_EQ(Reports(), 0U);

    Pass(1s);
    leaveOutTree();
    EXPECT_EQ(Reports(), 1U);

    leaveOutTree();
    Pass(59s);
    leaveOutTree();
    EXPECT_EQ(Reports(), 1U);
    Pass(1s);
    leaveOutTree();
    EXPECT_EQ(Reports(), 2U);
}

TEST_F(KeepSinkTest, NothingIsSaidWhereNothingWasLeftOut) {
    Keep().Log(Begin({"r"}));
    Keep().Log(End({"r"}, 0, "error"));
    Pass(3600s);
    Keep().Log(Begin({"s"}));
    Keep().Log(End({"s"}, 0, "error"));
    Keep().Finish(KeepSink::Afterwards::HandOnFurtherLines);

    EXPECT_EQ(Reports(), 0U);
    EXPECT_EQ(Next().lines.size(), 4U);
}

TEST_F(KeepSinkTest, WhatASinkThrowsCostsItsOwnLineOnly) {
    Next().onLine = [this](const std::string&) {
        if (Next().lines.size() == 2) {
            throw std::runtime_error("second line");
        }
    };
    Keep().Log(Begin({"r", "", "load"}));
    Keep().Log(Begin({"c", "r", "child"}));
    Keep().Log(End({"c", "r", "child"}));

    EXPECT_THROW(Keep().Log(End({"r", "", "load"}, 0, "error")), std::runtime_error);

    EXPECT_EQ(NamesOf(Next().lines), "begin-load begin-child end-child end-load");
}

TEST_F(KeepSinkTest, ASinkThatReplacesItselfIsNotCalledForTheNextLine) {
    const auto second = std::make_shared<RecordingSink>();
    Next().onLine = [&](const std::string&) { Keep().SetNext(second); };
    Keep().Log(Begin({"r", "", "load"}));

    Keep().Log(End({"r", "", "load"}, 0, "error"));

    EXPECT_EQ(NamesOf(Next().lines), "begin-load");
    EXPECT_EQ(NamesOf(second->lines), "end-load");
}

TEST_F(KeepSinkTest, ASinkThatHandsOnALineOfItsOwnIsCalledWithinItsCall) {
    bool isFirst = true;
    Next().onLine = [&](const std::string&) {
        if (std::exchange(isFirst, false)) {
            Keep().Log(End({"unknown", "", "own"}));
        }
    };
    Keep().Log(Begin({"r", "", "load"}));

    Keep().Log(End({"r", "", "load"}, 0, "error"));

    EXPECT_EQ(NamesOf(Next().lines), "begin-load end-own end-load");
}

TEST_F(KeepSinkTest, WhatWaitsInAForkIsTheParents) {
    Keep().Log(Begin({"r", "", "load"}));

    EXPECT_TRUE(SucceedsInChild([this] {
        Keep().Log(Begin({"c", "r", "child"}));
        Keep().Log(End({"c", "r", "child"}, 0, "error"));
        Keep().Finish(KeepSink::Afterwards::HandOnFurtherLines);
        return NamesOf(Next().lines) == "begin-child end-child";
    }));

    Keep().Log(End({"r", "", "load"}, 0, "error"));
    EXPECT_EQ(NamesOf(Next().lines), "begin-load end-load");
}

TEST_F(KeepSinkTest, AForkInTheMiddleOfATreeLeavesTheRestToTheParent) {
    bool wasRightInChild = false;
    Next().onLine = [&](const std::string& name) {
        if (name == "begin-child") {
            const pid_t child = fork();
            if (child == 0) {
                alarm(childTimeoutInSeconds);
                Next().onLine = [](const std::string&) { _exit(EXIT_FAILURE); };
                return;
            }
            wasRightInChild = ExitCodeOf(child) == EXIT_SUCCESS;
        }
    };
    const pid_t process = getpid();
    Keep().Log(Begin({"r", "", "load"}));
    Keep().Log(Begin({"c", "r", "child"}));

    Keep().Log(End({"r", "", "load"}, 0, "error"));

    if (getpid() != process) {
        _exit(EXIT_SUCCESS);
    }
    EXPECT_TRUE(wasRightInChild);
    EXPECT_EQ(NamesOf(Next().lines), "begin-load begin-child end-load");
}

TEST_F(KeepSinkTest, AfterTheLastFinishLinesAreHandedOnAsTheyCome) {
    Keep().Log(Begin({"r", "", "load"}));
    Keep().Log(Begin({"s", "", "store"}));
    Keep().Log(End({"s", "", "store"}));

    Keep().Finish(KeepSink::Afterwards::HandOnFurtherLines);
    EXPECT_EQ(NamesOf(Next().lines), "begin-load");
    EXPECT_EQ(Reports(), 1U);

    Keep().Log(Begin({"c", "s", "late"}));
    EXPECT_EQ(NamesOf(Next().lines), "begin-load begin-late");
}

TEST_F(KeepSinkTest, AfterAnInterruptionLinesAreSortedAgain) {
    Keep().Log(Begin({"r", "", "load"}));

    Keep().Finish(KeepSink::Afterwards::SortFurtherLines);
    Keep().Log(End({"r", "", "load"}));
    Keep().Log(Begin({"s", "", "store"}));

    EXPECT_EQ(NamesOf(Next().lines), "begin-load end-load");
}

}  // namespace
}  // namespace tarn::test
