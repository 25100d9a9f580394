#include "cvlsys/RefCntObject.h"

#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace {

class Counted : public RefCntObject {
public:
    explicit Counted(int& alive) : m_alive(alive) { ++m_alive; }

    ~Counted() override { --m_alive; }

private:
    int& m_alive;
};

class MoreCounted : public Counted {
public:
    using Counted::Counted;
};

TEST(SysRefCntObjectTest, TheLastPointerDeletesTheObject) {
    int alive = 0;

    RefCntPtr<Counted> first(new Counted(alive));
    RefCntPtr<Counted> second = first;
    EXPECT_EQ(first->GetRefCount(), 2);
    first = RefCntPtr<Counted>();
    EXPECT_EQ(alive, 1);
    second = nullptr;

    EXPECT_EQ(alive, 0);
}

TEST(SysRefCntObjectTest, AMovedFromPointerOwnsNothing) {
    int alive = 0;
    RefCntPtr<Counted> first(new Counted(alive));

    const RefCntPtr<Counted> second = std::move(first);

    EXPECT_FALSE(first);  // NOLINT(bugprone-use-after-move): that is the promise
    EXPECT_EQ(second->GetRefCount(), 1);
}

TEST(SysRefCntObjectTest, AssigningAPointerToItselfKeepsTheObject) {
    int alive = 0;
    RefCntPtr<Counted> pointer(new Counted(alive));
    RefCntPtr<Counted>& same = pointer;

    pointer = same;
    pointer = std::move(same);

    EXPECT_EQ(alive, 1);
    EXPECT_EQ(pointer->GetRefCount(), 1);
}

TEST(SysRefCntObjectTest, APointerToADerivedObjectServesAsOneToItsBase) {
    int alive = 0;
    RefCntPtr<MoreCounted> derived(new MoreCounted(alive));

    RefCntPtr<Counted> base = derived;
    derived = nullptr;
    EXPECT_EQ(alive, 1);
    base = nullptr;

    EXPECT_EQ(alive, 0);
}

TEST(SysRefCntObjectTest, ManyThreadsShareOneObject) {
    int alive = 0;
    std::vector<std::thread> threads;
    {
        const RefCntPtr<Counted> shared(new Counted(alive));
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([shared] {
                for (int round = 0; round < 10000; ++round) {
                    const RefCntPtr<Counted> copy = shared;
                    static_cast<void>(copy);
                }
            });
        }
    }

    for (std::thread& thread : threads) {
        thread.join();
    }
    threads.clear();

    EXPECT_EQ(alive, 0);
}

}  // namespace
