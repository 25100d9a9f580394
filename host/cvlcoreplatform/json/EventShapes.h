#pragma once

#include "EventFields.h"
#include "PaddedText.h"

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
/// order its other values are written, and all that stands between them.
class EventShape {
public:
    /// A value, and what stands in front of it.
    struct Step {
        host::PaddedText before;
        std::size_t field;  ///< its place in the event
        bool isText;
    };

    explicit EventShape(const TLog::GatheredFields& event);

    // Steps refer to the text.
    EventShape(const EventShape&) = delete;
    EventShape& operator=(const EventShape&) = delete;
    ~EventShape() = default;

    bool Fits(const TLog::GatheredFields& event) const noexcept;

    const std::vector<Step>& GetSteps() const noexcept { return m_steps; }

    /// What stands behind the last value.
    host::PaddedText AfterAll() const noexcept { return m_afterAll; }

private:
    void WriteHead(const TLog::GatheredFields& event, const TString& name);
    void WriteFurtherFields(const TLog::GatheredFields& event);
    void WriteField(const TLog::GatheredFields& event, std::size_t index);
    void WriteObject(const TLog::GatheredFields& event, TLog::EventBuilder::ObjectId object);

    std::vector<TLog::GatheredPlace> m_places;
    std::vector<TString> m_names;  ///< owns what the places refer to
    std::vector<Step> m_steps;
    std::string m_text;
    std::vector<std::size_t> m_ends;  ///< of what stands in front of each value, in the text
    host::PaddedText m_afterAll;
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
