#include "Operations.h"
#include "Sanitizers.h"
#include "TemporaryFolder.h"

#include <algorithm>
#include <cctype>
#include <csignal>
#include <cstdlib>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <tuple>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

using ForkMatrix::Operation;
using ForkMatrix::Operations;

int Forks() {
    const char* const forks = std::getenv("TARN_FORKS");
    return forks != nullptr ? std::stoi(forks) : 20;
}

// From one fork to the next another one, so that all moments of a first use are met.
constexpr int mostMicros = 200;

int Fail(const char* what) {
    ADD_FAILURE() << what;
    return -1;
}

/// Runs the subject; its status as of waitpid.
int RunSubject(const char* name, const char* delivery, const std::string& number) {
    const tarn::test::TemporaryFolder folder;
    const std::string log = folder.PathOf("log");
    const char* const arguments[] = {
        TARN_FORK_SUBJECT, name, delivery, number.c_str(), log.c_str(), nullptr};
    pid_t subject = -1;
    if (posix_spawn(&subject,
                    TARN_FORK_SUBJECT,
                    nullptr,
                    nullptr,
                    const_cast<char* const*>(arguments),
                    environ) != 0) {
        return Fail("cannot start the subject");
    }
    int status = 0;
    if (waitpid(subject, &status, 0) != subject) {
        return Fail("cannot wait for the subject");
    }
    return status;
}

/// What another thread does, and the way of delivery.
class ForkMatrixTest : public testing::TestWithParam<std::tuple<Operation, const char*>> {};

std::string NameOfTest(const testing::TestParamInfo<ForkMatrixTest::ParamType>& test) {
    std::string name = std::string(std::get<0>(test.param).name) + '_' + std::get<1>(test.param);
    std::replace_if(
        name.begin(), name.end(), [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
    return name;
}

INSTANTIATE_TEST_SUITE_P(All,
                         ForkMatrixTest,
                         testing::Combine(testing::ValuesIn(Operations()),
                                          testing::Values("sync", "async")),
                         NameOfTest);

TEST_P(ForkMatrixTest, ChildrenTraceSetOptionsAndEndWhileAnotherThreadDoesIt) {
    if (tarn::test::hasThreadSanitizer) {
        GTEST_SKIP() << tarn::test::noThreadsInForkedChildren;
    }
    const auto& [operation, delivery] = GetParam();

    EXPECT_EQ(RunSubject(operation.name, delivery, std::to_string(Forks())), 0)
        << "while another thread called " << operation.name;
}

class FirstUseForkTest : public testing::TestWithParam<const char*> {};

INSTANTIATE_TEST_SUITE_P(All, FirstUseForkTest, testing::Values("sync", "async"));

TEST_P(FirstUseForkTest, AChildTracesThoughTheForkMetTheFirstSession) {
    if (tarn::test::hasThreadSanitizer) {
        GTEST_SKIP() << tarn::test::noThreadsInForkedChildren;
    }
    int failures = 0;
    for (int i = 0; i < 5 * Forks() && failures == 0; ++i) {
        const int status = RunSubject("first-use", GetParam(), std::to_string(i * 7 % mostMicros));
        failures += status == 0 ? 0 : 1;
    }

    EXPECT_EQ(failures, 0);
}

}  // namespace
