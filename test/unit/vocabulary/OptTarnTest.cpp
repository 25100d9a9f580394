#include "tarn/OptTarn.h"

#include "OptTarnInternal.h"
#include "TarnTest.h"

#include "tarn/ActivityScope.h"

#include "cvlcoreplatform/ComputerName.h"
#include "cvlcoreplatform/CorePlatformOptions.h"
#include "cvlcoreplatform/TString.h"
#include "cvlcoreplatform/host/TarnEnabled.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace tarn::test {
namespace {

constexpr const char* earlyCounterName = "set before the library's own initialisers";

// Runs before any other initialiser of the program, the library's own included.
struct EarlySetter {
    EarlySetter() {
        OptTarn::SetMetricsMonitorContextsCreatedConst(earlyCounterName);
        OptTarn::SetServerEnvironment(TString(u"early"));
        OptTarn::SetIsServer(true);
    }
};

__attribute__((init_priority(101))) EarlySetter earlySetter;

// Takes what has become of the early settings when main begins, and puts the defaults back.
class EarlySettings : public testing::Environment {
public:
    void SetUp() override {
        if (s_taken) {
            return;
        }
        s_taken = true;
        s_counterName = OptTarn::GetMetricsMonitorContextsCreatedConst();
        s_environment = OptTarn::GetServerEnvironment();
        s_isServer = OptTarn::GetIsServer();
        OptTarn::SetMetricsMonitorContextsCreatedConst("");
        OptTarn::SetServerEnvironment(TString());
        OptTarn::SetIsServer(false);
    }

    static inline bool s_taken = false;
    static inline bool s_isServer = false;
    static inline std::string s_counterName;
    static inline TString s_environment;
};

const testing::Environment* const earlySettings =
    testing::AddGlobalTestEnvironment(new EarlySettings);

class OptTarnTest : public TarnTest {};

// ---- Switches

struct Switch {
    const char* name;
    void (*set)(bool);
    bool (*get)();
};

const Switch switches[] = {
    {"IsTarnEnabled", OptTarn::SetIsTarnEnabled, OptTarn::GetIsTarnEnabled},
    {"IsTarnPlatforms", OptTarn::SetIsTarnPlatforms, OptTarn::GetIsTarnPlatforms},
    {"IsForegroundThreadContextEnabled",
     OptTarn::SetIsForegroundThreadContextEnabled,
     OptTarn::GetIsForegroundThreadContextEnabled},
    {"IsServer", OptTarn::SetIsServer, OptTarn::GetIsServer},
    {"IsUnitTest", OptTarn::SetIsUnitTest, OptTarn::GetIsUnitTest},
    {"ShouldLogForegroundActivity",
     OptTarn::SetShouldLogForegroundActivity,
     OptTarn::GetShouldLogForegroundActivity},
    {"ShouldLogResourceTracking",
     OptTarn::SetShouldLogResourceTracking,
     OptTarn::GetShouldLogResourceTracking},
    {"ShouldLogTransparent", OptTarn::SetShouldLogTransparent, OptTarn::GetShouldLogTransparent},
};

TEST_F(OptTarnTest, EverySwitchIsOffAtStart) {
    for (const Switch& option : switches) {
        EXPECT_FALSE(option.get()) << option.name;
    }
}

TEST_F(OptTarnTest, EverySwitchKeepsWhatIsSetAndTouchesNoOther) {
    for (const Switch& option : switches) {
        option.set(true);

        for (const Switch& other : switches) {
            EXPECT_EQ(other.get(), &other == &option) << option.name << ", " << other.name;
        }
        option.set(false);
        EXPECT_FALSE(option.get()) << option.name;
    }
}

TEST_F(OptTarnTest, ASwitchThatIsSetOnOneThreadIsSeenOnAnother) {
    OptTarn::SetIsServer(true);
    bool seen = false;

    OnAnotherThread([&seen] { seen = OptTarn::GetIsServer(); });

    EXPECT_TRUE(seen);
}

// ---- Texts

TEST_F(OptTarnTest, TheHostNameIsTheComputersNameAtStart) {
    EXPECT_EQ(OptTarn::GetHostName().ToUtf8(), TSystem::ComputerName().ToUtf8());
}

TEST_F(OptTarnTest, TheComputersNameIsTheOneOfTheOperatingSystem) {
    char name[256] = {};
    ASSERT_EQ(::gethostname(name, sizeof(name) - 1), 0);

    EXPECT_EQ(OptTarn::GetHostName().ToUtf8(), name);
}

TEST_F(OptTarnTest, SiteAndEnvironmentAreEmptyAtStart) {
    EXPECT_TRUE(OptTarn::GetDefaultSiteNameGet().IsEmpty());
    EXPECT_TRUE(OptTarn::GetServerEnvironment().IsEmpty());
}

TEST_F(OptTarnTest, TextsKeepWhatIsSet) {
    OptTarn::SetHostName(TString(u"h\u00F6st"));
    OptTarn::SetDefaultSiteNameGet(TString(u"north"));
    OptTarn::SetServerEnvironment(TString(u"test"));

    EXPECT_EQ(OptTarn::GetHostName(), TString(u"h\u00F6st"));
    EXPECT_EQ(OptTarn::GetDefaultSiteNameGet(), TString(u"north"));
    EXPECT_EQ(OptTarn::GetServerEnvironment(), TString(u"test"));
}

TEST_F(OptTarnTest, TheGetterOfATextReturnsACopy) {
    OptTarn::SetHostName(TString(u"before"));
    const TString copy = OptTarn::GetHostName();

    OptTarn::SetHostName(TString(u"after"));

    EXPECT_EQ(copy, TString(u"before"));
    EXPECT_EQ(OptTarn::GetHostName(), TString(u"after"));
}

TEST_F(OptTarnTest, AHostNameMayBeEmpty) {
    OptTarn::SetHostName(TString());

    EXPECT_TRUE(OptTarn::GetHostName().IsEmpty());
}

// ---- Callbacks

TEST_F(OptTarnTest, TheProductVersionIsEmptyUntilTheHostGivesOne) {
    const auto getVersion = OptTarn::GetGetAppProductVersion();

    ASSERT_TRUE(getVersion);
    EXPECT_TRUE(getVersion(true).IsEmpty());
    EXPECT_TRUE(getVersion(false).IsEmpty());
}

TEST_F(OptTarnTest, TheHostsProductVersionIsHandedOut) {
    OptTarn::SetGetAppProductVersion([](bool isLong) { return TString(isLong ? u"1.2.3" : u"1"); });

    EXPECT_EQ(OptTarn::GetGetAppProductVersion()(true), TString(u"1.2.3"));
    EXPECT_EQ(OptTarn::GetGetAppProductVersion()(false), TString(u"1"));
}

TEST_F(OptTarnTest, TheEnvironmentHookDoesNothingUntilTheHostGivesOne) {
    const auto hook = OptTarn::GetEmitEnvironmentMetrics();

    ASSERT_TRUE(hook);
    EXPECT_NO_THROW(hook());
}

TEST_F(OptTarnTest, TheEnvironmentHookIsKept) {
    int calls = 0;
    OptTarn::SetEmitEnvironmentMetrics([&calls] { ++calls; });
    EXPECT_EQ(calls, 0);

    OptTarn::GetEmitEnvironmentMetrics()();

    EXPECT_EQ(calls, 1);
}

TEST_F(OptTarnTest, TheCounterCallbackDoesNothingUntilTheHostGivesOne) {
    const auto count = OptTarn::GetCmonIncrementCounter();

    ASSERT_TRUE(count);
    EXPECT_NO_THROW(count("anything", 7));
}

TEST_F(OptTarnTest, TheCounterCallbackGetsNameAndAmount) {
    std::string name;
    uint64 amount = 0;
    OptTarn::SetCmonIncrementCounter([&](const std::string& counter, uint64 value) {
        name = counter;
        amount = value;
    });

    OptTarn::GetCmonIncrementCounter()("scopes", 3);

    EXPECT_EQ(name, "scopes");
    EXPECT_EQ(amount, 3U);
}

TEST_F(OptTarnTest, AnEmptyCounterCallbackIsHandedOutAndRaisesAtItsCaller) {
    OptTarn::SetCmonIncrementCounter({});

    const auto count = OptTarn::GetCmonIncrementCounter();

    EXPECT_FALSE(count);
    EXPECT_THROW(count("scopes", 1), std::bad_function_call);
}

TEST_F(OptTarnTest, EmptyCallbacksAreHandedOutEmpty) {
    OptTarn::SetGetAppProductVersion({});
    OptTarn::SetEmitEnvironmentMetrics({});

    EXPECT_FALSE(OptTarn::GetGetAppProductVersion());
    EXPECT_FALSE(OptTarn::GetEmitEnvironmentMetrics());
}

TEST_F(OptTarnTest, TheLibrarysOwnCountingSkipsAnEmptyCallback) {
    OptTarn::SetCmonIncrementCounter({});

    EXPECT_NO_THROW(OptTarn::CountWithCmon("scopes"));
}

TEST_F(OptTarnTest, TheLibrarysOwnCountingCountsOne) {
    std::vector<std::pair<std::string, uint64>> calls;
    OptTarn::SetCmonIncrementCounter(
        [&calls](const std::string& name, uint64 amount) { calls.emplace_back(name, amount); });

    OptTarn::CountWithCmon("scopes");

    EXPECT_EQ(calls, (std::vector<std::pair<std::string, uint64>>{{"scopes", 1}}));
}

// Runs an action when the last copy of it goes.
class AtDestruction {
public:
    explicit AtDestruction(std::function<void()> action)
        : m_action(std::make_shared<Runner>(std::move(action))) {}

    void Release() { m_action.reset(); }

private:
    struct Runner {
        explicit Runner(std::function<void()> actionToRun) : action(std::move(actionToRun)) {}

        ~Runner() { action(); }

        std::function<void()> action;
    };

    std::shared_ptr<Runner> m_action;
};

TEST_F(OptTarnTest, TheSetterDestroysThePreviousCounterCallbackAfterTheNewOneIsInPlace) {
    int newCalls = 0;
    bool destroyed = false;
    AtDestruction previous([&destroyed] {
        destroyed = true;
        OptTarn::GetCmonIncrementCounter()("from the destructor", 1);
    });
    OptTarn::SetCmonIncrementCounter([previous](const std::string&, uint64) {});
    previous.Release();
    ASSERT_FALSE(destroyed);

    OptTarn::SetCmonIncrementCounter([&newCalls](const std::string&, uint64) { ++newCalls; });

    EXPECT_TRUE(destroyed);
    EXPECT_EQ(newCalls, 1);
}

TEST_F(OptTarnTest, ACounterCallbackThatReplacesItselfLivesUntilItReturns) {
    auto part = std::make_shared<int>(0);
    const std::weak_ptr<int> watch = part;
    bool livedToItsEnd = false;
    OptTarn::SetCmonIncrementCounter(
        [part = std::move(part), &watch, &livedToItsEnd](const std::string&, uint64) {
            const std::weak_ptr<int>& own = watch;
            bool& lives = livedToItsEnd;
            OptTarn::SetCmonIncrementCounter([](const std::string&, uint64) {});
            lives = !own.expired();
        });

    OptTarn::CountWithCmon("scopes");

    EXPECT_TRUE(livedToItsEnd);
    EXPECT_TRUE(watch.expired()) << "it is destroyed afterwards";
}

TEST_F(OptTarnTest, TheSetterDestroysThePreviousVersionCallbackAfterTheNewOneIsInPlace) {
    TString seen;
    AtDestruction previous([&seen] { seen = OptTarn::GetGetAppProductVersion()(true); });
    OptTarn::SetGetAppProductVersion([previous](bool) { return TString(u"old"); });
    previous.Release();

    OptTarn::SetGetAppProductVersion([](bool) { return TString(u"new"); });

    EXPECT_EQ(seen, TString(u"new"));
}

TEST_F(OptTarnTest, TheSetterDestroysThePreviousEnvironmentHookAfterTheNewOneIsInPlace) {
    int newCalls = 0;
    AtDestruction previous([] { OptTarn::GetEmitEnvironmentMetrics()(); });
    OptTarn::SetEmitEnvironmentMetrics([previous] {});
    previous.Release();

    OptTarn::SetEmitEnvironmentMetrics([&newCalls] { ++newCalls; });

    EXPECT_EQ(newCalls, 1);
}

// ---- Counter names

struct CounterName {
    const char* name;
    void (*set)(const std::string&);
    const std::string& (*get)();
};

const CounterName counterNames[] = {
    {"ContextsCreated",
     OptTarn::SetMetricsMonitorContextsCreatedConst,
     OptTarn::GetMetricsMonitorContextsCreatedConst},
    {"ContextsClosed",
     OptTarn::SetMetricsMonitorContextsClosedConst,
     OptTarn::GetMetricsMonitorContextsClosedConst},
    {"RequestContextsCreated",
     OptTarn::SetMetricsMonitorRequestContextsCreatedConst,
     OptTarn::GetMetricsMonitorRequestContextsCreatedConst},
    {"RequestContextsClosed",
     OptTarn::SetMetricsMonitorRequestContextsClosedConst,
     OptTarn::GetMetricsMonitorRequestContextsClosedConst},
    {"ScopeOpened",
     OptTarn::SetMetricsMonitorScopeOpenedConst,
     OptTarn::GetMetricsMonitorScopeOpenedConst},
    {"ScopeClosed, read through ScopedClosed",
     OptTarn::SetMetricsMonitorScopeClosedConst,
     OptTarn::GetMetricsMonitorScopedClosedConst},
};

TEST_F(OptTarnTest, EveryCounterNameIsEmptyAtStart) {
    for (const CounterName& option : counterNames) {
        EXPECT_EQ(option.get(), "") << option.name;
    }
}

TEST_F(OptTarnTest, EveryCounterNameKeepsWhatIsSetAndTouchesNoOther) {
    for (const CounterName& option : counterNames) {
        option.set("a counter");

        for (const CounterName& other : counterNames) {
            EXPECT_EQ(other.get(), &other == &option ? "a counter" : "")
                << option.name << ", " << other.name;
        }
        option.set("");
    }
}

TEST_F(OptTarnTest, TheReferenceToACounterNameShowsWhatIsSetLater) {
    for (const CounterName& option : counterNames) {
        const std::string& reference = option.get();

        option.set("first, and so long that it does not fit into the string object itself");
        EXPECT_EQ(reference,
                  "first, and so long that it does not fit into the string object itself");
        option.set("second");

        EXPECT_EQ(reference, "second") << option.name;
        EXPECT_EQ(&reference, &option.get()) << option.name;
    }
}

TEST_F(OptTarnTest, SettingACounterNameToItselfKeepsIt) {
    for (const CounterName& option : counterNames) {
        option.set("a name that is its own argument, too long for the string object itself");

        option.set(option.get());

        EXPECT_EQ(option.get(),
                  "a name that is its own argument, too long for the string object itself")
            << option.name;
    }
}

// ---- Counters

struct Counter {
    const char* name;
    void (*set)(std::atomic<int64>*);
    void (*increment)();
};

const Counter counters[] = {
    {"ContextsCreated",
     OptTarn::SetCorvalaCounterContextsCreated,
     OptTarn::IncrementCorvalaCounterContextsCreated},
    {"ContextsClosed",
     OptTarn::SetCorvalaCounterContextsClosed,
     OptTarn::IncrementCorvalaCounterContextsClosed},
    {"RequestContextsCreated",
     OptTarn::SetCorvalaCounterRequestContextsCreated,
     OptTarn::IncrementCorvalaCounterRequestContextsCreated},
    {"RequestContextsClosed",
     OptTarn::SetCorvalaCounterRequestContextsClosed,
     OptTarn::IncrementCorvalaCounterRequestContextsClosed},
    {"ScopesOpened",
     OptTarn::SetCorvalaCounterScopesOpened,
     OptTarn::IncrementCorvalaCounterScopesOpened},
    {"ScopesClosed",
     OptTarn::SetCorvalaCounterScopesClosed,
     OptTarn::IncrementCorvalaCounterScopesClosed},
};

TEST_F(OptTarnTest, IncrementingWithoutACounterDoesNothing) {
    for (const Counter& counter : counters) {
        EXPECT_NO_THROW(counter.increment()) << counter.name;
    }
}

TEST_F(OptTarnTest, EachIncrementAddsOneToItsOwnCounterOnly) {
    std::atomic<int64> values[std::size(counters)] = {};
    for (std::size_t i = 0; i < std::size(counters); ++i) {
        counters[i].set(&values[i]);
    }

    for (std::size_t i = 0; i < std::size(counters); ++i) {
        for (std::size_t n = 0; n <= i; ++n) {
            counters[i].increment();
        }
    }

    for (std::size_t i = 0; i < std::size(counters); ++i) {
        EXPECT_EQ(values[i].load(), static_cast<int64>(i) + 1) << counters[i].name;
    }
}

TEST_F(OptTarnTest, ACounterGoesOnFromTheHostsValue) {
    std::atomic<int64> value{41};
    OptTarn::SetCorvalaCounterScopesOpened(&value);

    OptTarn::IncrementCorvalaCounterScopesOpened();

    EXPECT_EQ(value.load(), 42);
}

TEST_F(OptTarnTest, IncrementsFromSeveralThreadsAreAllCounted) {
    constexpr int threadCount = 4;
    constexpr int perThread = 500000;
    std::atomic<int64> value{0};
    OptTarn::SetCorvalaCounterScopesOpened(&value);

    OnThreadsAtOnce(threadCount, [](int) {
        for (int n = 0; n < perThread; ++n) {
            OptTarn::IncrementCorvalaCounterScopesOpened();
        }
    });

    EXPECT_EQ(value.load(), threadCount * perThread);
}

TEST_F(OptTarnTest, SettingACounterBackToNullStopsCounting) {
    std::atomic<int64> value{0};
    for (const Counter& counter : counters) {
        value = 0;
        counter.set(&value);
        counter.increment();

        counter.set(nullptr);
        counter.increment();

        EXPECT_EQ(value.load(), 1) << counter.name;
    }
}

TEST_F(OptTarnTest, IncrementsNeverCallTheCounterCallback) {
    int calls = 0;
    std::atomic<int64> value{0};
    OptTarn::SetCmonIncrementCounter([&calls](const std::string&, uint64) { ++calls; });

    for (const Counter& counter : counters) {
        counter.increment();
        counter.set(&value);
        counter.increment();
    }

    EXPECT_EQ(calls, 0);
    EXPECT_EQ(value.load(), static_cast<int64>(std::size(counters)));
}

// ---- Load time

TEST_F(OptTarnTest, WhatOtherStaticInitialisersSetIsKept) {
    EXPECT_EQ(EarlySettings::s_counterName, earlyCounterName);
    EXPECT_EQ(EarlySettings::s_environment, TString(u"early"));
    EXPECT_TRUE(EarlySettings::s_isServer);
}

TEST_F(OptTarnTest, ThePlatformCanAskWhetherTracingIsOn) {
    OptTarn::SetIsTarnEnabled(true);
    EXPECT_FALSE(::IsTarnEnabled()) << "nobody listens yet";

    const auto listener = Listen();
    EXPECT_TRUE(::IsTarnEnabled());

    OptTarn::SetIsTarnEnabled(false);
    EXPECT_FALSE(::IsTarnEnabled());
}

TEST_F(OptTarnTest, SwitchingTracingOnAndOffLeavesThePlatformAlone) {
    int asked = 0;
    CorePlatformOptions::SetIsTarnEnabledFunction([&asked] {
        ++asked;
        return true;
    });

    OptTarn::SetIsTarnEnabled(true);
    OptTarn::SetIsTarnEnabled(false);
    const int askedMeanwhile = asked;
    const bool answer = ::IsTarnEnabled();
    CorePlatformOptions::SetIsTarnEnabledFunction(&ActivityScope::IsTarnEnabled);

    EXPECT_EQ(askedMeanwhile, 0);
    EXPECT_TRUE(answer) << "the platform's function was replaced";
}

TEST_F(OptTarnTest, OptionsMayBeReadAndSetWhileTheProcessEnds) {
    struct AtExit {
        ~AtExit() {
            OptTarn::SetHostName(TString(u"late host"));
            OptTarn::SetMetricsMonitorScopeOpenedConst("late counter");
            OptTarn::SetCmonIncrementCounter([](const std::string&, uint64) {});
            std::fprintf(stderr,
                         "%s and %s\n",
                         OptTarn::GetHostName().ToUtf8().c_str(),
                         OptTarn::GetMetricsMonitorScopeOpenedConst().c_str());
        }
    };

    EXPECT_EXIT(
        {
            static const AtExit atExit;
            std::exit(0);
        },
        testing::ExitedWithCode(0),
        "late host and late counter");
}

}  // namespace
}  // namespace tarn::test
