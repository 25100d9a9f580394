#include "FakeEngine.h"
#include "engine/EngineSource.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>

namespace tarnview {
namespace {

using testing::AllOf;
using testing::Each;
using testing::HasSubstr;
using testing::Not;

constexpr const char* root = "9E3779B9-7F4A-4C15-8000-000000000001";
constexpr const char* readsItsRows = "root IN ('9e3779b9-7f4a-4c15-8000-000000000001')";

// What an engine without rows is asked.
std::vector<std::string> StatementsFor(const ActivitySource::Selection& selection) {
    std::vector<std::string> statements;
    FakeEngine engine([&](const std::string& statement, const std::string&) {
        statements.push_back(statement);
        return FakeEngine::Reaction{.body = std::string(2, '\0')};  // a block of nothing
    });
    EngineSource(engine.Address()).Read(selection, [](Activity&&) {});
    return statements;
}

// The tables are in the order of roots, so what has no condition on them reads all.
TEST(EngineQuestionsTest, ATreeByTheWholeIdOfItsRootReadsNoOtherRows) {
    Filter filter;
    filter.roots = {root};

    const auto statements = StatementsFor({.filter = &filter, .wantsWholeTrees = true});

    ASSERT_EQ(statements.size(), 2U);
    EXPECT_THAT(statements, Each(AllOf(HasSubstr(readsItsRows), Not(HasSubstr("GLOBAL IN")))));
    EXPECT_THAT(statements[1], HasSubstr(std::string("was_open = 1 AND ") + readsItsRows));
}

TEST(EngineQuestionsTest, WhatIsAskedBesidesTheRootIsLookedForAmongItsRows) {
    Filter filter;
    filter.roots = {root};
    filter.names = {"load"};

    const auto statements = StatementsFor({.filter = &filter, .wantsWholeTrees = true});

    ASSERT_EQ(statements.size(), 2U);
    EXPECT_THAT(
        statements,
        Each(AllOf(HasSubstr(std::string("(1) AND (") + readsItsRows + ")"),
                   HasSubstr("root GLOBAL IN (SELECT root FROM activities WHERE ((root = '" +
                             std::string(root) + "'"))));
}

TEST(EngineQuestionsTest, TheBeginningOfAnIdIsLookedForInAllRows) {
    Filter filter;
    filter.roots = {std::string(root).substr(0, 35)};

    const auto statements = StatementsFor({.filter = &filter, .wantsWholeTrees = true});

    ASSERT_EQ(statements.size(), 2U);
    EXPECT_THAT(statements, Each(AllOf(HasSubstr("startsWith"), Not(HasSubstr("root IN (")))));
}

}  // namespace
}  // namespace tarnview
