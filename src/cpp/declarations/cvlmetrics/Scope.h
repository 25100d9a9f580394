#pragma once

#include "cvlmetrics/Export.h"
#include "cvlmetrics/MetricsEvent.h"
#include "cvlmetrics/ValueView.h"
#include "cvlsys/IntegerTypes.h"

#include <list>

namespace Metrics {

/// The emitting handle of one scope. Its owner's thread uses it; it is neither copied nor moved.
/// What is emitted while it is not open goes nowhere.
class CVLMETRICS_API Scope {
public:
    explicit Scope(uint64 flags) noexcept : m_flags(flags) {}

    /// Closes the scope if it is open, then sends its post-close actions.
    ~Scope() {
        if (m_id != 0) {
            Close();
        }
    }

    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

    /// Opens the scope in the calling thread's current context, with opening attributes or
    /// without. Without a current context the scope stays closed. Once only.
    void OpenImpl(MetricsValue&& name);
    void OpenImpl(MetricsValue&& name, NameValueList&& pairs);

    /// Emits one name and one value.
    void EmitImpl(MetricsEventType type, const MetricsValue& name, MetricsValue&& value) const;

    /// Emits a named list.
    void MultiEmitImpl(MetricsEventType type,
                       const MetricsValue& name,
                       NameValueList&& pairs) const;

    // The same with values that are lent for the call, which spares what nobody receives.

    void Open(const ValueView& name, PairSpan pairs);
    void Emit(MetricsEventType type, const ValueView& name, const ValueView& value) const;
    void MultiEmit(MetricsEventType type, const ValueView& name, PairSpan pairs) const;

    /// Replaces the actions to send after the close. Dropped when the scope is not open then.
    void SetPostScopeCloseEvents(std::list<MetricsCloseScopeActions>&& actions);

    bool IsOpen() const noexcept { return m_open; }

    uint64 GetFlags() const noexcept { return m_flags; }

private:
    // Called once, of a scope that was given an id.
    void Close() noexcept;

    // Stands first: the scope-live flag is the leading byte.
    bool m_open = false;
    uint64 m_flags;
    uint64 m_id = 0;
    uint64 m_contextId = 0;
    MetricsValue m_name;
    std::list<MetricsCloseScopeActions> m_postCloseActions;
};

}  // namespace Metrics
