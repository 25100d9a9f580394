#pragma once

#include "ConfigWatch.h"
#include "KeepSink.h"
#include "SessionSettings.h"

#include "tarn/Session.h"
#include "tarn/TracingSession.h"

#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tarn {

/// The options of a process that a session changes, put back at its end.
class ProcessOptions {
public:
    ProcessOptions();
    ~ProcessOptions();
    ProcessOptions(const ProcessOptions&) = delete;
    ProcessOptions& operator=(const ProcessOptions&) = delete;

private:
    struct Saved;

    std::unique_ptr<const Saved> m_saved;
};

/// The session that counts.
// The class that it belongs to is exported with all its members.
class __attribute__((visibility("hidden"))) Session::State {
public:
    explicit State(SessionOptions options);
    ~State();
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    void SetSink(std::shared_ptr<IMetricsMonitorSink> sink);

private:
    /// What is chosen, the configuration file and the environment together.
    SessionOptions Combine(const SessionSettings& file) const;

    /// Puts `next` into effect where it differs from what holds.
    void Change(const SessionOptions& next);
    void ChangeLog(const SessionOptions& next);
    void ChangeScopes(const SessionOptions& next);
    void ChangeCounting(const SessionOptions& next);
    void ChangeExtras(bool hasExtras);

    void BeginFigures();
    void BeginTracing();

    /// Trees are kept or left out from now on, by rules that may change with the file.
    void BeginKeeping();
    void EndKeeping() const noexcept;
    void OnConfigChange(const std::string& text);

    /// Says each sentence once.
    void Tell(const std::vector<std::string>& sentences);

    const SessionOptions m_chosen;
    const SessionSettings m_environment;
    const ProcessOptions m_processOptions;

    // Read and written while the session is made, then by the thread that watches the file.
    SessionOptions m_inEffect;
    std::set<std::string> m_told;

    // Null where there are no rules and none can come.
    std::shared_ptr<KeepSink> m_keep;
    std::optional<TracingSession> m_session;
    std::optional<ConfigWatch> m_watch;
};

}  // namespace tarn
