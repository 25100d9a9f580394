// Headers of a request, against the rule said once more: nothing but what the tracer writes is
// taken over, nothing is thrown, and what is refused is counted.
#include "Input.h"

#include "tarn/ActivityScope.h"
#include "tarn/ActivityTracer.h"
#include "tarn/OptTarn.h"

#include <algorithm>
#include <optional>
#include <string>

namespace {

/// What an id of another process may be; nothing else gets into the log.
bool IsId(const std::string& text, const tarn::ExtractionLimits& limits) {
    return !text.empty() && text.size() <= limits.idCharacters &&
           std::all_of(text.begin(), text.end(), [](char character) {
               return character >= '!' && character <= '~' && character != ':';
           });
}

/// A header that is right but for what the input changes.
std::string Trace(fuzz::Input& input) {
    if (input.Flag()) {
        return input.Bytes();
    }
    const std::string id = input.Bytes();
    std::string trace = id + ":" + id + ":0";
    if (input.Flag()) {
        trace[input.Number<unsigned char>() % trace.size()] = input.Number<char>();
    }
    return trace;
}

std::string Depth(fuzz::Input& input) {
    return input.Flag() ? input.Bytes() : std::to_string(input.Number<int>());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    OptTarn::SetIsForegroundThreadContextEnabled(true);
    fuzz::Input input(data, size);
    tarn::ExtractionLimits limits;
    limits.idCharacters = input.Number<unsigned char>();
    limits.depth = input.Number<int>();
    const std::string trace = Trace(input);
    const std::string depth = Depth(input);
    const uint64 refusedBefore = tarn::ActivityTracer::GetRefusedHeaders();

    const auto received = tarn::ActivityTracer::ExtractContext(trace, depth, limits);

    const bool isCounted = tarn::ActivityTracer::GetRefusedHeaders() == refusedBefore + 1;
    const bool isThere = !trace.empty() || !depth.empty();
    fuzz::Require(isCounted == (isThere && !received), "what is refused is counted");
    if (!received) {
        const std::string id = trace.substr(0, trace.find(':'));
        const bool isDepth = !depth.empty() && depth.size() < 10 &&
                             depth.find_first_not_of("0123456789") == std::string::npos &&
                             std::stoi(depth) <= limits.depth;
        const bool isShort = trace.size() <= limits.headerBytes;
        fuzz::Require(!isDepth || !isShort || !IsId(id, limits) || trace != id + ":" + id + ":0",
                      "what the tracer writes is taken over");
        return 0;
    }
    const std::string root = received->parent->GetRootId().ToUtf8();
    fuzz::Require(IsId(root, limits), "only ids are taken over");
    fuzz::Require(trace == root + ":" + root + ":0", "the trace has the tracer's form");
    const int traceDepth = received->parent->GetTraceDepth();
    fuzz::Require(traceDepth > 0 && traceDepth - 1 <= limits.depth,
                  "the depth is within its limit");
    const tarn::ActivityScope scope(
        "serve", tarn::CustomContext(Metrics::NameValueList()), {}, {}, *received);
    fuzz::Require(scope.GetActivityContext()->GetRootId().ToUtf8() == root,
                  "a scope takes the context over");
    return 0;
}
