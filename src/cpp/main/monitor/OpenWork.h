#pragma once

#include "RecordTable.h"
#include "ScopeState.h"

#include "tarn/MetricsMonitor.h"

#include "cvlcoreplatform/TString.h"
#include "cvlmetrics/LastWords.h"
#include "cvlsys/IntegerTypes.h"

namespace tarn {

/// Names the open scopes of a monitor for the last message of a process that crashes: those of the
/// thread that crashed first, the latest first, each with its time so far. A host that has no last
/// words never asks.
class OpenWork final : public Metrics::ILastWords {
public:
    using Scopes = RecordTable<MetricsMonitor::ScopeState>;

    /// So many scopes are named at most, and so many characters of a name.
    static constexpr std::size_t mostScopes = 20;
    static constexpr std::size_t mostCharacters = 80;

    /// `scopes` outlives it.
    explicit OpenWork(const Scopes& scopes) noexcept : m_scopes(scopes) {}

    ~OpenWork() = default;
    OpenWork(const OpenWork&) = delete;
    OpenWork& operator=(const OpenWork&) = delete;

    /// Tells the host that it is to be asked, and that it is not any more.
    void Announce() const noexcept;
    void Withdraw() const noexcept;

    TString DescribeOpenWork(uint64 threadId, int64 time) const override;

private:
    const Scopes& m_scopes;
};

}  // namespace tarn
