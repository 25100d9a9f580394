#include "ScopeStateDump.h"

#include "AllocationCounter.h"
#include "MonitorTest.h"
#include "ScopeState.h"

#include "tarn/OptTarn.h"

#include "cvlcoreplatform/TLogger.h"
#include "cvlcoreplatform/host/LoggerControl.h"

#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using tarn::test::Ends;
using tarn::test::EventBuilder;
using tarn::test::Field;
using tarn::test::HasBodyField;
using tarn::test::HasExactlyBodyFields;
using tarn::test::KnownIds;
using tarn::test::LogValue;
using tarn::test::Table;
using testing::AllOf;
using testing::ElementsAre;
using testing::IsEmpty;

/// The counters of a memory dump, by key; those not named are zero.
LogValue Memory(const std::vector<std::pair<std::string, int64>>& counters = {}) {
    std::vector<LogValue::Field> fields;
    for (const char* const key : {"ae",
                                  "ane",
                                  "aiot",
                                  "aniot",
                                  "aist",
                                  "anist",
                                  "apeak",
                                  "de",
                                  "dne",
                                  "diot",
                                  "dniot",
                                  "dist",
                                  "dnist"}) {
        int64 value = 0;
        for (const auto& [name, given] : counters) {
            value = name == key ? given : value;
        }
        fields.emplace_back(key, value);
    }
    return LogValue::Object(std::move(fields));
}

LogValue CpuTime(const std::vector<std::pair<std::string, int64>>& counters = {}) {
    std::vector<LogValue::Field> fields;
    for (const char* const key : {"ue", "uist", "uidt", "ke", "kist", "kidt"}) {
        int64 value = 0;
        for (const auto& [name, given] : counters) {
            value = name == key ? given : value;
        }
        fields.emplace_back(key, value);
    }
    return LogValue::Object(std::move(fields));
}

class ScopeStateDumpTest : public tarn::test::MonitorTest {
protected:
    void SetUp() override {
        MonitorTest::SetUp();
        OptTarn::SetShouldLogResourceTracking(true);
    }

    void AddMemory(uint64 id, const Metrics::NameValueList& pairs) {
        Send(EventBuilder::ScopePairs(id, L"memoryAttrs", pairs));
    }

    void AddCpu(uint64 id, const Metrics::NameValueList& pairs) {
        Send(EventBuilder::ScopePairs(id, L"cpuAttrs", pairs));
    }

    /// All that was logged, in order.
    std::vector<TLog::Event> Dumps() {
        std::vector<TLog::Event> dumps;
        for (const auto& [severity, event] : Log().Events()) {
            EXPECT_EQ(severity, TLog::Info);
            EXPECT_EQ(event.GetName(), TString(u"scope-state"));
            EXPECT_EQ(event.GetActivityInfo(), nullptr);
            dumps.push_back(event);
        }
        return dumps;
    }
};

TEST_F(ScopeStateDumpTest, AMemoryDumpHasTheseFieldsAndNoOthers) {
    Open(7, "query", {{"tid", 4660}, {"rows", 12}});

    AddMemory(7, {{"di", 400}, {"dni", 4}, {"apeak", 700}, {"ai", 1000}, {"ani", 10}});

    const auto dumps = Dumps();
    ASSERT_EQ(dumps.size(), 1U);
    EXPECT_THAT(dumps[0],
                AllOf(HasExactlyBodyFields({"cpuTime",
                                            "dump-reason",
                                            "memory",
                                            "name",
                                            "scopeId",
                                            "tid",
                                            "transparent",
                                            "uuid"}),
                      HasBodyField("dump-reason", "Added memory from ActivityScope"),
                      HasBodyField("scopeId", 7),
                      HasBodyField("name", "query"),
                      HasBodyField("uuid", KnownIds::Text(1)),
                      HasBodyField("tid", "1234"),
                      HasBodyField("memory",
                                   Memory({{"ae", 1000},
                                           {"ane", 10},
                                           {"aist", 1000},
                                           {"anist", 10},
                                           {"apeak", 700},
                                           {"de", 400},
                                           {"dne", 4},
                                           {"dist", 400},
                                           {"dnist", 4}})),
                      HasBodyField("transparent", false),
                      HasBodyField("cpuTime", CpuTime())));
}

TEST_F(ScopeStateDumpTest, ACpuDumpHasTheseFieldsAndNoOthers) {
    Open(7, "query", {{"tid", 4660}});

    AddCpu(7, {{"ki", 50}, {"ui", 60}});

    const auto dumps = Dumps();
    ASSERT_EQ(dumps.size(), 1U);
    EXPECT_THAT(
        dumps[0],
        AllOf(HasExactlyBodyFields({"cpuTime", "dump-reason", "name", "scopeId", "tid", "uuid"}),
              HasBodyField("dump-reason", "Added cpu from ActivityScope"),
              HasBodyField("scopeId", 7),
              HasBodyField("name", "query"),
              HasBodyField("uuid", KnownIds::Text(1)),
              HasBodyField("tid", "1234"),
              HasBodyField("cpuTime",
                           CpuTime({{"ue", 60}, {"uist", 60}, {"ke", 50}, {"kist", 50}}))));
}

TEST_F(ScopeStateDumpTest, AThreadIdIsHexadecimalWithoutPrefixAndPadding) {
    for (const auto& [thread, text] : std::vector<std::pair<int64, std::string>>{
             {0, "0"}, {10, "a"}, {4660, "1234"}, {-1, "ffffffffffffffff"}}) {
        Log().Clear();
        Open(7, "query", {{"tid", thread}});

        AddCpu(7, {});
        AddMemory(7, {});
        Close(7);

        EXPECT_THAT(Dumps(), ElementsAre(HasBodyField("tid", text), HasBodyField("tid", text)));
    }
}

TEST_F(ScopeStateDumpTest, ATransparentScopeSaysSo) {
    Send(EventBuilder::OpenScope(7, "pass").In(rootContext).Transparent());

    AddMemory(7, {});

    EXPECT_THAT(Dumps(), ElementsAre(HasBodyField("transparent", true)));
}

TEST_F(ScopeStateDumpTest, AScopeOfTheHostHasTheNilId) {
    Send(EventBuilder::OpenScope(7, "hosts").In(rootContext).FromHost());

    AddCpu(7, {{"ki", 5}});

    EXPECT_THAT(Dumps(),
                ElementsAre(AllOf(HasBodyField("name", "hosts"),
                                  HasBodyField("uuid", "00000000-0000-0000-0000-000000000000"))));
}

TEST_F(ScopeStateDumpTest, WithTheOptionOffNothingIsDumpedAndTheFiguresAreKeptAllTheSame) {
    OptTarn::SetShouldLogResourceTracking(false);
    ReportResources(corvala::memory::MemoryTrackingOff);
    Open(7, "outer");
    Open(8, "inner");

    AddMemory(8, {{"ai", 1000}});
    AddCpu(8, {{"ki", 50}});
    Close(8);

    EXPECT_THAT(Log().Events(), IsEmpty());
    const auto resources = Field(LastEvent(), Table::Activity, "res");
    ASSERT_NE(resources, std::nullopt);
    EXPECT_THAT(resources->Text(), testing::HasSubstr("\"ai\": 1000.0"));
    EXPECT_THAT(resources->Text(), testing::HasSubstr("\"ki\": 50"));
}

TEST_F(ScopeStateDumpTest, WhileInfoIsDisabledNothingIsDumped) {
    TLog::SetThreshold(TLog::Warn);
    Open(7, "outer");
    Open(8, "inner");

    AddMemory(8, {{"ai", 1000}});
    AddCpu(8, {{"ki", 50}});
    Close(8);

    EXPECT_THAT(Log().Events(), IsEmpty());
    EXPECT_THAT(LastEvent(), Ends("inner"));
}

TEST_F(ScopeStateDumpTest, WhileInfoIsDisabledNothingIsGatheredForADump) {
    TLog::SetThreshold(TLog::Warn);
    Open(7, "query");
    for (const wchar_t* const list : {L"memoryAttrs", L"cpuAttrs"}) {
        const Metrics::MetricsEvent figures = EventBuilder::ScopePairs(7, list, {{L"ai", 1000}});
        const auto allocations = [&] {
            const tarn::test::AllocationCounter counter;
            Send(figures);
            return counter.Allocations();
        };

        OptTarn::SetShouldLogResourceTracking(false);
        allocations();  // the names are new to the monitor
        const uint64 withoutDumps = allocations();
        OptTarn::SetShouldLogResourceTracking(true);

        EXPECT_EQ(allocations(), withoutDumps);
    }
}

TEST_F(ScopeStateDumpTest, AnUnknownScopeIsNotDumped) {
    AddMemory(7, {{"ai", 1000}});
    AddCpu(7, {{"ki", 50}});

    EXPECT_THAT(Log().Events(), IsEmpty());
}

TEST_F(ScopeStateDumpTest, OtherListsAreNotDumped) {
    Open(7, "query");

    Send(EventBuilder::ScopePairs(7, "multiNVPs", {{"ai", 1000}}));
    Send(EventBuilder::ScopePairs(7, "resultAttrs", {{"rk", "ok"}}));
    Send(EventBuilder::ScopeValue(7, "ai", 1000));

    EXPECT_THAT(Log().Events(), IsEmpty());
}

TEST_F(ScopeStateDumpTest, FoldingAChildDumpsTheParentsMemoryAndThenItsProcessorTimes) {
    Open(7, "outer", {{"tid", 40}});
    Open(8, "inner", {{"tid", 40}});
    AddMemory(8, {{"ai", 30}, {"ani", 3}, {"di", 20}, {"dni", 2}, {"apeak", 25}});
    AddCpu(8, {{"ki", 7}, {"ui", 9}});
    Log().Clear();

    Close(8);

    const std::string child = "inner (" + KnownIds::Text(2) + ") at tid 28";
    const auto dumps = Dumps();
    ASSERT_EQ(dumps.size(), 2U);
    EXPECT_THAT(
        dumps[0],
        AllOf(HasBodyField("dump-reason", "Added memory from " + child),
              HasExactlyBodyFields({"cpuTime",
                                    "dump-reason",
                                    "memory",
                                    "name",
                                    "scopeId",
                                    "tid",
                                    "transparent",
                                    "uuid"}),
              HasBodyField("scopeId", 7),
              HasBodyField("name", "outer"),
              HasBodyField("uuid", KnownIds::Text(1)),
              HasBodyField("memory", Memory({{"ae", -30}, {"ane", -3}, {"de", -20}, {"dne", -2}})),
              HasBodyField("cpuTime", CpuTime({{"ke", -7}, {"ue", -9}}))));
    EXPECT_THAT(
        dumps[1],
        AllOf(HasBodyField("dump-reason", "Added cpu from " + child),
              HasExactlyBodyFields({"cpuTime", "dump-reason", "name", "scopeId", "tid", "uuid"}),
              HasBodyField("scopeId", 7),
              HasBodyField("cpuTime", CpuTime({{"ke", -7}, {"ue", -9}}))));
}

TEST_F(ScopeStateDumpTest, FoldingAChildThatRanElsewhereNamesItsThreadAndKeepsTheFiguresApart) {
    Open(7, "outer", {{"tid", 40}});
    Open(8, "elsewhere", {{"tid", 255}});
    AddMemory(8, {{"ai", 30}, {"ani", 3}, {"di", 20}, {"dni", 2}});
    AddCpu(8, {{"ki", 7}, {"ui", 9}});
    Log().Clear();

    Close(8);

    const auto dumps = Dumps();
    ASSERT_EQ(dumps.size(), 2U);
    EXPECT_THAT(
        dumps[0],
        AllOf(HasBodyField("dump-reason",
                           "Added memory from elsewhere (" + KnownIds::Text(2) + ") at tid ff"),
              HasBodyField("tid", "28"),
              HasBodyField("memory",
                           Memory({{"aiot", 30}, {"aniot", 3}, {"diot", 20}, {"dniot", 2}})),
              HasBodyField("cpuTime", CpuTime({{"kidt", 7}, {"uidt", 9}}))));
}

TEST_F(ScopeStateDumpTest, FoldingIntoAnUntrackedParentAddsToItsOwnThreadsFigures) {
    Send(EventBuilder::OpenScope(7, "outer").In(rootContext).Untracked());
    Open(8, "inner");
    AddMemory(8, {{"ai", 30}, {"ani", 3}, {"di", 20}, {"dni", 2}});
    AddCpu(8, {{"ki", 7}, {"ui", 9}});
    Log().Clear();

    Close(8);

    const auto dumps = Dumps();
    ASSERT_EQ(dumps.size(), 2U);
    EXPECT_THAT(
        dumps[0],
        AllOf(HasBodyField("memory",
                           Memory({{"aist", 30}, {"anist", 3}, {"dist", 20}, {"dnist", 2}})),
              HasBodyField("cpuTime", CpuTime({{"kist", 7}, {"uist", 9}}))));
}

TEST_F(ScopeStateDumpTest, FoldingATransparentChildKeepsItsExclusiveFigures) {
    Open(7, "outer", {{"tid", 40}});
    Send(EventBuilder::OpenScope(8, "pass").In(rootContext).Transparent());
    AddMemory(8, {{"ai", 30}});
    Close(8);
    Send(EventBuilder::OpenScope(9, "pass").In(rootContext).Transparent().With({{"tid", 50}}));
    AddMemory(9, {{"ai", 5}});
    Log().Clear();

    Close(9);

    const auto dumps = Dumps();
    ASSERT_EQ(dumps.size(), 2U);
    EXPECT_THAT(dumps[0], HasBodyField("memory", Memory({{"ae", 5}, {"aiot", 5}})));
}

TEST_F(ScopeStateDumpTest, ARootFoldsIntoNobodyAndIsNotDumped) {
    Open(7, "query");
    AddMemory(7, {{"ai", 30}});
    Log().Clear();

    Close(7);

    EXPECT_THAT(Log().Events(), IsEmpty());
}

TEST_F(ScopeStateDumpTest, AScopeWhoseSponsorsHaveAllClosedIsNotDumped) {
    Open(7, "outer");
    OpenContext(2, rootContext);
    Send(EventBuilder::OpenScope(8, "child").In(2));
    Close(7);
    Log().Clear();

    Send(EventBuilder::CloseScope(8).In(2));

    EXPECT_THAT(Log().Events(), IsEmpty());
}

TEST_F(ScopeStateDumpTest, PercentSignsInAChildsNameAreKept) {
    Open(7, "outer");
    Open(8, "100%2%3");
    Log().Clear();

    Close(8);

    const auto dumps = Dumps();
    ASSERT_EQ(dumps.size(), 2U);
    EXPECT_THAT(dumps[0],
                HasBodyField("dump-reason",
                             "Added memory from 100%2%3 (" + KnownIds::Text(2) + ") at tid 0"));
}

TEST_F(ScopeStateDumpTest, FiguresThatArriveInSeveralListsAreDumpedAsTheyStand) {
    Open(7, "query");

    AddMemory(7, {{"ai", 10}});
    AddMemory(7, {{"ai", 5}});

    EXPECT_THAT(Dumps(),
                ElementsAre(HasBodyField("memory", Memory({{"ae", 10}, {"aist", 10}})),
                            HasBodyField("memory", Memory({{"ae", 15}, {"aist", 15}}))));
}

// ---- The full dump, which no event asks for: it is for those who debug the monitor.

class FullDumpTest : public tarn::test::TarnTest {
protected:
    using State = MetricsMonitor::ScopeState;
    using Type = State::DumpType;

    TLog::Event DumpOf(const State& state, Type type) {
        Log().Clear();
        tarn::WriteScopeStateDump(state, u"because", type);
        const auto logged = Log().Events();
        EXPECT_EQ(logged.size(), 1U);
        return logged.at(0).second;
    }

    static State SomeState() {
        State state;
        state.scopeId = 7;
        state.name = TString(u"query");
        state.activityId = TUUID(TString(KnownIds::Text(1)));
        state.contextId = 3;
        state.threadId = 4660;
        state.requestActivityId = TUUID(TString(KnownIds::Text(2)));
        state.sponsorChain = {5, 6, 5};
        state.traceDepth = 2;
        state.serviceDepth = 4;
        state.openTime = {123, 1'700'000'000, 250'000};
        state.elapsed = 0.25;
        state.exclusive = 2.0;
        return state;
    }
};

TEST_F(FullDumpTest, ItHasTheWholeRecord) {
    State state = SomeState();
    state.attributes = {{TString(u"rows"), 12}, {TString(u"text"), "say \"no\""}};
    state.result = TString(u"exception");
    state.resultPairs = {{TString(u"msg"), TString(u"broken")}};

    const TLog::Event dump = DumpOf(state, Type::Full);

    EXPECT_THAT(
        dump,
        AllOf(HasExactlyBodyFields({"contextId",
                                    "cpuTime",
                                    "dump-reason",
                                    "elapsed",
                                    "exclusive",
                                    "memory",
                                    "msg",
                                    "name",
                                    "rk",
                                    "root",
                                    "sDepth",
                                    "scopeAttributes",
                                    "scopeId",
                                    "sponsors",
                                    "startTimeInfo",
                                    "tid",
                                    "traceDepth",
                                    "transparent",
                                    "uuid"}),
              HasBodyField("dump-reason", "because"),
              HasBodyField("scopeId", 7),
              HasBodyField("name", "query"),
              HasBodyField("uuid", KnownIds::Text(1)),
              HasBodyField("contextId", 3),
              HasBodyField("scopeAttributes",
                           LogValue::Object({{"rows", "12"}, {"text", "\"say \"\"no\"\"\""}})),
              HasBodyField("root", KnownIds::Text(2)),
              HasBodyField("sponsors", LogValue::Object({{"0", 5}, {"1", 6}, {"2", 5}})),
              HasBodyField("sDepth", 4)));
    EXPECT_THAT(dump,
                AllOf(HasBodyField("traceDepth", 2),
                      HasBodyField("startTimeInfo",
                                   LogValue::Object({{"time", 123},
                                                     {"seconds", 1'700'000'000},
                                                     {"microseconds", 250'000}})),
                      HasBodyField("elapsed", 0.25),
                      HasBodyField("exclusive", 2.0),
                      HasBodyField("rk", "exception"),
                      HasBodyField("msg", "broken"),
                      HasBodyField("memory", Memory()),
                      HasBodyField("transparent", false),
                      HasBodyField("cpuTime", CpuTime())));
}

TEST_F(FullDumpTest, TheThreadStaysHexadecimal) {
    for (const Type type : {Type::Full, Type::Memory, Type::Cpu, static_cast<Type>(9)}) {
        EXPECT_THAT(DumpOf(SomeState(), type), HasBodyField("tid", "1234"));
    }
}

TEST_F(FullDumpTest, QueriesAreNeverWritten) {
    State state = SomeState();
    state.attributes = {{TString(u"query"), "select secret"},
                        {TString(u"query-trunc"), 5},
                        {TString(u"Query"), "kept"},
                        {TString(u"abstract-query"), "kept too"}};

    EXPECT_THAT(DumpOf(state, Type::Full),
                HasBodyField("scopeAttributes",
                             LogValue::Object({{"query", "Intentionally Omitted"},
                                               {"query-trunc", "Intentionally Omitted"},
                                               {"Query", "kept"},
                                               {"abstract-query", "kept too"}})));
}

TEST_F(FullDumpTest, AttributesOfAnyKindAreTexts) {
    Metrics::MetricsValue unknown("text");
    unknown.type = 5;
    State state = SomeState();
    state.attributes = {{TString(u"unknown"), unknown},
                        {TString(u"flag"), true},
                        {TString(u"real"), 1.5},
                        {TString(u"quoted"), "'a'"}};

    EXPECT_THAT(
        DumpOf(state, Type::Full),
        HasBodyField("scopeAttributes",
                     LogValue::Object(
                         {{"unknown", ""}, {"flag", "true"}, {"real", "1.5"}, {"quoted", "a"}})));
}

TEST_F(FullDumpTest, ResultPairsDisplaceNothing) {
    State state = SomeState();
    state.resultPairs = {{TString(u"name"), TString(u"x")},
                         {TString(u"rk"), TString(u"x")},
                         {TString(u"msg"), TString(u"first")},
                         {TString(u"msg"), TString(u"second")}};

    EXPECT_THAT(
        DumpOf(state, Type::Full),
        AllOf(
            HasBodyField("name", "query"), HasBodyField("rk", "ok"), HasBodyField("msg", "first")));
}

TEST_F(FullDumpTest, AnyOtherTypeHasTheHeadAlone) {
    for (const int type : {3, 7, -1}) {
        EXPECT_THAT(DumpOf(SomeState(), static_cast<Type>(type)),
                    AllOf(HasExactlyBodyFields({"dump-reason", "name", "scopeId", "tid", "uuid"}),
                          HasBodyField("dump-reason", "because")));
    }
}

TEST_F(FullDumpTest, TheTypesHaveTheirNumbers) {
    EXPECT_EQ(static_cast<int>(Type::Full), 0);
    EXPECT_EQ(static_cast<int>(Type::Memory), 1);
    EXPECT_EQ(static_cast<int>(Type::Cpu), 2);
}

TEST_F(FullDumpTest, NoTypeIsWrittenWhileInfoIsDisabled) {
    TLog::SetThreshold(TLog::Warn);

    for (const Type type : {Type::Full, Type::Memory, Type::Cpu}) {
        tarn::WriteScopeStateDump(SomeState(), u"because", type);
    }

    EXPECT_FALSE(tarn::IsScopeStateDumpEnabled());
    EXPECT_THAT(Log().Events(), IsEmpty());
}

}  // namespace
