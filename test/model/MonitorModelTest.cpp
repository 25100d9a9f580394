#include "Duel.h"
#include "Environment.h"
#include "MonitorRun.h"
#include "StreamGenerator.h"

#include "cvlsys/MemoryTracking.h"

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <string>

#include <gtest/gtest.h>

// The monitor against its model, over random streams. To look further or to see a failure again:
//   TARN_MODEL_SEED    the seed (a number) in place of each test's own
//   TARN_MODEL_EVENTS  how many events each test feeds at least
//   TARN_MODEL_STREAM  only this stream of the seed
namespace model {
namespace {

using tarn::test::NumberFromEnvironment;

constexpr uint64 defaultSeed = 20260201;
constexpr uint64 defaultEvents = 120000;

class MonitorModelTest : public testing::Test {
protected:
    // Feeds streams of the family until there were enough events, or until the two sides differ.
    Sightings ExpectAgreement(Family family, uint64 seed) {
        seed = NumberFromEnvironment("TARN_MODEL_SEED").value_or(seed);
        const uint64 wanted = NumberFromEnvironment("TARN_MODEL_EVENTS").value_or(defaultEvents);
        const std::optional<uint64> only = NumberFromEnvironment("TARN_MODEL_STREAM");

        Sightings sightings;
        for (uint64 number = only.value_or(0); sightings.events < wanted; ++number) {
            const Stream stream = GenerateStream(family, seed, number);
            if (const auto parting = RunStream(stream, &sightings)) {
                ADD_FAILURE() << Describe(stream, *parting);
                break;
            }
            if (only) {
                break;
            }
        }
        m_isWhole = !only && !HasFailure();
        if (m_isWhole) {
            EXPECT_GE(sightings.events, wanted);
            EXPECT_GT(sightings.beginEvents, wanted / 20) << "the streams open too few scopes";
            EXPECT_GT(sightings.endEvents, wanted / 20) << "the streams close too few scopes";
        }
        return sightings;
    }

    // Whether the run went over as many streams as it takes to meet rare things.
    bool IsWhole() const { return m_isWhole; }

private:
    bool m_isWhole = false;
};

TEST_F(MonitorModelTest, AgreesOnStreamsThatNestProperlyForTheMostPart) {
    const Sightings seen = ExpectAgreement(Family::Plain, defaultSeed);

    if (IsWhole()) {
        EXPECT_GT(seen.generatedRequestIds, 0U);
        EXPECT_GT(seen.manyAttributes, seen.events / 200);
        EXPECT_GT(seen.replacedTexts, seen.events / 200);
        EXPECT_GT(seen.callbackErrors, 0U);
        EXPECT_GT(seen.staticTexts, seen.events / 20);
    }
}

TEST_F(MonitorModelTest, AgreesOnClosesOutOfOrderAndOddIds) {
    const Sightings seen = ExpectAgreement(Family::Disorder, defaultSeed);

    if (IsWhole()) {
        EXPECT_GT(seen.warnings, 0U);
    }
}

TEST_F(MonitorModelTest, AgreesOnContextsCarriedByTheScopes) {
    const Sightings seen = ExpectAgreement(Family::Foreground, defaultSeed);

    if (IsWhole()) {
        EXPECT_GT(seen.negativeDepths, seen.events / 200);
    }
}

TEST_F(MonitorModelTest, AgreesInAServer) {
    const Sightings seen = ExpectAgreement(Family::Server, defaultSeed);

    if (IsWhole()) {
        EXPECT_GT(seen.missingSponsors, 0U);
    }
}

TEST_F(MonitorModelTest, AgreesOnTransparentScopes) {
    ExpectAgreement(Family::Transparent, defaultSeed);
}

TEST_F(MonitorModelTest, AgreesOnResourceFiguresUnderTheTestSettings) {
    const Sightings seen = ExpectAgreement(Family::Figures, defaultSeed);

    if (IsWhole()) {
        EXPECT_GT(seen.dumps, 0U);
    }
}

TEST_F(MonitorModelTest, AgreesOnResourceFiguresUnderTheProcessesOwnTracking) {
    const Sightings seen = ExpectAgreement(Family::ProcessFigures, defaultSeed);

    if (IsWhole()) {
        EXPECT_GT(seen.dumps, 0U);
    }
}

/// The library reads once in a process what the process measures.
class ProcessTrackingModelTest : public MonitorModelTest,
                                 public testing::WithParamInterface<ProcessTracking> {
protected:
    // In a process that has logged nothing yet: its exit status.
    static int StatusOfAgreement(ProcessTracking tracking) {
        PrepareProcess(tracking);
        const uint64 seed = NumberFromEnvironment("TARN_MODEL_SEED").value_or(defaultSeed);
        const uint64 wanted = NumberFromEnvironment("TARN_MODEL_EVENTS").value_or(defaultEvents);
        Sightings seen;
        for (uint64 number = 0; seen.events < wanted / 4; ++number) {
            const Stream stream = GenerateStream(Family::ProcessFigures, seed, number);
            if (const auto parting = RunStream(stream, &seen)) {
                std::cerr << Describe(stream, *parting);
                return 1;
            }
        }
        const bool hasAllMemory = tracking.memoryMode == corvala::memory::MemoryTrackingAll;
        if ((seen.processorTimes > 0) != tracking.cpuTime ||
            (seen.releasedMemory > 0) != hasAllMemory) {
            std::cerr << "model and library are wrong together\n";
            return 2;
        }
        return 0;
    }
};

TEST_P(ProcessTrackingModelTest, AgreesInAProcessThatMeasures) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");  // a new process

    EXPECT_EXIT(
        std::exit(StatusOfAgreement(GetParam())), testing::ExitedWithCode(EXIT_SUCCESS), "");
}

INSTANTIATE_TEST_SUITE_P(,
                         ProcessTrackingModelTest,
                         testing::Values(ProcessTracking{corvala::memory::MemoryTrackingOff, false},
                                         ProcessTracking{corvala::memory::MemoryTrackingOff, true},
                                         ProcessTracking{corvala::memory::MemoryTrackingAllocations,
                                                         true},
                                         ProcessTracking{corvala::memory::MemoryTrackingAll, true}),
                         [](const testing::TestParamInfo<ProcessTracking>& process) {
                             const std::string memory =
                                 process.param.memoryMode == corvala::memory::MemoryTrackingOff
                                     ? "Nothing"
                                 : process.param.memoryMode == corvala::memory::MemoryTrackingAll
                                     ? "AllOfMemory"
                                     : "Allocations";
                             return memory + (process.param.cpuTime ? "AndProcessorTime" : "");
                         });

TEST_F(MonitorModelTest, AgreesOnWrongKindsAndThrowingSinks) {
    const Sightings seen = ExpectAgreement(Family::WrongKinds, defaultSeed);

    if (IsWhole()) {
        EXPECT_GT(seen.conversionErrors, 0U);
        EXPECT_GT(seen.textFieldErrors, 0U);
        EXPECT_GT(seen.figureNameErrors, 0U);
        EXPECT_GT(seen.sinkErrors, 0U);
    }
}

TEST_F(MonitorModelTest, AgreesWhileAllOptionsChange) {
    ExpectAgreement(Family::Everything, defaultSeed);
}

TEST_F(MonitorModelTest, AgreesOnStreamsThatNobodyHasSeenBefore) {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto seed =
        static_cast<uint64>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
    std::cout << "TARN_MODEL_SEED=" << seed << " unless given\n";

    ExpectAgreement(Family::Everything, seed);
}

}  // namespace
}  // namespace model
