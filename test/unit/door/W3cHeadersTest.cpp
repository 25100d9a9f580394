#include "W3cHeaders.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn::test {
namespace {

const std::string traceId = "4bf92f3577b34da6a3ce929d0e0e4736";
const std::string parentId = "00f067aa0ba902b7";

std::string Header(const std::string& version,
                   const std::string& trace,
                   const std::string& parent,
                   const std::string& flags) {
    return version + "-" + trace + "-" + parent + "-" + flags;
}

bool IsRead(const std::string& text) {
    return TraceParent::Read(text).has_value();
}

std::string Passed(const std::vector<std::string>& values) {
    return TraceState::Read(values).ToText();
}

TEST(W3cTraceParentTest, ItsPartsAreRead) {
    const auto read = TraceParent::Read(Header("00", traceId, parentId, "01"));

    ASSERT_TRUE(read.has_value());
    EXPECT_EQ(read->traceId, traceId);
    EXPECT_EQ(read->parentId, parentId);
    EXPECT_TRUE(read->isSampled);
    EXPECT_EQ(read->ToText(), Header("00", traceId, parentId, "01"));
}

TEST(W3cTraceParentTest, OfTheFlagsOnlyTheSampledOneCounts) {
    EXPECT_FALSE(TraceParent::Read(Header("00", traceId, parentId, "00"))->isSampled);
    EXPECT_FALSE(TraceParent::Read(Header("00", traceId, parentId, "fe"))->isSampled);
    EXPECT_TRUE(TraceParent::Read(Header("00", traceId, parentId, "ff"))->isSampled);
    EXPECT_EQ(TraceParent::Read(Header("00", traceId, parentId, "ff"))->ToText(),
              Header("00", traceId, parentId, "01"))
        << "what this version does not know is not passed on";
}

TEST(W3cTraceParentTest, BlanksAroundItAreNotPartOfIt) {
    EXPECT_TRUE(IsRead(" \t" + Header("00", traceId, parentId, "01") + " "));
    EXPECT_FALSE(IsRead("\n" + Header("00", traceId, parentId, "01")));
    EXPECT_FALSE(IsRead(Header("00", traceId, parentId, "01") + "\r\n"));
}

TEST(W3cTraceParentTest, PartsOfAnotherLengthAreRefused) {
    EXPECT_FALSE(IsRead(""));
    EXPECT_FALSE(IsRead("00"));
    EXPECT_FALSE(IsRead(Header("0", traceId, parentId, "01")));
    EXPECT_FALSE(IsRead(Header("000", traceId, parentId, "01")));
    EXPECT_FALSE(IsRead(Header("00", traceId.substr(1), parentId, "01")));
    EXPECT_FALSE(IsRead(Header("00", traceId + "0", parentId, "01")));
    EXPECT_FALSE(IsRead(Header("00", traceId, parentId.substr(1), "01")));
    EXPECT_FALSE(IsRead(Header("00", traceId, parentId + "0", "01")));
    EXPECT_FALSE(IsRead(Header("00", traceId, parentId, "1")));
    EXPECT_FALSE(IsRead(Header("00", traceId, parentId, "001")));
    EXPECT_FALSE(IsRead(Header("00", traceId, parentId, "")));
    EXPECT_FALSE(IsRead(Header("00", traceId + "-", parentId.substr(1), "01")));
}

TEST(W3cTraceParentTest, IdsOfZeroesAreRefused) {
    EXPECT_FALSE(IsRead(Header("00", std::string(32, '0'), parentId, "01")));
    EXPECT_FALSE(IsRead(Header("00", traceId, std::string(16, '0'), "01")));
}

TEST(W3cTraceParentTest, UpperCaseAndOtherCharactersAreRefused) {
    EXPECT_FALSE(IsRead(Header("00", "4BF92F3577B34DA6A3CE929D0E0E4736", parentId, "01")));
    EXPECT_FALSE(IsRead(Header("00", traceId, "00F067AA0BA902B7", "01")));
    EXPECT_FALSE(IsRead(Header("00", traceId, parentId, "0A")));
    EXPECT_FALSE(IsRead(Header("0G", traceId, parentId, "01")));
    EXPECT_FALSE(IsRead(Header("00", traceId.substr(1) + ".", parentId, "01")));
    EXPECT_FALSE(IsRead(Header("00", traceId.substr(1) + std::string(1, '\0'), parentId, "01")));
    EXPECT_FALSE(IsRead("00_" + traceId + "_" + parentId + "_01"));
}

TEST(W3cTraceParentTest, ThisVersionHasNoMoreParts) {
    EXPECT_FALSE(IsRead(Header("00", traceId, parentId, "01-")));
    EXPECT_FALSE(IsRead(Header("00", traceId, parentId, "01-more")));
}

TEST(W3cTraceParentTest, OfLaterVersionsTheKnownPartsCount) {
    EXPECT_TRUE(IsRead(Header("01", traceId, parentId, "01")));
    EXPECT_TRUE(IsRead(Header("cc", traceId, parentId, "01-more")));
    EXPECT_TRUE(IsRead(Header("cc", traceId, parentId, "01-")));
    EXPECT_FALSE(IsRead(Header("cc", traceId, parentId, "01.more")));
    EXPECT_FALSE(IsRead(Header("cc", traceId, parentId, "0")));
    EXPECT_FALSE(IsRead(Header("CC", traceId, parentId, "01")));
    EXPECT_FALSE(IsRead(Header("ff", traceId, parentId, "01"))) << "there will be no such version";
    EXPECT_EQ(TraceParent::Read(Header("cc", traceId, parentId, "01-more"))->ToText(),
              Header("00", traceId, parentId, "01"));
}

TEST(W3cTraceStateTest, MembersAreReadInOrderAcrossHeaders) {
    EXPECT_EQ(Passed({"a=1,b=2"}), "a=1,b=2");
    EXPECT_EQ(Passed({"a=1", "b=2,c=3"}), "a=1,b=2,c=3");
    EXPECT_EQ(Passed({" a=1 ,\t, b=2\t,"}), "a=1,b=2") << "blanks and empty members do not count";
    EXPECT_EQ(Passed({}), "");
    EXPECT_EQ(Passed({""}), "");
}

TEST(W3cTraceStateTest, NamesAreOfTheirTwoForms) {
    EXPECT_EQ(Passed({"a_-*/0=1"}), "a_-*/0=1");
    EXPECT_EQ(Passed({"0tenant@system=1"}), "0tenant@system=1");
    EXPECT_EQ(Passed({std::string(256, 'a') + "=1"}), std::string(256, 'a') + "=1");
    EXPECT_EQ(Passed({std::string(241, 'a') + "@" + std::string(14, 'b') + "=1"}).size(), 258U);
    for (const std::string& name : {std::string("A"),
                                    std::string("0"),
                                    std::string(),
                                    std::string("a.b"),
                                    std::string("a "),
                                    std::string("a@"),
                                    std::string("@a"),
                                    std::string("a@0"),
                                    std::string("a@b@c"),
                                    std::string(257, 'a'),
                                    std::string(242, 'a') + "@b",
                                    "a@" + std::string(15, 'b')}) {
        EXPECT_EQ(Passed({"ok=1," + name + "=1"}), "") << name;
    }
}

TEST(W3cTraceStateTest, ValuesArePrintableAndOfLimitedLength) {
    EXPECT_EQ(Passed({"a= !~:;x"}), "a= !~:;x");
    EXPECT_EQ(Passed({"a=" + std::string(256, 'x')}).size(), 258U);
    EXPECT_EQ(Passed({"a=" + std::string(257, 'x')}), "");
    EXPECT_EQ(Passed({"a="}), "");
    EXPECT_EQ(Passed({"a"}), "");
    EXPECT_EQ(Passed({"a=b=c"}), "");
    EXPECT_EQ(Passed({"a=\x7F"}), "");
    EXPECT_EQ(Passed({"a=x\ny"}), "");
    EXPECT_EQ(Passed({"a=\xC3\xA9"}), "");
}

TEST(W3cTraceStateTest, ANameThatComesTwiceSpoilsAll) {
    EXPECT_EQ(Passed({"a=1,b=2,a=3"}), "");
    EXPECT_EQ(Passed({"a=1", "a=1"}), "");
}

TEST(W3cTraceStateTest, MoreThan32MembersSpoilAll) {
    std::string members = "m0=1";
    for (int i = 1; i < 32; ++i) {
        members += ",m" + std::to_string(i) + "=1";
    }
    EXPECT_EQ(Passed({members}), members);
    EXPECT_EQ(Passed({members, "last=1"}), "");
}

TEST(W3cTraceStateTest, WhatIsWrittenLastIsInFrontOnce) {
    TraceState state = TraceState::Read({"a=1,own=old,b=2"});

    state.Put("own", "new");

    EXPECT_EQ(state.ToText(), "own=new,a=1,b=2");
    EXPECT_EQ(state.Take("own"), "new");
    EXPECT_EQ(state.Take("own"), "");
    EXPECT_EQ(state.ToText(), "a=1,b=2");
}

TEST(W3cTraceStateTest, TheLastOf33MembersIsLeftOut) {
    std::string members = "m0=1";
    for (int i = 1; i < 32; ++i) {
        members += ",m" + std::to_string(i) + "=1";
    }
    TraceState state = TraceState::Read({members});

    state.Put("own", "1");

    EXPECT_EQ(state.ToText(), "own=1," + members.substr(0, members.rfind(',')));
}

TEST(W3cTraceStateTest, OfALongOneLongMembersAreLeftOutFirst) {
    const std::string longOne = "long=" + std::string(200, 'x');
    const std::string another = "other=" + std::string(200, 'y');
    TraceState state = TraceState::Read({longOne + ",a=1," + another + ",b=2"});

    state.Put("own", std::string(100, 'z'));

    EXPECT_EQ(state.ToText(), "own=" + std::string(100, 'z') + "," + longOne + ",a=1,b=2");
}

TEST(W3cTraceStateTest, OfALongOneOfShortMembersTheLastAreLeftOut) {
    std::string members;
    for (int i = 0; i < 10; ++i) {
        members +=
            (i == 0 ? "" : ",") + std::string("m") + std::to_string(i) + "=" + std::string(60, 'x');
    }
    TraceState state = TraceState::Read({members});

    state.Put("own", "1");

    EXPECT_LE(state.ToText().size(), 512U);
    EXPECT_EQ(state.ToText(), "own=1," + members.substr(0, 7 * 64 - 1));
}

TEST(W3cIdsTest, IdsAreWrittenInTheFormOfEitherSystem) {
    EXPECT_EQ(HexOfId("4BF92F35-77B3-4DA6-A3CE-929D0E0E4736"), traceId);
    EXPECT_EQ(IdOfHex(traceId), "4BF92F35-77B3-4DA6-A3CE-929D0E0E4736");
    EXPECT_EQ(HexOfId("4bf92f35-77b3-4da6-a3ce-929d0e0e4736"), "");
    EXPECT_EQ(HexOfId("4BF92F35077B304DA60A3CE0929D0E0E4736"), "");
    EXPECT_EQ(HexOfId("abc"), "");
    EXPECT_EQ(HexOfId(""), "");
}

}  // namespace
}  // namespace tarn::test
