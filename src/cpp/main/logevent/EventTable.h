#pragma once

#include "ActivityEventInput.h"
#include "EventFacts.h"
#include "FlatTable.h"

#include "cvlcoreplatform/TLogForm.h"
#include "cvlcoreplatform/TString.h"
#include "cvlmetrics/MetricsValue.h"

#include <cstddef>
#include <memory>
#include <span>

namespace tarn {

/// Where the values of an event's fields come from.
struct FieldSources {
    const ActivityEventInput& input;

    /// What the layers say together.
    FlatTable<const Metrics::MetricsValue*> layers;
    FlatTable<const TString*> results;
    std::shared_ptr<TLog::Value> supplements;
};

/// The value of a slot. `index` tells fields apart that have no row of their own.
using FieldReader = TLog::SlotValue (*)(const FieldSources& sources, std::size_t index);

/// What a field says.
struct FieldContent {
    TLog::FieldKind kind;
    FieldReader value = nullptr;  ///< of a slot
    const TString TokenStrings::*constant = nullptr;
    TLog::EventPart inner = TLog::EventPart::Inner;

    /// Where the request has none of these attributes, the field is "-".
    EventFacts attribute = 0;
};

/// A field that the library says of itself.
struct FieldRow {
    TLog::EventPart part;
    const TString TokenStrings::*name;  ///< null for a part that asks for none
    FieldContent content;
    EventFacts needs = 0;  ///< is there only with all of these
    EventFacts lacks = 0;  ///< and with none of those
};

/// All of them. An object comes before its fields, which are there only if it is.
std::span<const FieldRow> GetFieldRows();

/// The object of the scope's result pairs, in the events that have it.
inline constexpr TLog::EventPart resultPart = TLog::EventPart::Inner;

}  // namespace tarn
