#include "TracingHeaders.h"

#include "tarn/ActivityContext.h"
#include "tarn/ActivityTokens.h"

#include <charconv>
#include <cstddef>
#include <optional>
#include <string_view>

namespace packagesearch {

namespace {

constexpr const char* traceHeader = "corvala-trace-id";
constexpr const char* depthHeader = "corvala-extra-depth";

// Deeper is no tree, but a loop of services that call each other.
constexpr int deepest = 1000;

bool IsId(std::string_view text) {
    constexpr std::string_view form = "XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX";
    if (text.size() != form.size()) {
        return false;
    }
    for (std::size_t index = 0; index < form.size(); ++index) {
        const bool isDigit =
            std::string_view("0123456789ABCDEF").find(text[index]) != std::string_view::npos;
        if (form[index] == 'X' ? !isDigit : text[index] != '-') {
            return false;
        }
    }
    return true;
}

// The root, if the text is "ROOT:ROOT:0".
std::optional<std::string> ReadRoot(const std::string& text) {
    const std::string root = text.substr(0, text.find(':'));
    if (!IsId(root) || text != root + ":" + root + ":0") {
        return std::nullopt;
    }
    return root;
}

std::optional<int> ReadDepth(std::string_view text) {
    int depth = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, depth);
    if (error != std::errc() || stop != end || depth < 0 || depth >= deepest) {
        return std::nullopt;
    }
    return depth;
}

}  // namespace

ReceivedContext ReadTracingHeaders(const httplib::Headers& headers) {
    const std::size_t traces = headers.count(traceHeader);
    const std::size_t depths = headers.count(depthHeader);
    if (traces == 0 && depths == 0) {
        return {};
    }
    if (traces != 1 || depths != 1) {
        return {{}, "not exactly one trace and one depth"};
    }
    const std::optional<std::string> root = ReadRoot(headers.find(traceHeader)->second);
    const std::optional<int> depth = ReadDepth(headers.find(depthHeader)->second);
    if (!root || !depth) {
        return {{}, !root ? "the trace is malformed" : "the depth is malformed"};
    }
    // The caller's own id does not travel; the root stands for it.
    return {{{ActivityTokens::ridAttr, u"-"},
             {ActivityTokens::foregroundRootAttr, TString(*root)},
             {ActivityTokens::activityIdAttr, tarn::ActivityContext::NewTarnId()},
             {ActivityTokens::sponsorActivityIdAttr, TString(*root)},
             {ActivityTokens::depthAttr, TString::number(*depth + 1)},
             {ActivityTokens::serviceDepthAttr, u"1"}},
            {}};
}

}  // namespace packagesearch
