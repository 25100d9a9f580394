// Ids are known before anybody asks for them: who asks first, where, and how often, cannot be told.
#include "ActivityContextDerivation.h"
#include "ChildProcess.h"
#include "IdText.h"
#include "TarnTest.h"

#include "tarn/ActivityContext.h"
#include "tarn/ActivityScope.h"
#include "tarn/ActivityTracer.h"
#include "tarn/ICarrier.h"
#include "tarn/OptTarn.h"
#include "tarn/Traits.h"

#include "cvlcoreplatform/TString.h"
#include "cvlcoreplatform/TUUID.h"

#include <array>
#include <barrier>
#include <cstddef>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

namespace tarn::test {
namespace {

using Context = std::shared_ptr<ActivityContext>;

class ActivityContextIdsTest : public TarnTest {
protected:
    ActivityContextIdsTest() { OptTarn::SetIsForegroundThreadContextEnabled(true); }

    static Context Root() { return DeriveActivityContext(nullptr, false, TraceType::Normal); }

    static Context ChildOf(const Context& parent) {
        return DeriveActivityContext(parent.get(), false, TraceType::Normal);
    }
};

std::vector<TString> IdsOf(const ActivityContext& context) {
    return {context.GetActivityId(),
            context.GetRootId(),
            context.GetSponsorId(),
            context.GetRequestId()};
}

TString TextOf(const TUUID& id) {
    return IdText(id).ToString();
}

TEST_F(ActivityContextIdsTest, AskingAgainGivesTheSameIds) {
    const Context context = ChildOf(Root());

    EXPECT_EQ(IdsOf(*context), IdsOf(*context));
}

TEST_F(ActivityContextIdsTest, DescendantsThatAreAskedFirstNameTheIdsOfTheirAncestors) {
    const Context root = Root();
    const Context child = ChildOf(root);
    const Context grandchild = ChildOf(child);

    const TString rootOfGrandchild = grandchild->GetRootId();
    const TString sponsorOfGrandchild = grandchild->GetSponsorId();
    const TString sponsorOfChild = child->GetSponsorId();

    EXPECT_EQ(sponsorOfGrandchild, child->GetActivityId());
    EXPECT_EQ(rootOfGrandchild, root->GetActivityId());
    EXPECT_EQ(sponsorOfChild, root->GetActivityId());
    EXPECT_NE(sponsorOfGrandchild, rootOfGrandchild);
}

TEST_F(ActivityContextIdsTest, ACopyThatIsAskedFirstHasTheIdsOfTheOriginal) {
    const Context original = ChildOf(Root());
    const ActivityContext copy(*original);
    const Context adopted = DeriveActivityContext(original.get(), true, TraceType::Normal);

    EXPECT_EQ(IdsOf(copy), IdsOf(*adopted));
    EXPECT_EQ(IdsOf(copy), IdsOf(*original));
}

TEST_F(ActivityContextIdsTest, DescendantsAndCopiesNameAnAncestorThatHasGone) {
    Context root = Root();
    const Context child = ChildOf(root);
    const ActivityContext copy(*root);

    root.reset();

    EXPECT_EQ(child->GetRootId(), copy.GetActivityId());
    EXPECT_EQ(child->GetSponsorId(), copy.GetActivityId());
}

TEST_F(ActivityContextIdsTest, TheOptionOfTheBeginningCountsNotThatOfTheQuestion) {
    const Context random = Root();
    OptTarn::SetIsForegroundThreadContextEnabled(false);
    const Context fixed = Root();

    const TString randomId = random->GetActivityId();
    OptTarn::SetIsForegroundThreadContextEnabled(true);

    EXPECT_NE(randomId, TString(u"00000000-0000-0000-0000-00000000000A"));
    EXPECT_EQ(fixed->GetActivityId(), TString(u"00000000-0000-0000-0000-00000000000A"));
}

TEST_F(ActivityContextIdsTest, ThreadsThatAskAtTheSameTimeGetTheSameIds) {
    constexpr std::size_t threads = 4;
    constexpr int rounds = 50;
    std::vector<Context> contexts;
    for (int i = 0; i < rounds; ++i) {
        contexts.push_back(ChildOf(Root()));
    }
    std::barrier together(threads);
    std::array<std::vector<std::vector<TString>>, threads> seen;

    std::vector<std::thread> running;
    for (std::vector<std::vector<TString>>& ids : seen) {
        running.emplace_back([&] {
            for (const Context& context : contexts) {
                together.arrive_and_wait();
                ids.push_back(IdsOf(*context));
            }
        });
    }
    for (std::thread& thread : running) {
        thread.join();
    }

    std::set<TString> different;
    for (const std::vector<TString>& ids : seen.front()) {
        different.insert(ids.front());
    }
    EXPECT_EQ(different.size(), contexts.size());
    for (const auto& ids : seen) {
        EXPECT_EQ(ids, seen.front());
    }
}

// A child that asks first and a parent that asks later work for the same activity.
TEST_F(ActivityContextIdsTest, AForkedChildKnowsWhatBeganBeforeTheForkByTheSameIds) {
    const ActivityScope outer("outer");
    const ActivityScope inner("inner");
    std::array<int, 2> way{};
    ASSERT_EQ(pipe(way.data()), 0);

    const bool isSent = SucceedsInChild([&] {
        const Context current = ActivityTracer::GetCurrentActivityContext();
        const std::string ids = current->GetActivityId().ToUtf8() + ' ' +
                                current->GetRootId().ToUtf8() + ' ' +
                                ChildOf(current)->GetSponsorId().ToUtf8();
        return write(way[1], ids.data(), ids.size()) == static_cast<ssize_t>(ids.size());
    });
    ASSERT_TRUE(isSent);
    std::array<char, 256> buffer{};
    const ssize_t size = read(way[0], buffer.data(), buffer.size());
    close(way[0]);
    close(way[1]);

    const std::string own = inner.GetActivityContext()->GetActivityId().ToUtf8();
    const std::string root = outer.GetActivityContext()->GetActivityId().ToUtf8();
    ASSERT_GT(size, 0);
    EXPECT_EQ(std::string(buffer.data(), static_cast<std::size_t>(size)),
              own + ' ' + root + ' ' + own);
}

TEST_F(ActivityContextIdsTest, HeadersNameTheRootThatScopesAreAskedForLater) {
    class Message : public ICarrier {
    public:
        void Set(const TString& name, const TString& value) override {
            if (name == TString(u"corvala-trace-id")) {
                trace = value.ToUtf8();
            }
        }

        std::string trace;
    } message;

    const ActivityScope outer("outer");
    const ActivityScope inner("inner");

    ActivityTracer::injectContext(message);

    const std::string root = outer.GetActivityContext()->GetActivityId().ToUtf8();
    EXPECT_EQ(message.trace, root + ':' + root + ":0");
}

TEST_F(ActivityContextIdsTest, IdsAreWrittenAsTheHostWritesThem) {
    std::array<unsigned char, 16> bytes{};
    for (unsigned first = 0; first < 256; ++first) {
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            bytes[i] = static_cast<unsigned char>(first + 17 * i);
        }

        EXPECT_EQ(TextOf(TUUID(bytes)), TUUID(bytes).ToString(TUUIDFormatOption::UpperHyphenated));
    }
}

}  // namespace
}  // namespace tarn::test
