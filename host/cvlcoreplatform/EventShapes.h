#pragma once

#include "EventFields.h"

#include "cvlcoreplatform/TString.h"
#include "cvlsys/IntegerTypes.h"

#include <array>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace cvlcoreplatform {

/// The objects, names and constants of an event, as one event after another has them: in which
/// order its other values are written, and all that stands between them. Behind all texts, there
/// are `LineText::Cursor::slack` bytes more.
class EventShape {
public:
    /// A value, and what stands in front of it.
    struct Step {
        std::size_t begin;
        std::size_t end;
        std::size_t field;  ///< its place in the event
    };

    explicit EventShape(const TLog::GatheredFields& event);

    bool Fits(const TLog::GatheredFields& event) const noexcept;

    const std::vector<Step>& GetSteps() const noexcept { return m_steps; }

    std::string_view Before(const Step& step) const noexcept {
        return std::string_view(m_text).substr(step.begin, step.end - step.begin);
    }

    /// What stands behind the last value.
    std::string_view AfterAll() const noexcept {
        return std::string_view(m_text).substr(m_last, m_end - m_last);
    }

private:
    struct Field {
        TString name;
        TLog::EventBuilder::ObjectId object;
        TLog::GatheredField::Kind kind;
        const void* constant;
    };

    void WriteHead(const TLog::GatheredFields& event, const TString& name);
    void WriteField(const TLog::GatheredFields& event, std::size_t index);
    void WriteObject(const TLog::GatheredFields& event, TLog::EventBuilder::ObjectId object);

    std::vector<Field> m_fields;
    std::vector<Step> m_steps;
    std::string m_text;
    std::size_t m_last = 0;
    std::size_t m_end = 0;
};

/// The shapes that came lately. One thread at a time.
class EventShapes {
public:
    /// Valid until the next call. Throws `std::bad_alloc`.
    const EventShape& Get(const TLog::GatheredFields& event);

private:
    static constexpr int slotBits = 6;
    static constexpr std::size_t ways = 2;
    // Larger ones are not kept, so that all together take no more than some hundred KiB.
    static constexpr std::size_t mostFields = 64;

    static std::size_t SlotOf(uint64 key) noexcept;

    using Slot = std::array<std::unique_ptr<const EventShape>, ways>;

    std::array<Slot, std::size_t{1} << slotBits> m_slots;
    std::unique_ptr<const EventShape> m_large;
};

}  // namespace cvlcoreplatform
