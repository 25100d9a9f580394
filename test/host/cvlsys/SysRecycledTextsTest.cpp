#include "cvlsys/host/RecycledTexts.h"

#include <memory>
#include <string>
#include <string_view>
#include <thread>

#include <gtest/gtest.h>

namespace {

using cvlsys::MakeText;
using cvlsys::Rewrite;

TEST(SysRecycledTextsTest, ATextHoldsTheUnitsOfEveryLength) {
    for (std::size_t length = 0; length < 300; ++length) {
        std::string narrow;
        std::u16string wide;
        for (std::size_t i = 0; i < length; ++i) {
            narrow += static_cast<char>('a' + (i * 7 + length) % 26);
            wide += static_cast<char16_t>(u'\u0400' + i);
        }

        EXPECT_EQ(*MakeText(std::string_view(narrow)), narrow);
        EXPECT_EQ(*MakeText(std::u16string_view(wide)), wide);
    }
}

TEST(SysRecycledTextsTest, RewritingLeavesWhatOthersHold) {
    std::shared_ptr<const std::string> text;
    Rewrite<char>(text, "a text that needs memory of its own");
    const std::shared_ptr<const std::string> kept = text;

    Rewrite<char>(text, "another");

    EXPECT_EQ(*text, "another");
    EXPECT_EQ(*kept, "a text that needs memory of its own");
}

TEST(SysRecycledTextsTest, RewritingGivesEveryLength) {
    std::shared_ptr<const std::u16string> text;

    for (const std::size_t length : {0U, 1U, 7U, 8U, 36U, 3U, 127U, 128U, 129U, 1000U, 2U, 40U}) {
        const std::u16string units(length, static_cast<char16_t>(u'a' + length % 26));
        Rewrite<char16_t>(text, units);
        EXPECT_EQ(*text, units);
        EXPECT_EQ(text->c_str()[length], u'\0');
    }
}

TEST(SysRecycledTextsTest, ATextMayEndOnAnotherThreadThanItBeganOn) {
    constexpr int rounds = 200;
    for (int round = 0; round < rounds; ++round) {
        std::shared_ptr<const std::string> text = MakeText(std::string_view("handed over, long"));
        std::thread([taken = std::move(text)] { EXPECT_EQ(taken->size(), 17U); }).join();
    }
}

TEST(SysRecycledTextsTest, OnlyTextsThatWereMadeForItAreWrittenAnew) {
    std::shared_ptr<const std::string> own = cvlsys::MakeText(std::string_view("one"));
    std::shared_ptr<const std::string> foreign = std::make_shared<const std::string>("one");

    cvlsys::Rewrite(own, std::string_view("two"));

    EXPECT_EQ(*own, "two");
    EXPECT_FALSE(cvlsys::IsRewritable(foreign));
    EXPECT_EQ(cvlsys::IsRewritable(own), cvlsys::isRecycling);
#ifndef NDEBUG
    if (cvlsys::isRecycling) {
        EXPECT_DEATH(cvlsys::Rewrite(foreign, std::string_view("two")), "IsRewritable");
    }
#endif
}

}  // namespace
