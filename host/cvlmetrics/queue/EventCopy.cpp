#include "EventCopy.h"

#include "RewrittenValue.h"
#include "StaticCharacters.h"

#include "cvlcoreplatform/TString.h"

#include <string>
#include <string_view>

namespace Metrics {

namespace {

void SetShared(MetricsValue& to, const TString::Characters& text) {
    if (text == nullptr) {
        RewrittenValue::SetText(to, std::u16string_view());
    } else if (host::IsStatic(text)) {
        RewrittenValue::SetStatic(to, text.get());
    } else {
        to.utf16 = text;
        RewrittenValue::ResetToText<char16_t>(to);
    }
}

/// Whether a value that is assigned from the view shares something with it.
bool IsShared(const ValueView& view) noexcept {
    switch (view.GetKind()) {
        case ValueView::Kind::Shared:
            return !host::IsStaticOrNull(view.GetShared());
        case ValueView::Kind::Value:
            return true;
        default:
            return false;
    }
}

using SharedValues = std::vector<MetricsValue*>;

[[gnu::noinline]] void AssignOther(MetricsValue& to, const ValueView& view, SharedValues* shared) {
    Assign(to, view);
    if (shared != nullptr && IsShared(view)) {
        shared->push_back(&to);
    }
}

// What most values are is dealt with where it is asked for.
[[gnu::always_inline]] inline void Copy(MetricsValue& to,
                                        const ValueView& view,
                                        SharedValues* shared) {
    if (view.GetKind() == ValueView::Kind::Int64) {
        RewrittenValue::SetInteger(to, view.GetInteger());
    } else if (view.GetKind() == ValueView::Kind::Shared && host::IsStatic(view.GetShared())) {
        RewrittenValue::SetStatic(to, view.GetShared().get());
    } else if (view.GetKind() == ValueView::Kind::Static) {
        RewrittenValue::SetStatic(to, &view.GetStatic());
    } else {
        AssignOther(to, view, shared);
    }
}

void CopyAll(const EventView& view, MetricsEvent& event, SharedValues* shared) {
    event.id = view.id;
    event.contextId = view.contextId;
    event.flags = view.flags;
    event.time = view.time;
    event.wallSeconds = view.wallSeconds;
    event.wallMicros = view.wallMicros;
    event.type = view.type;
    Copy(event.name, view.name, shared);
    Copy(event.value, view.value, shared);
    if (event.pairs.size() != view.pairs.Size()) {
        event.pairs.resize(view.pairs.Size());
    }
    NameValuePair* to = event.pairs.data();
    for (const PairView& pair : view.pairs) {
        Copy(to->first, pair.name, shared);
        Copy(to->second, pair.value, shared);
        ++to;
    }
}

}  // namespace

void Assign(MetricsValue& to, const ValueView& view) {
    switch (view.GetKind()) {
        case ValueView::Kind::Int64:
            RewrittenValue::SetInteger(to, view.GetInteger());
            break;
        case ValueView::Kind::Static:
            RewrittenValue::SetStatic(to, &view.GetStatic());
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
        case ValueView::Kind::Digits:
            RewrittenValue::SetText(to, std::string_view(std::to_string(view.GetLargeInteger())));
            break;
        case ValueView::Kind::Bool:
        case ValueView::Kind::Double:
        case ValueView::Kind::Value:
            to = view.ToValue();
            break;
    }
}

void Copy(const EventView& view, MetricsEvent& event) {
    CopyAll(view, event, nullptr);
}

void Copy(const EventView& view, MetricsEvent& event, std::vector<MetricsValue*>& shared) {
    CopyAll(view, event, &shared);
}

}  // namespace Metrics
