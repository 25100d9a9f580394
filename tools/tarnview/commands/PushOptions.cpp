#include "commands/CommonOptions.h"
#include "commands/PushCommand.h"
#include "config/Environment.h"

#include <iostream>
#include <memory>
#include <string>
#include <vector>

namespace tarnview {

namespace {

constexpr const char* pushFooter =
    R"(The environment variables OTEL_EXPORTER_OTLP_* hold, but for the endpoint. What has not ended is not sent;
with a checkpoint it is sent by a later run, in which it has.

Examples:
  tarnview push http://localhost:4318 server.log
  tarnview push --checkpoint server.pushed https://collector:4318 server.log)";

// A URL without a path is that of a receiver for all kinds of data.
std::string TracesUrl(const std::string& url) {
    const std::size_t scheme = url.find("://");
    if (url.rfind("http://", 0) != 0 && url.rfind("https://", 0) != 0) {
        throw CLI::ValidationError("URL", "'" + url + "' begins with neither http:// nor https://");
    }
    const std::size_t path = url.find('/', scheme + 3);
    return path == std::string::npos || path + 1 == url.size() ? tarn::otlp::TracesUrlBelow(url)
                                                               : url;
}

tarn::otlp::Options FromEnvironment() {
    std::vector<std::string> problems;
    tarn::otlp::Options options = tarn::otlp::OptionsFromEnvironment({}, &problems);
    for (const std::string& problem : problems) {
        std::cerr << "tarnview: " << problem << '\n';
    }
    return options;
}

}  // namespace

void AddPush(CLI::App& program, CommonOptions& common, Command& chosen) {
    struct Given {
        PushOptions push;
        std::string url;
        std::string service;
        std::vector<std::string> headers;
        bool isJson = false;
        bool isCompressed = false;
    };

    const auto given = std::make_shared<Given>();
    CLI::App& command =
        *program.add_subcommand("push", "Ended activities as spans to a receiver of OTLP");
    command.add_option("URL", given->url, "The receiver; /v1/traces is added if there is no path")
        ->required();
    AddInputOptions(command, given->push.input);
    command
        .add_option("--checkpoint",
                    given->push.checkpoint,
                    "A file that says how far the logs are pushed; for one receiver and one set "
                    "of logs")
        ->type_name("FILE");
    command.add_flag("--json", given->isJson, "JSON instead of protobuf");
    command.add_flag("--gzip", given->isCompressed, "Compressed");
    command
        .add_option(
            "--header", given->headers, "A header of each request; may be given several times")
        ->type_name("NAME=VALUE")
        ->allow_extra_args(false);
    command.add_option("--service", given->service, "service.name, else the site")
        ->type_name("NAME");
    AddCommonOptions(command, common);
    command.footer(pushFooter);
    command.callback([given, &chosen] {
        tarn::otlp::Options& otlp = given->push.otlp;
        otlp = FromEnvironment();
        otlp.url = TracesUrl(given->url);
        otlp.encoding = given->isJson ? tarn::otlp::Encoding::Json : otlp.encoding;
        otlp.gzip = otlp.gzip || given->isCompressed;
        otlp.serviceName = given->service.empty() ? otlp.serviceName : given->service;
        for (const std::string& header : given->headers) {
            const std::size_t equals = header.find('=');
            if (equals == 0 || equals == std::string::npos) {
                throw CLI::ValidationError("--header", "'" + header + "' is no NAME=VALUE");
            }
            otlp.headers.emplace_back(header.substr(0, equals), header.substr(equals + 1));
        }
        chosen = [given](Context& context) { return RunPush(given->push, context); };
    });
}

}  // namespace tarnview
