#include "ServiceFixture.h"

#include <future>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace packagesearch {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

// A peer that answers what it is told.
class FakePeer {
public:
    explicit FakePeer(httplib::Server::Handler handler) {
        m_server.set_keep_alive_max_count(1);
        m_server.set_idle_interval(std::chrono::milliseconds(20));
        m_server.new_task_queue = [this] { return new Pool(*this); };
        m_server.Get(".*", std::move(handler));
        m_port = m_server.bind_to_any_port("127.0.0.1");
        m_listener = std::thread([this] { m_server.listen_after_bind(); });
    }

    ~FakePeer() {
        m_stopping = true;
        m_listener.join();
    }

    FakePeer(const FakePeer&) = delete;
    FakePeer& operator=(const FakePeer&) = delete;

    std::string Url() const { return "http://127.0.0.1:" + std::to_string(m_port); }

private:
    // Stops the server on the thread that listens.
    class Pool : public httplib::TaskQueue {
    public:
        explicit Pool(FakePeer& peer) : m_peer(peer), m_pool(2) {}

        void enqueue(std::function<void()> work) override { m_pool.enqueue(std::move(work)); }

        void on_idle() override {
            if (m_peer.m_stopping) {
                m_peer.m_server.stop();
            }
        }

        void shutdown() override { m_pool.shutdown(); }

    private:
        FakePeer& m_peer;
        httplib::ThreadPool m_pool;
    };

    httplib::Server m_server;
    std::atomic<bool> m_stopping{false};
    int m_port = 0;
    std::thread m_listener;
};

class PeerTest : public ServiceTest {
protected:
    // The verdict on a request for a package to an instance with this peer, and its log.
    std::string AskWithPeer(const std::string& url, const std::string& parameters = {}) {
        const Instance& front = Start(OptionsWithLongTimeouts(), url);
        const std::string verdict = Verdict(Ask(front, "/packages/shelf" + parameters));
        EXPECT_EQ(Verdict(Ask(front, "/queries/sections")), "200");
        m_trees = EndAndRead();
        ExpectWholeLog(m_trees);
        EXPECT_EQ(RequestFor(m_trees, "GET /queries/sections").result, "ok");
        return verdict;
    }

    const LoggedActivity& FailedRequest() const {
        return RequestFor(m_trees, "GET /packages/shelf");
    }

    static httplib::Server::Handler Answering(int status, const std::string& body) {
        return [status, body](const httplib::Request&, httplib::Response& response) {
            response.status = status;
            response.set_content(body, "application/json");
        };
    }

    LoggedTrees m_trees;
};

TEST_F(PeerTest, TheRequestGoesOnInThePeerAsOneTree) {
    HttpOptions options = OptionsWithLongTimeouts();
    options.site = "back";
    const Instance& back = Start(options);
    options.site = "front";
    const Instance& front = Start(options, back.Url());

    const httplib::Result result = Ask(front, "/packages/shelf", {{"X-User", "ada"}});

    ASSERT_EQ(Verdict(result), "200");
    EXPECT_EQ(nlohmann::json::parse(result->body)["dependents"],
              nlohmann::json({"mirror", "shelf-data"}));
    const LoggedTrees log = EndAndRead();
    ExpectWholeLog(log);
    ASSERT_THAT(Requests(log), SizeIs(2));
    const LoggedActivity& root = RequestFor(log, "GET /packages/shelf");
    EXPECT_EQ(root.site, "front");
    const LoggedActivity& answer = log.activities[root.children.at(0)];
    ASSERT_THAT(Parts(log, answer), UnorderedElementsAre("run", "call-peer"));
    for (const std::size_t part : answer.children) {
        const LoggedActivity& call = log.activities[part];
        if (call.name != "call-peer") {
            continue;
        }
        EXPECT_THAT(call.body, HasSubstr("status=200"));
        ASSERT_THAT(Parts(log, call), ElementsAre("http-request"));
        const LoggedActivity& there = log.activities[call.children[0]];
        EXPECT_EQ(there.root, root.id);
        EXPECT_EQ(there.depth, call.depth + 1);
        EXPECT_EQ(there.site, "back");
        EXPECT_EQ(there.user, "ada");
        EXPECT_EQ(there.request, root.request);
        EXPECT_THAT(Parts(log, there), ElementsAre("answer"));
    }
    for (const LoggedActivity& activity : log.activities) {
        if (activity.request == root.request) {
            EXPECT_EQ(activity.root, root.id) << activity.name;
        }
    }
}

TEST_F(PeerTest, ThePeerGetsTheTwoHeadersAndTheRestOfTheDeadline) {
    std::promise<httplib::Request> seen;
    const FakePeer peer([&seen](const httplib::Request& request, httplib::Response& response) {
        seen.set_value(request);
        response.set_content(R"({"rows":[["a"],["b"]]})", "application/json");
    });

    EXPECT_EQ(AskWithPeer(peer.Url(), "?deadline-ms=60000"), "200");

    const httplib::Request request = seen.get_future().get();
    const std::string root = FailedRequest().id;
    EXPECT_EQ(request.get_header_value("corvala-trace-id"), root + ":" + root + ":0");
    EXPECT_EQ(request.get_header_value("corvala-extra-depth"), "2");
    EXPECT_EQ(request.path, "/queries/rdepends");
    EXPECT_EQ(request.get_param_value("argument"), "shelf");
    const int deadline = std::stoi(request.get_param_value("deadline-ms"));
    EXPECT_GT(deadline, 0);
    EXPECT_LE(deadline, 60000);
}

TEST_F(PeerTest, APeerThatIsDownIsA502) {
    std::string url;
    {
        const FakePeer peer(Answering(200, ""));
        url = peer.Url();
    }

    EXPECT_EQ(AskWithPeer(url), "502 peer-unavailable");

    EXPECT_EQ(FailedRequest().result, "peer-unavailable");
    EXPECT_THAT(FailedRequest().details, HasSubstr("the peer cannot be asked"));
}

TEST_F(PeerTest, APeerThatIsTooSlowIsA504) {
    std::promise<void> end;
    const std::shared_future<void> ended = end.get_future().share();
    const FakePeer peer([ended](const httplib::Request&, httplib::Response&) { ended.wait(); });

    EXPECT_EQ(AskWithPeer(peer.Url(), "?deadline-ms=500"), "504 peer-timeout");

    end.set_value();
    EXPECT_EQ(FailedRequest().result, "peer-timeout");
}

TEST_F(PeerTest, APeerThatSendsALittleNowAndThenIsA504) {
    std::atomic<bool> isOver{false};
    const FakePeer peer([&isOver](const httplib::Request&, httplib::Response& response) {
        response.set_chunked_content_provider(
            "application/json", [&isOver](std::size_t, httplib::DataSink& sink) {
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
                return !isOver && sink.write(" ", 1);
            });
    });

    EXPECT_EQ(AskWithPeer(peer.Url(), "?deadline-ms=500"), "504 peer-timeout");

    isOver = true;
    EXPECT_EQ(FailedRequest().result, "peer-timeout");
}

TEST_F(PeerTest, AnAnswerThatIsFarTooLargeIsNotReadToItsEnd) {
    const FakePeer peer(Answering(200, std::string(8 << 20, ' ')));

    EXPECT_EQ(AskWithPeer(peer.Url()), "502 peer-unavailable");
}

struct PeerAnswerCase {
    const char* name;
    int status;
    std::string body;
    std::string verdict;
};

class PeerAnswerTest : public PeerTest, public testing::WithParamInterface<PeerAnswerCase> {};

TEST_P(PeerAnswerTest, IsToldFromAGoodOne) {
    const FakePeer peer(Answering(GetParam().status, GetParam().body));

    EXPECT_EQ(AskWithPeer(peer.Url()), GetParam().verdict);

    const std::string& verdict = GetParam().verdict;
    EXPECT_EQ(FailedRequest().result, verdict.substr(verdict.find(' ') + 1));
    EXPECT_THAT(FailedRequest().body, HasSubstr("status=" + verdict.substr(0, 3)));
}

INSTANTIATE_TEST_SUITE_P(
    Answers,
    PeerAnswerTest,
    testing::Values(PeerAnswerCase{"Rubbish", 200, "\x01<html>", "502 peer-answer"},
                    PeerAnswerCase{"Nothing", 200, "", "502 peer-answer"},
                    PeerAnswerCase{"NoObject", 200, "[1, 2]", "502 peer-answer"},
                    PeerAnswerCase{"NoRows", 200, R"({"columns":[]})", "502 peer-answer"},
                    PeerAnswerCase{"RowsThatAreNone", 200, R"({"rows":7})", "502 peer-answer"},
                    PeerAnswerCase{"ARowThatIsNone", 200, R"({"rows":["a"]})", "502 peer-answer"},
                    PeerAnswerCase{"AnEmptyRow", 200, R"({"rows":[[]]})", "502 peer-answer"},
                    PeerAnswerCase{"ANameThatIsNone", 200, R"({"rows":[[1]]})", "502 peer-answer"},
                    PeerAnswerCase{"AnErrorOfItsOwn", 500, "{}", "502 peer-failed"},
                    PeerAnswerCase{"ARedirection", 302, "{}", "502 peer-failed"},
                    PeerAnswerCase{"Busy", 503, "{}", "503 peer-busy"},
                    PeerAnswerCase{"TooSlowItself", 504, "{}", "504 peer-timeout"}),
    [](const auto& instance) { return std::string(instance.param.name); });

TEST(PeerUrlTest, MustHaveAHostAndAPort) {
    EXPECT_EQ(PeerClient("http://127.0.0.1:80").Url(), "http://127.0.0.1:80");
    for (const char* url : {"",
                            "127.0.0.1:80",
                            "https://127.0.0.1:80",
                            "http://127.0.0.1",
                            "http://:80",
                            "http://127.0.0.1:",
                            "http://127.0.0.1:0",
                            "http://127.0.0.1:65536",
                            "http://127.0.0.1:80/",
                            "http://127.0.0.1:http"}) {
        EXPECT_THROW(PeerClient{url}, std::invalid_argument) << url;
    }
}

}  // namespace
}  // namespace packagesearch
