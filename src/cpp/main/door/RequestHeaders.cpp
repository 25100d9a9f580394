// Requests to other processes and from them: the headers of this system, and those of the W3C.
#include "RequestHeaders.h"

#include "ActivityTokenText.h"
#include "AttributePairs.h"
#include "RefusedHeaders.h"
#include "ValueText.h"
#include "W3cHeaders.h"
#include "Work.h"

#include "tarn/ActivityContext.h"
#include "tarn/ActivityTracer.h"
#include "tarn/Headers.h"
#include "tarn/ICarrier.h"
#include "tarn/OptTarn.h"
#include "tarn/TarnMetricsUtils.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace tarn::abi {

/// Takes the values of headers of one name.
struct tarn_header_values {  // NOLINT(readability-identifier-naming): named in C
    std::vector<std::string> values;
    std::size_t bytes = 0;
    bool isTooMuch = false;
};

}  // namespace tarn::abi

namespace tarn {
namespace {

constinit std::atomic<bool> s_isSampledAttributeEnabled{false};

using abi::tarn_get_header;
using abi::tarn_handoff;
using abi::tarn_header_values;
using abi::tarn_set_header;

constexpr const char* callerIdHeader = "corvala-caller-id";
constexpr const char* traceParentHeader = "traceparent";
constexpr const char* traceStateHeader = "tracestate";

/// The member of a tracestate that is ours: "id:depth" of the activity that has sent the request.
constexpr std::string_view ownMember = "tarn";

/// All values of a header together; more is not looked at.
constexpr std::size_t mostBytes = 32 * 1024;

constexpr std::size_t longestId = ExtractionLimits().idCharacters;

bool IsId(std::string_view text) noexcept {
    const auto isPart = [](char character) {
        return character > ' ' && character < '\x7F' && character != ':';
    };
    return !text.empty() && text.size() <= longestId && std::ranges::all_of(text, isPart);
}

// ---- Out

class Target : public ICarrier {
public:
    Target(tarn_set_header set, void* target) : m_set(set), m_target(target) {}

    void Set(const TString& name, const TString& value) override {
        Set(name.ToUtf8().c_str(), value.ToUtf8());
    }

    void Set(const char* name, const std::string& value) {
        m_set(m_target, name, value.data(), value.size());
    }

private:
    const tarn_set_header m_set;
    void* const m_target;
};

/// What the request that the thread works for has brought; null if it has brought nothing.
const ForeignTrace* CurrentForeignTrace() noexcept {
    return FindForeignTrace(ThreadWork::OfThisThread()).get();
}

void InjectW3c(const ActivityContext& context, const std::string& id, Target& target) {
    const std::string trace = HexOfId(context.GetRootId().ToUtf8());
    const std::string parent = HexOfId(id);
    if (trace.empty() || parent.empty()) {
        return;
    }
    const ForeignTrace* const foreign = CurrentForeignTrace();
    // The second half of an id has 62 bits that are random.
    const TraceParent traceParent{
        trace, parent.substr(16), foreign == nullptr || foreign->isSampled};
    target.Set(traceParentHeader, traceParent.ToText());
    TraceState state = foreign != nullptr ? foreign->state : TraceState();
    state.Put(ownMember, id + ":" + std::to_string(context.GetTraceDepth()));
    target.Set(traceStateHeader, state.ToText());
}

void Inject(Target& target) {
    const std::shared_ptr<ActivityContext> context = ActivityTracer::GetCurrentActivityContext();
    if (context == nullptr || !OptTarn::GetIsForegroundThreadContextEnabled()) {
        return;
    }
    ActivityTracer::injectContext(target);
    const std::string id = context->GetActivityId().ToUtf8();
    if (IsId(id)) {
        target.Set(callerIdHeader, id);
        InjectW3c(*context, id, target);
    }
}

// ---- In

class Source {
public:
    Source(tarn_get_header get, const void* source) : m_get(get), m_source(source) {}

    std::vector<std::string> GetAll(const char* name) const {
        tarn_header_values values;
        m_get(m_source, name, &values);
        return values.isTooMuch ? std::vector<std::string>() : std::move(values.values);
    }

    /// Empty if there is none. Of several nobody knows which is meant.
    std::string GetOne(const char* name, bool& isRefused) const {
        std::vector<std::string> values = GetAll(name);
        isRefused = isRefused || values.size() > 1;
        return values.size() == 1 ? std::move(values.front()) : std::string();
    }

private:
    const tarn_get_header m_get;
    const void* const m_source;
};

/// The activity in another process that a request comes from.
struct Sender {
    std::string rootId;
    std::string id;
    int depth = 0;
};

/// By the headers of this system.
std::optional<Sender> ReadOwn(const Source& source) {
    bool isRefused = false;
    const std::string traceId = source.GetOne(ActivityTracer::traceIdHeader, isRefused);
    const std::string depth = source.GetOne(ActivityTracer::extraDepthHeader, isRefused);
    std::string caller = source.GetOne(callerIdHeader, isRefused);
    if (isRefused) {
        CountRefusedHeaders();
        return std::nullopt;
    }
    const std::optional<ActivityContextInitializer> received =
        ActivityTracer::ExtractContext(traceId, depth);
    if (!received) {
        return std::nullopt;
    }
    const ActivityContext& next = *received->parent;
    return Sender{next.GetRootId().ToUtf8(),
                  IsId(caller) ? std::move(caller) : std::string(),
                  next.GetTraceDepth() - 1};
}

/// "id:depth".
void ReadOwnMember(std::string_view text, Sender& sender) {
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos || !IsId(text.substr(0, colon))) {
        return;
    }
    const std::string_view number = text.substr(colon + 1);
    int depth = 0;
    const auto [stop, error] = std::from_chars(number.data(), number.data() + number.size(), depth);
    if (error == std::errc() && stop == number.data() + number.size() && depth >= 0 &&
        depth <= ExtractionLimits().depth) {
        sender.id = text.substr(0, colon);
        sender.depth = depth;
    }
}

/// By the headers of the W3C.
std::optional<Sender> ReadW3c(const Source& source, ForeignTrace& foreign) {
    bool isRefused = false;
    const std::string text = source.GetOne(traceParentHeader, isRefused);
    if (text.empty() && !isRefused) {
        return std::nullopt;
    }
    const std::optional<TraceParent> parent = TraceParent::Read(text);
    if (!parent) {
        CountRefusedHeaders();
        return std::nullopt;
    }
    foreign.isSampled = parent->isSampled;
    foreign.state = TraceState::Read(source.GetAll(traceStateHeader));
    Sender sender{IdOfHex(parent->traceId), parent->parentId, 0};
    // Who has sent it knows itself best, and systems between that log elsewhere are passed over.
    ReadOwnMember(foreign.state.Take(ownMember), sender);
    return sender;
}

struct Request {
    std::optional<Sender> sender;
    std::shared_ptr<const ForeignTrace> foreign;
};

Request Read(const Source& source) {
    if (!OptTarn::GetIsForegroundThreadContextEnabled()) {
        return {};
    }
    Request request;
    ForeignTrace foreign;
    request.sender = ReadOwn(source);
    std::optional<Sender> w3c = ReadW3c(source, foreign);
    if (!w3c) {
        return request;
    }
    if (!request.sender) {
        request.sender = std::move(w3c);
    } else if (HexOfId(request.sender->rootId) != HexOfId(w3c->rootId)) {
        // Of two trees ours counts.
        return request;
    } else if (request.sender->id.empty()) {
        request.sender->id = std::move(w3c->id);
    }
    request.foreign = std::make_shared<const ForeignTrace>(std::move(foreign));
    return request;
}

/// What the sender would be as a context of this process: work that it hands over is its child.
std::shared_ptr<ActivityContext> ContextOf(const Sender& sender) {
    const TString root(sender.rootId);
    return std::make_shared<ActivityContext>(TarnMetricsUtils::DefaultStringAttributeValue(),
                                             root,
                                             sender.id.empty() ? root : TString(sender.id),
                                             root,
                                             sender.depth,
                                             0);
}

/// Those that a request can have and that say something. The log takes them as texts only.
Metrics::NameValueList AttributesOfRequest(const abi::tarn_attribute* attributes,
                                           std::size_t count) {
    const TokenStrings& tokens = Tokens();
    const TString* const known[] = {&tokens.userAttr,
                                    &tokens.requestDescription,
                                    &tokens.ridAttr,
                                    &tokens.sidAttr,
                                    &tokens.siteAttr};
    Metrics::NameValueList list;
    for (const auto& [key, value] : AttributePairs(attributes, count).ToList()) {
        TString name = TarnMetricsUtils::ConvertMetricsValueToTString(key);
        TString text = IsText(value) ? TarnMetricsUtils::ConvertMetricsValueToTString(value)
                                     : TarnMetricsUtils::MetricsValueToString(value);
        if (!text.IsEmpty() && std::ranges::any_of(known, [&name](const TString* candidate) {
                return *candidate == name;
            })) {
            list.emplace_back(std::move(name), std::move(text));
        }
    }
    return list;
}

tarn_handoff* Extract(const Source& source,
                      const char* name,
                      std::size_t nameLength,
                      Metrics::NameValueList attributes) {
    Request request = Read(source);
    const bool isMarked = s_isSampledAttributeEnabled.load(std::memory_order_relaxed) &&
                          request.foreign != nullptr && request.foreign->isSampled;
    return new tarn_handoff{
        {1},
        ActivityHandOver::FromElsewhere(request.sender ? ContextOf(*request.sender) : nullptr,
                                        std::move(attributes)),
        NameText(name, nameLength).Get(),
        std::move(request.foreign),
        isMarked};
}

}  // namespace

void enabled::SetSampledAttributeEnabled(bool enabled) noexcept {
    s_isSampledAttributeEnabled.store(enabled, std::memory_order_relaxed);
}

Metrics::NameValueList WithMark(const tarn_handoff& from, Metrics::NameValueList&& attributes) {
    if (from.isMarked) {
        attributes.emplace_back("sampled", true);
    }
    return std::move(attributes);
}

}  // namespace tarn

namespace tarn::abi {

void tarn_inject(tarn_set_header set, void* target) noexcept {
    if (set == nullptr) {
        return;
    }
    try {
        Target carrier(set, target);
        Inject(carrier);
    } catch (...) {  // NOLINT(bugprone-empty-catch): without memory the request begins a tree
    }
}

void tarn_header_value(tarn_header_values* values, const char* value, std::size_t length) noexcept {
    if (values == nullptr || value == nullptr || values->isTooMuch) {
        return;
    }
    try {
        const std::string_view text =
            length == TARN_TO_NUL ? std::string_view(value) : std::string_view(value, length);
        values->bytes += text.size();
        values->isTooMuch = values->bytes > mostBytes || values->values.size() == 64;
        if (!values->isTooMuch) {
            values->values.emplace_back(text);
        }
    } catch (...) {
        values->isTooMuch = true;
    }
}

tarn_handoff* tarn_extract(tarn_get_header get,
                           const void* source,
                           const char* name,
                           std::size_t name_length) noexcept {
    return tarn_extract_request(get, source, name, name_length, nullptr, 0);
}

tarn_handoff* tarn_extract_request(tarn_get_header get,
                                   const void* source,
                                   const char* name,
                                   std::size_t name_length,
                                   const tarn_attribute* request,
                                   std::size_t count) noexcept {
    try {
        static constexpr auto nothing = [](const void*, const char*, tarn_header_values*) {};
        return Extract(Source(get != nullptr ? get : nothing, source),
                       name,
                       name_length,
                       AttributesOfRequest(request, count));
    } catch (...) {
        return nullptr;
    }
}

}  // namespace tarn::abi
