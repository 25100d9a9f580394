#include "EventView.h"

#include "cvlsys/host/RecycledBlocks.h"

#include <string>

namespace Metrics {

namespace {

void SetScalar(MetricsValue& to, uint32 type, int64 integer) noexcept {
    to.type = type;
    to.integer = integer;
    to.utf8 = nullptr;
    to.utf16 = nullptr;
}

}  // namespace

void Assign(MetricsValue& to, const ValueView& view) {
    switch (view.GetKind()) {
        case ValueView::Kind::Int64:
            SetScalar(to, MetricsValue::MV_Int64, view.GetInteger());
            break;
        case ValueView::Kind::Shared:
            if (view.GetShared() == nullptr) {
                to = view.ToValue();
                break;
            }
            SetScalar(to, MetricsValue::MV_Utf16String, 0);
            to.utf16 = view.GetShared();
            break;
        case ValueView::Kind::Utf8:
            SetScalar(to, MetricsValue::MV_Utf8String, 0);
            to.utf8 = cvlsys::MakeRecycled<const std::string>(view.GetUtf8());
            break;
        case ValueView::Kind::Value:
            to = view.GetValue();
            break;
        default:
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
