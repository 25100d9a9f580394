// Scopes of the front door that are off, by their names at the places where they begin.
#include "DoorTest.h"
#include "Threads.h"

#include "tarn/ActivityName.h"
#include "tarn/TarnSettings.h"
#include "tarn/Trace.h"

#include "cvlcoreplatform/TLogger.h"
#include "cvlcoreplatform/host/LoggerControl.h"

#include <atomic>
#include <cstddef>
#include <string>
#include <thread>

namespace tarn::test {
namespace {

/// Says how often an attribute was made of it.
struct Asked {
    int* times;
};

}  // namespace
}  // namespace tarn::test

template <>
struct tarn::ToAttribute<tarn::test::Asked> {
    int operator()(const tarn::test::Asked& asked) const { return ++*asked.times; }
};

namespace tarn::test {
namespace {

class DoorScopeOffTest : public DoorTest {
protected:
    static void SwitchOff(const TarnSettings::Names& names) {
        TarnSettings::GetInstance().SetOffs(names);
    }

    /// Neither ids nor listeners.
    void GoIdle() {
        StopTracing();
        OptTarn::SetIsForegroundThreadContextEnabled(false);
    }
};

TEST_F(DoorScopeOffTest, EachNewSetOfNamesIsSeenByTheNextScopeOfAPlace) {
    const auto trace = [](int round) { TARN_SCOPE("load", "round", round); };

    trace(0);
    for (int round = 1; round <= 2; ++round) {
        SwitchOff({"load", "other"});
        trace(-1);
        trace(-1);
        SwitchOff({"other"});
        trace(round);
    }

    EXPECT_EQ(Tree(), "load\nload\nload\n");
}

TEST_F(DoorScopeOffTest, AScopeOfANameThatRemembersIsAsOneOfItsText) {
    const ActivityName name("load");
    const auto trace = [&name] {
        const Scope plain(name);
        const Scope withAttributes(name, {{"size", 1}});
        const Scope withTraits(name, TraceType::Untracked);
        const Scope transparent(name, TraceType::Transparent, {{"size", 1}});
        const Scope rank(name, TraceRank(5));
    };

    SwitchOff({"load"});
    trace();
    trace();
    EXPECT_EQ(Tree(), "");
    SwitchOff({});
    trace();

    EXPECT_EQ(Tree(),
              "load\n"
              "  load\n"
              "    load\n");
}

TEST_F(DoorScopeOffTest, WhereAPlaceIsKnownToBeOffNothingIsMadeOfItsAttributes) {
    int times = 0;
    const auto trace = [&times] { TARN_SCOPE("load", "asked", Asked{&times}); };

    trace();
    EXPECT_EQ(times, 1);
    SwitchOff({"load"});
    trace();
    times = 0;
    trace();

    EXPECT_EQ(times, 0);
}

TEST_F(DoorScopeOffTest, TheMacrosAlsoTakeNamesThatChange) {
    SwitchOff({"off"});
    for (const std::string name : {"off", "on", "off"}) {
        char buffer[8] = "";
        name.copy(buffer, sizeof buffer - 1);
        const char* const pointer = name.c_str();
        TARN_SCOPE(name);
        TARN_SCOPE(pointer, "size", 1);
        TARN_SCOPE(buffer, "size", 1);
    }

    EXPECT_EQ(Tree(),
              "on\n"
              "  on\n"
              "    on\n");
}

TEST_F(DoorScopeOffTest, TheRankDecidesForAPlaceAsWell) {
    const auto trace = [] { TARN_SCOPE("load"); };

    trace();
    TarnSettings::GetInstance().SetRankOn(TraceRank(-1));
    trace();
    TarnSettings::GetInstance().SetRankOn(TraceRank(0));
    trace();

    EXPECT_EQ(Tree(), "load\nload\n");
}

TEST_F(DoorScopeOffTest, InCAPlaceIsGivenToTheOpening) {
    static abi::tarn_site site;
    const auto trace = [](const char* name, std::size_t length) {
        abi::tarn_scope scope;
        abi::tarn_scope_open_at(&scope, &site, name, length, nullptr, nullptr, 0);
        abi::tarn_scope_close(&scope);
    };

    trace("load", TARN_TO_NUL);
    SwitchOff({"load"});
    trace("load", TARN_TO_NUL);
    trace("load and more", 4);
    SwitchOff({});
    trace("load and more", 4);

    EXPECT_EQ(Tree(), "load\nload\n");
}

TEST_F(DoorScopeOffTest, ARunThatTakesItsNameFromTheHandOverLeavesThePlaceAlone) {
    static abi::tarn_site site;
    abi::tarn_handoff* const handoff = abi::tarn_handoff_take(nullptr, "handed over", TARN_TO_NUL);
    const abi::tarn_options options{sizeof options, 0, 0, 0, nullptr, 0, handoff};
    const auto trace = [](const char* name, const abi::tarn_options* with) {
        abi::tarn_scope scope;
        abi::tarn_scope_open_at(&scope, &site, name, TARN_TO_NUL, with, nullptr, 0);
        abi::tarn_scope_close(&scope);
    };
    SwitchOff({"handed over"});

    trace(nullptr, &options);
    trace("load", nullptr);
    abi::tarn_handoff_release(handoff);

    EXPECT_EQ(Tree(), "load\n");
}

TEST_F(DoorScopeOffTest, ThreadsThatShareAPlaceFindTheSetThatTheyWereToldOf) {
    constexpr int rounds = 300;
    std::atomic<int> toldOf{0};
    std::atomic<int> seen{0};
    std::atomic<int> wrong{0};
    StopTracing();
    TLog::SetThreshold(TLog::Warn);
    const auto isOn = [] {
        TARN_SCOPE("load");
        return static_cast<bool>(Current());
    };
    const auto read = [&] {
        for (int round = 1; round <= rounds; ++round) {
            toldOf.wait(round - 1);
            wrong += isOn() == (round % 2 != 0) ? 1 : 0;
            ++seen;
            seen.notify_one();
        }
    };
    std::thread one(read);
    std::thread two(read);

    for (int round = 1; round <= rounds; ++round) {
        SwitchOff(round % 2 != 0 ? TarnSettings::Names{"load"} : TarnSettings::Names{"other"});
        toldOf = round;
        toldOf.notify_all();
        for (int count = seen; count < 2 * round; count = seen) {
            seen.wait(count);
        }
    }
    one.join();
    two.join();

    EXPECT_EQ(wrong.load(), 0);
}

TEST_F(DoorScopeOffTest, AScopeFromBeforeTheFirstListenerHasNothingToSay) {
    GoIdle();
    {
        Scope before("before", {{"size", 1}});
        before.Add("lost", 1);
        StartTracing();
        before.Add("lost", 1);
        before.Fail("lost");
    }
    EXPECT_EQ(Tree(), "");

    OptTarn::SetIsForegroundThreadContextEnabled(true);
    { const Scope withIds("with ids"); }

    EXPECT_EQ(Tree(), "with ids\n");
}

}  // namespace
}  // namespace tarn::test
