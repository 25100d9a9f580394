// Events as bytes in a queue: what is read is what was written, whatever an event holds.
#include "EventCopy.h"
#include "EventRecord.h"
#include "Input.h"

#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

namespace {

using Metrics::EventRecord;
using Metrics::MetricsEvent;
using Metrics::MetricsValue;

bool AreEqual(const MetricsValue& a, const MetricsValue& b) {
    const auto sameText = [](const auto& one, const auto& other) {
        return (one == nullptr) == (other == nullptr) && (one == nullptr || *one == *other);
    };
    return a.type == b.type && a.integer == b.integer && sameText(a.utf8, b.utf8) &&
           sameText(a.utf16, b.utf16);
}

bool AreEqual(const MetricsEvent& a, const MetricsEvent& b) {
    bool equal = a.type == b.type && a.id == b.id && a.contextId == b.contextId &&
                 a.flags == b.flags && a.time == b.time && a.wallSeconds == b.wallSeconds &&
                 a.wallMicros == b.wallMicros && AreEqual(a.name, b.name) &&
                 AreEqual(a.value, b.value) && a.pairs.size() == b.pairs.size();
    for (std::size_t i = 0; equal && i < a.pairs.size(); ++i) {
        equal = AreEqual(a.pairs[i].first, b.pairs[i].first) &&
                AreEqual(a.pairs[i].second, b.pairs[i].second);
    }
    return equal;
}

MetricsValue DeepCopy(MetricsValue value) {
    if (value.utf8 != nullptr) {
        value.utf8 = std::make_shared<const std::string>(*value.utf8);
    }
    if (value.utf16 != nullptr) {
        value.utf16 = std::make_shared<const std::u16string>(*value.utf16);
    }
    return value;
}

/// Shares no texts.
MetricsEvent DeepCopy(MetricsEvent event) {
    event.name = DeepCopy(event.name);
    event.value = DeepCopy(event.value);
    for (auto& [name, value] : event.pairs) {
        name = DeepCopy(name);
        value = DeepCopy(value);
    }
    return event;
}

/// Repeats what there is, to get beyond what a record holds.
void Lengthen(MetricsEvent& event, uint32 times) {
    const Metrics::NameValueList pairs = event.pairs;
    for (; times != 0; --times) {
        event.pairs.insert(event.pairs.end(), pairs.begin(), pairs.end());
    }
}

/// For storage of which nothing was ever ended.
struct Free {
    void operator()(Metrics::PairView* pairs) const noexcept { ::operator delete(pairs); }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    fuzz::Input input(data, size);
    MetricsEvent last;  // reading overwrites whatever there was
    const std::unique_ptr<Metrics::PairView, Free> room(static_cast<Metrics::PairView*>(
        ::operator new(EventRecord::mostPairs * sizeof(Metrics::PairView))));
    while (!input.IsAtEnd()) {
        MetricsEvent event = input.Event();
        Lengthen(event, input.Below(64) == 1 ? 40 : 0);
        const auto view = Metrics::EventView::Of(event);
        const std::size_t bytes = EventRecord::BytesFor(view);
        fuzz::Require(bytes <= EventRecord::largest, "a record is never larger than the largest");
        fuzz::Require(bytes % EventRecord::alignment == 0, "records follow one another");

        // Exactly as much as was asked for, so that a sanitizer sees the byte too many.
        const std::unique_ptr<std::byte[]> place(new std::byte[bytes]);
        EventRecord& record = EventRecord::Write(place.get(), bytes, view);
        record.SetTicket(42);
        fuzz::Require(record.GetBytes() == bytes && !record.IsGap() && record.GetTicket() == 42,
                      "a record knows its length and place");
        if (input.Below(16) == 1) {
            record.Discard();
            continue;
        }
        // What a consumer has kept, and how it was.
        const MetricsEvent kept = input.Below(2) == 1 ? last : MetricsEvent();
        const MetricsEvent before = DeepCopy(kept);
        MetricsEvent boxed;
        const bool isBoxed = record.IsBoxed();
        if (isBoxed) {
            boxed = record.TakeBoxed();
        } else {
            Metrics::Copy(record.View(room.get()), last);
        }
        const MetricsEvent& read = isBoxed ? boxed : last;
        fuzz::Require(AreEqual(read, event), "what is read is what was written");
        fuzz::Require(AreEqual(kept, before), "what somebody keeps stays as it was");
    }
    return 0;
}
