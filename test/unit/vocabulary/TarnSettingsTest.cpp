#include "tarn/TarnSettings.h"

#include "TarnTest.h"

#include "cvlcoreplatform/TLog.h"
#include "cvlcoreplatform/TString.h"
#include "cvlcoreplatform/host/LoggerControl.h"
#include "cvlsys/THash32.h"
#include "cvlsys/TReadWriteLock.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <future>
#include <limits>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn::test {
namespace {

using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;
using testing::UnorderedElementsAre;

using Names = TarnSettings::Names;

// ---- The lock that guards names and mappings

TReadWriteLock& LockOf(TarnSettings& settings);

template <auto Lock>
struct LockAccess {
    friend TReadWriteLock& LockOf(TarnSettings& settings) { return settings.*Lock; }
};

// Names in an explicit instantiation are not checked for access.
template struct LockAccess<&TarnSettings::m_lock>;

class TarnSettingsTest : public TarnTest {
protected:
    /// Whether `work` comes to its end on another thread while this one holds `Guard`.
    template <class Guard, class Work>
    bool EndsWhileLocked(Work work) {
        std::future<void> worker;
        bool ended = false;
        {
            const Guard guard(LockOf(Settings()));
            worker = std::async(std::launch::async, work);
            ended = worker.wait_for(m_timeout) == std::future_status::ready;
        }
        worker.wait();
        return ended;
    }

    /// How long work that must end may take, or work that must wait is watched.
    std::chrono::milliseconds m_timeout{10000};

    TarnSettings& Settings() { return TarnSettings::GetInstance(); }

    std::pair<bool, TString> MappingOf(const char16_t* name) {
        return Settings().GetEventAttributeMapping(TString(name));
    }

    /// The text under "activities-turned-off" of the only event that was logged.
    TString LoggedOffs() {
        const auto events = Log().Events();
        EXPECT_THAT(events, SizeIs(1));
        if (events.size() != 1) {
            return TString(u"no single event");
        }
        EXPECT_EQ(events[0].first, TLog::Info);
        EXPECT_EQ(events[0].second.GetName(), TString(u"tarn-set-offs"));
        const TLog::NameTable& fields = events[0].second.GetBody()->GetFields();
        EXPECT_THAT(fields, SizeIs(1));
        const auto field = fields.find(TString(u"activities-turned-off"));
        if (field == fields.end()) {
            return TString(u"no such field");
        }
        const auto* literal = dynamic_cast<const TLog::Literal*>(field->second.get());
        if (literal == nullptr || literal->GetType() != TLog::LiteralType::String) {
            return TString(u"no text");
        }
        return literal->GetString();
    }
};

const auto unmapped = std::make_pair(false, TString());

Names Parse(const char16_t* text) {
    return TarnSettings::ParseOffActivitiesFromString(TString(text));
}

// ---- The instance

TEST_F(TarnSettingsTest, ThereIsOneInstanceForAllThreads) {
    const TarnSettings* there = nullptr;

    OnAnotherThread([&there] { there = &TarnSettings::GetInstance(); });

    EXPECT_EQ(there, &TarnSettings::GetInstance());
    EXPECT_FALSE(std::is_copy_constructible_v<TarnSettings>);
    EXPECT_FALSE(std::is_default_constructible_v<TarnSettings>);
    EXPECT_FALSE(std::is_destructible_v<TarnSettings>);
    EXPECT_FALSE(std::is_polymorphic_v<TarnSettings>);
}

// ---- Ranks

TEST_F(TarnSettingsTest, TheRankThatIsOnIsTheOneThatWasSet) {
    EXPECT_EQ(Settings().GetRankOn(), TraceRank::Default);

    Settings().SetRankOn(TraceRank{-5});

    EXPECT_EQ(Settings().GetRankOn(), TraceRank{-5});
}

TEST_F(TarnSettingsTest, AtStartRankZeroIsOnAndRankOneIsOff) {
    EXPECT_FALSE(Settings().IsOff(TraceRank{0}));
    EXPECT_TRUE(Settings().IsOff(TraceRank{1}));
    EXPECT_FALSE(Settings().IsOff(TraceRank{-1}));
}

TEST_F(TarnSettingsTest, RanksAboveTheThresholdAreOff) {
    Settings().SetRankOn(TraceRank{5});

    EXPECT_FALSE(Settings().IsOff(TraceRank{5}));
    EXPECT_TRUE(Settings().IsOff(TraceRank{6}));
}

TEST_F(TarnSettingsTest, ANegativeThresholdSwitchesTheDefaultRankOff) {
    Settings().SetRankOn(TraceRank{-1});

    EXPECT_TRUE(Settings().IsOff(TraceRank::Default));
    EXPECT_FALSE(Settings().IsOff(TraceRank{-1}));
}

TEST_F(TarnSettingsTest, RanksAreComparedWithTheirSign) {
    constexpr TraceRank lowest{std::numeric_limits<int32>::min()};
    constexpr TraceRank highest{std::numeric_limits<int32>::max()};

    EXPECT_FALSE(Settings().IsOff(lowest));
    EXPECT_TRUE(Settings().IsOff(highest));

    Settings().SetRankOn(lowest);
    EXPECT_TRUE(Settings().IsOff(TraceRank{std::numeric_limits<int32>::min() + 1}));
    EXPECT_FALSE(Settings().IsOff(lowest));

    Settings().SetRankOn(highest);
    EXPECT_FALSE(Settings().IsOff(highest));
}

// ---- Names

TEST_F(TarnSettingsTest, NoNameIsOffAtStart) {
    EXPECT_FALSE(Settings().IsOff("anything"));
    EXPECT_FALSE(Settings().IsOff(""));
    EXPECT_THAT(Settings().GetCopyOfOffs(), IsEmpty());
}

TEST_F(TarnSettingsTest, TheNamesOfTheSetAreOffAndNoOthers) {
    Settings().SetOffs({"a", "with blanks"});

    EXPECT_TRUE(Settings().IsOff("a"));
    EXPECT_TRUE(Settings().IsOff("with blanks"));
    EXPECT_FALSE(Settings().IsOff("A"));
    EXPECT_FALSE(Settings().IsOff("a "));
    EXPECT_FALSE(Settings().IsOff("aa"));
    EXPECT_FALSE(Settings().IsOff(""));
}

TEST_F(TarnSettingsTest, ANewSetReplacesTheOldOne) {
    Settings().SetOffs({"a", "b"});

    Settings().SetOffs({"b", "c"});

    EXPECT_FALSE(Settings().IsOff("a"));
    EXPECT_THAT(Settings().GetCopyOfOffs(), UnorderedElementsAre("b", "c"));
}

TEST_F(TarnSettingsTest, AnEmptySetSwitchesEveryNameBackOn) {
    Settings().SetOffs({"a"});

    Settings().SetOffs({});

    EXPECT_FALSE(Settings().IsOff("a"));
    EXPECT_THAT(Settings().GetCopyOfOffs(), IsEmpty());
}

TEST_F(TarnSettingsTest, TheCopyOfTheSetIsACopy) {
    Settings().SetOffs({"a"});
    Names copy = Settings().GetCopyOfOffs();

    copy.insert("b");

    EXPECT_FALSE(Settings().IsOff("b"));
    EXPECT_THAT(Settings().GetCopyOfOffs(), UnorderedElementsAre("a"));
}

TEST_F(TarnSettingsTest, TheEmptyNameMayBeOff) {
    Settings().SetOffs({""});

    EXPECT_TRUE(Settings().IsOff(""));
    EXPECT_FALSE(Settings().IsOff("a"));
}

TEST_F(TarnSettingsTest, ANullNameIsNeverOff) {
    Settings().SetOffs({"", "a"});

    EXPECT_FALSE(Settings().IsOff(static_cast<const char*>(nullptr)));
}

TEST_F(TarnSettingsTest, ANamesAnswerDoesNotLookAtRanks) {
    Settings().SetRankOn(TraceRank{std::numeric_limits<int32>::min()});

    EXPECT_FALSE(Settings().IsOff("a"));
}

TEST_F(TarnSettingsTest, EitherIsOffByRankOrByName) {
    Settings().SetOffs({"a"});

    EXPECT_TRUE(Settings().IsEitherOff(TraceRank{0}, "a"));
    EXPECT_TRUE(Settings().IsEitherOff(TraceRank{1}, "a"));
    EXPECT_TRUE(Settings().IsEitherOff(TraceRank{1}, "b"));
    EXPECT_FALSE(Settings().IsEitherOff(TraceRank{0}, "b"));
}

TEST_F(TarnSettingsTest, ANameIsNotTouchedWhenTheRankIsOff) {
    const char* const neverRead = reinterpret_cast<const char*>(std::uintptr_t{1});

    EXPECT_TRUE(Settings().IsEitherOff(TraceRank{1}, nullptr));
    EXPECT_TRUE(Settings().IsEitherOff(TraceRank{1}, neverRead));
}

// ---- The log of a new set

TEST_F(TarnSettingsTest, ANewSetIsLogged) {
    Settings().SetOffs({"a"});

    EXPECT_EQ(LoggedOffs(), TString(u"a"));
    EXPECT_THAT(Log().Messages(), IsEmpty());
}

TEST_F(TarnSettingsTest, TheLoggedNamesStandInTheSetsOrderBetweenCommas) {
    const Names offs{"a",
                     "b",
                     "gr\xC3\xB6\xC3\x9F"
                     "e"};
    std::string expected;
    for (const std::string& name : offs) {
        expected += (expected.empty() ? "" : ",") + name;
    }

    Settings().SetOffs(offs);

    EXPECT_EQ(LoggedOffs().ToUtf8(), expected);
}

TEST_F(TarnSettingsTest, AnEmptySetIsLoggedAsEmptyText) {
    Settings().SetOffs({});

    EXPECT_EQ(LoggedOffs(), TString());
}

TEST_F(TarnSettingsTest, ASetIsNotLoggedBelowTheLoggersThresholdButTakesEffect) {
    TLog::SetThreshold(TLog::Warn);

    Settings().SetOffs({"a"});

    EXPECT_THAT(Log().Events(), IsEmpty());
    EXPECT_TRUE(Settings().IsOff("a"));
}

TEST_F(TarnSettingsTest, TheSetIsLoggedBeforeItTakesEffectAndWhileNoLockIsHeld) {
    Settings().SetOffs({"old"});
    Log().Clear();
    Names seen;
    bool newIsOff = true;
    Log().CallOnEach([&] {
        seen = Settings().GetCopyOfOffs();
        newIsOff = Settings().IsOff("new");
        Settings().AddEventAttributeMapping(TString(u"needs the lock for writing"),
                                            TString(u"site"));
    });

    Settings().SetOffs({"new"});

    EXPECT_THAT(seen, UnorderedElementsAre("old"));
    EXPECT_FALSE(newIsOff);
    EXPECT_TRUE(Settings().IsOff("new"));
    EXPECT_EQ(LoggedOffs(), TString(u"new"));
}

TEST_F(TarnSettingsTest, SettingACopyOfTheSetKeepsIt) {
    Settings().SetOffs({"a", "b"});

    Settings().SetOffs(Settings().GetCopyOfOffs());

    EXPECT_THAT(Settings().GetCopyOfOffs(), UnorderedElementsAre("a", "b"));
}

// ---- Reading names from text

TEST_F(TarnSettingsTest, NamesAreReadWithoutTheBlanksAroundThem) {
    EXPECT_THAT(Parse(u"a, b ,c"), UnorderedElementsAre("a", "b", "c"));
    EXPECT_THAT(Parse(u"\ta b\n,c"), UnorderedElementsAre("a b", "c"));
}

TEST_F(TarnSettingsTest, AnEmptyTextHasNoNames) {
    EXPECT_THAT(Parse(u""), IsEmpty());
}

TEST_F(TarnSettingsTest, ASingleNameNeedsNoComma) {
    EXPECT_THAT(Parse(u"a"), UnorderedElementsAre("a"));
    EXPECT_THAT(Parse(u"a,"), UnorderedElementsAre("a"));
}

TEST_F(TarnSettingsTest, ReadingEndsAtTheFirstEmptyName) {
    EXPECT_THAT(Parse(u"a,,b"), UnorderedElementsAre("a"));
    EXPECT_THAT(Parse(u",a"), IsEmpty());
    EXPECT_THAT(Parse(u","), IsEmpty());
}

TEST_F(TarnSettingsTest, ANameOfBlanksIsTheEmptyName) {
    EXPECT_THAT(Parse(u" ,a b ,,c"), UnorderedElementsAre("", "a b"));
    EXPECT_THAT(Parse(u"  "), UnorderedElementsAre(""));
}

TEST_F(TarnSettingsTest, ANameThatIsReadTwiceIsThereOnce) {
    EXPECT_THAT(Parse(u"a, a,a "), UnorderedElementsAre("a"));
}

TEST_F(TarnSettingsTest, NamesAreUtf8) {
    EXPECT_THAT(Parse(u"gr\u00F6\u00DFe,\U0001F332"),
                UnorderedElementsAre("gr\xC3\xB6\xC3\x9F"
                                     "e",
                                     "\xF0\x9F\x8C\xB2"));
}

TEST_F(TarnSettingsTest, ReadingNamesChangesNoSetting) {
    Parse(u"a,b");

    EXPECT_FALSE(Settings().IsOff("a"));
    EXPECT_THAT(Log().Events(), IsEmpty());
}

// ---- Mappings

TEST_F(TarnSettingsTest, AtStartTheSevenTargetsAreMappedToThemselves) {
    EXPECT_THAT(Settings().GetEventAttributeMappings(),
                UnorderedElementsAre(Pair(TString(u"rid"), TString(u"rid")),
                                     Pair(TString(u"sid"), TString(u"sid")),
                                     Pair(TString(u"site"), TString(u"site")),
                                     Pair(TString(u"user"), TString(u"user")),
                                     Pair(TString(u"req-desc"), TString(u"req-desc")),
                                     Pair(TString(u"wb"), TString(u"wb")),
                                     Pair(TString(u"vw"), TString(u"vw"))));
    EXPECT_EQ(MappingOf(u"site"), std::make_pair(true, TString(u"site")));
}

TEST_F(TarnSettingsTest, ANameOutsideTheTableHasNoMapping) {
    EXPECT_EQ(MappingOf(u"rows"), unmapped);
    EXPECT_EQ(MappingOf(u""), unmapped);
    EXPECT_EQ(MappingOf(u"Site"), unmapped);
}

TEST_F(TarnSettingsTest, AnyNameMayBeMappedToAnyOfTheSevenTargets) {
    for (const char16_t* target : {u"rid", u"sid", u"site", u"user", u"req-desc", u"wb", u"vw"}) {
        const TString name = TString(u"my-") + TString(target);

        Settings().AddEventAttributeMapping(name, TString(target));

        EXPECT_EQ(Settings().GetEventAttributeMapping(name), std::make_pair(true, TString(target)));
    }
    EXPECT_THAT(Settings().GetEventAttributeMappings(), SizeIs(14));
}

TEST_F(TarnSettingsTest, AMappingsNameMayBeEmpty) {
    Settings().AddEventAttributeMapping(TString(), TString(u"site"));

    EXPECT_EQ(MappingOf(u""), std::make_pair(true, TString(u"site")));
}

TEST_F(TarnSettingsTest, AMappingToAnythingElseIsIgnored) {
    const auto before = Settings().GetEventAttributeMappings();

    for (const char16_t* target : {u"", u"Site", u"site ", u"db", u"ws", u"id", u"requestId"}) {
        Settings().AddEventAttributeMapping(TString(u"name"), TString(target));
        Settings().AddEventAttributeMapping(TString(u"site"), TString(target));
    }

    EXPECT_EQ(Settings().GetEventAttributeMappings(), before);
    EXPECT_THAT(Log().Messages(), IsEmpty());
    EXPECT_THAT(Log().Events(), IsEmpty());
}

TEST_F(TarnSettingsTest, ALaterMappingOfANameOverwritesTheEarlier) {
    Settings().AddEventAttributeMapping(TString(u"name"), TString(u"site"));
    Settings().AddEventAttributeMapping(TString(u"name"), TString(u"user"));
    Settings().AddEventAttributeMapping(TString(u"site"), TString(u"user"));

    EXPECT_EQ(MappingOf(u"name"), std::make_pair(true, TString(u"user")));
    EXPECT_EQ(MappingOf(u"site"), std::make_pair(true, TString(u"user")));
    EXPECT_THAT(Settings().GetEventAttributeMappings(), SizeIs(8));
}

TEST_F(TarnSettingsTest, TargetsAreNotMappedOnwards) {
    Settings().AddEventAttributeMapping(TString(u"site"), TString(u"user"));
    Settings().AddEventAttributeMapping(TString(u"name"), TString(u"site"));

    EXPECT_EQ(MappingOf(u"name"), std::make_pair(true, TString(u"site")));
}

TEST_F(TarnSettingsTest, ARemovedMappingIsGoneUntilTheDefaultsComeBack) {
    Settings().RemoveEventAttributeMapping(TString(u"rid"));
    EXPECT_EQ(MappingOf(u"rid"), unmapped);

    Settings().SetEventAttributeMappingToDefaults();
    EXPECT_EQ(MappingOf(u"rid"), std::make_pair(true, TString(u"rid")));
}

TEST_F(TarnSettingsTest, RemovingAnUnknownMappingChangesNothing) {
    const auto before = Settings().GetEventAttributeMappings();

    Settings().RemoveEventAttributeMapping(TString(u"rows"));

    EXPECT_EQ(Settings().GetEventAttributeMappings(), before);
}

TEST_F(TarnSettingsTest, TheDefaultsReplaceTheWholeTable) {
    const auto defaults = Settings().GetEventAttributeMappings();
    Settings().AddEventAttributeMapping(TString(u"name"), TString(u"site"));
    Settings().AddEventAttributeMapping(TString(u"user"), TString(u"site"));
    Settings().RemoveEventAttributeMapping(TString(u"wb"));

    Settings().SetEventAttributeMappingToDefaults();

    EXPECT_EQ(Settings().GetEventAttributeMappings(), defaults);
}

TEST_F(TarnSettingsTest, ARemovedTargetIsStillATarget) {
    Settings().RemoveEventAttributeMapping(TString(u"site"));

    Settings().AddEventAttributeMapping(TString(u"name"), TString(u"site"));

    EXPECT_EQ(MappingOf(u"name"), std::make_pair(true, TString(u"site")));
}

TEST_F(TarnSettingsTest, TheTableOfMappingsIsACopyThatHashesTheUtf16Bytes) {
    auto copy = Settings().GetEventAttributeMappings();
    copy.clear();

    EXPECT_THAT(Settings().GetEventAttributeMappings(), SizeIs(7));
    EXPECT_EQ(copy.max_load_factor(), 1.0F);
    EXPECT_EQ(copy.hash_function()(TString(u"site")), THash32(u"site", 8, 0xDEADBEEF));
}

// ---- Threads

TEST_F(TarnSettingsTest, RanksAreSetAndAnsweredWhileTheSettingsAreLocked) {
    EXPECT_TRUE(EndsWhileLocked<TReadWriteLock::WriteGuard>([this] {
        Settings().SetRankOn(TraceRank{3});
        EXPECT_TRUE(Settings().IsOff(TraceRank{4}));
        EXPECT_TRUE(Settings().IsEitherOff(TraceRank{4}, "a"));
        EXPECT_FALSE(Settings().IsOff(static_cast<const char*>(nullptr)));
    }));
}

TEST_F(TarnSettingsTest, TheTableOfMappingsIsCopiedWhileTheSettingsAreLocked) {
    EXPECT_TRUE(EndsWhileLocked<TReadWriteLock::WriteGuard>(
        [this] { EXPECT_THAT(Settings().GetEventAttributeMappings(), SizeIs(7)); }));
}

TEST_F(TarnSettingsTest, ReadersDoNotWaitForReaders) {
    Settings().SetOffs({"a"});

    EXPECT_TRUE(EndsWhileLocked<TReadWriteLock::ReadGuard>([this] {
        EXPECT_TRUE(Settings().IsOff("a"));
        EXPECT_TRUE(Settings().IsEitherOff(TraceRank{0}, "a"));
        EXPECT_THAT(Settings().GetCopyOfOffs(), UnorderedElementsAre("a"));
        EXPECT_EQ(MappingOf(u"site"), std::make_pair(true, TString(u"site")));
    }));
}

TEST_F(TarnSettingsTest, WritersWaitForReaders) {
    m_timeout = std::chrono::milliseconds(20);
    using ReadGuard = TReadWriteLock::ReadGuard;

    EXPECT_FALSE(EndsWhileLocked<ReadGuard>([this] { Settings().SetOffs({"a"}); }));
    EXPECT_FALSE(EndsWhileLocked<ReadGuard>(
        [this] { Settings().AddEventAttributeMapping(TString(u"name"), TString(u"site")); }));
    EXPECT_FALSE(EndsWhileLocked<ReadGuard>(
        [this] { Settings().RemoveEventAttributeMapping(TString(u"name")); }));
    EXPECT_FALSE(
        EndsWhileLocked<ReadGuard>([this] { Settings().SetEventAttributeMappingToDefaults(); }));
}

TEST_F(TarnSettingsTest, ReadersOfNamesAndMappingsWaitForWriters) {
    m_timeout = std::chrono::milliseconds(20);
    using WriteGuard = TReadWriteLock::WriteGuard;
    Settings().SetOffs({"one of them"});

    EXPECT_FALSE(EndsWhileLocked<WriteGuard>([this] { Settings().IsOff("one of them"); }));
    EXPECT_FALSE(EndsWhileLocked<WriteGuard>(
        [this] { Settings().IsEitherOff(TraceRank{0}, "one of them"); }));
    EXPECT_FALSE(EndsWhileLocked<WriteGuard>([this] {
        const ActivityName name("one of them");
        Settings().IsEitherOff(TraceRank{0}, name);
    }));
    EXPECT_FALSE(EndsWhileLocked<WriteGuard>([this] { Settings().GetCopyOfOffs(); }));
    EXPECT_FALSE(EndsWhileLocked<WriteGuard>([this] { MappingOf(u"site"); }));
}

TEST_F(TarnSettingsTest, WhileNoNameIsOffAskingForOneDoesNotLock) {
    EXPECT_TRUE(EndsWhileLocked<TReadWriteLock::WriteGuard>([this] {
        EXPECT_FALSE(Settings().IsOff("a"));
        EXPECT_FALSE(Settings().IsEitherOff(TraceRank{0}, "a"));
    }));
}

TEST_F(TarnSettingsTest, NeitherDoesItForANameThatIsOnWhileAnotherIsOff) {
    Settings().SetOffs({"one of them"});

    // By its hash, it shares nothing with the other.
    EXPECT_TRUE(EndsWhileLocked<TReadWriteLock::WriteGuard>([this] {
        EXPECT_FALSE(Settings().IsOff("a"));
        EXPECT_FALSE(Settings().IsEitherOff(TraceRank{0}, "a"));
    }));
}

TEST_F(TarnSettingsTest, EachOfManyNamesIsOffAndNoOther) {
    constexpr int count = 5000;
    Names names;
    for (int i = 0; i < count; ++i) {
        names.insert("off-" + std::to_string(i));
    }
    TLog::SetThreshold(TLog::Warn);
    Settings().SetOffs(names);

    for (int i = 0; i < count; ++i) {
        ASSERT_TRUE(Settings().IsOff(("off-" + std::to_string(i)).c_str())) << i;
        ASSERT_FALSE(Settings().IsOff(("on-" + std::to_string(i)).c_str())) << i;
    }
}

TEST_F(TarnSettingsTest, ANameThatRemembersFollowsEachNewSet) {
    const ActivityName name("a");

    EXPECT_FALSE(Settings().IsEitherOff(TraceRank{0}, name));
    for (int i = 0; i < 3; ++i) {
        Settings().SetOffs({"a", "b"});
        EXPECT_TRUE(Settings().IsEitherOff(TraceRank{0}, name));
        EXPECT_TRUE(Settings().IsEitherOff(TraceRank{0}, name));
        Settings().SetOffs({"b"});
        EXPECT_FALSE(Settings().IsEitherOff(TraceRank{0}, name));
        EXPECT_TRUE(Settings().IsEitherOff(TraceRank{1}, name));
    }
}

TEST_F(TarnSettingsTest, ANameThatRemembersMayBeNullWhichIsTheEmptyName) {
    const ActivityName name(nullptr);

    EXPECT_FALSE(Settings().IsEitherOff(TraceRank{0}, name));
    Settings().SetOffs({""});

    EXPECT_TRUE(Settings().IsEitherOff(TraceRank{0}, name));
}

TEST_F(TarnSettingsTest, WhoIsToldOfANewSetFindsItOnAnyThread) {
    constexpr int rounds = 2000;
    const ActivityName remembering("a");
    std::atomic<int> toldOf{0};
    std::atomic<int> seen{0};
    int wrong = 0;
    TLog::SetThreshold(TLog::Warn);
    std::thread reader([&] {
        for (int round = 1; round <= rounds; ++round) {
            toldOf.wait(round - 1);
            const bool isOff = round % 2 != 0;
            wrong += Settings().IsOff("a") != isOff ? 1 : 0;
            wrong += Settings().IsEitherOff(TraceRank{0}, remembering) != isOff ? 1 : 0;
            seen = round;
            seen.notify_one();
        }
    });

    for (int round = 1; round <= rounds; ++round) {
        Settings().SetOffs(round % 2 != 0 ? Names{"a"} : Names{"b"});
        toldOf = round;
        toldOf.notify_one();
        seen.wait(round - 1);
    }
    reader.join();

    EXPECT_EQ(wrong, 0);
}

TEST_F(TarnSettingsTest, ANameThatIsOffInEachSetIsOffAllTheTime) {
    constexpr int rounds = 3000;
    const ActivityName remembering("always");
    std::atomic<bool> isOver{false};
    std::atomic<int> wrong{0};
    TLog::SetThreshold(TLog::Warn);
    Settings().SetOffs({"always"});
    std::thread reader([&] {
        while (!isOver) {
            wrong += Settings().IsOff("always") ? 0 : 1;
            wrong += Settings().IsEitherOff(TraceRank{0}, remembering) ? 0 : 1;
        }
    });

    for (int round = 0; round < rounds; ++round) {
        Settings().SetOffs({"always", "other-" + std::to_string(round)});
    }
    isOver = true;
    reader.join();

    EXPECT_EQ(wrong.load(), 0);
}

TEST_F(TarnSettingsTest, ReadersOnOtherThreadsSeeWholeSetsOnly) {
    constexpr int32 enough = 2000;
    std::atomic<int32> reads{0};
    std::atomic<int32> writes{0};
    std::atomic<int> wrong{0};
    TLog::SetThreshold(TLog::Warn);
    std::thread reader([&] {
        while (reads < enough || writes < enough) {
            const Names offs = Settings().GetCopyOfOffs();
            if (offs.count("a") != offs.count("b")) {
                ++wrong;
            }
            Settings().IsOff("a");
            Settings().IsEitherOff(TraceRank{0}, "b");
            Settings().IsOff(TraceRank{1});
            if (MappingOf(u"site") != std::make_pair(true, TString(u"site"))) {
                ++wrong;
            }
            ++reads;
        }
    });

    while (reads < enough || writes < enough) {
        Settings().SetOffs({"a", "b"});
        Settings().SetRankOn(TraceRank{writes.load()});
        Settings().AddEventAttributeMapping(TString(u"name"), TString(u"user"));
        Settings().SetOffs({});
        Settings().RemoveEventAttributeMapping(TString(u"name"));
        ++writes;
    }
    reader.join();

    EXPECT_EQ(wrong.load(), 0);
}

}  // namespace
}  // namespace tarn::test
