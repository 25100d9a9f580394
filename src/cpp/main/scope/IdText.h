#pragma once

#include "cvlcoreplatform/TString.h"
#include "cvlcoreplatform/TUUID.h"
#include "cvlmetrics/ValueView.h"

#include <array>
#include <cstddef>
#include <string_view>
#include <variant>

namespace tarn {

/// The text of an id, on the stack: nothing is allocated for one that was made here. The id must
/// live as long.
class IdText {
public:
    // Only the text of an id that was made here is written.
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): see above
    explicit IdText(const std::variant<TUUID, TString>& id) noexcept
        : m_given(std::get_if<TString>(&id)) {
        if (const TUUID* const made = std::get_if<TUUID>(&id)) {
            Write(*made);
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
