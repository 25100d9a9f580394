#include "QueryService.h"

#include "HandedOverActivity.h"
#include "LoggedTrees.h"
#include "PackageDatabase.h"
#include "Sqlite.h"
#include "TracedRun.h"

#include "tarn/ActivityScope.h"

#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <system_error>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace packagesearch {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::Eq;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

// The service on the sample packages, traced to a file, which is read when the service and the
// tracing have ended.
class QueryServiceTest : public testing::Test {
protected:
    QueryServiceTest()
        : m_log(std::filesystem::temp_directory_path() /
                ("query-service-" + std::to_string(getpid()) + ".log")),
          m_run(std::make_unique<TracedRun>(m_log)),
          m_database(std::make_unique<PackageDatabase>()) {}

    ~QueryServiceTest() override {
        m_run.reset();
        std::error_code ignored;
        std::filesystem::remove(m_log, ignored);
    }

    LoggedTrees EndAndRead() {
        m_run.reset();
        return ReadLog(m_log);
    }

    static const LoggedActivity& OnlyChild(const LoggedTrees& log, const LoggedActivity& activity) {
        EXPECT_THAT(activity.children, SizeIs(1));
        return log.activities[activity.children.at(0)];
    }

    std::filesystem::path m_log;
    std::unique_ptr<TracedRun> m_run;
    std::unique_ptr<PackageDatabase> m_database;
    RequestAttributes m_request{"ann", "north", "s1", ""};
};

TEST_F(QueryServiceTest, AQueryIsOneTreeAcrossTheAskingThreadAndTheWorker) {
    LoadPackages(SAMPLE_STATUS_FILE, *m_database);
    {
        QueryService service(*m_database, 1);
        EXPECT_THAT(service.Answer(m_request, {"breaks", "libzap1"}).rows, SizeIs(3));
    }

    const LoggedTrees log = EndAndRead();

    const LoggedActivity* query = log.First("query");
    ASSERT_NE(query, nullptr);
    EXPECT_THAT(query->body, HasSubstr("kind=breaks"));
    EXPECT_THAT(query->body, HasSubstr("rows=3"));
    EXPECT_EQ(query->description, "breaks libzap1");
    const LoggedActivity& run = OnlyChild(log, *query);
    EXPECT_EQ(run.name, "run");
    EXPECT_NE(run.endThread, query->endThread);
    std::vector<std::string> parts;
    for (const std::size_t part : run.children) {
        parts.push_back(log.activities[part].name);
        EXPECT_EQ(log.activities[part].endThread, run.endThread);
    }
    EXPECT_THAT(parts, ElementsAre("prepare", "execute", "fetch"));
}

TEST_F(QueryServiceTest, TheWorkersLinesCarryTheAttributesOfTheRequest) {
    LoadPackages(SAMPLE_STATUS_FILE, *m_database);
    {
        QueryService service(*m_database, 2);
        service.Answer(m_request, {"sections", ""});
        m_request.user = "bob";
        service.Answer(m_request, {"sections", ""});
    }

    const LoggedTrees log = EndAndRead();

    std::set<std::string> requests;
    for (const LoggedActivity& activity : log.activities) {
        if (activity.name != "query") {
            continue;
        }
        requests.insert(activity.request + " of " + activity.user);
        const LoggedActivity& run = OnlyChild(log, activity);
        EXPECT_EQ(run.user, activity.user);
        EXPECT_EQ(run.site, "north");
        EXPECT_EQ(run.session, "s1");
        EXPECT_EQ(run.request, activity.request);
        const LoggedActivity& part = log.activities[run.children.at(0)];
        EXPECT_EQ(part.user, activity.user);
        EXPECT_EQ(part.request, activity.request);
    }
    EXPECT_THAT(requests, ElementsAre(testing::EndsWith("ann"), testing::EndsWith("bob")));
}

TEST_F(QueryServiceTest, AFailedQueryIsTerminatedEarlyAndTheServiceGoesOn) {
    // Tables without a word index: a search cannot be prepared.
    PackageDatabase broken(WordSearch::FullText);
    {
        QueryService service(broken, 1);
        EXPECT_THROW(service.Answer(m_request, {"search", "zap"}), sqlite::SqliteError);
        broken.CreateTables();
        broken.BuildIndexes();
        EXPECT_THAT(service.Answer(m_request, {"search", "zap"}).rows, IsEmpty());
    }

    const LoggedTrees log = EndAndRead();

    std::vector<std::string> results;
    for (const LoggedActivity& activity : log.activities) {
        results.push_back(activity.name + " " + activity.result);
    }
    EXPECT_THAT(results,
                ElementsAre("query early-termination",
                            "run early-termination",
                            "prepare early-termination",
                            "query ok",
                            "run ok",
                            "prepare ok",
                            "execute ok",
                            "fetch ok"));
}

TEST_F(QueryServiceTest, ManyClientsGetTheirOwnAnswersAndEveryScopeIsInTheLog) {
    LoadPackages(SAMPLE_STATUS_FILE, *m_database);
    std::vector<Query> queries;
    for (int round = 0; round < 50; ++round) {
        queries.insert(
            queries.end(),
            {{"largest", "1"}, {"rdepends", "shelf"}, {"breaks", "libzap1"}, {"explode", ""}});
    }
    std::vector<Answer> answers;
    {
        QueryService service(*m_database, 3);
        answers = AskAll(service, queries, 4, m_request);
    }
    const auto scopes = static_cast<std::size_t>(m_run->ScopesTraced());

    const LoggedTrees log = EndAndRead();

    ASSERT_THAT(answers, SizeIs(queries.size()));
    for (std::size_t index = 0; index < answers.size(); ++index) {
        const std::size_t rows = index % 4;
        if (rows == 3) {
            EXPECT_EQ(answers[index].error, "there is no query 'explode'");
        } else {
            EXPECT_THAT(answers[index].result.rows, SizeIs(rows + 1)) << queries[index].Text();
        }
    }
    EXPECT_EQ(WhatIsWrongWith(m_log), "");
    EXPECT_THAT(log.activities, SizeIs(scopes));
    EXPECT_EQ(log.Count("query"), queries.size());
    for (const LoggedActivity& activity : log.activities) {
        if (activity.name == "query") {
            EXPECT_EQ(OnlyChild(log, activity).name, "run");
        }
    }
}

TEST_F(QueryServiceTest, WorkThatIsThrownAwayLeavesNoTrace) {
    {
        const tarn::ActivityScope scope("asking");
        const HandedOverActivity neverRun;
    }

    const LoggedTrees log = EndAndRead();

    EXPECT_THAT(log.activities, ElementsAre(Field(&LoggedActivity::name, "asking")));
}

TEST_F(QueryServiceTest, NothingIsTracedOnceTheRunIsOver) {
    m_run.reset();
    { const tarn::ActivityScope scope("late"); }

    EXPECT_THAT(EndAndRead().activities, IsEmpty());
}

}  // namespace
}  // namespace packagesearch
