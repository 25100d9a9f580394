#include "tarn/ActivityTokens.h"

#include "tarn/ActivityScope.h"

#include <cstddef>
#include <iterator>
#include <string>
#include <type_traits>

#include <gtest/gtest.h>

namespace {

// Written down independently of the table that the library is built from.
struct ExpectedToken {
    const char* name;
    const wchar_t* token;
    const wchar_t* text;
};

#define EXPECTED(token, text) \
    { #token, ActivityTokens::token, text }

// Not constant: it is filled before main, which is one of the moments when tokens must be there.
const ExpectedToken expectedTokens[] = {
    // Event structure and phases.
    EXPECTED(phaseAttr, L"type"),
    EXPECTED(typeAttr, L"type"),
    EXPECTED(beginPhase, L"begin"),
    EXPECTED(endPhase, L"end"),
    EXPECTED(beginAttr, L"begin"),
    EXPECTED(endAttr, L"end"),
    EXPECTED(nameAttr, L"name"),
    EXPECTED(idAttr, L"id"),
    EXPECTED(activityAttributes, L"multiNVPs"),
    EXPECTED(activityContext, L"activityCtx"),
    EXPECTED(requestContextAttributes, L"reqCtxAttrs"),
    EXPECTED(logSupplementsAttr, L"logs"),
    EXPECTED(resultAttrs, L"resultAttrs"),
    EXPECTED(miscAttr, L"misc"),
    EXPECTED(requestScopeName, L"request"),
    EXPECTED(requestDescription, L"req-desc"),
    EXPECTED(cmdNameAttr, L"cmd-name"),
    // Context identity and depth.
    EXPECTED(ridAttr, L"rid"),
    EXPECTED(rootAttr, L"root"),
    EXPECTED(sponsorAttr, L"sponsor"),
    EXPECTED(activityIdAttr, L"activityId"),
    EXPECTED(sponsorActivityIdAttr, L"sponsorId"),
    EXPECTED(depthAttr, L"depth"),
    EXPECTED(serviceDepthAttr, L"sDepth"),
    EXPECTED(traceDepthAttr, L"traceDepth"),
    EXPECTED(foregroundRootAttr, L"__root__"),
    EXPECTED(addContextAttributes, L"ctx"),
    EXPECTED(addMappableContextAttributes, L"mctx"),
    // Process, host and session.
    EXPECTED(pidAttr, L"pid"),
    EXPECTED(tidAttr, L"tid"),
    EXPECTED(numberOfThreads, L"ntid"),
    EXPECTED(hostAttr, L"host"),
    EXPECTED(environmentAttr, L"env"),
    EXPECTED(siteAttr, L"site"),
    EXPECTED(userAttr, L"user"),
    EXPECTED(sidAttr, L"sid"),
    EXPECTED(cidAttr, L"cid"),
    EXPECTED(newSessionAttr, L"new-session"),
    EXPECTED(newSessionIdAttr, L"new-session-id"),
    EXPECTED(numBootstrapsAttr, L"nBoots"),
    // Timing.
    EXPECTED(elapsedAttr, L"elapsed"),
    EXPECTED(exclusiveTimeAttr, L"exclusive"),
    EXPECTED(startTimeAttr, L"startTime"),
    EXPECTED(startSecondsAttr, L"startSeconds"),
    EXPECTED(startMicroSecondsAttr, L"startMicroseconds"),
    // Results, cancellation and failure.
    EXPECTED(resultOk, L"ok"),
    EXPECTED(resultKeyAttr, L"rk"),
    EXPECTED(resultValueAttr, L"rv"),
    EXPECTED(resultCountSponseeErrors, L"rnerr"),
    EXPECTED(resultCountSponseeEarlyTerms, L"rnterm"),
    EXPECTED(canceledAttr, L"canceled"),
    EXPECTED(earlyTerminationAttr, L"early-termination"),
    EXPECTED(errorAttr, L"error"),
    EXPECTED(errorCodeAttr, L"e-code"),
    EXPECTED(errorSourceAttr, L"e-source"),
    EXPECTED(errorStatusCodeAttr, L"e-status-code"),
    EXPECTED(exceptionAttr, L"exception"),
    EXPECTED(failureAttr, L"failure"),
    EXPECTED(messageAttr, L"msg"),
    // Resource figures.
    EXPECTED(memoryAttrsName, L"memoryAttrs"),
    EXPECTED(cpuAttrsName, L"cpuAttrs"),
    EXPECTED(resourceSubGroupName, L"res"),
    EXPECTED(allocSubGroupName, L"alloc"),
    EXPECTED(freeSubGroupName, L"free"),
    EXPECTED(kernelCpuSubGroupName, L"kcpu"),
    EXPECTED(userCpuSubGroupName, L"ucpu"),
    EXPECTED(allocatedInclusiveAttr, L"ai"),
    EXPECTED(allocatedExclusiveAttr, L"ae"),
    EXPECTED(allocatedCountInclusiveAttr, L"ani"),
    EXPECTED(allocatedCountExclusiveAttr, L"ane"),
    EXPECTED(allocatedPeakAttr, L"apeak"),
    EXPECTED(deallocatedInclusiveAttr, L"di"),
    EXPECTED(deallocatedExclusiveAttr, L"de"),
    EXPECTED(deallocatedCountInclusiveAttr, L"dni"),
    EXPECTED(deallocatedCountExclusiveAttr, L"dne"),
    EXPECTED(cpuTimeKernelInclusiveAttr, L"ki"),
    EXPECTED(cpuTimeKernelExclusiveAttr, L"ke"),
    EXPECTED(cpuTimeUserInclusiveAttr, L"ui"),
    EXPECTED(cpuTimeUserExclusiveAttr, L"ue"),
    // Workbook and view attributes.
    EXPECTED(workbookAttr, L"wb"),
    EXPECTED(worksheetAttr, L"ws"),
    EXPECTED(dashboardAttr, L"dash"),
    EXPECTED(storyboardAttr, L"sb"),
    EXPECTED(viewAttr, L"vw"),
    EXPECTED(computeModelessFilterStateAttr, L"is-mfs"),
};

#undef EXPECTED

#define COUNT_ROW(token, text) +1
constexpr std::size_t rowsOfTheTable = 0 TARN_ACTIVITY_TOKENS(COUNT_ROW);
#undef COUNT_ROW

// Runs before any other initialiser of the program, the library's own included.
struct EarlyReader {
    const wchar_t* id = ActivityTokens::idAttr;
    const wchar_t* resultKey = tarn::ActivityScope::resultKeyAttrToken;
    bool readsId = id != nullptr && std::wstring(id) == L"id";
};

__attribute__((init_priority(101))) EarlyReader earlyReader;

TEST(ActivityTokensTest, EveryTokenHasItsText) {
    for (const ExpectedToken& expected : expectedTokens) {
        EXPECT_STREQ(expected.token, expected.text) << expected.name;
    }
}

TEST(ActivityTokensTest, ThereAreEightyFiveTokens) {
    EXPECT_EQ(std::size(expectedTokens), 85U);
    EXPECT_EQ(rowsOfTheTable, 85U);
}

TEST(ActivityTokensTest, TokensAreConstantPointersToConstantWideText) {
    EXPECT_TRUE((std::is_same_v<decltype(ActivityTokens::idAttr), const wchar_t* const>));
    EXPECT_TRUE(
        (std::is_same_v<decltype(tarn::ActivityScope::typeAttrToken), const wchar_t* const>));
}

TEST(ActivityTokensTest, ThePlainTextsHaveNothingButAsciiCharacters) {
    for (const ExpectedToken& expected : expectedTokens) {
        for (const wchar_t* unit = expected.token; *unit != L'\0'; ++unit) {
            EXPECT_GT(*unit, L' ') << expected.name;
            EXPECT_LT(*unit, L'\x7F') << expected.name;
        }
    }
}

TEST(ActivityTokensTest, TheForegroundRootStandsBetweenTwoUnderscoresOnEachSide) {
    EXPECT_STREQ(ActivityTokens::foregroundRootAttr, L"__root__");
}

TEST(ActivityTokensTest, TheMicrosecondsOfTheStartAreSpelledInLowerCase) {
    EXPECT_STREQ(ActivityTokens::startMicroSecondsAttr, L"startMicroseconds");
    EXPECT_STRNE(ActivityTokens::startMicroSecondsAttr, L"startMicroSeconds");
}

TEST(ActivityTokensTest, SomeTextsDifferFromTheirNames) {
    EXPECT_STREQ(ActivityTokens::numberOfThreads, L"ntid");
    EXPECT_STREQ(ActivityTokens::activityAttributes, L"multiNVPs");
}

TEST(ActivityTokensTest, TokensThatPlayTwoRolesShareTheirText) {
    EXPECT_STREQ(ActivityTokens::phaseAttr, ActivityTokens::typeAttr);
    EXPECT_STREQ(ActivityTokens::beginPhase, ActivityTokens::beginAttr);
    EXPECT_STREQ(ActivityTokens::endPhase, ActivityTokens::endAttr);
}

TEST(ActivityTokensTest, TheDepthOfAProxyIsNotTheDepthOfAScope) {
    EXPECT_STRNE(ActivityTokens::depthAttr, ActivityTokens::traceDepthAttr);
}

TEST(ActivityTokensTest, TheScopesTokensAreTheSamePointersAsTheTokens) {
    EXPECT_EQ(tarn::ActivityScope::canceledAttrToken, ActivityTokens::canceledAttr);
    EXPECT_EQ(tarn::ActivityScope::earlyTerminationAttrToken, ActivityTokens::earlyTerminationAttr);
    EXPECT_EQ(tarn::ActivityScope::errorCodeAttrToken, ActivityTokens::errorCodeAttr);
    EXPECT_EQ(tarn::ActivityScope::errorSourceAttrToken, ActivityTokens::errorSourceAttr);
    EXPECT_EQ(tarn::ActivityScope::errorStatusCodeAttrToken, ActivityTokens::errorStatusCodeAttr);
    EXPECT_EQ(tarn::ActivityScope::exceptionAttrToken, ActivityTokens::exceptionAttr);
    EXPECT_EQ(tarn::ActivityScope::messageAttrToken, ActivityTokens::messageAttr);
    EXPECT_EQ(tarn::ActivityScope::resultKeyAttrToken, ActivityTokens::resultKeyAttr);
    EXPECT_EQ(tarn::ActivityScope::typeAttrToken, ActivityTokens::typeAttr);
}

TEST(ActivityTokensTest, TheScopesTokensHaveTheTextsOfResults) {
    EXPECT_STREQ(tarn::ActivityScope::canceledAttrToken, L"canceled");
    EXPECT_STREQ(tarn::ActivityScope::earlyTerminationAttrToken, L"early-termination");
    EXPECT_STREQ(tarn::ActivityScope::errorCodeAttrToken, L"e-code");
    EXPECT_STREQ(tarn::ActivityScope::errorSourceAttrToken, L"e-source");
    EXPECT_STREQ(tarn::ActivityScope::errorStatusCodeAttrToken, L"e-status-code");
    EXPECT_STREQ(tarn::ActivityScope::exceptionAttrToken, L"exception");
    EXPECT_STREQ(tarn::ActivityScope::messageAttrToken, L"msg");
    EXPECT_STREQ(tarn::ActivityScope::resultKeyAttrToken, L"rk");
    EXPECT_STREQ(tarn::ActivityScope::typeAttrToken, L"type");
}

TEST(ActivityTokensTest, StaticInitialisersMayReadTokens) {
    EXPECT_TRUE(earlyReader.readsId);
    EXPECT_EQ(earlyReader.id, ActivityTokens::idAttr);
    EXPECT_EQ(earlyReader.resultKey, ActivityTokens::resultKeyAttr);
}

}  // namespace
