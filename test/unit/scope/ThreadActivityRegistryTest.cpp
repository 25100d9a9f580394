#include "ThreadActivityRegistry.h"

#include "AllocationCounter.h"
#include "AtThreadExit.h"
#include "TarnTest.h"

#include "tarn/ActivityContext.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace tarn::test {
namespace {

using Context = std::shared_ptr<ActivityContext>;

ThreadActivityRegistry& Registry() {
    return ThreadActivityRegistry::GetInstance();
}

class ThreadActivityRegistryTest : public TarnTest {
protected:
    const Context m_a = std::make_shared<ActivityContext>();
    const Context m_b = std::make_shared<ActivityContext>();
    const Context m_c = std::make_shared<ActivityContext>();
};

TEST_F(ThreadActivityRegistryTest, ThereIsOneRegistryForAllThreads) {
    ThreadActivityRegistry* there = nullptr;

    OnAnotherThread([&there] { there = &Registry(); });

    EXPECT_EQ(there, &Registry());
}

TEST_F(ThreadActivityRegistryTest, NothingIsCurrentOnANewThread) {
    Registry().Push(m_a);

    OnAnotherThread([] {
        EXPECT_EQ(Registry().GetCurrentContext(), nullptr);
        EXPECT_EQ(Registry().GetDepth(), 0U);
    });

    Registry().Remove(m_a);
}

TEST_F(ThreadActivityRegistryTest, ThePushedContextIsCurrentUntilItIsRemoved) {
    Registry().Push(m_a);
    EXPECT_EQ(Registry().GetCurrentContext(), m_a);
    EXPECT_EQ(Registry().GetDepth(), 1U);

    Registry().Remove(m_a);
    EXPECT_EQ(Registry().GetCurrentContext(), nullptr);
    EXPECT_EQ(Registry().GetDepth(), 0U);
}

TEST_F(ThreadActivityRegistryTest, RemovingTheInnerMakesTheOuterCurrentAgain) {
    Registry().Push(m_a);
    Registry().Push(m_b);
    EXPECT_EQ(Registry().GetCurrentContext(), m_b);

    Registry().Remove(m_b);
    EXPECT_EQ(Registry().GetCurrentContext(), m_a);

    Registry().Remove(m_a);
}

TEST_F(ThreadActivityRegistryTest, RemovingTheOuterFirstKeepsTheInnerOnTop) {
    Registry().Push(m_a);
    Registry().Push(m_b);

    Registry().Remove(m_a);
    EXPECT_EQ(Registry().GetCurrentContext(), m_b);
    EXPECT_EQ(Registry().GetDepth(), 1U);

    Registry().Remove(m_b);
    EXPECT_EQ(Registry().GetCurrentContext(), nullptr);
}

TEST_F(ThreadActivityRegistryTest, RemovingFromTheMiddleKeepsTheOrderOfTheRest) {
    Registry().Push(m_a);
    Registry().Push(m_b);
    Registry().Push(m_c);

    Registry().Remove(m_b);
    EXPECT_EQ(Registry().GetCurrentContext(), m_c);

    Registry().Remove(m_c);
    EXPECT_EQ(Registry().GetCurrentContext(), m_a);
    Registry().Remove(m_a);
}

TEST_F(ThreadActivityRegistryTest, AContextThatIsPushedAgainMovesToTheTop) {
    Registry().Push(m_a);
    Registry().Push(m_b);

    Registry().Push(m_a);
    EXPECT_EQ(Registry().GetCurrentContext(), m_a);
    EXPECT_EQ(Registry().GetDepth(), 2U);

    Registry().Remove(m_a);
    EXPECT_EQ(Registry().GetCurrentContext(), m_b);
    Registry().Remove(m_b);
}

TEST_F(ThreadActivityRegistryTest, AContextThatMovedUpCanStillBeRemovedFromWhereItIs) {
    Registry().Push(m_a);
    Registry().Push(m_b);
    Registry().Push(m_c);

    Registry().Push(m_a);
    Registry().Push(m_b);
    Registry().Remove(m_a);

    EXPECT_EQ(Registry().GetDepth(), 2U);
    EXPECT_EQ(Registry().GetCurrentContext(), m_b);
    Registry().Remove(m_b);
    EXPECT_EQ(Registry().GetCurrentContext(), m_c);
    Registry().Remove(m_c);
}

TEST_F(ThreadActivityRegistryTest, PushingTheTopAgainChangesNothing) {
    Registry().Push(m_a);

    Registry().Push(m_a);

    EXPECT_EQ(Registry().GetDepth(), 1U);
    Registry().Remove(m_a);
    EXPECT_EQ(Registry().GetDepth(), 0U);
}

TEST_F(ThreadActivityRegistryTest, PushingNothingChangesNothing) {
    Registry().Push(nullptr);
    EXPECT_EQ(Registry().GetDepth(), 0U);

    Registry().Push(m_a);
    Registry().Push(nullptr);

    EXPECT_EQ(Registry().GetCurrentContext(), m_a);
    EXPECT_EQ(Registry().GetDepth(), 1U);
    Registry().Remove(m_a);
}

TEST_F(ThreadActivityRegistryTest, RemovingWhatIsNotThereChangesNothing) {
    Registry().Push(m_a);

    Registry().Remove(m_b);
    Registry().Remove(nullptr);

    EXPECT_EQ(Registry().GetCurrentContext(), m_a);
    EXPECT_EQ(Registry().GetDepth(), 1U);
    Registry().Remove(m_a);
    Registry().Remove(m_a);
    EXPECT_EQ(Registry().GetDepth(), 0U);
}

TEST_F(ThreadActivityRegistryTest, ContextsAreToldApartByIdentityNotByValue) {
    const auto first = std::make_shared<ActivityContext>(
        TString(u"r"), TString(u"root"), TString(u"act"), TString(u"sp"), 1, 1);
    const auto same = std::make_shared<ActivityContext>(
        TString(u"r"), TString(u"root"), TString(u"act"), TString(u"sp"), 1, 1);
    Registry().Push(first);

    Registry().Remove(same);
    EXPECT_EQ(Registry().GetDepth(), 1U);

    Registry().Push(same);
    EXPECT_EQ(Registry().GetDepth(), 2U);
    Registry().Remove(first);
    Registry().Remove(same);
}

TEST_F(ThreadActivityRegistryTest, TheStackKeepsAContextAliveAndRemovingReleasesIt) {
    auto context = std::make_shared<ActivityContext>();
    const std::weak_ptr<ActivityContext> watch = context;
    Registry().Push(context);

    context.reset();
    ASSERT_FALSE(watch.expired());

    Registry().Remove(watch.lock());
    EXPECT_TRUE(watch.expired());
}

TEST_F(ThreadActivityRegistryTest, TheEndOfAThreadReleasesItsStack) {
    std::weak_ptr<ActivityContext> watch;

    OnAnotherThread([&watch] {
        const auto context = std::make_shared<ActivityContext>();
        watch = context;
        Registry().Push(context);
    });

    EXPECT_TRUE(watch.expired());
}

TEST_F(ThreadActivityRegistryTest, OneContextMayBeOnSeveralThreads) {
    Registry().Push(m_a);

    OnAnotherThread([this] {
        Registry().Push(m_a);
        EXPECT_EQ(Registry().GetCurrentContext(), m_a);
        Registry().Remove(m_a);
        EXPECT_EQ(Registry().GetCurrentContext(), nullptr);
    });

    EXPECT_EQ(Registry().GetCurrentContext(), m_a);
    Registry().Remove(m_a);
}

TEST_F(ThreadActivityRegistryTest, RemovingOnOneThreadLeavesTheOthersAlone) {
    Registry().Push(m_a);

    OnAnotherThread([this] { Registry().Remove(m_a); });

    EXPECT_EQ(Registry().GetDepth(), 1U);
    Registry().Remove(m_a);
}

TEST_F(ThreadActivityRegistryTest, StacksOfThreadsThatRunAtOnceAreIndependent) {
    std::atomic<int> wrong{0};

    OnThreadsAtOnce(4, [&wrong](int) {
        for (int n = 0; n < 5000; ++n) {
            const auto outer = std::make_shared<ActivityContext>();
            const auto inner = std::make_shared<ActivityContext>();
            Registry().Push(outer);
            Registry().Push(inner);
            if (Registry().GetCurrentContext() != inner || Registry().GetDepth() != 2) {
                ++wrong;
            }
            Registry().Remove(outer);
            if (Registry().GetCurrentContext() != inner) {
                ++wrong;
            }
            Registry().Remove(inner);
        }
    });

    EXPECT_EQ(wrong.load(), 0);
}

// ---- Late in a thread's life

// Made before the stack, it goes after it.
thread_local AtThreadExit s_atThreadExit;

TEST_F(ThreadActivityRegistryTest, OnAThreadWhoseStackIsGoneNothingIsCurrentAndNothingIsKept) {
    bool ran = false;
    Context currentAtFirst = m_a;
    Context currentAfterPush = m_a;
    std::size_t depth = 99;

    OnAnotherThread([&, this] {
        s_atThreadExit.action = [&, this] {
            ran = true;
            currentAtFirst = Registry().GetCurrentContext();
            Registry().Push(m_b);
            currentAfterPush = Registry().GetCurrentContext();
            Registry().Remove(m_b);
            Registry().Remove(m_a);
            depth = Registry().GetDepth();
        };
        Registry().Push(m_a);
    });

    EXPECT_TRUE(ran);
    EXPECT_EQ(currentAtFirst, nullptr);
    EXPECT_EQ(currentAfterPush, nullptr);
    EXPECT_EQ(depth, 0U);
    EXPECT_EQ(m_a.use_count(), 1);
    EXPECT_EQ(m_b.use_count(), 1);
}

TEST_F(ThreadActivityRegistryTest, StaticDestructorsMayUseTheRegistry) {
    struct AtExit {
        ~AtExit() {
            const auto context = std::make_shared<ActivityContext>();
            Registry().Push(context);
            Registry().Remove(context);
            std::fprintf(stderr,
                         "current at exit: %s\n",
                         Registry().GetCurrentContext() == nullptr ? "none" : "some");
        }
    };

    EXPECT_EXIT(
        {
            static const AtExit atExit;
            Registry().Push(std::make_shared<ActivityContext>());
            std::exit(0);
        },
        testing::ExitedWithCode(0),
        "current at exit: none");
}

// ---- When memory runs out

TEST_F(ThreadActivityRegistryTest, APushThatFindsNoMemoryChangesNothing) {
    OnAnotherThread([this] {
        Registry().Push(m_a);
        Registry().Push(m_c);
        int failures = 0;

        for (uint64 number = 0; number < 50; ++number) {
            bool thrown = false;
            bool failed = false;
            {
                const FailingAllocation failing(number);
                try {
                    Registry().Push(m_b);
                } catch (const std::bad_alloc&) {
                    thrown = true;
                }
                failed = failing.HasFailed();
            }
            if (!failed) {
                break;
            }
            ++failures;
            EXPECT_TRUE(thrown);
            EXPECT_EQ(Registry().GetDepth(), 2U) << "allocation " << number;
            EXPECT_EQ(Registry().GetCurrentContext(), m_c) << "allocation " << number;
            EXPECT_EQ(m_b.use_count(), 1) << "allocation " << number;
        }

        EXPECT_GE(failures, 1) << "each context needs an entry";
        EXPECT_EQ(Registry().GetCurrentContext(), m_b);
        Registry().Remove(m_b);
        Registry().Remove(m_c);
        Registry().Remove(m_a);
    });
}

TEST_F(ThreadActivityRegistryTest, MovingUpAndRemovingSucceedWithoutMemory) {
    bool failed = true;
    int failures = 0;

    for (uint64 number = 0; failed && number < 50; ++number) {
        SCOPED_TRACE("allocation " + std::to_string(number));
        Registry().Push(m_a);
        Registry().Push(m_b);
        Registry().Push(m_c);
        {
            const FailingAllocation failing(number);
            Registry().Push(m_a);
            Registry().Remove(m_b);
            failed = failing.HasFailed();
        }
        failures += failed ? 1 : 0;
        EXPECT_EQ(Registry().GetDepth(), 2U);
        EXPECT_EQ(Registry().GetCurrentContext(), m_a);

        Registry().Push(m_c);
        EXPECT_EQ(Registry().GetCurrentContext(), m_c);
        EXPECT_EQ(Registry().GetDepth(), 2U);
        Registry().Remove(m_a);
        Registry().Remove(m_c);
        EXPECT_EQ(Registry().GetDepth(), 0U);
    }

    EXPECT_GE(failures, 1) << "a search brings the index up to date";
}

TEST_F(ThreadActivityRegistryTest, ComingAndGoingInOrderNeedsNoMemoryAgain) {
    const auto comeAndGo = [] {
        Context context =
            std::make_shared<ActivityContext>(TString(), TString(), TString(), TString(), 0, 0);
        const AllocationCounter counter;
        Registry().Push(context);
        Registry().Remove(context);
        return counter.Allocations();
    };
    Registry().Push(m_a);
    comeAndGo();

    EXPECT_EQ(comeAndGo(), 0U);

    Registry().Remove(m_a);
}

// ---- Many contexts

TEST_F(ThreadActivityRegistryTest, OperationsOnADeepStackTakeNoSearch) {
    constexpr std::size_t count = 100000;
    std::vector<Context> contexts;
    for (std::size_t i = 0; i < count; ++i) {
        contexts.push_back(
            std::make_shared<ActivityContext>(TString(), TString(), TString(), TString(), 0, 0));
    }
    const std::clock_t start = std::clock();

    for (const Context& context : contexts) {
        Registry().Push(context);
    }
    std::shuffle(contexts.begin(), contexts.end(), std::mt19937(1));
    for (const Context& context : contexts) {
        Registry().Push(context);
    }
    std::shuffle(contexts.begin(), contexts.end(), std::mt19937(2));
    for (const Context& context : contexts) {
        Registry().Remove(context);
    }

    EXPECT_EQ(Registry().GetDepth(), 0U);
    // A search through half of the stack for each operation takes far longer.
    EXPECT_LT(std::clock() - start, 10 * CLOCKS_PER_SEC);
}

}  // namespace
}  // namespace tarn::test
