#pragma once

#include "cvlcoreplatform/TLogEvent.h"
#include "cvlcoreplatform/TLogger.h"
#include "cvlcoreplatform/TString.h"
#include "cvlsys/IntegerTypes.h"

#include <chrono>
#include <cstddef>
#include <memory>
#include <string_view>

namespace cvlcoreplatform {

/// Takes events and messages that were held back. Throws nothing; what cannot be written is
/// counted.
class HeldEventsTarget {
public:
    virtual void WriteHeld(TLog::Severity severity, const TLog::Event& event) noexcept = 0;
    virtual void WriteHeld(TLog::Severity severity, const TString& message) noexcept = 0;

protected:
    ~HeldEventsTarget() = default;
};

/// Takes complete lines as well.
class HeldLinesTarget : public HeldEventsTarget {
public:
    using HeldEventsTarget::WriteHeld;

    /// `lines` of them, with a line end between any two, and the time of the last one.
    virtual void WriteHeld(std::string_view text,
                           uint64 lines,
                           std::chrono::system_clock::time_point time) noexcept = 0;

protected:
    ~HeldLinesTarget() = default;
};

/// What the calling thread holds back at the moment. Lines are for one target; those for another
/// one are written first. Unless it says otherwise, a function is for back ends that the logger
/// calls.
namespace HeldLines {

/// Whether the calling thread is in a batch that holds lines, or one that holds events.
bool AreLinesHeld() noexcept;
bool AreEventsHeld() noexcept;

/// Holds a line, and at most `mostBytes` of lines together. Throws `std::bad_alloc`, and the line
/// is not held then.
void Hold(const std::shared_ptr<HeldLinesTarget>& target,
          std::string_view line,
          std::chrono::system_clock::time_point time,
          std::size_t mostBytes);

/// Holds an event or a message. False if there is no memory for that.
bool Hold(const std::shared_ptr<HeldLinesTarget>& target,
          TLog::Severity severity,
          const TLog::Event& event) noexcept;
bool Hold(const std::shared_ptr<HeldLinesTarget>& target,
          TLog::Severity severity,
          const TString& message) noexcept;

/// Writes the lines that are held, or all that is held.
void WriteLines() noexcept;
void Write() noexcept;

/// The same from outside of a back end.
void WriteFromOutside() noexcept;

/// What the calling thread holds back, for `WriteInterrupted`; null if it never has. For signal
/// handlers.
void* OfThisThread() noexcept;

/// Writes the lines that another thread holds back and will never write itself, and gives its
/// events to `events`.
void WriteInterrupted(void* held, HeldEventsTarget&& events) noexcept;

}  // namespace HeldLines

}  // namespace cvlcoreplatform
