#include "Rescue.h"

#include "Bus.h"
#include "Dispatcher.h"
#include "LastWordsSlot.h"
#include "LossReport.h"
#include "RescueDelivery.h"

#include "cvlcoreplatform/TLogger.h"
#include "cvlcoreplatform/TString.h"
#include "cvlcoreplatform/host/InterruptedLogging.h"
#include "cvlcoreplatform/host/LoggerControl.h"
#include "cvlmetrics/host/Clock.h"
#include "cvlmetrics/host/Delivery.h"
#include "cvlsys/host/MemoryCharging.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <thread>

namespace Metrics::Rescue {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/// For a process that has none left. In pieces that the allocator gives to others when it gets them
/// back, and not to the kernel.
class Reserve {
public:
    void Fill() noexcept {
        for (auto& piece : m_pieces) {
            if (piece == nullptr) {
                piece.reset(new (std::nothrow) std::byte[pieceBytes]);
            }
        }
    }

    void Release() noexcept {
        for (auto& piece : m_pieces) {
            piece.reset();
        }
    }

private:
    static constexpr std::size_t pieceBytes = std::size_t{32} << 10;

    std::array<std::unique_ptr<std::byte[]>, 16> m_pieces;
};

Reserve& GetReserve() {
    static Reserve& reserve = *new Reserve;
    return reserve;
}

std::string NameOf(int signal) {
    if (signal == 0) {
        return "std::terminate";
    }
    const char* const name = sigabbrev_np(signal);
    return name == nullptr ? "signal " + std::to_string(signal) : std::string("SIG") + name;
}

TString Describe(const Crash& crash, const TString& openWork) {
    const std::string head =
        "Crashed by " + NameOf(crash.signal) + " on thread " + std::to_string(crash.threadId);
    return openWork.IsEmpty() ? TString(head + "; no scope is open")
                              : TString(head + "; open scopes: ") + openWork;
}

void Say(const TString& text) noexcept {
    TLog::Logger::Get().LogMessage(TLog::Fatal, text);
}

/// With the delivering role.
void SayLastWords(const Crash& crash) noexcept {
    try {
        Say(Describe(crash, LastWordsSlot::Describe(crash.threadId, ReadClock().time)));
    } catch (...) {
        Say(TString(u"Crashed; what is open cannot be told"));
    }
}

void SayOnlyThatItCrashed(const Crash& crash) noexcept {
    try {
        Say(TString("Crashed by " + NameOf(crash.signal) + " on thread " +
                    std::to_string(crash.threadId) + "; its log hangs"));
    } catch (...) {
        Say(TString(u"Crashed"));
    }
}

/// What crashed threads hold back, those that have crashed since included.
void TakeOverLogging(CrashedThreads& crashed) noexcept {
    crashed.ForEachNew([](const CrashedThread& thread) { TLog::TakeOverLogging(thread.logging); });
}

/// Threads that had just decided to queue an event may have done so since.
void AwaitLastQueued(Clock::time_point end) noexcept {
    constexpr milliseconds moment{3};
    if (Clock::now() + 2 * moment < end) {
        std::this_thread::sleep_for(moment);
    }
}

/// Whether the role was to be had.
bool DeliverAndSay(const Crash& crash, CrashedThreads& crashed) noexcept {
    // Some time is left to say at least that.
    const Clock::time_point endOfWait = crash.end - (crash.end - Clock::now()) / 4;
    Bus::RescueDelivery delivery(Bus::Dispatcher::Get(), crashed.HaveRole(), endOfWait);
    TakeOverLogging(crashed);
    if (!delivery.HasRole()) {
        return false;
    }
    delivery.DeliverQueued(crash.end);
    AwaitLastQueued(crash.end);
    TakeOverLogging(crashed);
    delivery.DeliverQueued(crash.end);
    LastWordsSlot::CallBefore();
    SayLastWords(crash);
    if (delivery.IsSuccessor()) {
        Bus::SetGivenUp(true);
    }
    return true;
}

}  // namespace

// The first use of things is no work for a crash either.
void Prepare() noexcept {
    Bus::Dispatcher::Get();
    GetReserve().Fill();
}

void Unprepare() noexcept {
    GetReserve().Release();
}

void Run(const Crash& crash, CrashedThreads& crashed) noexcept {
    const corvala::memory::UnchargedAllocations uncharged;
    GetReserve().Release();
    Bus::SetRefusing(false);
    Bus::SetAsynchronous(false);
    if (!DeliverAndSay(crash, crashed)) {
        SayOnlyThatItCrashed(crash);
    }
    LossReport::Write();
    TLog::FlushLog();
}

void GoOn() noexcept {
    TLog::EndTakingOverLogging();
    SetDelivery(GetDelivery());
}

}  // namespace Metrics::Rescue
