#pragma once

#include "cvlcoreplatform/TLogEvent.h"
#include "cvlcoreplatform/TLogValue.h"
#include "cvlcoreplatform/TString.h"

#include <atomic>
#include <memory>
#include <optional>
#include <utility>

namespace TLog {

/// What an event gives to those who ask for its values.
struct EventValues {
    std::shared_ptr<Object> body;
    std::optional<ActivityInfo> information;
};

/// What the copies of an event share. Immutable, except that the values of an event that was made
/// without them come into being when they are asked for; any number of threads may do that.
class EventFields {
public:
    EventFields(TString name, EventValues values)
        : m_name(std::move(name)),
          m_given(std::move(values)),
          m_values(&*m_given) {}

    EventFields(const EventFields&) = delete;
    EventFields& operator=(const EventFields&) = delete;
    ~EventFields();

    const TString& GetName() const noexcept { return m_name; }

    /// Throws `std::bad_alloc`.
    const EventValues& GetValues() const {
        const EventValues* const values = m_values.load(std::memory_order_acquire);
        return values != nullptr ? *values : MakeValues();
    }

    /// Whether it was made of values.
    bool HasGivenValues() const noexcept { return m_make == nullptr; }

protected:
    /// Makes the values of an object of the derived class. Throws `std::bad_alloc`.
    using Maker = EventValues (*)(const EventFields& fields);

    /// For a host that keeps an event in another way; `make` is called at most once for
    /// each thread that asks for the values.
    explicit EventFields(Maker make) noexcept : m_make(make) {}

    TString m_name;

private:
    const EventValues& MakeValues() const;

    const Maker m_make = nullptr;
    const std::optional<EventValues> m_given;
    // Owned unless they were given; null until they are needed.
    mutable std::atomic<const EventValues*> m_values{nullptr};
};

}  // namespace TLog
