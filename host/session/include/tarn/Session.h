#pragma once

// What a program's main function makes so that scopes are logged. Its only global names are `tarn`
// and the class of a sink, which it only declares. With TARN_DISABLE defined a session does
// nothing.

#include "tarn/Export.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class IMetricsMonitorSink;

namespace tarn {

/// How events get from the threads that trace to the log.
enum class Delivery {
    Synchronous,   ///< on the thread that traces: what has ended is in the log
    Asynchronous,  ///< on a thread of its own; a thread whose queue is full waits
    Refusing,      ///< likewise; what finds no room is left out and counted; nobody waits
};

/// Which memory is counted. To count `new` and `delete`, link the program with `tarn::counted_new`.
enum class MemoryFigures {
    Off,
    Allocations,
    All,  ///< allocations, releases and the peak
};

/// Which trees of activities are written. Without a condition all are; with some, a tree is written
/// as a whole if one of them holds for its root, and is otherwise counted and left out. Of a tree
/// that has its root in another process, the first activity of this process counts as the root.
///
/// The lines of a tree wait in memory until that is known: for `names`, `fraction` and `sampled`
/// when the root begins, for the others when it ends. What waits longer than the limits allow is
/// written, the oldest tree first. What is left out is counted by name; the log says so once a
/// minute and at the end, in an event "tarn-left-out". Messages do not wait.
struct KeepRules {
    std::chrono::microseconds slow{0};  ///< the root took as long, or longer; 0: no condition
    bool failed = false;                ///< the root failed; an early termination is no failure
    std::vector<std::string> names;     ///< the root's name is one of these

    /// This share of all trees, chosen by the root's id, so that all processes that take part in a
    /// tree choose alike: above 0, up to 1. 0: no condition.
    double fraction = 0;

    /// The caller has asked for it, by the sampled flag of a W3C `traceparent` (`tarn::Extract`).
    bool sampled = false;

    // What may wait.
    std::size_t waitingBytes = std::size_t{64} << 20;  ///< of memory, about
    std::size_t waitingTrees = 10'000;
    std::chrono::microseconds waitingTime{60'000'000};  ///< by the times of the log's lines
};

/// What a session does. Every option has a default. Those in the first table of docs/front-door.md
/// can be changed without recompiling: environment variables override the configuration file, which
/// overrides what is set here.
struct SessionOptions {
    /// Where the log goes: the path of a file, "stderr", "stdout", or "off", which traces nothing:
    /// each scope then costs as much as one whose name is off. Empty: the logger stays as it is, by
    /// default standard error.
    std::string log;

    /// A file that would grow beyond this is renamed, "a.log" to "a.1.log" and so on; 0: never.
    std::uint64_t fileBytes = std::uint64_t{64} << 20;
    std::size_t keptFiles = 8;  ///< full files beside the current one

    /// Whether lines go into a journal first, a file beside the log that is mapped into the
    /// process: a line costs no system call, survives the process all the same, and is in the log
    /// some milliseconds later. See `TLog::LogFileLimits`.
    bool journal = false;

    /// Receives the events instead of the log, on the threads that deliver.
    std::shared_ptr<IMetricsMonitorSink> sink;

    Delivery delivery = Delivery::Synchronous;
    std::size_t queueBytes = std::size_t{256} << 10;  ///< of each thread that traces
    std::chrono::milliseconds exitDeadline{5000};  ///< how long the process's end waits for the log

    /// Whom the work is for, in each line of all threads, unless a request says otherwise.
    std::string user;
    std::string site;
    std::string sessionId;
    std::string environment;

    /// Whether each tree of activities gets a request id, which all of its lines carry.
    bool requestIds = true;

    bool cpu = false;  ///< whether processor time is measured
    MemoryFigures memory = MemoryFigures::Off;

    std::vector<std::string> off;  ///< names of scopes that are not traced
    std::int32_t rank = 0;         ///< scopes of a higher rank are not traced

    /// Each line also says who started the activity (`caller`) and has a number (`seq`); messages
    /// of the program name the activity that they were logged in.
    bool extras = false;

    /// Which trees are written; all, unless there is a condition.
    KeepRules keep;

    /// Whether what ends is counted by its name, for `PrometheusText` (tarn/Prometheus.h), and how
    /// many names have counts of their own: further ones are counted together.
    bool counters = false;
    std::size_t countedNames = 200;

    /// Limits on what is kept; what exceeds them is left out and counted.
    std::uint64_t attributesPerScope = 1'000'000;
    std::uint64_t nestedScopes = 1'000'000;

    /// Whether a crash delivers what is queued and names the open scopes before the process ends.
    bool saveOnCrash = false;

    /// The path of a configuration file, which is read again when it changes. Empty: none.
    std::string config;

    /// Whether the variables TARN_... are read. Programs with more rights than their user read
    /// none.
    bool readEnvironment = true;
};

#if defined(TARN_DISABLE)

inline namespace disabled {

class Session {
public:
    explicit Session(const SessionOptions& /*options*/ = {}) noexcept {}

    bool IsFirst() const noexcept { return false; }

    void SetSink(const std::shared_ptr<IMetricsMonitorSink>& /*sink*/) noexcept {}
};

}  // namespace disabled

#else

inline namespace enabled {

/// Traces the program for as long as it lives. Make one at the beginning of main; the thread that
/// makes it ends it:
///
///     int main() {
///         const tarn::Session session;
///         ...
///     }
///
/// Scopes on all threads should have ended before. Its end restores which scopes are traced and
/// measured; the log and the delivery stay. A wrong variable or line of the configuration file is
/// ignored and reported in the log once; so is a log file that cannot be opened. Only the first of
/// several sessions has an effect; the others log that. A forked child continues the log; it does
/// not read the configuration file again.
class TARN_EXPORT Session {
public:
    /// Throws `std::bad_alloc`.
    explicit Session(SessionOptions options = {});
    ~Session();

    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// False if another session existed when this one was made.
    bool IsFirst() const noexcept { return m_state != nullptr; }

    /// Gives further events to `sink`, or to the log if it is null. Any thread may call it at any
    /// time, also while others trace; when it returns, the former sink is not called any more.
    /// Throws `std::bad_alloc`, and then changes nothing.
    void SetSink(std::shared_ptr<IMetricsMonitorSink> sink) const;

private:
    class State;

    std::unique_ptr<State> m_state;
};

}  // namespace enabled

#endif

}  // namespace tarn
