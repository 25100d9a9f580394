#pragma once

#include "Form.h"
#include "PaddedText.h"

#include <cstddef>
#include <string>
#include <vector>

namespace cvlcoreplatform {

/// The line of all events of a form, from the session on: what never changes is ready, with gaps
/// for the values of the slots.
class LineTemplate final : public TLog::FormNotes {
public:
    /// A value, and the text before it.
    struct Gap {
        host::PaddedText before;
        std::size_t slot;
        TLog::FieldKind kind;
        bool isText;
    };

    explicit LineTemplate(const TLog::Form& form);

    const std::vector<Gap>& GetGaps() const noexcept { return m_gaps; }

    /// How much room the line takes with texts of `bytes` together, but for other values.
    std::size_t RoomFor(std::size_t bytes) const noexcept {
        constexpr std::size_t quotationMarks = 2;
        return m_text.size() + m_gaps.size() * quotationMarks + bytes;
    }

    /// The text after the last value.
    host::PaddedText AfterAll() const noexcept { return m_afterAll; }

private:
    std::string m_text;
    std::vector<Gap> m_gaps;
    host::PaddedText m_afterAll;
};

}  // namespace cvlcoreplatform
