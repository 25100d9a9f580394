#pragma once

#include "tarn/IMetricsMonitorSink.h"

#include "cvlcoreplatform/TLogEvent.h"
#include "cvlsys/IntegerTypes.h"

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace stress {

/// Follows the lines of a `ScopeWorkload` while they come, and keeps only what is open: every scope
/// begins once, under the scope that encloses it, with the attributes that hold there, and ends
/// once, after all that it encloses. No lock: read it while nothing is delivered.
class LineChecker {
public:
    void Take(const TLog::Event& event);

    uint64 Begins() const { return m_begins; }

    uint64 Ends() const { return m_ends; }

    /// Scopes that began without a sponsor.
    uint64 Roots() const { return m_roots; }

    uint64 DeepestNesting() const { return m_deepest; }

    std::size_t OpenTrees() const { return m_trees.size(); }

    uint64 Errors() const { return m_errors; }

    /// The first few of them as sentences.
    const std::vector<std::string>& ErrorTexts() const { return m_errorTexts; }

private:
    struct OpenScope {
        int64 number;
        TString id;
    };

    struct Tree {
        std::vector<OpenScope> open;  ///< the innermost last
        int64 last = -1;
    };

    void TakeBegin(const TLog::Event& event, int64 number, Tree& tree);
    void TakeEnd(const TLog::Event& event, int64 number, Tree& tree);
    void CheckSponsor(const TLog::Event& event, int64 number, const Tree& tree);
    void CheckLayer(const TLog::Event& event, int64 number);
    void Complain(int64 number, std::string_view what);

    std::unordered_map<int64, Tree> m_trees;
    uint64 m_begins = 0;
    uint64 m_ends = 0;
    uint64 m_roots = 0;
    uint64 m_deepest = 0;
    uint64 m_errors = 0;
    std::vector<std::string> m_errorTexts;
};

/// Shows the lines to a checker, after something else was done with each.
class CheckingSink : public IMetricsMonitorSink {
public:
    explicit CheckingSink(std::shared_ptr<LineChecker> checker, std::function<void()> before = {});
    ~CheckingSink() override;

    void Log(const TLog::Event& event) override;

private:
    std::shared_ptr<LineChecker> m_checker;
    std::function<void()> m_before;
};

}  // namespace stress
