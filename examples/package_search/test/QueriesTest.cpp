#include "Queries.h"

#include "PackageDatabase.h"
#include "Sqlite.h"
#include "StatusFile.h"

#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace packagesearch {

void PrintTo(WordSearch wordSearch, std::ostream* out) {
    *out << (wordSearch == WordSearch::FullText ? "full text" : "like");
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

std::string ErrorOf(const std::string& text) {
    try {
        ParseQuery(text);
    } catch (const QueryError& error) {
        return error.what();
    }
    return "no error";
}

TEST(ParseQueryTest, ReadsAKindAndItsArgumentAndDropsSurplusBlanks) {
    const Query query = ParseQuery("  search\ttext   editor \r");

    EXPECT_EQ(query.kind, "search");
    EXPECT_EQ(query.argument, "text editor");
    EXPECT_EQ(query.Text(), "search text editor");
}

TEST(ParseQueryTest, SaysWhatIsWrong) {
    EXPECT_EQ(ErrorOf("explode all"), "there is no query 'explode'");
    EXPECT_EQ(ErrorOf(""), "there is no query ''");
    EXPECT_EQ(ErrorOf("search"), "'search' needs an argument");
    EXPECT_EQ(ErrorOf("sections libs"), "'sections' takes no argument");
    EXPECT_EQ(ErrorOf("largest many"), "'largest' needs a number from 1 to 1000000, not 'many'");
    EXPECT_EQ(ErrorOf("hubs 0"), "'hubs' needs a number from 1 to 1000000, not '0'");
    EXPECT_EQ(ErrorOf("hubs 3 4"), "'hubs' needs a number from 1 to 1000000, not '3 4'");
}

class QueriesTest : public testing::TestWithParam<WordSearch> {
protected:
    QueriesTest() : m_database(GetParam()) {
        LoadPackages(SAMPLE_STATUS_FILE, m_database);
        m_reader = std::make_unique<PackageReader>(m_database);
    }

    // Each row's cells, joined by blanks.
    std::vector<std::string> Ask(const std::string& query) {
        std::vector<std::string> rows;
        for (const std::vector<std::string>& row : RunQuery(*m_reader, ParseQuery(query)).rows) {
            std::string text;
            for (const std::string& cell : row) {
                text.append(text.empty() ? "" : " ").append(cell);
            }
            rows.push_back(text);
        }
        return rows;
    }

    PackageDatabase m_database;
    std::unique_ptr<PackageReader> m_reader;
};

INSTANTIATE_TEST_SUITE_P(WordSearch,
                         QueriesTest,
                         testing::Values(WordSearch::FullText, WordSearch::Like),
                         [](const auto& kind) {
                             return kind.param == WordSearch::FullText ? "FullText" : "Like";
                         });

TEST_P(QueriesTest, LoadingCountsPackagesAndDependencies) {
    PackageDatabase database(GetParam());

    const LoadSummary summary = LoadPackages(SAMPLE_STATUS_FILE, database);

    EXPECT_EQ(summary.packages, 6U);
    EXPECT_EQ(summary.notInstalled, 1U);
    EXPECT_EQ(summary.dependencies, 12U);
}

TEST_P(QueriesTest, SearchRanksTheNameAboveTheDescription) {
    const auto names =
        testing::AnyOf(testing::StartsWith("shelf 0.9"), testing::StartsWith("shelf-data 0.9"));

    EXPECT_THAT(Ask("search shelf"), ElementsAre(names, names, testing::StartsWith("mirror")))
        << "two have the word in their name, the third one only mentions it";
}

TEST_P(QueriesTest, SearchFindsPackagesThatHaveAllWords) {
    EXPECT_THAT(Ask("search archives network"), ElementsAre(testing::StartsWith("mirror")));
    EXPECT_THAT(Ask("search compress nothing-like-that"), IsEmpty());
}

TEST_P(QueriesTest, SearchTakesTextLiterally) {
    EXPECT_THAT(Ask("search \"zap"), testing::Not(testing::Contains("mirror")));
    EXPECT_THAT(Ask("search shelf OR NOT (zap"), IsEmpty());
    EXPECT_THAT(Ask("search s%f"), IsEmpty());
    EXPECT_THAT(Ask("search she_f"), IsEmpty());
}

TEST_P(QueriesTest, ReverseDependenciesAreThePackagesThatNameIt) {
    EXPECT_THAT(
        Ask("rdepends libcore6"),
        ElementsAre(
            "libzap1 depends", "mirror depends", "shelf pre-depends", "zap-compress depends"));
    EXPECT_THAT(Ask("rdepends shelf"), ElementsAre("mirror depends", "shelf-data recommends"));
    EXPECT_THAT(Ask("rdepends nobody"), IsEmpty());
}

TEST_P(QueriesTest, BreaksFollowsDependenciesThroughCyclesButNotRecommendations) {
    EXPECT_THAT(Ask("breaks libzap1"),
                ElementsAre("mirror net 300", "shelf utils 77", "zap-compress utils 420"));
    EXPECT_THAT(Ask("breaks shelf-data"), ElementsAre("mirror net 300", "shelf utils 77"));
    EXPECT_THAT(Ask("breaks shelf"), ElementsAre("mirror net 300"));
}

TEST_P(QueriesTest, LargestGoesBySize) {
    EXPECT_THAT(Ask("largest 2"), ElementsAre("shelf-data 12000 utils", "libcore6 9000 libs"));
}

TEST_P(QueriesTest, SectionsAreListedAndCounted) {
    EXPECT_THAT(Ask("section libs"), ElementsAre("libcore6 2.36-9 9000", "libzap1 1.2-3 150"));
    EXPECT_THAT(Ask("sections"), ElementsAre("utils 3 12497", "libs 2 9150", "net 1 300"));
}

TEST_P(QueriesTest, ImpactCountsWhatWouldBreakWithoutEachMatch) {
    EXPECT_THAT(Ask("impact library"), ElementsAre("libcore6 4 9947", "libzap1 3 947"));
}

TEST_P(QueriesTest, HubsAreThePackagesThatMostOthersRestOn) {
    EXPECT_THAT(Ask("hubs 2"), ElementsAre("libcore6 4 4", "libzap1 1 3"));
}

TEST_P(QueriesTest, AStatementIsPreparedOnceAndMayBeAskedAgain) {
    const std::vector<std::string> first = Ask("rdepends libcore6");

    EXPECT_EQ(Ask("rdepends libcore6"), first);
    EXPECT_THAT(Ask("rdepends mirror"), ElementsAre("shelf depends"));
}

TEST_P(QueriesTest, ChosenQueriesAreAllKnownAndFindSomething) {
    const std::vector<Query> queries = ChooseQueries(m_database);

    EXPECT_THAT(queries, SizeIs(testing::Ge(15U)));
    for (const Query& query : queries) {
        EXPECT_EQ(ParseQuery(query.Text()).Text(), query.Text());
        if (query.kind != "search" && query.kind != "impact") {
            EXPECT_THAT(Ask(query.Text()), testing::Not(IsEmpty())) << query.Text();
        }
    }
}

TEST_P(QueriesTest, AFailedBatchLeavesNothingBehind) {
    std::vector<Package> packages(2);
    packages[0].name = packages[0].version = packages[0].architecture = "fine";
    PackageDatabase database(GetParam());

    // No table is there to insert into.
    EXPECT_THROW(database.Insert(packages), sqlite::SqliteError);

    database.CreateTables();
    database.Insert(packages);
    PackageReader reader(database);
    EXPECT_THAT(RunQuery(reader, {"largest", "9"}).rows, SizeIs(2));
}

TEST_P(QueriesTest, ManyPackagesAreInsertedInBatches) {
    std::string status;
    for (int number = 0; number < 1001; ++number) {
        status += "Package: p" + std::to_string(number) +
                  "\nVersion: 1\nArchitecture: all\nInstalled-Size: " + std::to_string(number) +
                  "\n\n";
    }
    const std::string path = testing::TempDir() + "many-packages";
    std::ofstream(path) << status;
    PackageDatabase database(GetParam());

    const LoadSummary summary = LoadPackages(path, database);

    PackageReader reader(database);
    EXPECT_EQ(summary.packages, 1001U);
    EXPECT_THAT(RunQuery(reader, {"largest", "5000"}).rows, SizeIs(1001));
    std::remove(path.c_str());
}

}  // namespace
}  // namespace packagesearch
