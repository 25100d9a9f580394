#include "tarn/ActivityConfig.h"

#include "tarn/ActivityTokens.h"

#include <utility>

#include <gtest/gtest.h>

namespace {

constexpr ActivityPhase beyond = static_cast<ActivityPhase>(7);
constexpr ActivityPhase negative = static_cast<ActivityPhase>(-1);

TEST(ActivityConfigTest, ThePhasesHaveTheirNumbers) {
    EXPECT_EQ(static_cast<int>(ActivityPhase::Begin), 0);
    EXPECT_EQ(static_cast<int>(ActivityPhase::End), 1);
    EXPECT_EQ(static_cast<int>(ActivityPhase::None), 2);
}

TEST(ActivityConfigTest, TheBeginPhaseNamesTheEventAfterTheBeginning) {
    const ActivityConfig config(ActivityPhase::Begin, u"query");

    EXPECT_EQ(config.GetPhase(), ActivityPhase::Begin);
    EXPECT_EQ(config.GetScopeName(), TString(u"query"));
    EXPECT_EQ(config.GetUniqueActivityName(), TString(u"begin-query"));
    EXPECT_EQ(config.PhaseToString(), TString(u"begin"));
    EXPECT_EQ(&config.GetSchema(), &ActivityConfig::s_defaultBeginSchema);
}

TEST(ActivityConfigTest, TheEndPhaseNamesTheEventAfterTheEnd) {
    const ActivityConfig config(ActivityPhase::End, u"query");

    EXPECT_EQ(config.GetPhase(), ActivityPhase::End);
    EXPECT_EQ(config.GetScopeName(), TString(u"query"));
    EXPECT_EQ(config.GetUniqueActivityName(), TString(u"end-query"));
    EXPECT_EQ(config.PhaseToString(), TString(u"end"));
    EXPECT_EQ(&config.GetSchema(), &ActivityConfig::s_defaultEndSchema);
}

TEST(ActivityConfigTest, NoPhaseLeavesTheScopesNameAlone) {
    const ActivityConfig config(ActivityPhase::None, u"query");

    EXPECT_EQ(config.GetPhase(), ActivityPhase::None);
    EXPECT_EQ(config.GetUniqueActivityName(), TString(u"query"));
    EXPECT_EQ(config.PhaseToString(), TString(u"-"));
    EXPECT_EQ(&config.GetSchema(), &ActivityConfig::s_emptyActivitySchema);
}

TEST(ActivityConfigTest, AnyOtherPhaseBehavesLikeNone) {
    for (const ActivityPhase phase : {beyond, negative, static_cast<ActivityPhase>(3)}) {
        const ActivityConfig config(phase, u"query");

        EXPECT_EQ(config.GetPhase(), phase);
        EXPECT_EQ(config.GetUniqueActivityName(), TString(u"query"));
        EXPECT_EQ(config.PhaseToString(), TString(u"-"));
        EXPECT_EQ(&config.GetSchema(), &ActivityConfig::s_emptyActivitySchema);
    }
}

TEST(ActivityConfigTest, AnEmptyScopeNameGivesTheBarePrefix) {
    EXPECT_EQ(ActivityConfig(ActivityPhase::Begin, u"").GetUniqueActivityName(),
              TString(u"begin-"));
    EXPECT_EQ(ActivityConfig(ActivityPhase::End, u"").GetUniqueActivityName(), TString(u"end-"));
    EXPECT_EQ(ActivityConfig(ActivityPhase::None, u"").GetUniqueActivityName(), TString());
}

TEST(ActivityConfigTest, TwoConfigsOfOneScopeAndPhaseSayTheSameAndShareTheStatics) {
    for (const ActivityPhase phase : {ActivityPhase::Begin, ActivityPhase::End, beyond}) {
        const ActivityConfig one(phase, u"query");
        const ActivityConfig other(phase, u"query");

        EXPECT_EQ(one.GetPhase(), other.GetPhase());
        EXPECT_EQ(one.GetScopeName(), other.GetScopeName());
        EXPECT_EQ(one.GetUniqueActivityName(), other.GetUniqueActivityName());
        EXPECT_EQ(&one.PhaseToString(), &other.PhaseToString());
        EXPECT_EQ(&one.GetSchema(), &other.GetSchema());
    }
}

TEST(ActivityConfigTest, ThePhaseWordIsTheSameObjectForEveryScopeAndDiffersByPhase) {
    const ActivityConfig query(ActivityPhase::Begin, u"query");
    const ActivityConfig load(ActivityPhase::Begin, u"load");
    const ActivityConfig end(ActivityPhase::End, u"load");

    EXPECT_EQ(&query.PhaseToString(), &load.PhaseToString());
    EXPECT_NE(&query.PhaseToString(), &end.PhaseToString());
}

TEST(ActivityConfigTest, ThePhaseWordsAreTheTokens) {
    EXPECT_EQ(ActivityConfig(ActivityPhase::Begin, u"").PhaseToString(),
              TString(ActivityTokens::beginPhase));
    EXPECT_EQ(ActivityConfig(ActivityPhase::End, u"").PhaseToString(),
              TString(ActivityTokens::endPhase));
}

TEST(ActivityConfigTest, CopiesAndMovesKeepEverything) {
    ActivityConfig original(ActivityPhase::End, u"query");

    ActivityConfig copy(original);
    EXPECT_EQ(copy.GetUniqueActivityName(), TString(u"end-query"));
    ActivityConfig moved(std::move(original));
    EXPECT_EQ(moved.GetUniqueActivityName(), TString(u"end-query"));
    EXPECT_EQ(&moved.GetSchema(), &ActivityConfig::s_defaultEndSchema);

    ActivityConfig assigned(ActivityPhase::Begin, u"load");
    assigned = copy;
    EXPECT_EQ(assigned.GetPhase(), ActivityPhase::End);
    EXPECT_EQ(assigned.GetUniqueActivityName(), TString(u"end-query"));
    EXPECT_EQ(&assigned.PhaseToString(), &copy.PhaseToString());
    assigned = ActivityConfig(ActivityPhase::Begin, u"load");
    EXPECT_EQ(assigned.GetUniqueActivityName(), TString(u"begin-load"));
}

TEST(ActivityConfigTest, AConfigKeepsANameOfItsOwn) {
    TString name(u"query");
    const ActivityConfig config(ActivityPhase::Begin, name);

    name = TString(u"load");

    EXPECT_EQ(config.GetScopeName(), TString(u"query"));
}

TEST(ActivitySchemaTest, TheThreeSchemasHaveTheirNamesPrefixesAndPhases) {
    const ActivitySchema& begin = ActivityConfig::s_defaultBeginSchema;
    EXPECT_EQ(begin.name, TString(u"begin-default"));
    EXPECT_EQ(begin.prefix, TString(u"begin-"));
    EXPECT_EQ(begin.phase, ActivityPhase::Begin);

    const ActivitySchema& end = ActivityConfig::s_defaultEndSchema;
    EXPECT_EQ(end.name, TString(u"end-default"));
    EXPECT_EQ(end.prefix, TString(u"end-"));
    EXPECT_EQ(end.phase, ActivityPhase::End);

    const ActivitySchema& empty = ActivityConfig::s_emptyActivitySchema;
    EXPECT_EQ(empty.name, TString(u"empty"));
    EXPECT_TRUE(empty.prefix.IsEmpty());
    EXPECT_EQ(empty.phase, ActivityPhase::None);
}

TEST(ActivitySchemaTest, ASchemaKeepsWhatItWasMadeOf) {
    TString name(u"mine");
    TString prefix(u"my-");
    ActivitySchema schema(name, prefix, beyond);
    name = TString();
    prefix = TString();

    ActivitySchema copy(u"", u"", ActivityPhase::Begin);
    copy = schema;
    const ActivitySchema moved(std::move(schema));

    for (const ActivitySchema& kept : {copy, moved}) {
        EXPECT_EQ(kept.name, TString(u"mine"));
        EXPECT_EQ(kept.prefix, TString(u"my-"));
        EXPECT_EQ(kept.phase, beyond);
    }
}

// Other libraries' static initialisers may build configs before this library's own have run.
const TString s_nameAtLoadTime =
    ActivityConfig(ActivityPhase::Begin, u"load").GetUniqueActivityName();

TEST(ActivityConfigTest, ItMayBeUsedByStaticInitialisers) {
    EXPECT_EQ(s_nameAtLoadTime, TString(u"begin-load"));
}

}  // namespace
