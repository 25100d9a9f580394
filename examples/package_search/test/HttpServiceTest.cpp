#include "HttpService.h"

#include "ServiceFixture.h"

#include "tarn/ActivityScope.h"

#include <atomic>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace packagesearch {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class HttpServiceTest : public ServiceTest {
protected:
    // What follows dependencies in it takes far longer than any deadline of these tests.
    void LoadTangle() {
        std::ofstream(m_folder / "status") << TangledStatus(300);
        LoadPackages(m_folder / "status", m_tangle);
    }

    static constexpr std::chrono::milliseconds timeout{120'000};

    PackageDatabase m_tangle;
};

TEST_F(HttpServiceTest, ARequestIsOneTreeAcrossTheServingThreadAndTheWorker) {
    const Instance& instance = Start();

    const httplib::Result result =
        Ask(instance,
            "/queries/breaks?argument=libzap1",
            {{"X-User", "ada"}, {"X-Session", "s7"}, {"X-Request-Id", "r1"}});

    ASSERT_EQ(Verdict(result), "200");
    EXPECT_THAT(nlohmann::json::parse(result->body)["rows"], SizeIs(3));
    const LoggedTrees log = EndAndRead();
    ExpectWholeLog(log);
    const LoggedActivity& request = RequestFor(log, "GET /queries/breaks");
    EXPECT_EQ(request.result, "ok");
    EXPECT_EQ(request.user + " " + request.session + " " + request.request + " " + request.site,
              "ada s7 r1 packages");
    EXPECT_EQ(request.body, "status=200");
    EXPECT_EQ(request.id, result->get_header_value("X-Trace-Id"));
    ASSERT_THAT(Parts(log, request), ElementsAre("answer"));
    const LoggedActivity& answer = log.activities[request.children[0]];
    EXPECT_EQ(answer.endThread, request.endThread);
    ASSERT_THAT(Parts(log, answer), ElementsAre("run"));
    const LoggedActivity& run = log.activities[answer.children[0]];
    EXPECT_NE(run.endThread, request.endThread);
    EXPECT_EQ(run.user, "ada");
    EXPECT_THAT(Parts(log, run), ElementsAre("prepare", "execute", "fetch"));
    EXPECT_GT(run.figures.ae, 0);
    EXPECT_GT(request.figures.ai, run.figures.ai);
}

TEST_F(HttpServiceTest, TheQueriesOfOneBodyAreAnsweredInTheirOrder) {
    const Instance& instance = Start();
    httplib::Client client("127.0.0.1", instance.Port());

    const httplib::Result result =
        client.Post("/queries", "largest 1\r\n\nsections\nrdepends shelf\n", "text/plain");

    ASSERT_EQ(Verdict(result), "200");
    const nlohmann::json answers = nlohmann::json::parse(result->body)["answers"];
    ASSERT_THAT(answers, SizeIs(3));
    EXPECT_EQ(answers[0]["query"], "largest 1");
    EXPECT_THAT(answers[1]["rows"], SizeIs(3));
    EXPECT_THAT(answers[2]["rows"], SizeIs(2));
    const LoggedTrees log = EndAndRead();
    ExpectWholeLog(log);
    const LoggedActivity& request = RequestFor(log, "POST /queries");
    EXPECT_THAT(Parts(log, log.activities[request.children.at(0)]),
                ElementsAre("run", "run", "run"));
}

TEST_F(HttpServiceTest, ManyClientsGetTheirOwnAnswersAndEveryRequestIsATreeThatAddsUp) {
    const Instance& back = Start();
    const Instance& front = Start(OptionsWithLongTimeouts(), back.Url());
    constexpr int clients = 6;
    constexpr int rounds = 10;
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;

    for (int client = 0; client < clients; ++client) {
        threads.emplace_back([&, client] {
            for (int round = 0; round < rounds; ++round) {
                const std::string rows = std::to_string(1 + (client + round) % 4);
                const httplib::Result largest = Ask(front, "/queries/largest?argument=" + rows);
                const httplib::Result package = Ask(front, "/packages/shelf");
                const bool isRight =
                    largest && package &&
                    nlohmann::json::parse(largest->body)["query"] == "largest " + rows &&
                    std::to_string(nlohmann::json::parse(largest->body)["rows"].size()) == rows &&
                    nlohmann::json::parse(package->body)["dependents"].size() == 2;
                wrong += isRight ? 0 : 1;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(wrong, 0);
    const LoggedTrees log = EndAndRead();
    ExpectWholeLog(log);
    EXPECT_THAT(Requests(log), SizeIs(3 * clients * rounds));
}

TEST_F(HttpServiceTest, ARequestBeyondItsDeadlineIsCanceledAndTheServiceGoesOn) {
    LoadTangle();
    const Instance& instance = Start(OptionsWithLongTimeouts(), {}, &m_tangle);

    const httplib::Result result = Ask(instance, "/queries/hubs?argument=1000000&deadline-ms=50");

    EXPECT_EQ(Verdict(result), "504 deadline");
    EXPECT_EQ(Verdict(Ask(instance, "/queries/sections")), "200");
    const LoggedTrees log = EndAndRead();
    ExpectWholeLog(log);
    const LoggedActivity& request = RequestFor(log, "GET /queries/hubs");
    EXPECT_EQ(request.result, "early-termination");
    EXPECT_THAT(request.details, HasSubstr("type=canceled"));
    EXPECT_THAT(request.details, HasSubstr("reason=deadline"));
}

TEST_F(HttpServiceTest, AQueryBeyondItsDeadlineIsCanceledInTheStepThatItIsIn) {
    LoadTangle();
    {
        QueryService queries(m_tangle, 1);
        const tarn::ActivityScope scope("asking");
        Pending<QueryResult> pending = queries.Start(
            {"hubs", "1000000"}, {Deadline::In(std::chrono::milliseconds(300)), timeout});

        EXPECT_THROW(pending.Get(), DeadlineExceeded);
    }

    const LoggedTrees log = EndAndRead();
    std::vector<std::string> results;
    for (const LoggedActivity& activity : log.activities) {
        if (activity.name == "run" || activity.name == "execute" || activity.name == "prepare") {
            results.push_back(activity.name + " " + activity.result + " " + activity.details);
        }
    }
    EXPECT_THAT(results,
                ElementsAre("run early-termination reason=deadline type=canceled",
                            "prepare ok ",
                            "execute early-termination reason=deadline type=canceled"));
}

TEST_F(HttpServiceTest, AClientCannotWaitLongerThanTheServiceLets) {
    LoadTangle();
    HttpOptions options = OptionsWithLongTimeouts();
    options.deadline = std::chrono::milliseconds(50);
    const Instance& instance = Start(options, {}, &m_tangle);

    EXPECT_EQ(Verdict(Ask(instance, "/queries/hubs?argument=1000000&deadline-ms=3600000")),
              "504 deadline");
}

TEST_F(HttpServiceTest, ASlowStepLeavesASupplement) {
    HttpOptions options = OptionsWithLongTimeouts();
    options.slowAfter = std::chrono::milliseconds(-1);
    const Instance& instance = Start(options);

    ASSERT_EQ(Verdict(Ask(instance, "/queries/sections")), "200");

    const LoggedTrees log = EndAndRead();
    for (const LoggedActivity& activity : log.activities) {
        if (activity.name == "execute" || activity.name == "fetch") {
            EXPECT_THAT(activity.supplements,
                        ElementsAre(testing::AllOf(HasSubstr("slow-step=" + activity.name),
                                                   HasSubstr("limit-ms=-1"))));
        } else {
            EXPECT_THAT(activity.supplements, IsEmpty());
        }
    }
}

TEST_F(HttpServiceTest, AQuickStepLeavesNoSupplement) {
    const Instance& instance = Start();

    ASSERT_EQ(Verdict(Ask(instance, "/queries/sections")), "200");

    for (const LoggedActivity& activity : EndAndRead().activities) {
        EXPECT_THAT(activity.supplements, IsEmpty());
    }
}

TEST_F(HttpServiceTest, APortThatIsTakenIsAnError) {
    const Instance& instance = Start();
    HttpOptions options = OptionsWithLongTimeouts();
    options.port = instance.Port();

    EXPECT_THROW(Start(options), std::runtime_error);
}

TEST_F(HttpServiceTest, NobodyIsServedAfterTheStop) {
    QueryService queries(m_sample, 1);
    const SearchRoutes routes(queries, nullptr);
    HttpService service(OptionsWithLongTimeouts(), routes);
    httplib::Client client("127.0.0.1", service.Port());
    ASSERT_EQ(Verdict(client.Get("/health")), "200");

    service.Stop();
    service.Stop();

    EXPECT_FALSE(client.Get("/health"));
    EXPECT_EQ(service.RequestsAnswered(), 1U);
}

}  // namespace
}  // namespace packagesearch
