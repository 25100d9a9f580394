#include "EventView.h"

#include "RewrittenValue.h"

#include "cvlcoreplatform/TString.h"

#include <string_view>

namespace Metrics {

namespace {

void SetShared(MetricsValue& to, const TString::Characters& text) {
    if (text == nullptr) {
        RewrittenValue::SetText(to, std::u16string_view());
    } else if (text.use_count() == 0) {
        RewrittenValue::SetImmortal(to, text.get());
    } else {
        to.utf16 = text;
        RewrittenValue::BecomeText<char16_t>(to);
    }
}

bool IsShared(const ValueView& view) noexcept {
    switch (view.GetKind()) {
        case ValueView::Kind::Shared:
            return view.GetShared().use_count() != 0;
        case ValueView::Kind::Value:
            return true;
        default:
            return false;
    }
}

/// Calls `copy` for each value of the view and the event's value that it goes to.
template <class Copy>
void ForEachValue(const EventView& view, MetricsEvent& event, const Copy& copy) {
    copy(event.name, view.name);
    copy(event.value, view.value);
    event.pairs.resize(view.pairs.Size());
    auto to = event.pairs.begin();
    for (const PairView& pair : view.pairs) {
        copy(to->first, pair.name);
        copy(to->second, pair.value);
        ++to;
    }
}

}  // namespace

void Assign(MetricsValue& to, const ValueView& view) {
    switch (view.GetKind()) {
        case ValueView::Kind::Int64:
            RewrittenValue::SetInteger(to, view.GetInteger());
            break;
        case ValueView::Kind::Shared:
            SetShared(to, view.GetShared());
            break;
        case ValueView::Kind::Utf8:
            RewrittenValue::SetText(to, view.GetUtf8());
            break;
        case ValueView::Kind::Utf16:
            RewrittenValue::SetText(to, view.GetUtf16());
            break;
        case ValueView::Kind::Wide:
            RewrittenValue::SetText(to, TString(view.GetWide()).View());
            break;
        case ValueView::Kind::Bool:
        case ValueView::Kind::Double:
        case ValueView::Kind::Value:
            to = view.ToValue();
            break;
    }
}

void EventView::CopyHeadTo(MetricsEvent& event) const noexcept {
    event.id = id;
    event.contextId = contextId;
    event.flags = flags;
    event.time = time;
    event.wallSeconds = wallSeconds;
    event.wallMicros = wallMicros;
    event.type = type;
}

void EventView::CopyTo(MetricsEvent& event) const {
    CopyHeadTo(event);
    ForEachValue(*this, event, Assign);
}

void EventView::CopyTo(MetricsEvent& event, std::vector<MetricsValue*>& shared) const {
    CopyHeadTo(event);
    ForEachValue(*this, event, [&shared](MetricsValue& to, const ValueView& view) {
        Assign(to, view);
        if (IsShared(view)) {
            shared.push_back(&to);
        }
    });
}

}  // namespace Metrics
