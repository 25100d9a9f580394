#pragma once

#include "cvlmetrics/Export.h"
#include "cvlmetrics/MetricsEvent.h"
#include "cvlmetrics/ValueView.h"
#include "cvlsys/IntegerTypes.h"

#include <cstddef>
#include <cstring>
#include <initializer_list>
#include <list>
#include <new>
#include <string>
#include <string_view>

namespace Metrics {

struct ClockReading;

/// The emitting handle of one scope. Its owner's thread uses it; it is neither copied nor moved.
/// What is emitted while it is not open goes nowhere.
class CVLMETRICS_API Scope {
public:
    // (The name is written before it is read: its length says how much there is of it.)
    explicit Scope(uint64 flags) noexcept : m_flags(flags) {}

    /// Closes the scope if it is open, then sends its post-close actions.
    ~Scope() {
        if (m_id != 0) {
            Close();
        }
        if (m_isNameValue) {
            m_name.~MetricsValue();
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

    // The same with values that are borrowed for the call: nothing is copied when nobody listens.
    // Optional for a host, as is `Finish`: the defaults use the operations above.

    void Open(const ValueView& name, PairSpan pairs);
    void Emit(MetricsEventType type, const ValueView& name, const ValueView& value) const;
    void MultiEmit(MetricsEventType type, const ValueView& name, PairSpan pairs) const;

    /// One value or one named list, for `Finish`.
    struct FinalEvent {
        MetricsEventType type;
        ValueView name;
        ValueView value;
        PairSpan pairs;

        FinalEvent(MetricsEventType typeOfEvent, ValueView nameOfValue, ValueView itsValue) noexcept
            : type(typeOfEvent),
              name(nameOfValue),
              value(itsValue) {}

        FinalEvent(MetricsEventType typeOfEvent, ValueView nameOfList, PairSpan list) noexcept
            : type(typeOfEvent),
              name(nameOfList),
              value(0),
              pairs(list) {}
    };

    /// Emits the events, each as `Emit` or `MultiEmit` would, and closes the scope as its
    /// destructor would. Does nothing unless the scope is open. An event for which there is no
    /// memory is lost. A host may deliver all of them as one batch with one time stamp: the thread
    /// does nothing else in between.
    void Finish(std::initializer_list<FinalEvent> events) noexcept;

    /// Replaces the actions to send after the close. Dropped when the scope is not open then.
    void SetPostScopeCloseEvents(std::list<MetricsCloseScopeActions>&& actions);

    bool IsOpen() const noexcept { return m_open; }

    uint64 GetFlags() const noexcept { return m_flags; }

    /// How many bytes of a name the scope itself stores.
    static constexpr std::size_t shortNameSize = sizeof(MetricsValue);

    /// Stores the first `shortNameSize` bytes of a name, for messages about a scope that may never
    /// be logged. Call it before the scope is opened.
    void StoreNamePrefix(const char* name) noexcept {
        m_shortNameLength = static_cast<unsigned char>(::strnlen(name, shortNameSize));
        std::memcpy(m_shortName, name, m_shortNameLength);
    }

    /// What was stored last: the whole name if it has fewer than `shortNameSize` bytes.
    std::string_view GetNamePrefix() const noexcept {
        if (!m_isNameValue) {
            return {m_shortName, m_shortNameLength};
        }
        return m_name.utf8 != nullptr ? std::string_view(*m_name.utf8).substr(0, shortNameSize)
                                      : std::string_view();
    }

private:
    // What a host supplies of the destructor. Called once, of a scope that was given an id.
    void Close() noexcept;
    void EmitClose(const ClockReading& now) noexcept;

    void StoreName(const ValueView& name);
    ValueView Name() const noexcept;

    /// What a host keeps of names that are not short, or of all.
    MetricsValue& NameValue() noexcept {
        if (!m_isNameValue) {
            new (&m_name) MetricsValue;
            m_isNameValue = true;
        }
        return m_name;
    }

    // First: the scope-live flag is the leading byte.
    bool m_open = false;
    // The name comes again with the end: characters, if it is a short one, or a value.
    bool m_isNameValue = false;
    unsigned char m_shortNameLength = 0;

    union {
        char m_shortName[shortNameSize];
        MetricsValue m_name;
    };

    uint64 m_flags;
    uint64 m_id = 0;
    uint64 m_contextId = 0;
    std::list<MetricsCloseScopeActions> m_postCloseActions;
};

}  // namespace Metrics
