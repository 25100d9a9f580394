#include "FaultyServer.h"
#include "encode/SpanEncoder.h"
#include "send/CurlTransport.h"
#include "send/Gzip.h"
#include "send/LossReport.h"
#include "send/RetryPolicy.h"
#include "send/SendingThread.h"
#include "send/SpanQueue.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>
#include <zlib.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn::otlp {
namespace {

using nlohmann::json;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Request = FaultyServer::Request;
using Reaction = FaultyServer::Reaction;

std::vector<std::string> NamesIn(const std::string& body) {
    std::vector<std::string> names;
    const json request = json::parse(body);
    for (const json& part : request["resourceSpans"]) {
        for (const json& span : part["scopeSpans"][0]["spans"]) {
            names.push_back(span["name"]);
        }
    }
    return names;
}

class SendingTest : public testing::Test {
protected:
    static Options Quick(const FaultyServer& server) {
        Options options;
        options.url = server.Url() + "/v1/traces";
        options.encoding = Encoding::Json;
        options.batchDelay = 10ms;
        options.firstBackOff = 2ms;
        options.longestBackOff = 10ms;
        options.timeout = 10s;
        return options;
    }

    void Start(const Options& options) {
        Options own = options;
        own.onProblem = [this](const std::string& problem) {
            const std::lock_guard lock(m_mutex);
            m_problems.push_back(problem);
        };
        m_thread = std::make_unique<SendingThread>(
            own, [](const Options& chosen, const SpanEncoder& encoder, StopSignal& stop) {
                return std::make_unique<CurlTransport>(chosen, encoder.ContentType(), stop);
            });
    }

    void Add(int count) {
        for (int number = 0; number < count; ++number) {
            m_thread->Add({m_resource, R"({"name":")" + std::to_string(m_added++) + R"("})"});
        }
    }

    bool Flush() { return m_thread->Flush(Clock::now() + 20s); }

    bool Shutdown(std::chrono::milliseconds deadline = 20s) {
        return m_thread->Shutdown(Clock::now() + deadline);
    }

    std::vector<std::string> Problems() {
        const std::lock_guard lock(m_mutex);
        return m_problems;
    }

    void ExpectTheSumIsRight() {
        const Statistics sum = m_thread->GetStatistics();
        EXPECT_EQ(sum.spans, sum.sent + sum.rejected + sum.Dropped() + sum.waiting);
    }

    std::shared_ptr<Resource> m_resource = std::make_shared<Resource>();
    int m_added = 0;
    std::mutex m_mutex;
    std::vector<std::string> m_problems;
    std::unique_ptr<SendingThread> m_thread;
};

TEST_F(SendingTest, SpansAreSentInBatchesOverOneConnection) {
    FaultyServer server([](const Request&, std::size_t) { return Accepted(); });
    Options options = Quick(server);
    options.batchSpans = 10;
    options.headers = {{"api-key", "k1"}, {"empty", ""}};
    Start(options);

    Add(100);
    ASSERT_TRUE(Flush());

    std::size_t received = 0;
    for (const Request& request : server.Requests()) {
        EXPECT_EQ(request.target, "/v1/traces");
        EXPECT_EQ(request.headers.at("content-type"), "application/json");
        EXPECT_EQ(request.headers.at("api-key"), "k1");
        EXPECT_EQ(request.headers.at("empty"), "");
        EXPECT_LE(NamesIn(request.body).size(), 10U);
        received += NamesIn(request.body).size();
    }
    EXPECT_EQ(received, 100U);
    EXPECT_EQ(server.Connections(), 1U);
    EXPECT_EQ(m_thread->GetStatistics().sent, 100U);
    EXPECT_TRUE(Shutdown());
}

TEST_F(SendingTest, ABatchThatIsNotFullIsSentWhenItHasWaited) {
    FaultyServer server([](const Request&, std::size_t) { return Accepted(); });
    Start(Quick(server));

    Add(3);

    const auto end = Clock::now() + 20s;
    while (m_thread->GetStatistics().sent < 3 && Clock::now() < end) {
        std::this_thread::sleep_for(2ms);
    }
    EXPECT_EQ(m_thread->GetStatistics().sent, 3U);
}

TEST_F(SendingTest, NothingIsLostWhateverTheReceiverDoesInBetween) {
    std::multiset<std::string> taken;
    FaultyServer server(
        [&](const Request& request, std::size_t number) -> Reaction {
            switch (number) {
                case 0:
                    return {.kind = Reaction::Kind::Hang};
                case 1:
                    return {.kind = Reaction::Kind::Reset};
                case 2:
                    return WithStatus(429, {{"Retry-After", "0"}});
                case 3:
                    return WithStatus(502);
                case 4:
                    return WithStatus(503);
                case 5:
                    return WithStatus(504);
                default:
                    break;
            }
            for (const std::string& name : NamesIn(request.body)) {
                taken.insert(name);
            }
            return number == 6 ? Reaction{.headers = {{"Content-Type", "text/html"}},
                                          .body = "<html></html>"}
                               : Accepted();
        },
        true);
    Options options = Quick(server);
    options.timeout = 300ms;
    options.batchSpans = 40;
    Start(options);

    Add(200);
    ASSERT_TRUE(Flush());
    ASSERT_TRUE(Shutdown());

    const Statistics statistics = m_thread->GetStatistics();
    EXPECT_EQ(taken.size(), 200U);
    EXPECT_EQ(std::set<std::string>(taken.begin(), taken.end()).size(), 200U);
    EXPECT_EQ(statistics.sent, 200U);
    EXPECT_EQ(statistics.retries, 6U);
    EXPECT_THAT(Problems(), Contains(HasSubstr("text/html")));
    ExpectTheSumIsRight();
}

TEST_F(SendingTest, AReceiverThatIsNotThereYetIsWaitedFor) {
    auto server =
        std::make_unique<FaultyServer>([](const Request&, std::size_t) { return Accepted(); });
    Options options = Quick(*server);
    server.reset();  // nobody listens there now
    Start(options);

    Add(5);
    EXPECT_FALSE(m_thread->Flush(Clock::now() + 50ms));

    EXPECT_EQ(m_thread->GetStatistics().waiting, 5U);
    EXPECT_FALSE(Shutdown(10ms));
    EXPECT_EQ(m_thread->GetStatistics().droppedAtEnd, 5U);
    ExpectTheSumIsRight();
}

TEST_F(SendingTest, WhatAReceiverRefusesForGoodIsCountedAndNotSentAgain) {
    for (const int status : {400, 401, 404, 500, 501, 302}) {
        FaultyServer server([&](const Request&, std::size_t) {
            return Reaction{.status = status,
                            .headers = {{"Content-Type", "application/json"}},
                            .body = R"({"code":3,"message":"not like this"})"};
        });
        Start(Quick(server));

        Add(7);
        ASSERT_TRUE(Flush());

        EXPECT_EQ(m_thread->GetStatistics().droppedRefused, 7U) << status;
        EXPECT_EQ(server.Count(), 1U) << status;
        ExpectTheSumIsRight();
    }
    Shutdown();
    EXPECT_THAT(Problems(),
                Contains(HasSubstr("7 spans are lost, the last for this reason: status 400: not "
                                   "like this")));
}

TEST_F(SendingTest, WhatIsTooLargeIsSentInHalvesAndASpanThatIsTooLargeIsCounted) {
    std::multiset<std::string> taken;
    FaultyServer server([&](const Request& request, std::size_t) {
        const std::vector<std::string> names = NamesIn(request.body);
        if (names.size() > 3 || std::count(names.begin(), names.end(), "7") != 0) {
            return WithStatus(413);
        }
        taken.insert(names.begin(), names.end());
        return Accepted();
    });
    Options options = Quick(server);
    options.batchDelay = 10s;
    Start(options);

    Add(20);
    ASSERT_TRUE(Flush());
    Shutdown();

    EXPECT_EQ(taken.size(), 19U);
    EXPECT_EQ(std::set<std::string>(taken.begin(), taken.end()).size(), 19U);
    const Statistics statistics = m_thread->GetStatistics();
    EXPECT_EQ(statistics.sent, 19U);
    EXPECT_EQ(statistics.droppedRefused, 1U);
    EXPECT_EQ(statistics.requests, server.Count());
    EXPECT_EQ(statistics.retries, server.Count() - 1);
    ExpectTheSumIsRight();
}

TEST_F(SendingTest, APartialSuccessIsCountedAndNotSentAgain) {
    FaultyServer server([](const Request&, std::size_t) {
        return Reaction{
            .headers = {{"Content-Type", "application/json"}},
            .body = R"({"partialSuccess":{"rejectedSpans":"3","errorMessage":"too old"}})"};
    });
    Start(Quick(server));

    Add(10);
    ASSERT_TRUE(Flush());
    Shutdown();

    EXPECT_EQ(m_thread->GetStatistics().sent, 7U);
    EXPECT_EQ(m_thread->GetStatistics().rejected, 3U);
    EXPECT_EQ(server.Count(), 1U);
    EXPECT_THAT(Problems(), ElementsAre(HasSubstr("3 spans are lost")));
    EXPECT_THAT(Problems(), ElementsAre(HasSubstr("too old")));
}

TEST_F(SendingTest, TheReceiverSaysHowLongToWait) {
    std::vector<Clock::time_point> times;
    FaultyServer server([&](const Request&, std::size_t number) {
        times.push_back(Clock::now());
        return number == 0 ? WithStatus(503, {{"Retry-After", "1"}}) : Accepted();
    });
    Start(Quick(server));

    Add(1);
    ASSERT_TRUE(Flush());
    Shutdown();

    ASSERT_EQ(times.size(), 2U);
    EXPECT_GE(times[1] - times[0], 990ms);
}

TEST_F(SendingTest, WhatIsTriedForTooLongIsDroppedAndCounted) {
    FaultyServer server([](const Request&, std::size_t) { return WithStatus(503); });
    Options options = Quick(server);
    options.retryFor = 50ms;
    Start(options);

    Add(4);
    ASSERT_TRUE(Flush());

    EXPECT_EQ(m_thread->GetStatistics().droppedGivenUp, 4U);
    EXPECT_GT(m_thread->GetStatistics().retries, 1U);
    Shutdown();
    EXPECT_THAT(Problems(), Contains(HasSubstr("status 503")));
}

TEST_F(SendingTest, WhatIsBeyondTheBoundsIsCountedExactly) {
    FaultyServer server(
        [](const Request&, std::size_t) { return Reaction{.kind = Reaction::Kind::Hang}; });
    Options options = Quick(server);
    options.queueSpans = 100;
    options.batchSpans = 10;
    Start(options);

    Add(250);

    EXPECT_EQ(m_thread->GetStatistics().droppedFull, 150U);
    EXPECT_EQ(m_thread->GetStatistics().waiting, 100U);
    EXPECT_FALSE(Shutdown(50ms));
    EXPECT_EQ(m_thread->GetStatistics().droppedAtEnd, 100U);
    Add(1);
    EXPECT_EQ(m_thread->GetStatistics().droppedAtEnd, 101U);
    ExpectTheSumIsRight();
}

TEST_F(SendingTest, AShutdownBreaksOffAReceiverThatHangsInTime) {
    FaultyServer server(
        [](const Request&, std::size_t) { return Reaction{.kind = Reaction::Kind::Hang}; });
    Options options = Quick(server);
    options.timeout = 60s;
    Start(options);
    Add(2);

    const auto begin = Clock::now();
    EXPECT_FALSE(Shutdown(100ms));

    EXPECT_LT(Clock::now() - begin, 10s);
    EXPECT_EQ(m_thread->GetStatistics().droppedAtEnd, 2U);
}

TEST_F(SendingTest, ARequestIsCompressedIfItIsAskedFor) {
    FaultyServer server([](const Request&, std::size_t) { return Accepted(); });
    Options options = Quick(server);
    options.gzip = true;
    Start(options);

    Add(50);
    ASSERT_TRUE(Flush());

    std::size_t received = 0;
    for (const Request& request : server.Requests()) {
        EXPECT_EQ(request.headers.at("content-encoding"), "gzip");
        std::string text(100'000, '\0');
        z_stream stream{};
        ASSERT_EQ(inflateInit2(&stream, 15 + 16), Z_OK);
        stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(request.body.data()));
        stream.avail_in = static_cast<uInt>(request.body.size());
        stream.next_out = reinterpret_cast<Bytef*>(text.data());
        stream.avail_out = static_cast<uInt>(text.size());
        EXPECT_EQ(inflate(&stream, Z_FINISH), Z_STREAM_END);
        text.resize(stream.total_out);
        inflateEnd(&stream);
        received += NamesIn(text).size();
    }
    EXPECT_EQ(received, 50U);
}

TEST_F(SendingTest, ACertificateThatCannotBeReadIsNotTriedAgain) {
    FaultyServer server([](const Request&, std::size_t) { return Accepted(); });
    Options options = Quick(server);
    options.url.replace(0, 4, "https");
    options.certificateFile = "/nowhere/ca.pem";
    Start(options);

    Add(1);
    ASSERT_TRUE(Flush());

    EXPECT_EQ(m_thread->GetStatistics().droppedRefused, 1U);
    EXPECT_EQ(m_thread->GetStatistics().requests, 1U);
}

TEST_F(SendingTest, TheSendingThreadBlocksAllSignals) {
    std::atomic<bool> blocks{false};
    FaultyServer server([](const Request&, std::size_t) { return WithStatus(400); });
    Options options = Quick(server);
    options.onProblem = [&](const std::string&) {
        sigset_t mask;
        pthread_sigmask(SIG_BLOCK, nullptr, &mask);
        blocks = sigismember(&mask, SIGTERM) == 1 && sigismember(&mask, SIGPROF) == 1 &&
                 sigismember(&mask, SIGPIPE) == 1;
    };
    SendingThread thread(
        options, [](const Options& chosen, const SpanEncoder& encoder, StopSignal& stop) {
            return std::make_unique<CurlTransport>(chosen, encoder.ContentType(), stop);
        });

    thread.Add({m_resource, "{}"});
    thread.Shutdown(Clock::now() + 20s);

    EXPECT_TRUE(blocks);
    sigset_t own;
    pthread_sigmask(SIG_BLOCK, nullptr, &own);
    EXPECT_EQ(sigismember(&own, SIGTERM), 0);
}

TEST(SpanQueueTest, RoomIsCountedInSpansAndBytesAndIsFreeWhenABatchIsDone) {
    Options options;
    options.queueBytes = 3000;
    options.batchBytes = 1500;
    SpanQueue queue(options);
    const auto resource = std::make_shared<Resource>();
    const auto add = [&](std::size_t bytes) {
        return queue.Add({resource, std::string(bytes, 'x')}, {});
    };

    EXPECT_FALSE(add(5000));
    EXPECT_TRUE(add(1000));
    EXPECT_TRUE(add(1000));
    EXPECT_FALSE(add(1000));
    EXPECT_EQ(queue.TakeBatch().size(), 1U);
    EXPECT_FALSE(add(1000)) << "a batch that is being sent takes room";
    queue.FinishBatch();
    EXPECT_TRUE(add(1000));
    EXPECT_EQ(queue.Size(), 2U);
}

TEST(RetryPolicyTest, OnlyFourStatusesMayBeTriedAgain) {
    for (int status = 100; status < 600; ++status) {
        const bool may = status == 429 || status == 502 || status == 503 || status == 504;
        EXPECT_EQ(IsRetryable(status), may) << status;
    }
}

TEST(RetryPolicyTest, WaitsDoubleUpToTheLongestAndVary) {
    Options options;
    options.firstBackOff = 100ms;
    options.longestBackOff = 1000ms;
    RetryPolicy policy(options, 1);
    std::set<std::chrono::milliseconds> last;
    std::chrono::milliseconds whole = 100ms;

    for (int count = 0; count < 30; ++count) {
        const auto wait = policy.NextWait();
        EXPECT_GE(wait, whole / 2);
        EXPECT_LE(wait, whole);
        whole = std::min<std::chrono::milliseconds>(2 * whole, 1000ms);
        if (count > 5) {
            last.insert(wait);
        }
    }
    EXPECT_GT(last.size(), 10U);
    policy.Reset();
    EXPECT_LE(policy.NextWait(), 100ms);
}

TEST(RetryPolicyTest, RetryAfterIsSecondsOrATime) {
    const auto now = std::chrono::system_clock::from_time_t(1'000'000'000);

    EXPECT_EQ(ParseRetryAfter("7", now), 7s);
    EXPECT_EQ(ParseRetryAfter("Sun, 09 Sep 2001 01:47:00 GMT", now), 20s);
    EXPECT_EQ(ParseRetryAfter("Sun, 09 Sep 2001 01:46:30 GMT", now), -10s);
    EXPECT_EQ(ParseRetryAfter("soon", now), std::nullopt);
    EXPECT_EQ(ParseRetryAfter("", now), std::nullopt);
}

TEST(LossReportTest, LossesAreToldAtOnceThenOnceAMinute) {
    LossReport report;
    const LossReport::Time begin{};

    EXPECT_EQ(report.Take(begin, true), "");
    report.Note("reason a", 1);
    EXPECT_EQ(report.Take(begin, false),
              "OTLP: 1 span is lost, the last for this reason: reason a");
    report.Note("reason b", 2);
    report.Note("reason c", 3);
    EXPECT_EQ(report.Take(begin + 59s, false), "");
    EXPECT_EQ(report.Take(begin + 60s, false),
              "OTLP: 5 spans are lost, the last for this reason: reason c");
    report.Note("odd", 0);
    EXPECT_EQ(report.Take(begin + 61s, true), "OTLP: odd");
}

TEST(AnswersTest, ProtobufAnswersAreReadAndBrokenOnesAreNot) {
    const auto encoder = MakeEncoder(Encoding::Protobuf);
    const std::string partial("\x0a\x09\x08\x03\x12\x05later", 11);

    EXPECT_TRUE(encoder->ReadAnswer("").isUnderstood);
    EXPECT_EQ(encoder->ReadAnswer("").rejectedSpans, 0);
    EXPECT_EQ(encoder->ReadAnswer(partial).rejectedSpans, 3);
    EXPECT_EQ(encoder->ReadAnswer(partial).message, "later");
    for (std::size_t length = 1; length < partial.size(); ++length) {
        EXPECT_FALSE(encoder->ReadAnswer(partial.substr(0, length)).isUnderstood) << length;
    }
    EXPECT_EQ(ReadErrorMessage("application/x-protobuf", std::string("\x08\x03\x12\x02no", 6)),
              "no");
    EXPECT_EQ(ReadErrorMessage("text/plain", "no"), "");
}

}  // namespace
}  // namespace tarn::otlp
