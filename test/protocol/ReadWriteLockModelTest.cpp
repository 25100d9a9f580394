#include "LockModels.h"

#include <array>
#include <compare>
#include <cstddef>
#include <string>

#include <gtest/gtest.h>

namespace {

using tarn::test::afterEnd;
using tarn::test::ExclusionErrorOf;
using tarn::test::ExpectNoError;
using tarn::test::ExpectNoticed;
using tarn::test::forEver;
using tarn::test::notAlone;
using tarn::test::Step;

/// A rule of `cvlsys::ReadWriteLock` that the model breaks, to show that it notices.
enum class Broken {
    Nothing,
    ReaderDoesNotLookAtGate,
    ReaderLooksBeforeItEnters,
    ReaderDoesNotStepBack,
    LateReaderDoesNotEnter,
    LateReaderIsNotCounted,
    LateReaderWakesNobody,
    LateReaderLeavesCountFirst,
    WriterIgnoresLateReaders,
    WriterLooksIntoSlotsBeforeItCloses,
    WriterIgnoresSlots,
    WriterSleepsWithoutFlagInSlot,
    ReaderThatLeavesWakesNobody,
    WriterThatLeavesWakesNobody,
    SleeperSetsFlagOnly,  // and sleeps on whatever the gate's word is by then
    WriterThatLeavesReadsLock,
    ReaderThatLeavesReadsLock,
};

/// The steps of `cvlsys::ReadWriteLock`, one for each access to a word. All readers share one slot,
/// the most crowded case. Each thread is a reader or a writer and locks some times. A sleep on a
/// word begins only if the word is what it should be, in one step, as the kernel does it.
struct LockModel {
    static constexpr std::size_t mostThreads = 3;

    enum class Place {
        Outside,
        ReaderLooks,
        ReaderStepsBack,
        LateCounts,
        LateLooks,
        LateSetsFlag,
        LateFallsAsleep,
        LateAsleep,
        LateEnters,
        LateUncounts,
        LateWakes,
        ReaderInside,
        ReaderWakes,
        ReaderReadsLock,
        WriterLooks,
        WriterCloses,
        WriterSetsGateFlag,
        WriterFallsAsleepAtGate,
        WriterAsleepAtGate,
        WriterLooksIntoSlot,
        WriterSetsSlotFlag,
        WriterFallsAsleepAtSlot,
        WriterAsleepAtSlot,
        WriterClearsSlotFlag,
        WriterInside,
        WriterWakes,
        WriterReadsLock,
        StepBackWakes,
        Done
    };

    struct Gate {
        bool isClosed = false;
        bool somebodySleeps = false;
        int late = 0;

        auto operator<=>(const Gate&) const = default;
    };

    struct Slot {
        bool writerSleeps = false;
        int readers = 0;

        auto operator<=>(const Slot&) const = default;
    };

    struct Thread {
        bool isWriter = false;
        int roundsLeft = 1;
        Place place = Place::Outside;
        Gate gate;  // as it has seen it
        Slot slot;
        bool waitsSinceWriter = false;  // it was waiting when a writer has left
        bool isLast = false;            // it ends the life of the lock when it gets in

        auto operator<=>(const Thread&) const = default;
    };

    Broken broken = Broken::Nothing;
    std::size_t count = 0;
    std::array<Thread, mostThreads> threads;
    Gate gate;
    Slot slot;
    bool isOvertaken = false;
    bool isDestroyed = false;
    bool isReadAfterEnd = false;

    auto operator<=>(const LockModel&) const = default;

    std::size_t ThreadCount() const { return count; }

    std::string NameOfNextStep(std::size_t thread) const {
        return "place " + std::to_string(static_cast<int>(threads.at(thread).place));
    }

    bool IsInside(const Thread& thread) const {
        return thread.place == (thread.isWriter ? Place::WriterInside : Place::ReaderInside);
    }

    std::string Error() const {
        const std::string error = ExclusionErrorOf(*this);
        if (error.empty() && isOvertaken) {
            return "a writer has overtaken a reader that waited when another one left";
        }
        return error.empty() && isReadAfterEnd ? afterEnd : error;
    }

    Step Take(std::size_t number) {
        Thread& thread = threads.at(number);
        return thread.isWriter ? TakeAsWriter(thread) : TakeAsReader(thread);
    }

    void Wake(bool atGate) {
        for (Thread& thread : threads) {
            if (atGate && thread.place == Place::LateAsleep) {
                thread.place = Place::LateLooks;
            } else if (atGate && thread.place == Place::WriterAsleepAtGate) {
                thread.place = Place::WriterLooks;
            } else if (!atGate && thread.place == Place::WriterAsleepAtSlot) {
                thread.place = Place::WriterLooksIntoSlot;
            }
        }
    }

    Step To(Thread& thread, Place place) {
        thread.place = place;
        if (thread.isLast && IsInside(thread)) {
            isDestroyed = true;
        }
        return Step::Taken;
    }

    Step End(Thread& thread) {
        --thread.roundsLeft;
        return To(thread, thread.roundsLeft == 0 ? Place::Done : Place::Outside);
    }

    Step LeaveSlot(Thread& thread, Place ifNobodySleeps, Place ifWriterSleeps) {
        const bool wakes = slot.readers == 1 && slot.writerSleeps;
        --slot.readers;
        return To(thread, wakes ? ifWriterSleeps : ifNobodySleeps);
    }

    Step TakeAsReader(Thread& thread) {
        switch (thread.place) {
            case Place::Outside:
                if (broken == Broken::ReaderLooksBeforeItEnters) {
                    if (gate.isClosed) {
                        return Step::Waits;
                    }
                    return To(thread, Place::LateEnters);
                }
                ++slot.readers;
                return To(thread,
                          broken == Broken::ReaderDoesNotLookAtGate ? Place::ReaderInside
                                                                    : Place::ReaderLooks);
            case Place::ReaderLooks:
                if (!gate.isClosed) {
                    return To(thread, Place::ReaderInside);
                }
                return To(thread,
                          broken == Broken::ReaderDoesNotStepBack ? Place::LateCounts
                                                                  : Place::ReaderStepsBack);
            case Place::ReaderStepsBack:
                return LeaveSlot(thread, Place::LateCounts, Place::StepBackWakes);
            case Place::StepBackWakes:
                Wake(false);
                return To(thread, Place::LateCounts);
            case Place::LateCounts:
                gate.late += broken == Broken::LateReaderIsNotCounted ? 0 : 1;
                return To(thread, Place::LateLooks);
            case Place::LateLooks:
                thread.gate = gate;
                if (!gate.isClosed) {
                    return To(thread,
                              broken == Broken::LateReaderLeavesCountFirst ? Place::LateUncounts
                                                                           : Place::LateEnters);
                }
                return To(thread,
                          gate.somebodySleeps ? Place::LateFallsAsleep : Place::LateSetsFlag);
            case Place::LateSetsFlag:
                if (gate != thread.gate) {
                    return To(thread, Place::LateLooks);
                }
                gate.somebodySleeps = true;
                thread.gate = gate;
                return To(thread, Place::LateFallsAsleep);
            case Place::LateFallsAsleep:
                return To(thread,
                          gate == thread.gate || broken == Broken::SleeperSetsFlagOnly
                              ? Place::LateAsleep
                              : Place::LateLooks);
            case Place::LateEnters:
                slot.readers += broken == Broken::LateReaderDoesNotEnter ? 0 : 1;
                return To(thread,
                          broken == Broken::LateReaderLeavesCountFirst ||
                                  broken == Broken::ReaderLooksBeforeItEnters
                              ? Place::ReaderInside
                              : Place::LateUncounts);
            case Place::LateUncounts: {
                const Gate before = gate;
                gate.late -= broken == Broken::LateReaderIsNotCounted ? 0 : 1;
                if (broken == Broken::LateReaderLeavesCountFirst) {
                    if (before.late == 1 && before.somebodySleeps) {
                        Wake(true);
                    }
                    return To(thread, Place::LateEnters);
                }
                thread.waitsSinceWriter = false;
                const bool wakes = before.late == 1 && before.somebodySleeps &&
                                   broken != Broken::LateReaderWakesNobody;
                return To(thread, wakes ? Place::LateWakes : Place::ReaderInside);
            }
            case Place::LateWakes:
                Wake(true);
                return To(thread, Place::ReaderInside);
            case Place::ReaderInside:
                thread.waitsSinceWriter = false;
                if (broken == Broken::LateReaderDoesNotEnter && slot.readers == 0) {
                    return End(thread);
                }
                if (broken == Broken::ReaderThatLeavesReadsLock) {
                    --slot.readers;
                    return To(thread, Place::ReaderReadsLock);
                }
                if (broken == Broken::ReaderThatLeavesWakesNobody) {
                    --slot.readers;
                    return End(thread);
                }
                if (slot.readers == 1 && slot.writerSleeps) {
                    --slot.readers;
                    return To(thread, Place::ReaderWakes);
                }
                --slot.readers;
                return End(thread);
            case Place::ReaderReadsLock:
                isReadAfterEnd = isReadAfterEnd || isDestroyed;
                Wake(false);
                return End(thread);
            case Place::ReaderWakes:
                Wake(false);
                return End(thread);
            case Place::LateAsleep:
                return Step::Waits;
            default:
                return Step::Idle;
        }
    }

    bool MayClose() const {
        return !gate.isClosed && (gate.late == 0 || broken == Broken::WriterIgnoresLateReaders);
    }

    Step TakeAsWriter(Thread& thread) {
        switch (thread.place) {
            case Place::Outside:
                return To(thread, Place::WriterLooks);
            case Place::WriterLooks:
                thread.gate = gate;
                if (broken == Broken::WriterLooksIntoSlotsBeforeItCloses && slot.readers != 0) {
                    return Step::Waits;
                }
                if (MayClose()) {
                    return To(thread, Place::WriterCloses);
                }
                return To(thread,
                          gate.somebodySleeps ? Place::WriterFallsAsleepAtGate
                                              : Place::WriterSetsGateFlag);
            case Place::WriterCloses:
                if (gate != thread.gate) {
                    return To(thread, Place::WriterLooks);
                }
                gate.isClosed = true;
                for (const Thread& other : threads) {
                    isOvertaken = isOvertaken || other.waitsSinceWriter;
                }
                return To(thread,
                          broken == Broken::WriterLooksIntoSlotsBeforeItCloses ||
                                  broken == Broken::WriterIgnoresSlots
                              ? Place::WriterInside
                              : Place::WriterLooksIntoSlot);
            case Place::WriterSetsGateFlag:
                if (gate != thread.gate) {
                    return To(thread, Place::WriterLooks);
                }
                gate.somebodySleeps = true;
                thread.gate = gate;
                return To(thread, Place::WriterFallsAsleepAtGate);
            case Place::WriterFallsAsleepAtGate:
                return To(thread,
                          gate == thread.gate || broken == Broken::SleeperSetsFlagOnly
                              ? Place::WriterAsleepAtGate
                              : Place::WriterLooks);
            case Place::WriterLooksIntoSlot:
                thread.slot = slot;
                if (slot.readers == 0) {
                    return To(thread, Place::WriterClearsSlotFlag);
                }
                return To(thread,
                          slot.writerSleeps || broken == Broken::WriterSleepsWithoutFlagInSlot
                              ? Place::WriterFallsAsleepAtSlot
                              : Place::WriterSetsSlotFlag);
            case Place::WriterSetsSlotFlag:
                if (slot != thread.slot) {
                    return To(thread, Place::WriterLooksIntoSlot);
                }
                slot.writerSleeps = true;
                thread.slot = slot;
                return To(thread, Place::WriterFallsAsleepAtSlot);
            case Place::WriterFallsAsleepAtSlot:
                return To(
                    thread,
                    slot == thread.slot ? Place::WriterAsleepAtSlot : Place::WriterLooksIntoSlot);
            case Place::WriterClearsSlotFlag:
                slot.writerSleeps = false;
                return To(thread, Place::WriterInside);
            case Place::WriterInside: {
                const bool wakes =
                    gate.somebodySleeps && broken != Broken::WriterThatLeavesWakesNobody;
                gate.isClosed = false;
                gate.somebodySleeps = false;
                for (Thread& other : threads) {
                    other.waitsSinceWriter = other.waitsSinceWriter || IsLate(other);
                }
                if (broken == Broken::WriterThatLeavesReadsLock) {
                    return To(thread, Place::WriterReadsLock);
                }
                return wakes ? To(thread, Place::WriterWakes) : End(thread);
            }
            case Place::WriterReadsLock:
                isReadAfterEnd = isReadAfterEnd || isDestroyed;
                Wake(true);
                return End(thread);
            case Place::WriterWakes:
                Wake(true);
                return End(thread);
            case Place::WriterAsleepAtGate:
            case Place::WriterAsleepAtSlot:
                return Step::Waits;
            default:
                return Step::Idle;
        }
    }

    /// Whether it has come too late and waits, whatever it does for that.
    static bool IsLate(const Thread& thread) {
        return !thread.isWriter &&
               (thread.place == Place::LateLooks || thread.place == Place::LateSetsFlag ||
                thread.place == Place::LateFallsAsleep || thread.place == Place::LateAsleep);
    }
};

using Breach = tarn::test::Breach<Broken>;

class ReadWriteLockModelTest : public testing::TestWithParam<const char*> {};

INSTANTIATE_TEST_SUITE_P(Threads,
                         ReadWriteLockModelTest,
                         testing::Values("rr", "rw", "ww", "rrr", "rrw", "rww", "www"));

TEST_P(ReadWriteLockModelTest, WritersAreAloneNobodySleepsForEverAndWaitingReadersGoFirst) {
    for (const int rounds : {1, 2}) {
        ExpectNoError<LockModel>(GetParam(), rounds);
    }
}

TEST(ReadWriteLockModelTest, WhoGetsInLastMayDestroyTheLockWhileOthersLeave) {
    for (const char* threads : {"rW", "wR", "wW"}) {
        ExpectNoError<LockModel>(threads, 1);
    }
}

constexpr const char* overtaken = "overtaken";

class ReadWriteLockBreachTest : public testing::TestWithParam<Breach> {};

INSTANTIATE_TEST_SUITE_P(
    Rules,
    ReadWriteLockBreachTest,
    testing::Values(Breach{Broken::ReaderDoesNotLookAtGate, "rw", notAlone},
                    Breach{Broken::ReaderLooksBeforeItEnters, "rw", notAlone},
                    Breach{Broken::ReaderDoesNotStepBack, "rw", forEver},
                    Breach{Broken::LateReaderDoesNotEnter, "rww", notAlone},
                    Breach{Broken::LateReaderIsNotCounted, "rww", overtaken},
                    Breach{Broken::LateReaderWakesNobody, "rww", forEver},
                    Breach{Broken::LateReaderLeavesCountFirst, "rww", overtaken},
                    Breach{Broken::WriterIgnoresLateReaders, "rww", overtaken},
                    Breach{Broken::WriterLooksIntoSlotsBeforeItCloses, "rw", notAlone},
                    Breach{Broken::WriterIgnoresSlots, "rw", notAlone},
                    Breach{Broken::WriterSleepsWithoutFlagInSlot, "rw", forEver},
                    Breach{Broken::ReaderThatLeavesWakesNobody, "rw", forEver},
                    Breach{Broken::WriterThatLeavesWakesNobody, "ww", forEver},
                    Breach{Broken::SleeperSetsFlagOnly, "ww", forEver},
                    Breach{Broken::WriterThatLeavesReadsLock, "wW", afterEnd},
                    Breach{Broken::ReaderThatLeavesReadsLock, "rW", afterEnd}));

TEST_P(ReadWriteLockBreachTest, IsNoticed) {
    ExpectNoticed<LockModel>(GetParam());
}

}  // namespace
