#pragma once

#include "MonitorNames.h"

#include "cvlmetrics/MetricsValue.h"
#include "cvlsys/IntegerTypes.h"

#include <array>
#include <cstddef>

namespace tarn {

/// The attributes of one request, shared by all contexts that serve it. Its beginning and its end
/// are counted.
class RequestContextAttributes {
public:
    /// Values by name. Nobody asks for others than these names, so others are not kept.
    class Table {
    public:
        /// The value of the name becomes `value`, whether there was one or not.
        void Set(ContextAttributeName name, const Metrics::MetricsValue& value) {
            if (name != ContextAttributeName::Unknown) {
                m_values[PlaceOf(name)] = value;
                m_present |= BitOf(name);
            }
        }

        /// Null for a name that has no value.
        const Metrics::MetricsValue* Find(ContextAttributeName name) const noexcept {
            return (m_present & BitOf(name)) != 0 ? &m_values[PlaceOf(name)] : nullptr;
        }

        /// A bit for each name that has a value.
        uint32 GetPresent() const noexcept { return m_present; }

        static constexpr uint32 BitOf(ContextAttributeName name) noexcept {
            return uint32{1} << PlaceOf(name);
        }

    private:
        static constexpr std::size_t PlaceOf(ContextAttributeName name) noexcept {
            return static_cast<std::size_t>(name);
        }

        std::array<Metrics::MetricsValue, static_cast<std::size_t>(ContextAttributeName::Unknown)>
            m_values;
        uint32 m_present = 0;
    };

    RequestContextAttributes();
    ~RequestContextAttributes();
    RequestContextAttributes(const RequestContextAttributes&) = delete;
    RequestContextAttributes& operator=(const RequestContextAttributes&) = delete;

    Table attributes;
};

}  // namespace tarn
