#include "FaultyServer.h"
#include "Lines.h"
#include "SpansInRequest.h"
#include "TemporaryFolder.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <set>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::HasSubstr;
using namespace std::chrono_literals;

class PushTest : public testing::Test {
protected:
    static std::string IdOf(int number) {
        char id[40];
        std::snprintf(id, sizeof(id), "00000000-0000-4000-8000-%012X", number + 1);
        return id;
    }

    void Append(const std::string& name, const std::string& text) {
        std::ofstream(m_folder.PathOf(name), std::ios::app) << text;
    }

    void AppendActivities(const std::string& name, int first, int last) {
        std::string text;
        for (int number = first; number < last; ++number) {
            text += BeginLine(IdOf(number), "work", "", R"({"n":)" + std::to_string(number) + "}");
            text += '\n' + EndLine(IdOf(number), "work") + '\n';
        }
        Append(name, text);
    }

    pid_t Start(const FaultyServer& server) {
        const std::string log = m_folder.PathOf("a.log");
        const std::string checkpoint = m_folder.PathOf("checkpoint");
        const std::string url = server.Url();
        std::vector<std::string> words{
            TARNVIEW, "push", "--no-progress", "--checkpoint", checkpoint, url, log};
        std::vector<char*> arguments;
        for (std::string& word : words) {
            arguments.push_back(word.data());
        }
        arguments.push_back(nullptr);
        std::vector<const char*> environment{"OTEL_BSP_MAX_EXPORT_BATCH_SIZE=10", nullptr};
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        const std::string out = m_folder.PathOf("out");
        posix_spawn_file_actions_addopen(
            &actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        posix_spawn_file_actions_adddup2(&actions, 1, 2);
        pid_t child = -1;
        EXPECT_EQ(posix_spawn(&child,
                              arguments[0],
                              &actions,
                              nullptr,
                              arguments.data(),
                              const_cast<char**>(environment.data())),
                  0);
        posix_spawn_file_actions_destroy(&actions);
        return child;
    }

    // What the program ends with; -1 if a signal has ended it.
    static int EndOf(pid_t child) {
        int status = 0;
        waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    int Push(const FaultyServer& server) { return EndOf(Start(server)); }

    std::string Output() const {
        std::ifstream file(m_folder.PathOf("out"));
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

    static std::multiset<std::string> SpansAt(const FaultyServer& server) {
        std::multiset<std::string> spans;
        for (const FaultyServer::Request& request : server.Requests()) {
            spans.merge(SpansInRequest(request.body));
        }
        return spans;
    }

    static std::size_t CountDifferent(const std::multiset<std::string>& spans) {
        return std::set<std::string>(spans.begin(), spans.end()).size();
    }

    static FaultyServer::Handler Accepting() {
        return [](const FaultyServer::Request&, std::size_t) { return Accepted(); };
    }

    tarn::test::TemporaryFolder m_folder;
};

TEST_F(PushTest, ALaterRunSendsWhatHasEndedSinceAlsoAfterRotation) {
    FaultyServer server(Accepting());
    AppendActivities("a.log", 0, 25);
    Append("a.log", BeginLine(IdOf(100), "long", "", R"({"kept":"yes"})") + "\n");
    ASSERT_EQ(Push(server), 0) << Output();
    EXPECT_THAT(Output(), HasSubstr("sent 25, rejected 0, not ended 1"));
    AppendActivities("a.log", 25, 30);
    std::filesystem::rename(m_folder.PathOf("a.log"), m_folder.PathOf("a.1.log"));
    AppendActivities("a.log", 30, 35);
    Append("a.log", EndLine(IdOf(100), "long") + "\n");

    ASSERT_EQ(Push(server), 0) << Output();
    EXPECT_THAT(Output(), HasSubstr("sent 11, rejected 0, not ended 0"));
    ASSERT_EQ(Push(server), 0) << Output();

    EXPECT_THAT(Output(), HasSubstr("sent 0, rejected 0"));
    const auto spans = SpansAt(server);
    EXPECT_EQ(spans.size(), 36U);
    EXPECT_EQ(CountDifferent(spans), 36U);
    EXPECT_TRUE(std::any_of(spans.begin(), spans.end(), [](const std::string& span) {
        return span.find("long") != std::string::npos &&
               span.find("body.kept") != std::string::npos;
    }));
}

TEST_F(PushTest, ALineThatIsStillWrittenIsReadWhenItIsWhole) {
    FaultyServer server(Accepting());
    AppendActivities("a.log", 0, 3);
    const std::string line = BeginLine(IdOf(3), "work") + "\n" + EndLine(IdOf(3), "work") + "\n";
    Append("a.log", line.substr(0, line.size() - 20));
    ASSERT_EQ(Push(server), 0) << Output();
    Append("a.log", line.substr(line.size() - 20));

    ASSERT_EQ(Push(server), 0) << Output();

    EXPECT_EQ(CountDifferent(SpansAt(server)), 4U);
    EXPECT_THAT(Output(), HasSubstr("sent 1, rejected 0, not ended 0"));
}

TEST_F(PushTest, NothingIsMissingAfterKillsAtAnyMoment) {
    FaultyServer server([](const FaultyServer::Request&, std::size_t) {
        return FaultyServer::Reaction{.delay = 1ms};
    });
    AppendActivities("a.log", 0, 500);
    for (int kills = 0; kills < 10; ++kills) {
        const pid_t child = Start(server);
        std::this_thread::sleep_for(std::chrono::milliseconds(3 * kills));
        kill(child, SIGKILL);
        EndOf(child);
    }

    ASSERT_EQ(Push(server), 0) << Output();

    EXPECT_EQ(CountDifferent(SpansAt(server)), 500U);
}

TEST_F(PushTest, ABatchThatIsRefusedStopsItAndIsSentByTheNextRun) {
    FaultyServer refusing(
        [](const FaultyServer::Request&, std::size_t) { return WithStatus(401); });
    FaultyServer server(Accepting());
    AppendActivities("a.log", 0, 25);

    EXPECT_EQ(Push(refusing), 3);
    EXPECT_THAT(Output(), HasSubstr("status 401"));
    EXPECT_EQ(refusing.Count(), 1U);
    EXPECT_EQ(Push(server), 0) << Output();

    EXPECT_EQ(CountDifferent(SpansAt(server)), 25U);
}

TEST_F(PushTest, RejectedSpansAreCountedAndTold) {
    FaultyServer server([](const FaultyServer::Request&, std::size_t) {
        return FaultyServer::Reaction{.headers = {{"Content-Type", "application/x-protobuf"}},
                                      .body = std::string("\x0a\x05\x08\x02\x12\x01x", 7)};
    });
    AppendActivities("a.log", 0, 5);

    EXPECT_EQ(Push(server), 1);

    EXPECT_THAT(Output(), HasSubstr("sent 3, rejected 2"));
}

TEST_F(PushTest, AFileThatIsNoCheckpointIsRefused) {
    FaultyServer server(Accepting());
    AppendActivities("a.log", 0, 5);
    Append("checkpoint", "{}");

    EXPECT_EQ(Push(server), 3);

    EXPECT_THAT(Output(), HasSubstr("is no checkpoint"));
    EXPECT_EQ(server.Count(), 0U);
}

}  // namespace
