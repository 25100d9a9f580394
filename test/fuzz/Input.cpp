#include "Input.h"

#include "tarn/ActivityTokenTable.h"

#include <iterator>
#include <memory>

namespace fuzz {
namespace {

#define TARN_FUZZ_TEXT(name, text) text,
constexpr const char* tokens[] = {TARN_ACTIVITY_TOKENS(TARN_FUZZ_TEXT)};
#undef TARN_FUZZ_TEXT

}  // namespace

std::string Input::Name() {
    const uint32 choice = Below(128);
    return choice < std::size(tokens) ? tokens[choice] : Bytes();
}

Metrics::MetricsValue Input::Value() {
    Metrics::MetricsValue value;
    switch (Below(9)) {
        case 0:
            return Number<int64>();
        case 1:
            return Flag();
        case 2:
            return Number<double>();
        case 3:
            return Bytes();
        case 4:
            return TString(Units());
        case 5:
            return Name();
        case 6:
            return static_cast<int64>(Below(8));
        case 7:
            // A text without characters, or a kind of the future.
            value.type = Below(8);
            return value;
        default:
            value.type = Number<uint32>();
            value.utf8 = std::make_shared<const std::string>(Bytes());
            value.utf16 = std::make_shared<const std::u16string>(Units());
            return value;
    }
}

Metrics::NameValueList Input::Pairs() {
    Metrics::NameValueList pairs;
    for (uint32 left = Below(6); left != 0; --left) {
        Metrics::MetricsValue name = Flag() ? Metrics::MetricsValue(TString(Name())) : Value();
        pairs.emplace_back(std::move(name), Value());
    }
    return pairs;
}

Metrics::MetricsEvent Input::Event() {
    Metrics::MetricsEvent event;
    event.type = static_cast<Metrics::MetricsEventType>(Below(14));
    // Few ids, so that the events of a stream meet.
    event.id = Below(8);
    event.contextId = Below(6);
    switch (Below(6)) {
        case 0:
            event.flags = Number<uint64>();
            break;
        case 1:
            break;
        case 2:
            event.flags = Metrics::flagTracing | Metrics::flagTransparent;
            break;
        case 3:
            event.flags = Metrics::flagTracing | Metrics::flagUntracked;
            break;
        default:
            event.flags = Metrics::flagTracing;
    }
    event.time = Flag() ? Number<int64>() : static_cast<int64>(Below(200)) * 1'000'000;
    event.wallSeconds = Flag() ? Number<uint64>() : 1'700'000'000;
    event.wallMicros = Below(200);
    event.name = Flag() ? Metrics::MetricsValue(TString(Name())) : Value();
    event.value = Value();
    event.pairs = Pairs();
    return event;
}

}  // namespace fuzz
