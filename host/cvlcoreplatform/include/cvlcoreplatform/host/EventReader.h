#pragma once

#include "cvlcoreplatform/Export.h"
#include "cvlcoreplatform/TLogEvent.h"
#include "cvlcoreplatform/TLogForm.h"
#include "cvlcoreplatform/TString.h"
#include "cvlsys/IntegerTypes.h"

#include <cstddef>
#include <memory>
#include <string_view>
#include <vector>

namespace TLog {

/// A field as an event holds it. The text is valid as long as some copy of the event.
struct ReadField {
    enum class Kind { None, Text, Integer, Real, Other };

    Kind kind = Kind::None;
    TextView text{std::u16string_view()};
    int64 integer = 0;  ///< of a boolean, too
    double real = 0;
};

/// What all events that have a form say without any field.
struct ReadHead {
    EventTimePoint time;
    std::size_t bytes = 0;  ///< of memory that the event takes, about
};

/// Reads a few fields of many events without making their values. Where the fields are is found
/// once for each form. Used by one thread at a time.
class CVLCOREPLATFORM_API EventReader {
public:
    struct Field {
        EventPart part;
        TString name;
    };

    explicit EventReader(std::vector<Field> fields);
    ~EventReader();
    EventReader(const EventReader&) = delete;
    EventReader& operator=(const EventReader&) = delete;

    /// Fills `values`, one for each field that was asked for, and `head`. False, with nothing
    /// filled, for an event that has no form. Throws `std::bad_alloc`.
    bool Read(const Event& event, ReadField* values, ReadHead& head);

private:
    struct Places;
    struct KnownForms;

    const Places& PlacesIn(const std::shared_ptr<const Form>& form);

    const std::vector<Field> m_fields;
    const std::unique_ptr<KnownForms> m_known;
};

}  // namespace TLog
