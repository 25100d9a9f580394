#include "config/Environment.h"

#include "config/KeyValueList.h"

#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <utility>

namespace tarn::otlp {

namespace {

class Environment {
public:
    Environment(const std::function<const char*(const char*)>& get,
                std::vector<std::string>& problems)
        : m_get(get),
          m_problems(problems) {}

    // Empty is as good as not set.
    std::string Text(const std::string& name) const {
        const char* const text = m_get(name.c_str());
        return text != nullptr ? text : "";
    }

    // The name and the value of what holds for traces, else for all kinds of data.
    std::pair<std::string, std::string> Exporter(const std::string& what) const {
        std::string name = "OTEL_EXPORTER_OTLP_TRACES_" + what;
        std::string text = Text(name);
        if (text.empty()) {
            name = "OTEL_EXPORTER_OTLP_" + what;
            text = Text(name);
        }
        return {name, text};
    }

    template <class Number>
    void Read(const std::pair<std::string, std::string>& variable,
              std::uint64_t least,
              Number& number) {
        const auto& [name, text] = variable;
        std::uint64_t read = 0;
        if (text.empty()) {
            return;
        }
        const auto result = std::from_chars(text.data(), text.data() + text.size(), read);
        constexpr std::uint64_t most = std::uint64_t{1} << 53;
        if (result.ec != std::errc() || result.ptr != text.data() + text.size() || read < least ||
            read > most) {
            Complain(name, text, "is no number that is of use here");
            return;
        }
        number = Number(static_cast<std::int64_t>(read));
    }

    void Read(const std::pair<std::string, std::string>& variable, Options::Pairs& pairs) {
        const auto& [name, text] = variable;
        if (const auto read = ParseKeyValueList(text)) {
            pairs = text.empty() ? pairs : *read;
        } else {
            Complain(name, text, "is no list of key=value");
        }
    }

    void Complain(const std::string& name, const std::string& text, const char* what) {
        // Headers may be secret.
        const bool isSecret = name.find("HEADERS") != std::string::npos;
        m_problems.push_back(name + (isSecret ? "" : ", \"" + text + "\",") + " " + what +
                             " and is passed over");
    }

private:
    const std::function<const char*(const char*)>& m_get;
    std::vector<std::string>& m_problems;
};

void ReadUrl(Environment& environment, Options& options) {
    const std::string traces = environment.Text("OTEL_EXPORTER_OTLP_TRACES_ENDPOINT");
    const std::string all = environment.Text("OTEL_EXPORTER_OTLP_ENDPOINT");
    const auto isHttp = [](const std::string& url) {
        return url.rfind("http://", 0) == 0 || url.rfind("https://", 0) == 0;
    };
    const char* const complaint = "does not begin with http:// or https://";
    if (!traces.empty() && !isHttp(traces)) {
        environment.Complain("OTEL_EXPORTER_OTLP_TRACES_ENDPOINT", traces, complaint);
    } else if (!traces.empty()) {
        options.url = traces;
    } else if (!all.empty() && !isHttp(all)) {
        environment.Complain("OTEL_EXPORTER_OTLP_ENDPOINT", all, complaint);
    } else if (!all.empty()) {
        options.url = TracesUrlBelow(all);
    }
}

void ReadForm(Environment& environment, Options& options) {
    const auto [protocolName, protocol] = environment.Exporter("PROTOCOL");
    if (protocol == "http/protobuf") {
        options.encoding = Encoding::Protobuf;
    } else if (protocol == "http/json") {
        options.encoding = Encoding::Json;
    } else if (!protocol.empty()) {
        environment.Complain(protocolName, protocol, "is neither http/protobuf nor http/json");
    }
    const auto [compressionName, compression] = environment.Exporter("COMPRESSION");
    if (compression == "gzip" || compression == "none") {
        options.gzip = compression == "gzip";
    } else if (!compression.empty()) {
        environment.Complain(compressionName, compression, "is neither gzip nor none");
    }
}

void ReadFile(const Environment& environment, const std::string& what, std::string& file) {
    const std::string path = environment.Exporter(what).second;
    file = path.empty() ? file : path;
}

}  // namespace

std::string TracesUrlBelow(std::string_view endpoint) {
    while (!endpoint.empty() && endpoint.back() == '/') {
        endpoint.remove_suffix(1);
    }
    return std::string(endpoint) + "/v1/traces";
}

Options ReadEnvironment(Options options,
                        const std::function<const char*(const char*)>& get,
                        std::vector<std::string>& problems) {
    Environment environment(get, problems);
    ReadUrl(environment, options);
    ReadForm(environment, options);
    environment.Read(environment.Exporter("HEADERS"), options.headers);
    environment.Read(environment.Exporter("TIMEOUT"), 1, options.timeout);
    ReadFile(environment, "CERTIFICATE", options.certificateFile);
    ReadFile(environment, "CLIENT_CERTIFICATE", options.clientCertificateFile);
    ReadFile(environment, "CLIENT_KEY", options.clientKeyFile);
    const auto variable = [&](const char* name) {
        return std::pair<std::string, std::string>(name, environment.Text(name));
    };
    if (const std::string service = environment.Text("OTEL_SERVICE_NAME"); !service.empty()) {
        options.serviceName = service;
    }
    environment.Read(variable("OTEL_RESOURCE_ATTRIBUTES"), options.resourceAttributes);
    environment.Read(variable("OTEL_BSP_SCHEDULE_DELAY"), 0, options.batchDelay);
    environment.Read(variable("OTEL_BSP_MAX_EXPORT_BATCH_SIZE"), 1, options.batchSpans);
    environment.Read(variable("OTEL_BSP_MAX_QUEUE_SIZE"), 1, options.queueSpans);
    environment.Read(variable("OTEL_BSP_EXPORT_TIMEOUT"), 1, options.retryFor);
    const std::string disabled = environment.Text("OTEL_SDK_DISABLED");
    if (disabled == "true" || disabled == "TRUE" || disabled == "True") {
        options.isEnabled = false;
    }
    return options;
}

Options OptionsFromEnvironment(Options defaults, std::vector<std::string>* problems) {
    std::vector<std::string> found;
    Options options = ReadEnvironment(
        std::move(defaults), [](const char* name) { return std::getenv(name); }, found);
    if (problems != nullptr) {
        problems->insert(problems->end(), found.begin(), found.end());
    }
    return options;
}

}  // namespace tarn::otlp
