#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace tarn::otlp {

/// A thread that calls a function at intervals, until the object ends. It blocks all signals.
class OpenReport {
public:
    /// What `report` throws is dropped. Throws `std::system_error` if there is no thread to be had.
    OpenReport(std::chrono::milliseconds interval, std::function<void()> report);

    /// Waits until the function, if it is being called, has returned.
    ~OpenReport();

    OpenReport(const OpenReport&) = delete;
    OpenReport& operator=(const OpenReport&) = delete;

private:
    struct State;

    std::unique_ptr<State> m_state;
};

}  // namespace tarn::otlp
