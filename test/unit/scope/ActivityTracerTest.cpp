#include "tarn/ActivityTracer.h"

#include "TarnTest.h"

#include "tarn/ActivityContext.h"
#include "tarn/ActivityScope.h"
#include "tarn/CustomContext.h"
#include "tarn/ICarrier.h"
#include "tarn/OptTarn.h"
#include "tarn/TarnSettings.h"
#include "tarn/Traits.h"

#include "cvlcoreplatform/TString.h"

#include <atomic>
#include <functional>
#include <limits>
#include <locale>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::ThrowsMessage;

constexpr const char* traceId = "corvala-trace-id";
constexpr const char* extraDepth = "corvala-extra-depth";

using Headers = std::vector<std::pair<std::string, std::string>>;

/// An outgoing message that may do something of its own with each header.
class Message : public ICarrier {
public:
    Message() = default;

    explicit Message(std::function<void(const Message&)> onSet) : m_onSet(std::move(onSet)) {}

    void Set(const TString& name, const TString& value) override {
        ++m_calls;
        if (m_onSet) {
            m_onSet(*this);
        }
        m_headers.emplace_back(name.ToUtf8(), value.ToUtf8());
    }

    /// The call that is under way counts.
    int Calls() const { return m_calls; }

    const Headers& Written() const { return m_headers; }

private:
    std::function<void(const Message&)> m_onSet;
    int m_calls = 0;
    Headers m_headers;
};

class ActivityTracerTest : public TarnTest {
protected:
    ActivityTracerTest() { OptTarn::SetIsForegroundThreadContextEnabled(true); }

    static std::shared_ptr<ActivityContext> Context(const TString& root,
                                                    int traceDepth,
                                                    int serviceDepth = 77) {
        return std::make_shared<ActivityContext>(
            u"request", root, u"activity", u"sponsor", traceDepth, serviceDepth);
    }

    static Headers Injected() {
        Message message;
        ActivityTracer::injectContext(message);
        return message.Written();
    }
};

/// A scope that continues an activity that was begun elsewhere.
class Continued {
public:
    explicit Continued(std::shared_ptr<ActivityContext> context)
        : m_scope("continued",
                  CustomContext(Metrics::NameValueList()),
                  Traits(TraceType::Untracked),
                  {},
                  ActivityContextInitializer{std::move(context), true}) {}

    ActivityScope& Scope() { return m_scope; }

private:
    ActivityScope m_scope;
};

// ---- The current context.

TEST_F(ActivityTracerTest, WithoutAScopeThereIsNoCurrentContextAndNoneIsMade) {
    EXPECT_EQ(ActivityTracer::GetCurrentActivityContext(), nullptr);
    EXPECT_EQ(ActivityTracer::GetCurrentActivityContext(), nullptr);

    const ActivityScope first("work");
    EXPECT_EQ(first.GetActivityContext()->GetTraceDepth(), 0);
}

TEST_F(ActivityTracerTest, TheCurrentContextIsTheVeryObjectOfTheInnermostScope) {
    const ActivityScope outer("outer");
    EXPECT_EQ(ActivityTracer::GetCurrentActivityContext(), outer.GetActivityContext());

    {
        const ActivityScope inner("inner");
        ASSERT_NE(inner.GetActivityContext(), nullptr);
        EXPECT_EQ(ActivityTracer::GetCurrentActivityContext(), inner.GetActivityContext());
    }

    EXPECT_EQ(ActivityTracer::GetCurrentActivityContext(), outer.GetActivityContext());
}

TEST_F(ActivityTracerTest, AfterTheLastScopeNothingIsCurrent) {
    { const ActivityScope scope("work"); }

    EXPECT_EQ(ActivityTracer::GetCurrentActivityContext(), nullptr);
}

TEST_F(ActivityTracerTest, AScopeThatIsSwitchedOffIsNeverCurrent) {
    TarnSettings::GetInstance().SetOffs({"silent"});
    const ActivityScope outer("outer");

    const ActivityScope silent("silent");

    EXPECT_EQ(ActivityTracer::GetCurrentActivityContext(), outer.GetActivityContext());
}

TEST_F(ActivityTracerTest, WhatIsCurrentCanBeReadWhileForegroundContextsAreDisabled) {
    const ActivityScope scope("work");

    OptTarn::SetIsForegroundThreadContextEnabled(false);
    EXPECT_EQ(ActivityTracer::GetCurrentActivityContext(), scope.GetActivityContext());
    OptTarn::SetIsForegroundThreadContextEnabled(true);
}

TEST_F(ActivityTracerTest, TheResultKeepsTheContextAlive) {
    std::shared_ptr<ActivityContext> kept;

    {
        const ActivityScope scope("work");
        kept = ActivityTracer::GetCurrentActivityContext();
    }

    ASSERT_NE(kept, nullptr);
    EXPECT_EQ(kept.use_count(), 1);
}

// ---- The headers.

TEST_F(ActivityTracerTest, TheRootStandsTwiceAndTheDepthFollows) {
    const Continued scope(Context(u"abc", 4));

    EXPECT_THAT(Injected(), ElementsAre(Pair(traceId, "abc:abc:0"), Pair(extraDepth, "4")));
}

TEST_F(ActivityTracerTest, AFreshRootIsInjectedWithItsOwnIdAndNoDepth) {
    const ActivityScope scope("work");
    const std::string root = scope.GetActivityContext()->GetRootId().ToUtf8();

    EXPECT_THAT(Injected(),
                ElementsAre(Pair(traceId, root + ":" + root + ":0"), Pair(extraDepth, "0")));
}

TEST_F(ActivityTracerTest, TheInnermostScopeGivesTheDepth) {
    const Continued outer(Context(u"abc", 4));
    const ActivityScope inner("inner");
    {
        const ActivityScope innermost("innermost");
        EXPECT_THAT(Injected(), ElementsAre(Pair(traceId, "abc:abc:0"), Pair(extraDepth, "6")));
    }

    EXPECT_THAT(Injected(), ElementsAre(Pair(traceId, "abc:abc:0"), Pair(extraDepth, "5")));
}

TEST_F(ActivityTracerTest, ATransparentScopeAddsToTheDepthOnlyWhenItIsLogged) {
    const Continued outer(Context(u"abc", 4));
    {
        const ActivityScope transparent("t", Traits(TraceType::Transparent));
        EXPECT_THAT(Injected(), ElementsAre(Pair(traceId, "abc:abc:0"), Pair(extraDepth, "4")));
    }

    OptTarn::SetShouldLogTransparent(true);

    const ActivityScope transparent("t", Traits(TraceType::Transparent));
    EXPECT_THAT(Injected(), ElementsAre(Pair(traceId, "abc:abc:0"), Pair(extraDepth, "5")));
}

TEST_F(ActivityTracerTest, DepthsAreWrittenInDecimalWithTheirSign) {
    constexpr int largest = std::numeric_limits<int>::max();
    constexpr int smallest = std::numeric_limits<int>::min();
    const std::vector<std::pair<int, std::string>> expectations{{0, "0"},
                                                                {10, "10"},
                                                                {-1, "-1"},
                                                                {-40, "-40"},
                                                                {1234567, "1234567"},
                                                                {largest, "2147483647"},
                                                                {smallest, "-2147483648"}};
    for (const auto& [depth, text] : expectations) {
        const Continued scope(Context(u"abc", depth));

        EXPECT_THAT(Injected(), ElementsAre(Pair(traceId, "abc:abc:0"), Pair(extraDepth, text)));
    }
}

class Grouping : public std::numpunct<char> {
protected:
    char do_thousands_sep() const override { return '.'; }

    std::string do_grouping() const override { return "\3"; }
};

TEST_F(ActivityTracerTest, NumbersDoNotFollowTheLocale) {
    const Continued scope(Context(u"abc", 1234567));
    const std::locale before = std::locale::global(std::locale(std::locale(), new Grouping));

    const Headers headers = Injected();

    std::locale::global(before);
    EXPECT_THAT(headers, ElementsAre(Pair(traceId, "abc:abc:0"), Pair(extraDepth, "1234567")));
}

TEST_F(ActivityTracerTest, ARootIsWrittenAsItIs) {
    const std::vector<std::pair<TString, std::string>> expectations{
        {TString(), "::0"},
        {u"a:b", "a:b:a:b:0"},
        {u"%1%2", "%1%2:%1%2:0"},
        {u" ", " : :0"},
        {u"\u65E5\U0001F600", "\xE6\x97\xA5\xF0\x9F\x98\x80:\xE6\x97\xA5\xF0\x9F\x98\x80:0"}};
    for (const auto& [root, text] : expectations) {
        const Continued scope(Context(root, 1));

        EXPECT_THAT(Injected(), ElementsAre(Pair(traceId, text), Pair(extraDepth, "1")));
    }
}

TEST_F(ActivityTracerTest, EachInjectionWritesBothHeadersAgain) {
    const Continued scope(Context(u"abc", 4));
    Message message;

    ActivityTracer::injectContext(message);
    ActivityTracer::injectContext(message);

    EXPECT_THAT(message.Written(),
                ElementsAre(Pair(traceId, "abc:abc:0"),
                            Pair(extraDepth, "4"),
                            Pair(traceId, "abc:abc:0"),
                            Pair(extraDepth, "4")));
}

// ---- When there is nothing to inject.

TEST_F(ActivityTracerTest, WithoutAScopeTheCarrierIsNotTouched) {
    Message message;

    ActivityTracer::injectContext(message);

    EXPECT_EQ(message.Calls(), 0);
}

TEST_F(ActivityTracerTest, WhileForegroundContextsAreDisabledTheCarrierIsNotTouched) {
    OptTarn::SetIsForegroundThreadContextEnabled(false);
    const ActivityScope scope("work");
    Message message;

    ActivityTracer::injectContext(message);

    EXPECT_EQ(message.Calls(), 0);
}

TEST_F(ActivityTracerTest, TheOptionCountsAtTheMomentOfInjection) {
    const Continued scope(Context(u"abc", 4));

    OptTarn::SetIsForegroundThreadContextEnabled(false);
    const Headers disabled = Injected();
    OptTarn::SetIsForegroundThreadContextEnabled(true);
    const Headers enabled = Injected();

    EXPECT_THAT(disabled, IsEmpty());
    EXPECT_EQ(enabled.size(), 2U);
}

TEST_F(ActivityTracerTest, TheScopesOfOtherThreadsAreNotInjected) {
    const Continued scope(Context(u"abc", 4));

    OnAnotherThread([] { EXPECT_THAT(Injected(), IsEmpty()); });
}

// ---- Carriers with a life of their own.

TEST_F(ActivityTracerTest, ACarrierThatThrowsAtOnceGetsNoSecondHeader) {
    const Continued scope(Context(u"abc", 4));
    const auto current = ActivityTracer::GetCurrentActivityContext();
    const long before = current.use_count();
    Message message([](const Message&) { throw std::runtime_error("closed"); });

    EXPECT_THAT([&message] { ActivityTracer::injectContext(message); },
                ThrowsMessage<std::runtime_error>("closed"));

    EXPECT_EQ(message.Calls(), 1);
    EXPECT_THAT(message.Written(), IsEmpty());
    EXPECT_EQ(current.use_count(), before) << "no reference is left behind";
    EXPECT_EQ(ActivityTracer::GetCurrentActivityContext(), current);
}

TEST_F(ActivityTracerTest, ACarrierThatThrowsAtTheSecondHeaderKeepsTheFirst) {
    const Continued scope(Context(u"abc", 4));
    const auto current = ActivityTracer::GetCurrentActivityContext();
    const long before = current.use_count();
    Message message([](const Message& self) {
        if (self.Calls() == 2) {
            throw std::runtime_error("full");
        }
    });

    EXPECT_THAT([&message] { ActivityTracer::injectContext(message); },
                ThrowsMessage<std::runtime_error>("full"));

    EXPECT_THAT(message.Written(), ElementsAre(Pair(traceId, "abc:abc:0")));
    EXPECT_EQ(current.use_count(), before) << "no reference is left behind";
}

TEST_F(ActivityTracerTest, WhatACarrierThrowsNeedNotBeAnException) {
    const Continued scope(Context(u"abc", 4));
    Message message([](const Message&) { throw 42; });

    EXPECT_THROW(ActivityTracer::injectContext(message), int);
}

TEST_F(ActivityTracerTest, AfterACarrierHasThrownTheNextOneIsServed) {
    const Continued scope(Context(u"abc", 4));
    Message broken([](const Message&) { throw std::runtime_error("closed"); });
    EXPECT_THROW(ActivityTracer::injectContext(broken), std::runtime_error);

    EXPECT_THAT(Injected(), ElementsAre(Pair(traceId, "abc:abc:0"), Pair(extraDepth, "4")));
}

TEST_F(ActivityTracerTest, ACarrierThatOpensScopesDoesNotChangeWhatIsInjected) {
    const Continued scope(Context(u"abc", 4));
    std::vector<std::unique_ptr<ActivityScope>> opened;
    Message message(
        [&opened](const Message&) { opened.push_back(std::make_unique<ActivityScope>("send")); });

    ActivityTracer::injectContext(message);

    EXPECT_THAT(message.Written(), ElementsAre(Pair(traceId, "abc:abc:0"), Pair(extraDepth, "4")));
    while (!opened.empty()) {
        opened.pop_back();
    }
}

TEST_F(ActivityTracerTest, ACarrierThatEndsTheActivityStillGetsBothHeaders) {
    std::optional<Continued> scope;
    scope.emplace(Context(u"abc", 4));
    Message message([&scope](const Message&) { scope.reset(); });

    ActivityTracer::injectContext(message);

    EXPECT_THAT(message.Written(), ElementsAre(Pair(traceId, "abc:abc:0"), Pair(extraDepth, "4")));
}

TEST_F(ActivityTracerTest, ACarrierMayInjectIntoAnotherOne) {
    const Continued scope(Context(u"abc", 4));
    Message copy;
    Message message([&copy](const Message&) { ActivityTracer::injectContext(copy); });

    ActivityTracer::injectContext(message);

    EXPECT_EQ(message.Written().size(), 2U);
    EXPECT_EQ(copy.Written().size(), 4U);
}

class CopyableCarrier : public ICarrier {
public:
    void Set(const TString& name, const TString&) override { names.push_back(name.ToUtf8()); }

    std::vector<std::string> names;
};

TEST_F(ActivityTracerTest, ACarrierMayBeCopiedByItsHost) {
    const Continued scope(Context(u"abc", 4));
    CopyableCarrier original;
    ActivityTracer::injectContext(original);

    CopyableCarrier copy(original);
    CopyableCarrier assigned;
    assigned = original;
    ActivityTracer::injectContext(copy);

    EXPECT_THAT(copy.names, ElementsAre(traceId, extraDepth, traceId, extraDepth));
    EXPECT_EQ(assigned.names, original.names);
}

TEST_F(ActivityTracerTest, ACarrierIsDestroyedThroughItsInterface) {
    bool destroyed = false;

    struct Watched : ICarrier {
        explicit Watched(bool& flag) : isDestroyed(flag) {}

        ~Watched() override { isDestroyed = true; }

        void Set(const TString&, const TString&) override {}

        bool& isDestroyed;
    };

    std::unique_ptr<ICarrier> carrier = std::make_unique<Watched>(destroyed);

    carrier.reset();

    EXPECT_TRUE(destroyed);
    EXPECT_TRUE(std::is_abstract_v<ICarrier>);
}

// ---- Threads.

TEST_F(ActivityTracerTest, WorkThatMovesToAnotherThreadIsInjectedThere) {
    Continued scope(Context(u"abc", 4));
    scope.Scope().DetachFromThread();
    EXPECT_THAT(Injected(), IsEmpty());

    OnAnotherThread([&scope] {
        scope.Scope().AttachToThread();
        EXPECT_THAT(Injected(), ElementsAre(Pair(traceId, "abc:abc:0"), Pair(extraDepth, "4")));
        scope.Scope().DetachFromThread();
        EXPECT_THAT(Injected(), IsEmpty());
    });

    scope.Scope().AttachToThread();
    EXPECT_EQ(Injected().size(), 2U);
}

TEST_F(ActivityTracerTest, ManyThreadsInjectTheirOwnContexts) {
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number) {
        threads.emplace_back([&wrong, number] {
            const std::string root = "root" + std::to_string(number);
            const Headers expected{{traceId, root + ":" + root + ":0"},
                                   {extraDepth, std::to_string(number)}};
            for (int round = 0; round < 500; ++round) {
                const Continued scope(Context(TString(root), number));
                if (Injected() != expected) {
                    ++wrong;
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(wrong.load(), 0);
}

/// Injects when its thread ends.
struct InjectsAtTheEnd {
    ~InjectsAtTheEnd() {
        if (calls != nullptr) {
            Message message;
            ActivityTracer::injectContext(message);
            *calls = message.Calls();
        }
    }

    int* calls = nullptr;
};

TEST_F(ActivityTracerTest, LateInAThreadsExitThereIsNothingToInject) {
    int calls = -1;

    OnAnotherThread([&calls] {
        // Made before the thread has any activity, and so destroyed after all that belongs to one.
        static thread_local InjectsAtTheEnd atTheEnd;
        atTheEnd.calls = &calls;
        const Continued scope(Context(u"abc", 4));
        EXPECT_EQ(Injected().size(), 2U);
    });

    EXPECT_EQ(calls, 0);
}

// ---- The tracer itself.

TEST_F(ActivityTracerTest, ATracerHoldsNothingAndServesAsAnObjectToo) {
    const Continued scope(Context(u"abc", 4));
    const ActivityTracer tracer;
    ActivityTracer assigned;
    assigned = tracer;
    Message message;

    assigned.injectContext(message);

    EXPECT_EQ(tracer.GetCurrentActivityContext(), ActivityTracer::GetCurrentActivityContext());
    EXPECT_THAT(message.Written(), ElementsAre(Pair(traceId, "abc:abc:0"), Pair(extraDepth, "4")));
    EXPECT_TRUE(std::is_empty_v<ActivityTracer>);
    EXPECT_FALSE(std::is_polymorphic_v<ActivityTracer>);
}

}  // namespace
}  // namespace tarn::test
