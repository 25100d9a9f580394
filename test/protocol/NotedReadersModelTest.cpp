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

/// A rule of readers that are noted which the model breaks, to show that it notices.
enum class Broken {
    Nothing,
    ReaderLooksBeforeItNotes,
    ReaderDoesNotStepBack,
    WriterPublishesNothingAfterItHasClosed,
    WriterLooksBeforeItPublishes,
    WriterIgnoresNotes,
    WriterPublishesNothingBeforeItSleeps,
    WriterDoesNotLookAgainBeforeItSleeps,
    WriterSleepsOnWhateverTheWordIs,
    ReaderThatLeavesDoesNotLookForWriters,
    ReaderThatLeavesLooksBeforeItForgets,
    ReaderThatStepsBackDoesNotLookForWriters,
    ReaderThatLeavesReadsLock,
};

/// The steps of `cvlsys::ReadWriteLock` where readers write notes with plain stores, which stay in
/// a buffer of the thread's until its processor, an operation that is atomic, or a writer's barrier
/// empties it. Each thread has a second part, its buffer, which can empty itself at any time. What
/// late readers and the gate's sleepers do beyond that is `ReadWriteLockModelTest`'s; here a late
/// reader just waits for the gate.
struct NotesModel {
    static constexpr std::size_t mostThreads = 3;

    enum class Place {
        Outside,
        ReaderLooks,
        ReaderStepsBack,
        ReaderStepsBackAndLooks,
        ReaderIsLate,
        ReaderInside,
        ReaderLooksForWriters,
        ReaderForgets,
        ReaderClearsAwaited,
        ReaderWakes,
        ReaderReadsLock,
        WriterPublishes,
        WriterLooksIntoNotes,
        WriterSetsAwaited,
        WriterPublishesAgain,
        WriterLooksAgain,
        WriterFallsAsleep,
        WriterAsleep,
        WriterInside,
        Done
    };

    /// The notes of one thread, for the one lock that there is.
    struct Notes {
        bool isNoted = false;
        bool isAwaited = false;

        auto operator<=>(const Notes&) const = default;
    };

    /// Plain stores to the note, the older first.
    struct Buffer {
        std::size_t length = 0;
        std::array<bool, 3> values{};

        auto operator<=>(const Buffer&) const = default;
    };

    struct Thread {
        bool isWriter = false;
        bool isLast = false;  // it ends the life of the lock when it gets in
        bool isLate = false;
        int roundsLeft = 1;
        Place place = Place::Outside;
        std::size_t visited = 0;  // whose notes a writer looks at
        Notes notes;
        Buffer buffer;

        auto operator<=>(const Thread&) const = default;
    };

    Broken broken = Broken::Nothing;
    std::size_t count = 0;
    std::array<Thread, mostThreads> threads;
    bool isClosed = false;
    bool isDestroyed = false;
    bool isReadAfterEnd = false;

    auto operator<=>(const NotesModel&) const = default;

    std::size_t ThreadCount() const { return 2 * count; }

    std::string NameOfNextStep(std::size_t thread) const {
        return thread >= count
                   ? "buffer of " + std::to_string(thread - count)
                   : "place " + std::to_string(static_cast<int>(threads.at(thread).place));
    }

    bool IsInside(const Thread& thread) const {
        return thread.place == Place::ReaderInside || thread.place == Place::WriterInside;
    }

    std::string Error() const {
        const std::string error = ExclusionErrorOf(*this);
        return error.empty() && isReadAfterEnd ? afterEnd : error;
    }

    Step Take(std::size_t number) {
        if (number >= count) {
            return TakeAsBuffer(threads.at(number - count));
        }
        Thread& thread = threads.at(number);
        return thread.isWriter ? TakeAsWriter(thread) : TakeAsReader(thread);
    }

    static Step TakeAsBuffer(Thread& thread) {
        Buffer& buffer = thread.buffer;
        if (buffer.length == 0) {
            return Step::Idle;
        }
        thread.notes.isNoted = buffer.values.front();
        buffer.values[0] = buffer.values[1];
        buffer.values[1] = buffer.values[2];
        buffer.values[2] = false;
        --buffer.length;
        return Step::Taken;
    }

    static void Empty(Thread& thread) {
        while (TakeAsBuffer(thread) == Step::Taken) {
        }
    }

    static void Store(Thread& thread, bool value) {
        // A processor's is longer, but has its end as well.
        if (thread.buffer.length == thread.buffer.values.size()) {
            TakeAsBuffer(thread);
        }
        thread.buffer.values.at(thread.buffer.length) = value;
        ++thread.buffer.length;
    }

    Step To(Thread& thread, Place place) {
        thread.place = place;
        isDestroyed = isDestroyed || (thread.isLast && IsInside(thread));
        return Step::Taken;
    }

    Step End(Thread& thread) {
        --thread.roundsLeft;
        thread.isLate = false;
        return To(thread, thread.roundsLeft == 0 ? Place::Done : Place::Outside);
    }

    void WakeWritersAt(std::size_t reader) {
        for (Thread& thread : threads) {
            if (thread.place == Place::WriterAsleep && thread.visited == reader) {
                thread.place = Place::WriterLooksIntoNotes;
            }
        }
    }

    std::size_t NumberOf(const Thread& thread) const {
        return static_cast<std::size_t>(&thread - threads.data());
    }

    Step TakeAsReader(Thread& thread) {
        switch (thread.place) {
            case Place::Outside:
                if (broken == Broken::ReaderLooksBeforeItNotes) {
                    if (isClosed) {
                        return Step::Waits;
                    }
                    return To(thread, Place::ReaderIsLate);
                }
                Store(thread, true);
                return To(thread, Place::ReaderLooks);
            case Place::ReaderLooks:
                return To(thread,
                          isClosed && broken != Broken::ReaderDoesNotStepBack
                              ? Place::ReaderStepsBack
                              : Place::ReaderInside);
            case Place::ReaderStepsBack:
                Store(thread, false);
                thread.isLate = true;
                return To(thread,
                          broken == Broken::ReaderThatStepsBackDoesNotLookForWriters
                              ? Place::ReaderIsLate
                              : Place::ReaderStepsBackAndLooks);
            case Place::ReaderStepsBackAndLooks:
                return To(
                    thread,
                    thread.notes.isAwaited ? Place::ReaderClearsAwaited : Place::ReaderIsLate);
            case Place::ReaderIsLate:
                // The operations on the gate's word are atomic.
                if (broken == Broken::ReaderLooksBeforeItNotes) {
                    Store(thread, true);
                    return To(thread, Place::ReaderInside);
                }
                if (thread.buffer.length != 0) {
                    Empty(thread);
                    return Step::Taken;
                }
                if (isClosed) {
                    return Step::Waits;
                }
                thread.notes.isNoted = true;
                thread.isLate = false;
                return To(thread, Place::ReaderInside);
            case Place::ReaderInside:
                if (broken == Broken::ReaderThatLeavesLooksBeforeItForgets) {
                    return To(
                        thread,
                        thread.notes.isAwaited ? Place::ReaderClearsAwaited : Place::ReaderForgets);
                }
                Store(thread, false);
                if (broken == Broken::ReaderThatLeavesReadsLock) {
                    return To(thread, Place::ReaderReadsLock);
                }
                return broken == Broken::ReaderThatLeavesDoesNotLookForWriters
                           ? End(thread)
                           : To(thread, Place::ReaderLooksForWriters);
            case Place::ReaderReadsLock:
                isReadAfterEnd = isReadAfterEnd || isDestroyed;
                return To(thread, Place::ReaderLooksForWriters);
            case Place::ReaderForgets:
                Store(thread, false);
                return End(thread);
            case Place::ReaderLooksForWriters:
                return thread.notes.isAwaited ? To(thread, Place::ReaderClearsAwaited)
                                              : End(thread);
            case Place::ReaderClearsAwaited:
                Empty(thread);
                thread.notes.isAwaited = false;
                return To(thread, Place::ReaderWakes);
            case Place::ReaderWakes:
                WakeWritersAt(NumberOf(thread));
                if (broken == Broken::ReaderThatLeavesLooksBeforeItForgets && !thread.isLate) {
                    return To(thread, Place::ReaderForgets);
                }
                return thread.isLate ? To(thread, Place::ReaderIsLate) : End(thread);
            default:
                return Step::Idle;
        }
    }

    /// The kernel's barrier on all processors.
    void Publish() {
        for (Thread& thread : threads) {
            Empty(thread);
        }
    }

    Step NextNotes(Thread& thread) {
        ++thread.visited;
        return To(thread,
                  thread.visited == count ? Place::WriterInside : Place::WriterLooksIntoNotes);
    }

    Step TakeAsWriter(Thread& thread) {
        switch (thread.place) {
            case Place::Outside:
                if (isClosed) {
                    return Step::Waits;
                }
                isClosed = true;
                thread.visited = 0;
                return To(thread,
                          broken == Broken::WriterIgnoresNotes ? Place::WriterInside
                          : broken == Broken::WriterPublishesNothingAfterItHasClosed ||
                                  broken == Broken::WriterLooksBeforeItPublishes
                              ? Place::WriterLooksIntoNotes
                              : Place::WriterPublishes);
            case Place::WriterPublishes:
                Publish();
                return To(thread,
                          broken == Broken::WriterLooksBeforeItPublishes
                              ? Place::WriterInside
                              : Place::WriterLooksIntoNotes);
            case Place::WriterLooksIntoNotes:
                if (threads.at(thread.visited).notes.isNoted) {
                    return To(thread, Place::WriterSetsAwaited);
                }
                if (broken == Broken::WriterLooksBeforeItPublishes && thread.visited + 1 == count) {
                    return To(thread, Place::WriterPublishes);
                }
                return NextNotes(thread);
            case Place::WriterSetsAwaited:
                threads.at(thread.visited).notes.isAwaited = true;
                return To(thread,
                          broken == Broken::WriterPublishesNothingBeforeItSleeps
                              ? Place::WriterLooksAgain
                          : broken == Broken::WriterDoesNotLookAgainBeforeItSleeps
                              ? Place::WriterFallsAsleep
                              : Place::WriterPublishesAgain);
            case Place::WriterPublishesAgain:
                Publish();
                return To(thread, Place::WriterLooksAgain);
            case Place::WriterLooksAgain:
                return threads.at(thread.visited).notes.isNoted
                           ? To(thread, Place::WriterFallsAsleep)
                           : NextNotes(thread);
            case Place::WriterFallsAsleep:
                return To(thread,
                          threads.at(thread.visited).notes.isAwaited ||
                                  broken == Broken::WriterSleepsOnWhateverTheWordIs
                              ? Place::WriterAsleep
                              : Place::WriterLooksIntoNotes);
            case Place::WriterAsleep:
                return Step::Waits;
            case Place::WriterInside:
                isClosed = false;
                return End(thread);
            default:
                return Step::Idle;
        }
    }
};

using Breach = tarn::test::Breach<Broken>;

class NotedReadersModelTest : public testing::TestWithParam<const char*> {};

INSTANTIATE_TEST_SUITE_P(Threads,
                         NotedReadersModelTest,
                         testing::Values("rr", "rw", "ww", "rrw", "rww"));

TEST_P(NotedReadersModelTest, WritersAreAloneAndNobodySleepsForEver) {
    for (const int rounds : {1, 2}) {
        ExpectNoError<NotesModel>(GetParam(), rounds);
    }
}

TEST(NotedReadersModelTest, AWriterThatGetsInLastMayDestroyTheLockWhileReadersLeave) {
    for (const char* threads : {"rW", "rrW"}) {
        ExpectNoError<NotesModel>(threads, 1);
    }
}

class NotedReadersBreachTest : public testing::TestWithParam<Breach> {};

INSTANTIATE_TEST_SUITE_P(
    Rules,
    NotedReadersBreachTest,
    testing::Values(Breach{Broken::ReaderLooksBeforeItNotes, "rw", notAlone},
                    Breach{Broken::ReaderDoesNotStepBack, "rw", notAlone},
                    Breach{Broken::WriterPublishesNothingAfterItHasClosed, "rw", notAlone},
                    Breach{Broken::WriterLooksBeforeItPublishes, "rw", notAlone},
                    Breach{Broken::WriterIgnoresNotes, "rw", notAlone},
                    Breach{Broken::WriterPublishesNothingBeforeItSleeps, "rw", forEver},
                    Breach{Broken::WriterDoesNotLookAgainBeforeItSleeps, "rw", forEver},
                    Breach{Broken::WriterSleepsOnWhateverTheWordIs, "rw", forEver},
                    Breach{Broken::ReaderThatLeavesDoesNotLookForWriters, "rw", forEver},
                    Breach{Broken::ReaderThatLeavesLooksBeforeItForgets, "rw", forEver},
                    Breach{Broken::ReaderThatStepsBackDoesNotLookForWriters, "rw", forEver},
                    Breach{Broken::ReaderThatLeavesReadsLock, "rW", afterEnd}));

TEST_P(NotedReadersBreachTest, IsNoticed) {
    ExpectNoticed<NotesModel>(GetParam());
}

}  // namespace
