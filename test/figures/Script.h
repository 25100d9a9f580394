#pragma once

#include "tarn/Traits.h"

#include "cvlmetrics/MetricsEvent.h"
#include "cvlsys/IntegerTypes.h"

#include <array>
#include <cstddef>
#include <string>
#include <vector>

/// Random programs of scopes on two threads, which are run with the library and worked out by hand.
namespace figures {

inline constexpr int threadCount = 2;

/// Everything that the log may show as a scope.
enum class ScopeForm {
    Activity,  ///< `tarn::ActivityScope`
    Visual,    ///< `tarn::ScopeWithVisualId`
    Request,   ///< a scope of the host itself, named "request"
};

struct ScopeKind {
    ScopeForm form = ScopeForm::Activity;
    tarn::TraceType type = tarn::TraceType::Normal;
    uint64 flags = 0;  ///< as the program gives them
    bool isOff = false;

    bool Measures() const noexcept {
        return form == ScopeForm::Activity && !isOff && type != tarn::TraceType::Untracked;
    }

    bool IsTransparent() const noexcept {
        return (form == ScopeForm::Activity && type == tarn::TraceType::Transparent) ||
               (flags & Metrics::flagTransparent) != 0;
    }

    bool IsMarkedUntracked() const noexcept {
        return form == ScopeForm::Request ||
               (form == ScopeForm::Activity && type == tarn::TraceType::Untracked) ||
               (flags & Metrics::flagUntracked) != 0;
    }

    /// Whether the kind says by itself what its flags say.
    bool IsPlain() const noexcept { return form == ScopeForm::Activity && flags == 0; }
};

enum class OpType {
    OpenScope,      ///< `index` the scope, `kind`; with `ticket` under the activity of a hand-over
    CloseTop,       ///< ends what was begun last on the thread, a scope or a context
    CloseSecond,    ///< ends the scope below the topmost, out of order
    DetachTop,      ///< takes the topmost scope off the thread, to end on the other one
    CloseDetached,  ///< attaches that scope here and ends it
    HandOver,       ///< `index` the hand-over: an activity and a metrics context to open elsewhere
    OpenContext,    ///< opens the metrics context of the hand-over `index`
    OpenRootContext,  ///< opens a metrics context that has no parent
    Allocate,         ///< `index` the block, `bytes`
    Release,          ///< `index` the block
    PassTime,         ///< `amount` nanoseconds
    UseProcessor,     ///< `amount` microseconds in the kernel, `second` in the program
    SetMemoryMode,    ///< `amount` the mode
    SetCpuTracking,   ///< `amount` 0 or 1
};

struct Op {
    OpType type = OpType::PassTime;
    int index = -1;
    int ticket = -1;
    bool adopts = false;  ///< takes over the ids of the handed-over activity
    bool isReal = false;  ///< of a block: allocated, and not only charged
    std::size_t bytes = 0;
    int64 amount = 0;
    int64 second = 0;
    ScopeKind kind = {};
};

/// What each thread does; both at once when both have something to do.
using Step = std::array<std::vector<Op>, threadCount>;

enum class Family { OneThread, TwoThreadsInTurns, TwoThreadsAtOnce };

struct Script {
    Family family = Family::OneThread;
    uint64 seed = 0;
    uint64 number = 0;

    bool isForeground = false;
    bool logsTransparent = false;
    bool isCpuTrackedAtStart = true;
    int memoryModeAtStart = 2;

    std::vector<Step> steps;
    int scopes = 0;
    int tickets = 0;
    int blocks = 0;

    /// Threads that work at once have clocks of their own, so that times are known beforehand.
    bool HasClockPerThread() const noexcept { return family == Family::TwoThreadsAtOnce; }
};

/// The same script for the same three arguments, on every machine.
Script MakeScript(Family family, uint64 seed, uint64 number);

/// Scripts in which all figures have to add up: scopes that measure, properly nested, with clean
/// hand-overs. The blocks are allocated for real.
Script MakeOrderlyScript(uint64 seed, uint64 number);

/// For failures.
std::string Text(const Script& script);

}  // namespace figures
