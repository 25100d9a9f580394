#include "PaddedText.h"

#include <cstddef>
#include <string>

#include <gtest/gtest.h>

namespace {

using host::PaddedText;

TEST(HostPaddedTextTest, ACopyHasTheTextAndTouchesNothingBehindItsSlack) {
    constexpr char untouched = '\x7F';
    const std::string memory = "the road of one scope, and what is behind" + std::string(40, '.');
    for (std::size_t length = 0; length <= 41; ++length) {
        const PaddedText text = PaddedText::Within(memory, 0, length);
        std::string copy(length + PaddedText::slack + 8, untouched);

        text.CopyTo(copy.data());

        EXPECT_EQ(copy.substr(0, length), text.View());
        EXPECT_EQ(copy.substr(length + PaddedText::slack), std::string(8, untouched)) << length;
    }
}

TEST(HostPaddedTextTest, APartWithoutTheBytesBehindItIsRefused) {
    const std::string memory(PaddedText::slack + 4, '.');

    EXPECT_EQ(PaddedText::Within(memory, 1, 4).Length(), 3U);
    EXPECT_DEBUG_DEATH(PaddedText::Within(memory, 1, 5), "slack");
    EXPECT_DEBUG_DEATH(PaddedText::Within(memory, 3, 2), "begin");
}

}  // namespace
