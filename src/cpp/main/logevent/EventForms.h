#pragma once

#include "EventFacts.h"
#include "EventTable.h"

#include "cvlcoreplatform/TLogForm.h"
#include "cvlcoreplatform/TString.h"
#include "cvlsys/IntegerTypes.h"

#include <array>
#include <cstddef>
#include <memory>
#include <vector>

namespace tarn {

/// The fields of events that look alike, and where the values of their slots come from.
struct EventForm {
    struct Slot {
        FieldReader value;
        std::size_t index;
    };

    std::vector<uint64> key;
    std::shared_ptr<const TLog::Form> form;
    std::vector<Slot> slots;
};

/// The forms that were asked for lately: call sites are few, and each has the same attributes every
/// time. One thread at a time.
class EventForms {
public:
    /// Valid until the next call. Throws `std::bad_alloc`.
    const EventForm& Get(EventFacts facts, const FieldSources& sources);

private:
    static constexpr std::size_t ways = 4;
    static constexpr int setBits = 6;
    // Forms of more or longer names than this many words tell are made for one event.
    static constexpr std::size_t longestKey = 128;

    using Set = std::array<std::unique_ptr<const EventForm>, ways>;

    void MakeKey(EventFacts facts, const FieldSources& sources);
    void AddToKey(const TString& name, TLog::FieldKind kind);

    bool IsKeyTooLong() const noexcept { return m_key.size() > longestKey; }

    std::unique_ptr<const EventForm> Make(EventFacts facts, const FieldSources& sources) const;

    std::vector<uint64> m_key;  ///< of the last event; what is over of a long one is left out
    std::array<Set, std::size_t{1} << setBits> m_sets;
    std::unique_ptr<const EventForm> m_unkept;
};

}  // namespace tarn
