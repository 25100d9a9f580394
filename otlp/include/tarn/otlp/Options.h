#pragma once

#include "tarn/otlp/Export.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace tarn::otlp {

enum class Encoding { Protobuf, Json };

/// An activity that has not ended.
struct OpenActivityInfo {
    std::string name;
    std::string id;
    std::chrono::microseconds age{0};
};

/// Where spans are sent and how, and what may wait meanwhile. A value.
struct Options {
    using Pairs = std::vector<std::pair<std::string, std::string>>;

    /// The complete URL, "http" or "https".
    std::string url = "http://localhost:4318/v1/traces";
    Encoding encoding = Encoding::Protobuf;
    bool gzip = false;  ///< whether requests are compressed
    Pairs headers;      ///< of each request, for example for authentication

    /// Of one request, from connecting to the whole answer.
    std::chrono::milliseconds timeout{10'000};

    // Files in PEM; empty: what libcurl takes by itself, and no certificate of the client.
    std::string certificateFile;  ///< of the authorities that may have signed the receiver's
    std::string clientCertificateFile;
    std::string clientKeyFile;

    /// `service.name` of all spans; empty: that of `resourceAttributes`, else each span's site.
    std::string serviceName;
    Pairs resourceAttributes;

    // A request is sent when one of these is reached.
    std::size_t batchSpans = 512;
    std::size_t batchBytes = std::size_t{4} << 20;  ///< encoded, before they are compressed
    std::chrono::milliseconds batchDelay{5'000};    ///< since its first span

    // What waits to be sent, together with what is being sent. A span beyond either is dropped.
    std::size_t queueSpans = 65'536;
    std::size_t queueBytes = std::size_t{32} << 20;

    /// What may be kept of activities that have begun. The span of one that is beyond has what its
    /// end says.
    std::size_t openBytes = std::size_t{32} << 20;

    // Requests are retried if that can help: after a delay that doubles each time and is randomly
    // up to a half shorter, and not before the receiver allows it.
    std::chrono::milliseconds firstBackOff{1'000};
    std::chrono::milliseconds longestBackOff{30'000};
    std::chrono::milliseconds retryFor{300'000};  ///< then its spans are dropped; 0: never

    /// How long the exporter's end waits.
    std::chrono::milliseconds endDeadline{5'000};

    /// How often activities are listed that have been open for that long; 0: never. They go to
    /// `onOpen`, longest first; without one to the log, as a message that names twenty of them.
    std::chrono::milliseconds openInterval{0};
    std::function<void(const std::vector<OpenActivityInfo>&)> onOpen;

    /// Is told, at most once a minute, what was lost and why. Called on a thread of the exporter;
    /// its exceptions are ignored. If empty, a warning is logged.
    std::function<void(const std::string&)> onProblem;

    bool isEnabled = true;  ///< if not, nothing is sent and no thread is started
};

/// The options as the environment sets them: `OTEL_EXPORTER_OTLP_*` and its `_TRACES_` variants,
/// `OTEL_SERVICE_NAME`, `OTEL_RESOURCE_ATTRIBUTES`, `OTEL_BSP_*`, `OTEL_SDK_DISABLED`. What is not
/// set, or is empty, stays as in `defaults`; so does what cannot be parsed, for which `problems`,
/// unless null, gets a sentence. Call it before other threads set the environment.
TARN_OTLP_EXPORT Options OptionsFromEnvironment(Options defaults = {},
                                                std::vector<std::string>* problems = nullptr);

}  // namespace tarn::otlp
