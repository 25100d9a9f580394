#pragma once

#include "Interleavings.h"

#include <algorithm>
#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <string>

/// How the thread that delivers, those that emit and those that flush wait for each other: what
/// DeliveringThread.cpp, Bus.cpp and Dispatcher.cpp do with the tickets, the state of the thread
/// and the words to sleep on, step by step. Each rule is broken once, and the model has to notice.
namespace DeliveringThreadProtocol {

using tarn::test::Step;

/// The rule that is broken.
enum class Broken : std::uint8_t {
    None,
    ThreadSleepsWithoutLookingForEvents,
    ThreadSleepsWithoutLookingForFlushes,
    ThreadSaysThatItSleepsAfterItHasLooked,
    ThreadReadsTheAlarmAfterItHasLooked,
    EmitterLooksAtTheThreadBeforeItHasItsTicket,
    EmitterWakesWithoutAlarm,
    EmitterTakesAThreadThatIsOverForOneThatRuns,
    EmitterStartsAThreadThatIsNotWantedAnyMore,
    FlushDoesNotWaitForOtherDeliveries,
    ShutdownDoesNotWaitForOtherDeliveries,
    FlushIsAskedOfAThreadWithoutItsMutex,
    FlushRaisesNoAlarm,
    FlushReadsTheProgressAfterItHasLooked,
    ThreadTellsNoProgress,
    ThreadEndsWithoutLookingForEvents,
    ThreadEndsWithoutLookingForFlushes,
    StopIsNotSaidToTheThread,
};

struct Cast {
    std::uint8_t emitters = 0;  ///< two at the most
    std::uint8_t eventsOfEach = 1;
    bool hasDeliverer = false;  ///< one that takes what is queued, as who forks does
    bool hasFlusher = false;
    bool flusherShutsDown = false;
    bool threadRuns = false;  ///< the delivering thread, from the beginning
    bool hasFlushed = false;  ///< who shuts down; emitters have not seen it
    bool hasStopper = false;  ///< another one that shuts down; not beside a second emitter

    auto operator<=>(const Cast&) const = default;
};

struct Model {
    enum class State : std::uint8_t { NotRunning, Awake, Asleep };

    enum class At : std::uint8_t {
        // The delivering thread.
        Top,
        ReadQueued,
        Deliver,
        InConsumer,
        Decide,
        AwaitOthers,
        FinishFlush,
        TellProgress,
        LockEnd,
        SayEnd,
        LookForEventsAtEnd,
        LookForFlushesAtEnd,
        GoOnAfterEnd,
        End,
        TellEnd,
        ReadAlarm,
        SaySleep,
        LookForEvents,
        LookForOrders,
        FallAsleep,
        Sleep,
        SayAwake,
        // The emitter.
        Begin,
        DrawTicket,
        LookAtThread,
        SayThreadAwake,
        RaiseAlarm,
        WakeThread,
        LockStart,
        Start,
        LockBus,
        TakeOne,
        OwnConsumer,
        // Who flushes.
        BecomeSynchronous,
        LockAsk,
        LookWhetherItRuns,
        Ask,
        FlushAlarm,
        FlushWake,
        ReadProgress,
        LookForFlush,
        AwaitProgress,
        SleepForProgress,
        FlushIsDone,
        LockStop,
        LookAtStop,
        StopAlarm,
        StopWake,
        ReadEndProgress,
        LookForEnd,
        AwaitEndProgress,
        SleepForEnd,
        AwaitOthersAtStop,
        Done
    };

    static constexpr std::uint8_t nobody = 9;
    static constexpr std::size_t deliveringThread = 0;
    static constexpr std::size_t deliverer = 3;
    static constexpr std::size_t stopper = 2;
    static constexpr std::size_t flusher = 4;

    Broken broken = Broken::None;
    Cast cast;

    std::uint8_t tickets = 0;
    std::uint8_t taken = 0;
    std::uint8_t consumed = 0;
    std::uint8_t promised = 0;  ///< of those, whose emitting calls have returned
    State state = State::NotRunning;
    std::uint8_t alarm = 0;
    std::uint8_t progress = 0;
    std::uint8_t flushesWanted = 0;
    std::uint8_t flushesDone = 0;
    std::uint8_t ended = 0;
    bool stops = false;
    bool isAsynchronous = true;
    std::uint8_t busOwner = nobody;
    std::uint8_t startOwner = nobody;

    // What each thread remembers.
    std::array<At, 5> at{At::Done, At::Done, At::Done, At::Done, At::Done};
    std::uint8_t flush = 0;
    std::uint8_t queued = 0;
    std::uint8_t alarmSeen = 0;
    std::uint8_t myFlush = 0;
    std::uint8_t emittedBeforeFlush = 0;
    std::array<std::uint8_t, 5> left{};
    std::array<std::uint8_t, 5> ticket{};
    std::array<std::uint8_t, 5> upTo{};
    std::array<std::uint8_t, 5> progressSeen{};
    std::array<std::uint8_t, 5> endedBefore{};
    std::array<State, 5> seen{};

    auto operator<=>(const Model&) const = default;

    Model(Broken rule, const Cast& who) : broken(rule), cast(who) {
        for (std::size_t i = 1; i <= cast.emitters; ++i) {
            at.at(i) = At::Begin;
            left.at(i) = cast.eventsOfEach;
        }
        if (cast.threadRuns) {
            StartThread();
        }
        if (cast.hasDeliverer) {
            at[deliverer] = At::LockBus;
        }
        if (cast.hasStopper) {
            at[stopper] = At::LockStop;
        }
        if (cast.hasFlusher) {
            at[flusher] = cast.hasFlushed         ? At::LockStop
                          : cast.flusherShutsDown ? At::BecomeSynchronous
                                                  : At::LockAsk;
        }
        if (cast.hasFlushed) {
            isAsynchronous = false;
            std::replace(at.begin(), at.end(), At::Begin, At::DrawTicket);
        }
    }

    std::size_t ThreadCount() const { return at.size(); }

    std::string NameOfNextStep(std::size_t thread) const {
        return "step " + std::to_string(static_cast<int>(at.at(thread)));
    }

    std::string Error() const {
        if (at[flusher] == At::FlushIsDone && consumed < emittedBeforeFlush) {
            return "a flush is done before the events are";
        }
        if (cast.flusherShutsDown && at[flusher] == At::Done && consumed < promised) {
            return "a shutdown is done before the events are";
        }
        bool isOver = at[0] == At::Sleep || at[0] == At::Done;
        for (std::size_t i = 1; i < at.size(); ++i) {
            isOver = isOver && at.at(i) == At::Done;
        }
        if (isOver && taken != tickets) {
            return "an event is left lying";
        }
        return "";
    }

    Step Take(std::size_t thread) {
        return thread == deliveringThread ? TakeOfDeliveringThread() : TakeOfOthers(thread);
    }

private:
    Step GoTo(std::size_t thread, At next) {
        at.at(thread) = next;
        return Step::Taken;
    }

    Step Go(At next) { return GoTo(deliveringThread, next); }

    void Wake(At sleeping, At next) {
        for (At& place : at) {
            place = place == sleeping ? next : place;
        }
    }

    Step TakeOfDeliveringThread() {
        switch (at[deliveringThread]) {
            case At::Top:
                flush = flushesWanted;
                return Go(At::ReadQueued);
            case At::ReadQueued:
                queued = tickets;
                return Go(At::Deliver);
            case At::Deliver:
                if (taken >= queued) {
                    return Go(At::Decide);
                }
                if (busOwner != nobody) {
                    return Step::Waits;
                }
                busOwner = deliveringThread;
                ++taken;
                return Go(At::InConsumer);
            case At::InConsumer:
                ++consumed;
                busOwner = nobody;
                return Go(At::Deliver);
            case At::Decide:
                return Go(flush != flushesDone ? At::AwaitOthers
                          : stops              ? At::LockEnd
                                               : FirstStepToSleep());
            case At::AwaitOthers:
                if (busOwner != nobody && broken != Broken::FlushDoesNotWaitForOtherDeliveries) {
                    return Step::Waits;
                }
                return Go(At::FinishFlush);
            case At::FinishFlush:
                flushesDone = flush;
                return Go(At::TellProgress);
            case At::TellProgress:
                Tell();
                return Go(At::Top);
            case At::LockEnd:
                if (startOwner != nobody) {
                    return Step::Waits;
                }
                startOwner = deliveringThread;
                return Go(At::SayEnd);
            case At::SayEnd:
                state = State::NotRunning;
                return Go(At::LookForEventsAtEnd);
            case At::LookForEventsAtEnd:
                return Go(tickets != taken && broken != Broken::ThreadEndsWithoutLookingForEvents
                              ? At::GoOnAfterEnd
                              : At::LookForFlushesAtEnd);
            case At::LookForFlushesAtEnd:
                return Go(flushesWanted != flushesDone &&
                                  broken != Broken::ThreadEndsWithoutLookingForFlushes
                              ? At::GoOnAfterEnd
                              : At::End);
            case At::GoOnAfterEnd:
                state = State::Awake;
                startOwner = nobody;
                return Go(At::Top);
            case At::End:
                ++ended;
                startOwner = nobody;
                return Go(At::TellEnd);
            case At::TellEnd:
                Tell();
                return Go(At::Done);
            default:
                return TakeToSleep();
        }
    }

    At FirstStepToSleep() const {
        return broken == Broken::ThreadSaysThatItSleepsAfterItHasLooked ||
                       broken == Broken::ThreadReadsTheAlarmAfterItHasLooked
                   ? At::LookForEvents
                   : At::ReadAlarm;
    }

    Step TakeToSleep() {
        const bool isInDisorder = FirstStepToSleep() == At::LookForEvents;
        switch (at[deliveringThread]) {
            case At::ReadAlarm:
                alarmSeen = alarm;
                return Go(broken == Broken::ThreadReadsTheAlarmAfterItHasLooked ? At::FallAsleep
                                                                                : At::SaySleep);
            case At::SaySleep:
                state = State::Asleep;
                return Go(broken == Broken::ThreadReadsTheAlarmAfterItHasLooked ? At::ReadAlarm
                          : isInDisorder                                        ? At::FallAsleep
                                         : At::LookForEvents);
            case At::LookForEvents:
                return Go(tickets != taken && broken != Broken::ThreadSleepsWithoutLookingForEvents
                              ? At::SayAwake
                              : At::LookForOrders);
            case At::LookForOrders:
                if ((flushesWanted != flushesDone || stops) &&
                    broken != Broken::ThreadSleepsWithoutLookingForFlushes) {
                    return Go(At::SayAwake);
                }
                if (broken == Broken::ThreadSaysThatItSleepsAfterItHasLooked) {
                    alarmSeen = alarm;
                }
                return Go(isInDisorder ? At::SaySleep : At::FallAsleep);
            case At::FallAsleep:
                return Go(alarm != alarmSeen ? At::SayAwake : At::Sleep);
            case At::SayAwake:
                state = State::Awake;
                return Go(At::Top);
            default:
                return Step::Idle;  // asleep, or not there
        }
    }

    void Tell() {
        if (broken != Broken::ThreadTellsNoProgress) {
            ++progress;
            Wake(At::SleepForProgress, At::ReadProgress);
            Wake(At::SleepForEnd, At::ReadEndProgress);
        }
    }

    void StartThread() {
        stops = false;
        state = State::Awake;
        at[deliveringThread] = At::Top;
    }

    Step TakeOfOthers(std::size_t thread) {
        const auto self = static_cast<std::uint8_t>(thread);
        switch (at.at(thread)) {
            case At::Begin:
                if (!isAsynchronous) {
                    ticket.at(thread) = 0;  // it is delivered without one, behind what is queued
                    return GoTo(thread, At::LockBus);
                }
                seen.at(thread) = state;  // too early; counts only where the rule is broken
                return GoTo(thread, At::DrawTicket);
            case At::DrawTicket:
                ticket.at(thread) = ++tickets;
                return GoTo(thread, At::LookAtThread);
            case At::LookAtThread:
                if (broken != Broken::EmitterLooksAtTheThreadBeforeItHasItsTicket) {
                    seen.at(thread) = state;
                }
                switch (seen.at(thread)) {
                    case State::Awake:
                        return EndEmission(thread);
                    case State::Asleep:
                        return GoTo(thread, At::SayThreadAwake);
                    case State::NotRunning:
                        break;
                }
                if (broken == Broken::EmitterTakesAThreadThatIsOverForOneThatRuns && ended != 0) {
                    return EndEmission(thread);
                }
                return GoTo(thread, isAsynchronous ? At::LockStart : At::LockBus);
            case At::SayThreadAwake:
                if (state != State::Asleep) {
                    return EndEmission(thread);
                }
                state = State::Awake;
                return GoTo(thread, At::RaiseAlarm);
            case At::RaiseAlarm:
                alarm += broken == Broken::EmitterWakesWithoutAlarm ? 0 : 1;
                return GoTo(thread, At::WakeThread);
            case At::WakeThread:
                Wake(At::Sleep, At::SayAwake);
                return EndEmission(thread);
            case At::LockStart:
                if (startOwner != nobody) {
                    return Step::Waits;
                }
                startOwner = self;
                return GoTo(thread, At::Start);
            case At::Start:
                // The one before has left its role; what it still says of its end says nothing
                // else.
                if (state == State::NotRunning && !isAsynchronous &&
                    broken != Broken::EmitterStartsAThreadThatIsNotWantedAnyMore) {
                    startOwner = nobody;
                    return GoTo(thread, At::LockBus);
                }
                if (state == State::NotRunning && at[deliveringThread] == At::TellEnd) {
                    return Step::Waits;
                }
                if (state == State::NotRunning) {
                    StartThread();
                }
                startOwner = nobody;
                return EndEmission(thread);
            case At::LockBus:
                if (busOwner != nobody) {
                    return Step::Waits;
                }
                busOwner = self;
                upTo.at(thread) = tickets;
                return GoTo(thread, At::TakeOne);
            case At::TakeOne:
                if (taken >= upTo.at(thread)) {
                    busOwner = nobody;
                    return thread == flusher ? GoTo(thread, At::FlushIsDone) : EndEmission(thread);
                }
                ++taken;
                return GoTo(thread, At::OwnConsumer);
            case At::OwnConsumer:
                ++consumed;
                return GoTo(thread, At::TakeOne);
            case At::Done:
                return Step::Idle;
            default:
                return thread == flusher ? TakeOfFlusher() : TakeOfStop(thread);
        }
    }

    Step EndEmission(std::size_t thread) {
        promised = std::max(promised, ticket.at(thread));
        if (left.at(thread) > 1) {
            --left.at(thread);
            return GoTo(thread, At::Begin);
        }
        return GoTo(thread, At::Done);
    }

    Step FlusherGoes(At next) { return GoTo(flusher, next); }

    Step TakeOfFlusher() {
        switch (at[flusher]) {
            case At::BecomeSynchronous:
                isAsynchronous = false;
                return FlusherGoes(At::LockAsk);
            case At::LockAsk:
                if (broken == Broken::FlushIsAskedOfAThreadWithoutItsMutex) {
                    emittedBeforeFlush = tickets;
                    return FlusherGoes(At::LookWhetherItRuns);
                }
                if (startOwner != nobody) {
                    return Step::Waits;
                }
                emittedBeforeFlush = tickets;
                startOwner = flusher;
                return FlusherGoes(At::LookWhetherItRuns);
            case At::LookWhetherItRuns:
                if (state == State::NotRunning && isAsynchronous) {
                    if (at[deliveringThread] == At::TellEnd) {
                        return Step::Waits;
                    }
                    StartThread();
                }
                if (state != State::NotRunning) {
                    return FlusherGoes(At::Ask);
                }
                if (startOwner == flusher) {
                    startOwner = nobody;
                }
                return FlusherGoes(At::LockBus);
            case At::Ask:
                myFlush = ++flushesWanted;
                if (startOwner == flusher) {
                    startOwner = nobody;
                }
                return FlusherGoes(At::FlushAlarm);
            case At::FlushAlarm:
                alarm += broken == Broken::FlushRaisesNoAlarm ? 0 : 1;
                return FlusherGoes(At::FlushWake);
            case At::FlushWake:
                Wake(At::Sleep, At::SayAwake);
                return FlusherGoes(broken == Broken::FlushReadsTheProgressAfterItHasLooked
                                       ? At::LookForFlush
                                       : At::ReadProgress);
            case At::ReadProgress:
                progressSeen[flusher] = progress;
                return FlusherGoes(broken == Broken::FlushReadsTheProgressAfterItHasLooked
                                       ? At::AwaitProgress
                                       : At::LookForFlush);
            case At::LookForFlush:
                return FlusherGoes(flushesDone >= myFlush ? At::FlushIsDone
                                   : broken == Broken::FlushReadsTheProgressAfterItHasLooked
                                       ? At::ReadProgress
                                       : At::AwaitProgress);
            case At::AwaitProgress:
                if (progress != progressSeen[flusher]) {
                    return FlusherGoes(broken == Broken::FlushReadsTheProgressAfterItHasLooked
                                           ? At::LookForFlush
                                           : At::ReadProgress);
                }
                return FlusherGoes(At::SleepForProgress);
            case At::FlushIsDone:
                return FlusherGoes(cast.flusherShutsDown ? At::LockStop : At::Done);
            default:
                return TakeOfStop(flusher);
        }
    }

    Step TakeOfStop(std::size_t thread) {
        switch (at.at(thread)) {
            case At::LockStop:
                if (startOwner != nobody) {
                    return Step::Waits;
                }
                startOwner = static_cast<std::uint8_t>(thread);
                return GoTo(thread, At::LookAtStop);
            case At::LookAtStop:
                startOwner = nobody;
                if (state == State::NotRunning) {
                    return GoTo(thread, At::AwaitOthersAtStop);
                }
                endedBefore.at(thread) = ended;
                stops = broken != Broken::StopIsNotSaidToTheThread;
                return GoTo(thread, At::StopAlarm);
            case At::StopAlarm:
                ++alarm;
                return GoTo(thread, At::StopWake);
            case At::StopWake:
                Wake(At::Sleep, At::SayAwake);
                return GoTo(thread, At::ReadEndProgress);
            case At::ReadEndProgress:
                progressSeen.at(thread) = progress;
                return GoTo(thread, At::LookForEnd);
            case At::LookForEnd:
                return GoTo(
                    thread,
                    ended != endedBefore.at(thread) ? At::AwaitOthersAtStop : At::AwaitEndProgress);
            case At::AwaitEndProgress:
                return GoTo(
                    thread,
                    progress != progressSeen.at(thread) ? At::ReadEndProgress : At::SleepForEnd);
            case At::AwaitOthersAtStop:
                if (busOwner != nobody && broken != Broken::ShutdownDoesNotWaitForOtherDeliveries) {
                    return Step::Waits;
                }
                return GoTo(thread, At::Done);
            default:
                return Step::Waits;  // asleep until there is progress
        }
    }
};

}  // namespace DeliveringThreadProtocol
