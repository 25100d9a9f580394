#include "DoorTest.h"
#include "Threads.h"

#include "tarn/ActivityScope.h"
#include "tarn/TarnSettings.h"
#include "tarn/Trace.h"

#include "cvlsys/MemoryTracking.h"

#include <cstdint>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>

namespace tarn::test {
namespace {

using testing::AllOf;
using testing::Contains;

enum class Colour : std::uint8_t { Red = 3 };

enum Plain { plainValue = -4 };

struct Money {
    int cents;
};

int moneyTexts = 0;

struct Thrower {};

}  // namespace
}  // namespace tarn::test

template <>
struct tarn::ToAttribute<tarn::test::Money> {
    std::string operator()(const tarn::test::Money& money) const {
        ++tarn::test::moneyTexts;
        return std::to_string(money.cents) + " cents";
    }
};

template <>
struct tarn::ToAttribute<tarn::test::Thrower> {
    std::string operator()(const tarn::test::Thrower& /*thrower*/) const {
        throw std::runtime_error("no text");
    }
};

namespace tarn::test {
namespace {

class DoorScopeTest : public DoorTest {
protected:
    /// What becomes of a value in the log.
    template <class T>
    LogValue Logged(const T& value) {
        { const Scope scope("logged", {{"value", value}}); }
        return Field(Events().at(Events().size() - 2), Table::Body, "value").value_or("missing");
    }
};

TEST_F(DoorScopeTest, ScopesNestWithOneAnotherAndWithActivityScopes) {
    {
        const Scope outer("outer");
        const ActivityScope between("between");
        TARN_SCOPE("inner");
        TARN_SCOPE_FUNCTION();
    }

    EXPECT_EQ(Tree(),
              "outer\n"
              "  between\n"
              "    inner\n"
              "      TestBody\n");
}

TEST_F(DoorScopeTest, NamesAreTextsOfAllKinds) {
    const std::string all = "first second";
    {
        const Scope first(std::string_view(all).substr(0, 5));
        const Scope second(std::string("of a string"));
        const Scope third(static_cast<const char*>(nullptr));
    }

    EXPECT_EQ(Tree(),
              "first\n"
              "  of a string\n"
              "    \n");
}

TEST_F(DoorScopeTest, IntegersKeepTheirValues) {
    EXPECT_EQ(Logged(~0ULL), "18446744073709551615");
    EXPECT_EQ(Logged(std::uint64_t{1} << 63U), "9223372036854775808");
    EXPECT_EQ(Logged(std::numeric_limits<std::int64_t>::max()), 9223372036854775807);
    EXPECT_EQ(Logged(std::uint64_t{9223372036854775807U}), 9223372036854775807);
    EXPECT_EQ(Logged(std::numeric_limits<std::int64_t>::min()),
              std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(Logged(static_cast<unsigned char>(200)), 200);
    EXPECT_EQ(Logged(static_cast<signed char>(-7)), -7);
    EXPECT_EQ(Logged(~0U), 4294967295);
}

TEST_F(DoorScopeTest, ValuesOfAllBasicTypesArrive) {
    const char* const null = nullptr;
    const unsigned char bytes[] = "bytes";
    char buffer[16] = "short";

    EXPECT_EQ(Logged(true), true);
    EXPECT_EQ(Logged(2.5F), 2.5);
    EXPECT_EQ(Logged('c'), "c");
    EXPECT_EQ(Logged(u'\u00E9'), "\u00E9");
    EXPECT_EQ(Logged(U'\U0001F600'), "\U0001F600");
    EXPECT_EQ(Logged(Colour::Red), 3);
    EXPECT_EQ(Logged(plainValue), -4);
    EXPECT_EQ(Logged("literal"), "literal");
    EXPECT_EQ(Logged(buffer), "short");
    EXPECT_EQ(Logged(std::string("string")), "string");
    EXPECT_EQ(Logged(std::string_view("view of it").substr(0, 4)), "view");
    EXPECT_EQ(Logged(static_cast<const unsigned char*>(bytes)), "bytes");
    EXPECT_EQ(Logged(null), "");
    EXPECT_EQ(Logged(nullptr), "");
}

TEST_F(DoorScopeTest, TextOfAnOwnTypeIsMadeOnlyIfSomebodyWantsIt) {
    moneyTexts = 0;
    EXPECT_EQ(Logged(Money{250}), "250 cents");
    EXPECT_EQ(moneyTexts, 1);

    StopTracing();
    {
        Scope scope("unheard", {{"price", Money{1}}});
        scope.Add("price", Money{2});
    }

    EXPECT_EQ(moneyTexts, 1);
}

TEST_F(DoorScopeTest, AnExceptionFromAnOwnTypeCostsItsTextOnly) {
    EXPECT_EQ(Logged(Thrower()), "(ToAttribute threw an exception)");
}

TEST_F(DoorScopeTest, AttributesSupplementsAndContextArrive) {
    {
        Scope scope("work", ContextAttributes({{"tenant", "north"}}), {{"at begin", 1}});
        scope.Add("later", 2);
        scope.Add({{"first", 3}, {"second", "four"}});
        scope.Log("happened", 5);
        const Scope inner("inner");
    }

    EXPECT_THAT(Events(), Contains(AllOf(Begins("work"), HasBodyField("at begin", 1))));
    EXPECT_THAT(Events(),
                Contains(AllOf(Ends("work"),
                               HasBodyField("later", 2),
                               HasBodyField("first", 3),
                               HasBodyField("second", "four"))));
    EXPECT_TRUE(Field(Events().back(), Table::Body, "logs").has_value());
    EXPECT_THAT(Events(), Contains(AllOf(Begins("inner"), HasAttribute("tenant", "north"))));
}

TEST_F(DoorScopeTest, TypeRankAndNameDecideAsForActivityScopes) {
    TarnSettings::GetInstance().SetOffs({"off"});
    {
        const Scope rank("rank", TraceRank(5));
        Scope off("off");
        off.Add("lost", 1);
        off.Fail("lost");
        EXPECT_TRUE(off.GetActivityId().IsEmpty());
    }
    { const Scope transparent("transparent", TraceType::Transparent); }
    { const Scope untracked("untracked", TraceType::Untracked, {{"size", 1}}); }

    EXPECT_EQ(Tree(), "untracked\n");
}

TEST_F(DoorScopeTest, AFailureHasItsReasonAndItsPairs) {
    {
        Scope scope("work");
        scope.Fail("disk full", {{"free", 0}});
        Scope twice("twice");
        twice.Cancel();
        twice.Fail("the last one counts");
    }

    EXPECT_THAT(Events(),
                Contains(AllOf(Ends("twice"), HasActivityField("rk", "the last one counts"))));
    EXPECT_THAT(
        Events(),
        Contains(AllOf(Ends("work"), HasActivityField("rv", LogValue::Object({{"free", "0"}})))));
}

TEST_F(DoorScopeTest, ACaughtExceptionIsAFailureWithTypeAndText) {
    const LogValue expected =
        LogValue::Object({{"msg", "no such file"}, {"type", "std::runtime_error"}});
    try {
        Scope scope("given");
        try {
            throw std::runtime_error("no such file");
        } catch (const std::exception& error) {
            scope.FailException(error);
        }
        Scope current("current");
        try {
            throw std::runtime_error("no such file");
        } catch (...) {
            current.FailCurrentException();
        }
        Scope nothing("nothing");
        nothing.FailCurrentException();
    } catch (...) {
        FAIL();
    }

    for (const char* name : {"given", "current"}) {
        EXPECT_THAT(Events(),
                    Contains(AllOf(Ends(name),
                                   HasActivityField("rk", "exception"),
                                   HasActivityField("rv", expected))));
    }
    EXPECT_THAT(Events(), Contains(AllOf(Ends("nothing"), HasActivityField("rk", "ok"))));
}

TEST_F(DoorScopeTest, AnExceptionThatLeavesAScopeEndsItEarly) {
    try {
        const Scope scope("left");
        throw std::runtime_error("left");
    } catch (const std::exception&) {
        const Scope scope("in the handler");
    }

    EXPECT_EQ(Tree(), "left: early-termination\nin the handler\n");
}

TEST_F(DoorScopeTest, AScopeThatADestructorOpensDuringAnExceptionEndsRegularly) {
    struct CleanUp {
        ~CleanUp() { const Scope scope("clean up"); }
    };

    try {
        const CleanUp cleanUp;
        throw std::runtime_error("left");
    } catch (const std::exception&) {
    }

    EXPECT_EQ(Tree(), "clean up\n");
}

TEST_F(DoorScopeTest, AnExceptionWithinADestructorDuringAnotherOneEndsItsScopeEarly) {
    struct CleanUp {
        ~CleanUp() {
            try {
                const Scope scope("clean up");
                throw std::runtime_error("second");
            } catch (const std::exception&) {
                const Scope scope("handled");
            }
        }
    };

    try {
        const CleanUp cleanUp;
        throw std::runtime_error("first");
    } catch (const std::exception&) {
    }

    EXPECT_EQ(Tree(), "clean up: early-termination\nhandled\n");
}

TEST_F(DoorScopeTest, CurrentIsTheInnermostScope) {
    EXPECT_FALSE(Current());
    Current().Add("nowhere", 1);
    {
        const Scope outer("outer");
        {
            const Scope inner("inner");
            Current().Add("deep", 1);
            Current().Fail("from inside");
        }
        Current().Add("shallow", 2);
        EXPECT_TRUE(Current());
        EXPECT_EQ(Current().GetActivityId().View(), Current().GetRootId().View());
        OnAnotherThread([] { EXPECT_FALSE(Current()); });
    }
    EXPECT_FALSE(Current());

    EXPECT_THAT(
        Events(),
        Contains(
            AllOf(Ends("inner"), HasBodyField("deep", 1), HasActivityField("rk", "from inside"))));
    EXPECT_THAT(
        Events(),
        Contains(AllOf(Ends("outer"), HasBodyField("shallow", 2), HasActivityField("rk", "ok"))));
}

TEST_F(DoorScopeTest, UntrackedScopesMayEndInAnyOrderAndLeaveTheRightOneCurrent) {
    auto first = std::optional<Scope>(std::in_place, "first", TraceType::Untracked);
    auto second = std::optional<Scope>(std::in_place, "second", TraceType::Untracked);
    const std::string inner(Current().GetActivityId().View());

    first.reset();
    EXPECT_EQ(Current().GetActivityId().View(), inner);
    second.reset();

    EXPECT_FALSE(Current());
}

TEST_F(DoorScopeTest, IdsAreThoseOfTheLog) {
    std::string own;
    {
        const Scope root("root");
        Scope scope("scope");
        own = scope.GetActivityId();
        EXPECT_NE(own, scope.GetRootId().View());
    }

    EXPECT_THAT(Events(), Contains(AllOf(Ends("scope"), HasActivityField("id", own))));
}

TEST_F(DoorScopeTest, AScopeIsALocalVariableOnly) {
    EXPECT_FALSE((std::is_copy_constructible_v<Scope> || std::is_move_constructible_v<Scope>));
    EXPECT_TRUE(std::is_nothrow_move_constructible_v<Activity>);
}

TEST(DoorScopeDeathTest, AScopeOnAnotherThreadEndsTheProcessWhateverItsType) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            std::optional<Scope> scope(std::in_place, "wanders", TraceType::Untracked);
            OnAnotherThread([&scope] { scope.reset(); });
        },
        "ended on another thread");
}

TEST(DoorScopeDeathTest, MeasuredScopesThatEndOutOfOrderSayWhatToUseInstead) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            std::optional<Scope> first(std::in_place, "first");
            const Scope second("second");
            first.reset();
        },
        "scope \"first\" ended .*use a tarn::Activity");
}

}  // namespace
}  // namespace tarn::test
