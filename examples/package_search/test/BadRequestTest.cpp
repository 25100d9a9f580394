#include "ServiceFixture.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace packagesearch {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

struct BadRequestCase {
    const char* name;
    std::string path;
    std::string verdict;
};

class BadRequestTest : public ServiceTest, public testing::WithParamInterface<BadRequestCase> {
protected:
    // What the service answers to bytes that no HTTP client would send.
    static std::string AskRaw(const Instance& instance, const std::string& bytes) {
        const int connection = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(instance.Port()));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof address),
                  0);
        EXPECT_EQ(send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
        std::string answer;
        char buffer[1024];
        for (ssize_t count = 0; (count = recv(connection, buffer, sizeof buffer, 0)) > 0;) {
            answer.append(buffer, static_cast<std::size_t>(count));
        }
        close(connection);
        return answer;
    }

    void ExpectOneFailureThenService(const Instance& instance, const std::string& reason) {
        EXPECT_EQ(Verdict(Ask(instance, "/health")), "200");
        const LoggedTrees log = EndAndRead();
        ExpectWholeLog(log);
        ASSERT_THAT(Requests(log), SizeIs(2));
        EXPECT_EQ(Requests(log)[0]->result, reason);
        EXPECT_THAT(Requests(log)[0]->details, StartsWith("msg="));
        EXPECT_EQ(Requests(log)[1]->result, "ok");
    }
};

TEST_P(BadRequestTest, GetsAClearAnswerAndIsAFailureInTheLog) {
    const Instance& instance = Start();

    const httplib::Result result = Ask(instance, GetParam().path);

    EXPECT_EQ(Verdict(result), GetParam().verdict);
    const std::string& verdict = GetParam().verdict;
    ExpectOneFailureThenService(instance, verdict.substr(verdict.find(' ') + 1));
}

INSTANTIATE_TEST_SUITE_P(
    Paths,
    BadRequestTest,
    testing::Values(
        BadRequestCase{"UnknownPath", "/nothing", "404 not-found"},
        BadRequestCase{"FolderWithoutName", "/packages/", "404 not-found"},
        BadRequestCase{"UnknownPackage", "/packages/absent", "404 not-found"},
        BadRequestCase{"UnknownKind", "/queries/explode?argument=x", "400 bad-request"},
        BadRequestCase{"MissingArgument", "/queries/search", "400 bad-request"},
        BadRequestCase{"EmptyArgument", "/queries/search?argument=", "400 bad-request"},
        BadRequestCase{"SurplusArgument", "/queries/sections?argument=x", "400 bad-request"},
        BadRequestCase{"ArgumentTwice", "/queries/search?argument=a&argument=b", "400 bad-request"},
        BadRequestCase{"UnknownParameter", "/queries/sections?colour=red", "400 bad-request"},
        BadRequestCase{"OverlongArgument",
                       "/queries/search?argument=" + std::string(201, 'a'),
                       "400 bad-request"},
        BadRequestCase{"IllEncodedArgument", "/queries/search?argument=a%ff", "400 bad-request"},
        BadRequestCase{"NulInArgument", "/queries/search?argument=a%00b", "400 bad-request"},
        BadRequestCase{"IllEncodedName", "/packages/a%c3%28", "400 bad-request"},
        BadRequestCase{"NoNumber", "/queries/largest?argument=many", "400 bad-request"},
        BadRequestCase{"NumberTooLarge", "/queries/largest?argument=1000001", "400 bad-request"},
        BadRequestCase{"NumberBeyondAllTypes",
                       "/queries/largest?argument=99999999999999999999",
                       "400 bad-request"},
        BadRequestCase{"DeadlineOfZero", "/health?deadline-ms=0", "400 bad-request"},
        BadRequestCase{"DeadlineBelowZero", "/health?deadline-ms=-5", "400 bad-request"},
        BadRequestCase{"DeadlineThatIsNone", "/health?deadline-ms=soon", "400 bad-request"},
        BadRequestCase{"LongPath", "/" + std::string(600, 'a'), "414 too-long"},
        BadRequestCase{"EndlessPath", "/" + std::string(9000, 'a'), "414 too-long"}),
    [](const auto& instance) { return std::string(instance.param.name); });

TEST_F(BadRequestTest, ABodyThatIsTooLargeIsRefused) {
    const Instance& instance = Start();
    httplib::Client client("127.0.0.1", instance.Port());

    EXPECT_EQ(Verdict(client.Post("/queries", std::string(20'000, 'a'), "text/plain")),
              "413 too-large");

    ExpectOneFailureThenService(instance, "too-large");
}

TEST_F(BadRequestTest, ABodyWithTooManyLinesIsRefused) {
    const Instance& instance = Start();
    httplib::Client client("127.0.0.1", instance.Port());
    std::string body;
    for (int line = 0; line < 21; ++line) {
        body += "sections\n";
    }

    EXPECT_EQ(Verdict(client.Post("/queries", body, "text/plain")), "400 bad-request");

    ExpectOneFailureThenService(instance, "bad-request");
}

TEST_F(BadRequestTest, AnEmptyBodyIsRefused) {
    const Instance& instance = Start();
    httplib::Client client("127.0.0.1", instance.Port());

    EXPECT_EQ(Verdict(client.Post("/queries", "", "text/plain")), "400 bad-request");

    ExpectOneFailureThenService(instance, "bad-request");
}

TEST_F(BadRequestTest, ABodyWithOneBadLineIsRefusedBeforeAnythingIsAsked) {
    const Instance& instance = Start();
    httplib::Client client("127.0.0.1", instance.Port());

    EXPECT_EQ(Verdict(client.Post("/queries", "sections\n\xFF\n", "text/plain")),
              "400 bad-request");

    ExpectOneFailureThenService(instance, "bad-request");
}

TEST_F(BadRequestTest, AMethodThatIsNotPossibleIsRefusedWithoutWaitingForABody) {
    const Instance& instance = Start();

    EXPECT_THAT(AskRaw(instance, "PUT /queries HTTP/1.1\r\nHost: x\r\n\r\n"),
                StartsWith("HTTP/1.1 405"));

    ExpectOneFailureThenService(instance, "method-not-allowed");
}

TEST_F(BadRequestTest, TheWrongMethodForAPathIsRefused) {
    const Instance& instance = Start();

    EXPECT_EQ(Verdict(Ask(instance, "/queries")), "405 method-not-allowed");

    ExpectOneFailureThenService(instance, "method-not-allowed");
}

TEST_F(BadRequestTest, ABodyWithoutLengthIsRefusedWithoutWaitingForIt) {
    const Instance& instance = Start();

    EXPECT_THAT(AskRaw(instance, "POST /queries HTTP/1.1\r\nHost: x\r\n\r\n"),
                StartsWith("HTTP/1.1 411"));

    ExpectOneFailureThenService(instance, "no-length");
}

TEST_F(BadRequestTest, WhatIsNoHttpGetsAnErrorInHttp) {
    const Instance& instance = Start();

    const std::string answer = AskRaw(instance, "\x01\x02 nonsense\r\n\r\n");

    EXPECT_THAT(answer, StartsWith("HTTP/1.1 400"));
    EXPECT_THAT(answer, HasSubstr("\"reason\":\"bad-request\""));
    ExpectOneFailureThenService(instance, "bad-request");
}

TEST_F(BadRequestTest, HeadersOfTheClientThatAreNoPlainTextCountAsNotThere) {
    const Instance& instance = Start();

    EXPECT_EQ(Verdict(Ask(
                  instance, "/health", {{"X-User", "a\xFF"}, {"X-Session", std::string(65, 's')}})),
              "200");

    const LoggedTrees log = EndAndRead();
    EXPECT_EQ(RequestFor(log, "GET /health").user, "-");
    EXPECT_EQ(RequestFor(log, "GET /health").session, "-");
}

}  // namespace
}  // namespace packagesearch
