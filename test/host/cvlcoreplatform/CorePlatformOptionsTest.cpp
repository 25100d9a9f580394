#include "cvlcoreplatform/CorePlatformOptions.h"

#include "cvlcoreplatform/ComputerName.h"
#include "cvlcoreplatform/host/TarnEnabled.h"

#include <array>
#include <atomic>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

class CorePlatformOptionsTest : public testing::Test {
protected:
    CorePlatformOptionsTest() { CorePlatformOptions::SetIsTarnEnabledFunction(nullptr); }

    ~CorePlatformOptionsTest() override { CorePlatformOptions::SetIsTarnEnabledFunction(nullptr); }
};

TEST_F(CorePlatformOptionsTest, TracingIsOffWhileNobodyHasSaidOtherwise) {
    EXPECT_FALSE(IsTarnEnabled());
}

TEST_F(CorePlatformOptionsTest, TheGivenFunctionIsAskedEachTime) {
    bool enabled = true;
    CorePlatformOptions::SetIsTarnEnabledFunction([&] { return enabled; });

    EXPECT_TRUE(IsTarnEnabled());
    enabled = false;
    EXPECT_FALSE(IsTarnEnabled());
}

TEST_F(CorePlatformOptionsTest, AnEmptyFunctionTakesItBack) {
    CorePlatformOptions::SetIsTarnEnabledFunction([] { return true; });

    CorePlatformOptions::SetIsTarnEnabledFunction(std::function<bool()>());

    EXPECT_FALSE(IsTarnEnabled());
}

TEST_F(CorePlatformOptionsTest, AFunctionMayReplaceItself) {
    CorePlatformOptions::SetIsTarnEnabledFunction([state = std::make_shared<bool>(true)] {
        CorePlatformOptions::SetIsTarnEnabledFunction([] { return false; });
        return *state;
    });

    EXPECT_TRUE(IsTarnEnabled());
    EXPECT_FALSE(IsTarnEnabled());
}

TEST_F(CorePlatformOptionsTest, AFunctionWhoseEndAsksDoesNotBlock) {
    struct AsksAtEnd {
        ~AsksAtEnd() { answer = IsTarnEnabled(); }

        bool& answer;
    };

    bool answer = false;
    CorePlatformOptions::SetIsTarnEnabledFunction(
        [last = std::shared_ptr<AsksAtEnd>(new AsksAtEnd{answer})] { return false; });

    CorePlatformOptions::SetIsTarnEnabledFunction([] { return true; });

    EXPECT_TRUE(answer);
}

TEST_F(CorePlatformOptionsTest, WhatTheFunctionThrowsGoesToWhoAsks) {
    CorePlatformOptions::SetIsTarnEnabledFunction(
        []() -> bool { throw std::runtime_error("no idea"); });

    EXPECT_THROW(IsTarnEnabled(), std::runtime_error);
}

TEST_F(CorePlatformOptionsTest, AskingAndReplacingAtTheSameTimeIsSafe) {
    std::atomic<bool> done{false};
    std::thread asker([&] {
        while (!done) {
            IsTarnEnabled();
        }
    });

    for (int round = 0; round < 1000; ++round) {
        CorePlatformOptions::SetIsTarnEnabledFunction(
            [value = std::make_shared<int>(round)] { return *value % 2 == 0; });
    }
    done = true;
    asker.join();

    EXPECT_FALSE(IsTarnEnabled());
}

TEST(CorePlatformComputerNameTest, ItIsTheSystemsName) {
    std::array<char, 256> name{};
    ASSERT_EQ(gethostname(name.data(), name.size() - 1), 0);

    EXPECT_EQ(TSystem::ComputerName().ToUtf8(), std::string(name.data()));
}

}  // namespace
