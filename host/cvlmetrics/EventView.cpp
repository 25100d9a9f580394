#include "EventView.h"

#include "cvlcoreplatform/TString.h"
#include "cvlsys/host/RecycledTexts.h"

#include <string_view>

namespace Metrics {

namespace {

void SetScalar(MetricsValue& to, uint32 type, int64 integer) noexcept {
    to.type = type;
    to.integer = integer;
    to.utf8 = nullptr;
    to.utf16 = nullptr;
}

void SetText(MetricsValue& to, std::string_view text) {
    cvlsys::Rewrite<char>(to.utf8, text);
    to.type = MetricsValue::MV_Utf8String;
    to.integer = 0;
    to.utf16 = nullptr;
}

void SetText(MetricsValue& to, std::u16string_view text) {
    cvlsys::Rewrite<char16_t>(to.utf16, text);
    to.type = MetricsValue::MV_Utf16String;
    to.integer = 0;
    to.utf8 = nullptr;
}

}  // namespace

void Assign(MetricsValue& to, const ValueView& view) {
    switch (view.GetKind()) {
        case ValueView::Kind::Int64:
            SetScalar(to, MetricsValue::MV_Int64, view.GetInteger());
            break;
        case ValueView::Kind::Shared:
            if (view.GetShared() == nullptr) {
                SetText(to, std::u16string_view());
                break;
            }
            SetScalar(to, MetricsValue::MV_Utf16String, 0);
            to.utf16 = view.GetShared();
            break;
        case ValueView::Kind::Utf8:
            SetText(to, view.GetUtf8());
            break;
        case ValueView::Kind::Utf16:
            SetText(to, view.GetUtf16());
            break;
        case ValueView::Kind::Wide:
            SetText(to, TString(view.GetWide()).View());
            break;
        case ValueView::Kind::Bool:
        case ValueView::Kind::Double:
        case ValueView::Kind::Value:
            to = view.ToValue();
            break;
    }
}

void EventView::CopyTo(MetricsEvent& event) const {
    event.id = id;
    event.contextId = contextId;
    event.flags = flags;
    event.time = time;
    event.wallSeconds = wallSeconds;
    event.wallMicros = wallMicros;
    event.type = type;
    Assign(event.name, name);
    Assign(event.value, value);
    event.pairs.resize(pairs.Size());
    auto to = event.pairs.begin();
    for (const PairView& pair : pairs) {
        Assign(to->first, pair.name);
        Assign(to->second, pair.value);
        ++to;
    }
}

}  // namespace Metrics
