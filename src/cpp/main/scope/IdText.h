#pragma once

#include "tarn/ActivityContext.h"

#include "cvlcoreplatform/TString.h"
#include "cvlcoreplatform/TUUID.h"
#include "cvlmetrics/ValueView.h"

#include <array>
#include <cstddef>
#include <string_view>

namespace tarn {

/// The text of an id, on the stack: nothing is allocated for one that was made here. The id must
/// live as long.
class IdText {
public:
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): written by the next call
    explicit IdText(const TUUID& id) noexcept : m_given(nullptr) { Write(id); }

    // Only the text of an id that was made here is written.
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): see above
    explicit IdText(const ActivityContext::Id& id) noexcept
        : m_given(id.made.IsNil() ? &id.given : nullptr) {
        if (m_given == nullptr) {
            Write(id.made);
        }
    }

    IdText(const IdText&) = delete;
    IdText& operator=(const IdText&) = delete;
    ~IdText() = default;

    Metrics::ValueView View() const noexcept {
        return m_given != nullptr ? Metrics::ValueView(*m_given)
                                  : Metrics::ValueView::OfUtf16(Units());
    }

    TString ToString() const { return m_given != nullptr ? *m_given : TString(Units()); }

private:
    static constexpr std::size_t length = 36;

    std::u16string_view Units() const noexcept { return {m_units.data(), length}; }

    void Write(const TUUID& id) noexcept;

    const TString* const m_given;
    std::array<char16_t, length> m_units;
};

}  // namespace tarn
