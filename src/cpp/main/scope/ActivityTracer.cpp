#include "tarn/ActivityTracer.h"

#include "RefusedHeaders.h"
#include "ThreadActivityRegistry.h"

#include "tarn/OptTarn.h"
#include "tarn/TarnMetricsUtils.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <limits>
#include <string>
#include <system_error>

namespace tarn {
namespace {

constinit std::atomic<uint64> s_refusedHeaders{0};

bool IsPartOfId(char character) noexcept {
    return character > ' ' && character < '\x7F' && character != ':';
}

/// The root, if the text is "ROOT:ROOT:0".
std::optional<std::string_view> ReadRoot(std::string_view text, const ExtractionLimits& limits) {
    if (text.size() > limits.headerBytes) {
        return std::nullopt;
    }
    const std::string_view root = text.substr(0, text.find(':'));
    if (root.empty() || root.size() > limits.idCharacters ||
        !std::ranges::all_of(root, IsPartOfId)) {
        return std::nullopt;
    }
    const std::string_view rest = text.substr(root.size());
    const bool isWhole = rest.size() == root.size() + 3 && rest.front() == ':' &&
                         rest.substr(1, root.size()) == root && rest.ends_with(":0");
    return isWhole ? std::optional(root) : std::nullopt;
}

std::optional<int> ReadDepth(std::string_view text, const ExtractionLimits& limits) {
    if (text.size() > limits.headerBytes || text.starts_with('-')) {
        return std::nullopt;
    }
    int depth = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, depth);
    // The activity that goes on is one deeper.
    const int deepest = std::min(limits.depth, std::numeric_limits<int>::max() - 1);
    if (error != std::errc() || stop != end || depth > deepest) {
        return std::nullopt;
    }
    return depth;
}

}  // namespace

void CountRefusedHeaders() noexcept {
    s_refusedHeaders.fetch_add(1, std::memory_order_relaxed);
}

ICarrier::~ICarrier() = default;

std::shared_ptr<ActivityContext> ActivityTracer::GetCurrentActivityContext() {
    return ThreadActivityRegistry::GetInstance().GetCurrentContext();
}

void ActivityTracer::injectContext(ICarrier& carrier) {
    if (!OptTarn::GetIsForegroundThreadContextEnabled()) {
        return;
    }
    const std::shared_ptr<ActivityContext> context = GetCurrentActivityContext();
    if (context == nullptr) {
        return;
    }
    // The root is sent twice, and the last field is always 0: receivers expect this form.
    const TString separator(u":");
    const TString rootId = context->GetRootId();
    carrier.Set(TString(traceIdHeader),
                rootId + separator + rootId + separator + TString::number(0, 10, 0, u' '));
    carrier.Set(TString(extraDepthHeader), TString::number(context->GetTraceDepth(), 10, 0, u' '));
}

std::optional<ActivityContextInitializer> ActivityTracer::ExtractContext(
    std::string_view traceId, std::string_view extraDepth, const ExtractionLimits& limits) {
    if (!OptTarn::GetIsForegroundThreadContextEnabled() ||
        (traceId.empty() && extraDepth.empty())) {
        return std::nullopt;
    }
    const std::optional<std::string_view> root = ReadRoot(traceId, limits);
    const std::optional<int> depth = ReadDepth(extraDepth, limits);
    if (!root || !depth) {
        CountRefusedHeaders();
        return std::nullopt;
    }
    // The sender's own id and its service depth do not travel; the root stands for the first.
    const TString rootId{std::string(*root)};
    return ActivityContextInitializer{
        std::make_shared<ActivityContext>(TarnMetricsUtils::DefaultStringAttributeValue(),
                                          rootId,
                                          ActivityContext::NewTarnId(),
                                          rootId,
                                          *depth + 1,
                                          1),
        true};
}

uint64 ActivityTracer::GetRefusedHeaders() noexcept {
    return s_refusedHeaders.load(std::memory_order_relaxed);
}

}  // namespace tarn
